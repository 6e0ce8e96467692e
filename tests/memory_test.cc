/// Memory that runs out, and threads that can't be had.

#include "host_window.h"
#include "hostlink/discovery.h"
#include "limited_memory.h"

#if !defined(_WIN32)
#include <cerrno>
#include <dlfcn.h>

static std::atomic<bool> noThread = false;
static std::atomic<int> freedReplies = 0;

// These two are called in the place of the system's.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* kind, void* (*body)(void*), void* argument) {
    static const auto create = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return noThread ? EAGAIN : create(thread, kind, body, argument);
}

void CoTaskMemFree(LPVOID block) {
    ++freedReplies;
    std::free(block);
}
#endif

namespace {

constexpr std::size_t Scarce = 4096;

struct MemoryShortage : ServerTest {
    HostWindow Host{[](HostCommand& command) -> LRESULT {
        if (command.CommandId != HostCommandId_GetBoardState) return Echo(command);
        SetLongReply(command, WideString(Scarce - 100, 'x'));
        LongReply.emplace(Scarce / 2);
        return command.Success = 1;
    }};
    inline static std::optional<LargestAllocation> LongReply;

    MemoryShortage() { Start(Host.Handle); }
    static void ExpectService(RawClient& client) { EXPECT_EQ(client.Exchange("GET_NET\ta"), "OK\t7:a"); }
};

TEST_F(MemoryShortage, EndsTheConnectionOfAClientWhoseLineNeverEndsAndNoOther) {
    RawClient patient("patient"), endless("endless");
    const std::string line(65536, 'x');
    {
        const LargestAllocation limit(Scarce);
        EXPECT_FALSE(endless.Send(line));
        ExpectService(patient);
    }
    EXPECT_EQ(endless.Read(), "<end>");
    EXPECT_TRUE(SessionsBecome(1));
}

TEST_F(MemoryShortage, FreesAHostsReplyThatCannotBeConvertedAndEndsNoOtherConnection) {
    RawClient patient("patient"), asking("asking");
    EXPECT_EQ(asking.Exchange("GET_BOARD_STATE"), "<end>");
    EXPECT_TRUE(SessionsBecome(1));
    ExpectService(patient);
    LongReply.reset();
#if !defined(_WIN32)
    EXPECT_EQ(freedReplies, 2) << "that reply, and the patient client's";
#endif
}

#if !defined(_WIN32)

TEST_F(MemoryShortage, TurnsAClientAwayThatGetsNoThreadAndAStartTakesBackWhatItDid) {
    RawClient patient("patient");
    noThread = true;
    EXPECT_EQ(RawClient().Exchange("HELLO refused"), "<end>");
    ExpectService(patient);
    noThread = false;
    RawClient next("next");
    ExpectService(next);
    std::optional<LargestAllocation> noMemory(0);
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 0);
    noMemory.reset();
    OrvaneMcp_StopControlServer();
    noMemory.emplace(0);
    EXPECT_EQ(OrvaneMcp_StartControlServer(nullptr), 0);
    noMemory.reset();
    noThread = true;
    EXPECT_EQ(Start(), 0);
    noThread = false;
    EXPECT_EQ(WideToUtf8(ServerState().LastErrorText), "Failed to start Orvane MCP control server thread.");
    EXPECT_FALSE(IsControlServerAnnounced() || ServerState().Running);
}

#endif

}  // namespace
