#include "control/host_command.h"

#include "host_window.h"

TEST_F(ServerTest, TheReplyLineIsChosenFromWhatTheHostLeaves) {
    const std::tuple<int, LRESULT, WideString, std::optional<WideString>, std::string> rows[] = {
        {0, 0, {}, {}, "ERR\tOrvane command failed."},
        {1, 0, {}, {}, "ERR\tOK"},
        {-1, -1, {}, {}, "OK\tOK"},
        {0, 1, TEXT("a\r\n\\n\t"), {}, "ERR\ta\\r\\n\\\\n\t"},
        {1, 1, TEXT("x"), WideString(100000, 'y'), "OK\t" + std::string(100000, 'y')},
        {1, 1, TEXT("x"), TEXT(""), "OK\tOK"},
        {1, 1, TEXT("x"), WideString{'a', 0xD83D, 0xDE00, 0xD83D, 0, 'b'}, "OK\ta\xF0\x9F\x98\x80\xEF\xBF\xBD"},
        {1, 1, TEXT("x"), WideString{0, 'a', 0xE9}, std::string("OK\t\0a?", 6)},
    };
    for (const auto& row : rows) {
        HostWindow host([&](HostCommand& command) {
            const auto& [success, result, reply, longReply, line] = row;
            reply.copy(command.Reply, std::size(command.Reply));
            if (longReply) SetLongReply(command, *longReply);
            command.Success = success;
            return result;
        });
        Start(host.Handle);
        EXPECT_EQ(SendHostCommand(HostCommandId_GetNet, "", ServerState().ServerRun), std::get<4>(row));
        EXPECT_EQ(SendHostCommand(2, "", ServerState().ServerRun - 1), "ERR\tOrvane main window is not available.");
        OrvaneMcp_StopControlServer();
    }
}
