/// What the project relies on the system to do, in both lanes.

#include "child_process.h"
#include "hostlink/discovery.h"
#include "platform/error_text.h"
#include "platform/module.h"
#include "platform/own_process.h"
#include "protocol/control_protocol.h"

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
    std::promise<void> goOn;
    JoinableThread thread;
    EXPECT_TRUE(thread.EndsWithin(0)) << "none was started";
    const auto wait = [](void* argument) -> unsigned {
        static_cast<std::promise<void>*>(argument)->get_future().wait();
        return 0;
    };
    EXPECT_TRUE(thread.Start(wait, &goOn));
    EXPECT_FALSE(thread.EndsWithin(1));
    goOn.set_value();
    EXPECT_TRUE(thread.EndsWithin(30000));
}

TEST(Process, IsKnownByItsIdWhileItLives) {
    const OwnedHandle parent = OpenParentProcess(), snapshot = TakeProcessSnapshot();
    EXPECT_TRUE(parent && WaitForSingleObject(parent.Get(), 0) == WAIT_TIMEOUT);
    const PROCESSENTRY32W entry = FindProcessEntry(snapshot, GetCurrentProcessId());
    const WideString path = GetProcessImagePath(GetCurrentProcessId());
    EXPECT_EQ(path.substr(path.find_last_of(TEXT("/\\")) + 1), entry.szExeFile);
    EXPECT_TRUE(path.starts_with(GetExecutableDirectory()) && path == ModulePath(nullptr));
    EXPECT_TRUE(IsProcessAlive(GetCurrentProcessId()) && IsProcessAlive(entry.th32ParentProcessID));
    for (const DWORD id : {DWORD{0}, DWORD{0x7FFFFFFC}}) {
        EXPECT_FALSE(IsProcessAlive(id)) << id;
        EXPECT_EQ(FindProcessEntry(snapshot, id).th32ProcessID, 0u) << id;
        EXPECT_EQ(WideToUtf8(GetProcessImagePath(id)), "") << id;
    }
    EXPECT_FALSE(SystemErrorText(ERROR_ACCESS_DENIED).empty());
}
