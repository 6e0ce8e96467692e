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

struct Host : ChildProcess {
    explicit Host(const char* mode) : ChildProcess(ModulePath(nullptr), {"--host", mode}) {
        EXPECT_EQ(Read("\n"), "serving");
    }
};

/// A client of another process's server, greeted.
RawClient ClientOf(DWORD processId) {
    return RawClient("guest", ControlPipeName(processId));
}

TEST(LivingInAHost, AHostThatExitsInTheMiddleOfACommandIsGoneAndSoIsItsAnnouncement) {
    Host host("exit");
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
        Host host(mode);
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
    Host first("exit");
    Host second("free");
    EXPECT_THAT(FindControlPipes(), testing::ElementsAre(ControlPipeName(second.Id))) << "the last to start";
    first.Send("\n");
    EXPECT_EQ(first.WaitForExitCode(), 0u);
    EXPECT_EQ(FindControlPipes().size(), 1u) << "nobody withdraws another's";
    second.Kill();
    EXPECT_TRUE(Announced());
    EXPECT_THAT(FindControlPipes(), testing::IsEmpty()) << "nobody lives to serve what was announced";
    AnnounceControlServer(false);
}

}  // namespace
