#include "control/host_command.h"

#include "host_window.h"

using HostCommandReply = ServerTest;

static const std::string NoWindow = "ERR\tOrvane main window is not available.";

TEST_F(HostCommandReply, ComesFromWhatTheHostLeavesInTheRecord) {
    const struct {
        int Success;
        LRESULT Result;
        WideString Reply;
        std::optional<WideString> LongReply;
        std::string Line;
    } rows[] = {
        {0, 0, {}, {}, "ERR\tOrvane command failed."},
        {1, 0, {}, {}, "ERR\tOK"},
        {-1, -1, {}, {}, "OK\tOK"},
        {0, 1, TEXT("a\r\n\\n\t"), {}, "ERR\ta\\r\\n\\\\n\t"},
        {1, 1, WideString(16384, 'x'), {}, "OK\t" + std::string(16384, 'x')},
        {1, 1, TEXT("x"), WideString(100000, 'y'), "OK\t" + std::string(100000, 'y')},
        {1, 1, TEXT("x"), TEXT(""), "OK\tOK"},
        {1, 1, TEXT("x"), WideString{'a', 0xD83D, 0xDE00, 0xD83D, 0, 'b'}, "OK\ta\xF0\x9F\x98\x80\xEF\xBF\xBD"},
        {1, 1, TEXT("x"), WideString{0, 'a', 0xE9}, std::string("OK\t\0a?", 6)},
    };
    for (const auto& row : rows) {
        std::optional<HostWindow> host(std::in_place, [&](HostCommand& command) {
            row.Reply.copy(command.Reply, std::size(command.Reply));
            if (row.LongReply) SetLongReply(command, *row.LongReply);
            command.Success = row.Success;
            return row.Result;
        });
        Start(host->Handle);
        const std::uint64_t run = ServerState().ServerRun;
        EXPECT_EQ(SendHostCommand(HostCommandId_GetNet, "", run), row.Line);
        EXPECT_EQ(SendHostCommand(HostCommandId_GetNet, "", run - 1), NoWindow) << "of a run that is over";
        host.reset();
        EXPECT_EQ(SendHostCommand(HostCommandId_GetNet, "", run), NoWindow) << "a window that was destroyed";
        OrvaneMcp_StopControlServer();
    }
}
