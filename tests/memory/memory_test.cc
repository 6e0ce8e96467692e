/// Memory that runs out. For the native lane alone, where a process can be given less of it.

#include "../host_window.h"
#include "bridge/message_loop.h"
#include "control/announcement.h"
#include "hostlink/connection.h"
#include "hostlink/discovery.h"
#include "protocol/control_protocol.h"
#include "tools/results.h"

#include <fstream>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

/// In the place of the system's, as the next one: at a session's own pace of 512 bytes in 100 ms, filling memory would
/// take hours.
void Sleep(DWORD) {
    std::this_thread::yield();
}

DWORD GetModuleFileNameW(HMODULE, LPWSTR, DWORD) {
    return 0;
}

namespace {

constexpr std::size_t MiB = 1 << 20;

std::size_t AddressSpace() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(getpagesize());
}

/// For as long as it lives, the process gets no more than `bytes` on top of what it has.
struct MemoryLeft {
    explicit MemoryLeft(std::size_t bytes) { Limit(AddressSpace() + bytes); }
    ~MemoryLeft() { Limit(RLIM_INFINITY); }
    static void Limit(rlim_t bytes) {
        const rlimit limit{bytes, RLIM_INFINITY};
        EXPECT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    }
};

using ServerStart = ServerTest;

struct MemoryShortage : ServerTest {
    HostWindow Host{[this](HostCommand& command) -> LRESULT {
        if (command.CommandId != HostCommandId_GetBoardState) return Echo(command);
        SetLongReply(command, WideString(32 * MiB, 'x'));
        malloc_trim(0);
        Scarce.emplace(MiB);
        return command.Success = 1;
    }};
    std::optional<MemoryLeft> Scarce;

    MemoryShortage() {
        mallopt(M_ARENA_MAX, 1);  // or each thread sets an area of its own aside
        Start(Host.Handle);
    }
    static void ExpectService(RawClient& client) { EXPECT_EQ(client.Exchange("GET_NET\ta"), "OK\t7:a"); }
};

TEST_F(ServerStart, FailsWithoutAThreadOrADirectoryAndTakesBackWhatItDid) {
    const auto expectFailure = [](WideView directory, const char* text) {
        EXPECT_EQ(Start(nullptr, 0, directory), 0);
        EXPECT_EQ(WideToUtf8(ServerState().LastErrorText), text);
        EXPECT_FALSE(IsControlServerAnnounced() || ServerState().Running);
    };
    expectFailure(TEXT(""), "Failed to resolve Orvane directory.");
    const MemoryLeft lessThanAStack(MiB);
    expectFailure(TEXT("C:\\Orvane"), "Failed to start Orvane MCP control server thread.");
}

// The first with clients: later ones leave stacks behind that a thread can have without new memory.
TEST_F(MemoryShortage, TurnsAClientAwayThatGetsNoThreadAndServesTheNext) {
    RawClient patient("patient");
    {
        const MemoryLeft lessThanAStack(MiB);
        EXPECT_EQ(RawClient().Exchange("HELLO refused"), "<end>");
        ExpectService(patient);
    }
    RawClient next("next");
    ExpectService(next);
}

TEST_F(MemoryShortage, EndsTheConnectionOfAClientWhoseLineNeverEndsAndNoOther) {
    RawClient patient("patient"), endless("endless");
    std::size_t sent = 0;
    {
        const MemoryLeft some(64 * MiB);
        for (const std::string piece(65536, 'x'); sent < 256 * MiB && endless.Send(piece);) sent += piece.size();
        ExpectService(patient);
    }
    EXPECT_TRUE(sent > 8 * MiB && sent < 64 * MiB) << sent;
    EXPECT_EQ(endless.Read(), "<end>");
    EXPECT_TRUE(SessionsBecome(1));
    EXPECT_THAT(ClientNames(), testing::ElementsAre("patient"));
}

TEST_F(MemoryShortage, FreesAHostsReplyThatCannotBeConvertedAndEndsNoOtherConnection) {
    RawClient patient("patient"), asking("asking");
    const std::size_t before = AddressSpace();
    EXPECT_EQ(asking.Exchange("GET_BOARD_STATE"), "<end>");
    EXPECT_TRUE(SessionsBecome(1));
    ExpectService(patient);
    EXPECT_LT(AddressSpace(), before + 32 * MiB);
}

TEST_F(MemoryShortage, IsReportedByTheBridgeForAReplyAndItsCommandIsNotRepeated) {
    OrvaneMcp_StopControlServer();
    ServerState().PipeName = ControlPipeName(4242);
    HANDLE pipe = CreateNamedPipeW(ControlPipeName(4242).c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr);
    std::thread viewer([pipe] {
        ConnectNamedPipe(pipe, nullptr);
        MarkedReader reader;
        reader.Until("\n", pipe);
        WriteBytes(pipe, "OK\n");
        for (const std::string piece(65536, 'x'); WriteBytes(pipe, piece);) {
        }
        CloseHandle(pipe);
    });
    AnnounceControlServer(true);
    EXPECT_TRUE(EnsureControlConnection(MainThreadConnectTimeOut));
    testing::internal::CaptureStdout();
    {
        const MemoryLeft some(64 * MiB);
        RunControlCommand("1", "EXPORT_ORV\tfile");
    }
    viewer.join();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr(ReplyTooLargeText));
}

}  // namespace
