/// The shared library in processes of its own kind of host: how they end, stop, free it and go on.

#include "child_process.h"
#include "control/announcement.h"
#include "hostlink/discovery.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <gmock/gmock.h>

namespace {

bool Announced() {
    return !ReadRegistryString(HKEY_CURRENT_USER, Announcement::Key, Announcement::PipeName).empty();
}

ChildProcess StartHost(const char* mode) {
    return ChildProcess(ModulePath(nullptr), {"--host", mode});
}

/// A client of another process's server, greeted.
RawClient ClientOf(DWORD processId) {
    return RawClient("guest", ControlPipeName(processId));
}

TEST(LivingInAHost, AHostThatExitsInTheMiddleOfACommandIsGoneAndSoIsItsAnnouncement) {
    ChildProcess host = StartHost("exit");
    EXPECT_EQ(host.Read("\n"), "serving");
    RawClient idle = ClientOf(host.Id), busy = ClientOf(host.Id);
    busy.Send("GET_BOARD_STATE\n");
    EXPECT_EQ(host.Read("\n"), "command");
    EXPECT_TRUE(Announced());
    host.Send("\n");
    EXPECT_EQ(host.WaitForExitCode(), 0u);
    EXPECT_FALSE(Announced());
    EXPECT_EQ(idle.Read() + busy.Read(), "<end><end>");
}

TEST(LivingInAHost, AHostMayStopInsideACommandAndFreeTheLibraryAtAnyTime) {
    for (const char* mode : {"stop", "free", "stop-free"}) {
        SCOPED_TRACE(mode);
        ChildProcess host = StartHost(mode);
        EXPECT_EQ(host.Read("\n"), "serving");
        {
            RawClient client = ClientOf(host.Id);
            client.Send("GET_BOARD_STATE\n");
            EXPECT_EQ(host.Read("\n"), "command");
            // The command that was under way is answered; after a stop the session then ends by itself.
            EXPECT_EQ(client.Read(), "OK\t2:");
            EXPECT_EQ(mode == std::string("free") ? "<end>" : client.Read(), "<end>");
        }
        host.Input.reset();
        EXPECT_EQ(host.WaitForExitCode(), 0u);
        EXPECT_FALSE(Announced());
    }
}

TEST(LivingInAHost, TwoViewersShareOneAnnouncementAndAKilledOnesIsPassedOver) {
    ChildProcess first = StartHost("exit");
    EXPECT_EQ(first.Read("\n"), "serving");
    ChildProcess second = StartHost("free");
    EXPECT_EQ(second.Read("\n"), "serving");
    EXPECT_THAT(FindControlPipes(), testing::ElementsAre(ControlPipeName(second.Id))) << "the last to start";
    first.Send("\n");
    EXPECT_EQ(first.WaitForExitCode(), 0u);
    EXPECT_EQ(FindControlPipes().size(), 1u) << "nobody withdraws another's";
    second.Kill();
    EXPECT_TRUE(Announced());
    EXPECT_THAT(FindControlPipes(), testing::IsEmpty()) << "nobody lives to serve what was announced";
    AnnounceControlServer(false);
}

TEST(LivingInAHost, FiveHundredClientsLeaveNothingBehind) {
    ChildProcess host = StartHost("stay");
    EXPECT_EQ(host.Read("\n"), "serving");
    const auto round = [&host] {
        for (int i = 0; i < 250 && !HasFailure(); ++i) {
            RawClient client = ClientOf(host.Id);
            if (i % 10 != 0) continue;
            EXPECT_EQ(client.Exchange("GET_BOARD_STATE"), "OK\t2:");
            EXPECT_EQ(host.Read("\n"), "command");
        }
        host.Send("\n");
        const std::string used = host.Read("\n");
        EXPECT_NE(used, "<end>") << "clients stay";
        return used;
    };
    EXPECT_EQ(LeftBehind(round), "");
    host.Input.reset();
    EXPECT_EQ(host.WaitForExitCode(), 0u);
}

}  // namespace
