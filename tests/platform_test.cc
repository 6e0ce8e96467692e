/// What the project relies on the system to do, in both lanes.

#include "child_process.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <future>
#include <gtest/gtest.h>

namespace {

/// A pipe with a server's end and a client's. Each call gives the error that it fails with, or 0.
struct Pipes : testing::Test {
    const WideString Name = ControlPipeName(GetCurrentProcessId()) + TEXT("_test");
    OwnedHandle Server, Client;

    static DWORD Error(BOOL succeeded) { return succeeded ? DWORD{ERROR_SUCCESS} : GetLastError(); }
    void Create() {
        Server = OwnedHandle(CreateNamedPipeW(Name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                                              512, 512, 0, nullptr));
    }
    DWORD Open() {
        Client =
            OwnedHandle(CreateFileW(Name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        return Error(static_cast<bool>(Client));
    }
    DWORD Connect() const { return Error(ConnectNamedPipe(Server.Get(), nullptr)); }
    void CreateAndOpen() {
        Create();
        EXPECT_EQ(Open(), DWORD{ERROR_SUCCESS});
        EXPECT_EQ(Connect(), DWORD{ERROR_PIPE_CONNECTED});
    }
    static DWORD Write(const OwnedHandle& end, std::size_t size) {
        return Error(WriteBytes(end.Get(), std::string(size, 'x')));
    }
    static DWORD Read(const OwnedHandle& end) {
        char byte;
        DWORD count = 0;
        return Error(ReadFile(end.Get(), &byte, 1, &count, nullptr));
    }
    static DWORD Peek(const OwnedHandle& end, DWORD expected) {
        DWORD count = 0;
        const DWORD error = Error(PeekNamedPipe(end.Get(), nullptr, 0, nullptr, &count, nullptr));
        EXPECT_EQ(count, expected);
        return error;
    }
    /// Runs a call that blocks on `end` and cancels it; one cancel may come before the call.
    template <typename Call>
    static DWORD Cancelled(const OwnedHandle& end, Call call) {
        std::future<DWORD> error = std::async(std::launch::async, call);
        EXPECT_TRUE(Eventually([&] {
            CancelIoEx(end.Get(), nullptr);
            return error.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        return error.get();
    }
};

TEST_F(Pipes, DeliverWhatWasWrittenBeforeTheirClientLeft) {
    CreateAndOpen();
    EXPECT_EQ(Peek(Server, 0), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Write(Client, 1), DWORD{ERROR_SUCCESS});
    Client = {};
    EXPECT_EQ(Peek(Server, 1), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Read(Server), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Peek(Server, 0), DWORD{ERROR_BROKEN_PIPE});
    EXPECT_EQ(Read(Server), DWORD{ERROR_BROKEN_PIPE});
    EXPECT_EQ(Write(Server, 1), DWORD{ERROR_NO_DATA});
}

TEST_F(Pipes, LetABlockedCallBeCancelledWithoutHarmToALaterOne) {
    Create();
    EXPECT_EQ(Cancelled(Server, [this] { return Connect(); }), DWORD{ERROR_OPERATION_ABORTED});
    EXPECT_EQ(Open(), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Connect(), DWORD{ERROR_PIPE_CONNECTED});
    EXPECT_EQ(Cancelled(Client, [this] { return Read(Client); }), DWORD{ERROR_OPERATION_ABORTED});
    EXPECT_EQ(Write(Server, 1), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Read(Client), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Cancelled(Server, [this] { return Write(Server, 1 << 20); }), DWORD{ERROR_OPERATION_ABORTED});
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
