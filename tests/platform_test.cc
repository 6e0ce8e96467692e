/// What the project relies on the system to do, in both lanes.

#include "child_process.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <future>
#include <gtest/gtest.h>

namespace {

TEST(Pipe, KeepsTheBytesOfAClientThatHasGoneAndThenSaysSo) {
    const WideString name = ControlPipeName(GetCurrentProcessId()) + TEXT("_test");
    const OwnedHandle server(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT, 1, 512, 512, 0, nullptr));
    {
        const RawClient client(name);
        EXPECT_FALSE(ConnectNamedPipe(server.Get(), nullptr));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_PIPE_CONNECTED});
        EXPECT_TRUE(WriteBytes(client.Pipe->Get(), "bytes"));
    }
    DWORD count = 0;
    EXPECT_TRUE(PeekNamedPipe(server.Get(), nullptr, 0, nullptr, &count, nullptr));
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(MarkedReader().Until("\n", server.Get()), "bytes<end>");
    EXPECT_FALSE(PeekNamedPipe(server.Get(), nullptr, 0, nullptr, &count, nullptr));
    EXPECT_FALSE(WriteBytes(server.Get(), "x"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});
}

TEST(Processes, AreListedWithTheirParentUntilTheyEnd) {
    ChildProcess child(ModulePath(nullptr), {"--host", "free"});
    const auto entry = [&] { return FindProcessEntry(TakeProcessSnapshot(), child.Id); };
    EXPECT_EQ(entry().th32ParentProcessID, GetCurrentProcessId());
    EXPECT_TRUE(ModulePath(nullptr).ends_with(entry().szExeFile));
    child.Kill();
    EXPECT_EQ(entry().th32ProcessID, 0u);
}

TEST(JoinableThread, HasEndedOnceItsBodyHas) {
    std::promise<void> finish;
    JoinableThread thread;
    EXPECT_TRUE(thread.EndsWithin(0)) << "none was started";
    EXPECT_TRUE(thread.Start(
        [](void* promise) -> unsigned {
            static_cast<std::promise<void>*>(promise)->get_future().wait();
            return 0;
        },
        &finish));
    EXPECT_FALSE(thread.EndsWithin(1));
    finish.set_value();
    EXPECT_TRUE(thread.EndsWithin(60000));
}

}  // namespace
