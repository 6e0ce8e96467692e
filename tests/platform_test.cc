/// What the project relies on the system to do, in both lanes.

#include "hostlink/discovery.h"
#include "platform/module.h"
#include "platform/own_process.h"
#include "protocol/control_protocol.h"
#include "raw_client.h"

#include <future>
#include <gtest/gtest.h>

TEST(Pipe, KeepsTheBytesOfAClientThatHasGoneAndThenSaysSo) {
    const WideString name = ControlPipeName(GetCurrentProcessId()) + TEXT("_test");
    const HANDLE server = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT, 1, 512, 512, 0, nullptr);
    PipeInstance instance{OwnedHandle(server)}, unconnected{OwnedHandle()};
    {
        RawClient client(name);
        EXPECT_FALSE(ConnectNamedPipe(server, nullptr));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_PIPE_CONNECTED});
        EXPECT_TRUE(client.Send("bytes"));
        WriteReplyLine(instance, "reply");
        EXPECT_EQ(client.Read(), "reply");
    }
    DWORD count = 0;
    EXPECT_TRUE(PeekNamedPipe(server, nullptr, 0, nullptr, &count, nullptr));
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(MarkedReader().Until("\n", server), "bytes<end>");
    EXPECT_FALSE(PeekNamedPipe(server, nullptr, 0, nullptr, &count, nullptr));
    EXPECT_FALSE(WriteBytes(server, "x"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});
    EXPECT_FALSE(instance.Broken);
    for (PipeInstance* const broken : {&instance, &unconnected}) {
        WriteReplyLine(*broken, "reply");
        EXPECT_TRUE(broken->Broken);
        EXPECT_EQ(broken->Leaving, broken == &unconnected) << "a client that has gone is served what it had sent";
    }
}

TEST(JoinableThread, IsAwaitedForSoLongAtMost) {
    static std::promise<void> goOn;
    JoinableThread thread;
    EXPECT_TRUE(thread.EndsWithin(0)) << "none was started";
    EXPECT_TRUE(thread.Start([](void*) -> unsigned { return goOn.get_future().wait(), 0; }, nullptr));
    EXPECT_FALSE(thread.EndsWithin(1));
    goOn.set_value();
    EXPECT_TRUE(thread.EndsWithin(30000));
}

TEST(Process, IsKnownByItsIdWhileItLives) {
    const OwnedHandle parent = OpenParentProcess(), snapshot = TakeProcessSnapshot();
    EXPECT_TRUE(parent && WaitForSingleObject(parent.Get(), 0) == WAIT_TIMEOUT);
    const PROCESSENTRY32W entry = FindProcessEntry(snapshot, GetCurrentProcessId());
    const WideString path = GetProcessImagePath(GetCurrentProcessId());
    EXPECT_TRUE(path == ModulePath(nullptr) && path.ends_with(entry.szExeFile));
    EXPECT_TRUE(path.starts_with(GetExecutableDirectory()) && IsProcessAlive(entry.th32ParentProcessID));
    for (const DWORD id : {0u, 0x7FFFFFFCu}) {
        EXPECT_FALSE(IsProcessAlive(id) || FindProcessEntry(snapshot, id).th32ProcessID != 0) << id;
        EXPECT_EQ(GetProcessImagePath(id), TEXT("")) << id;
    }
}
