/// What the project relies on the system to do, in both lanes.

#include "child_process.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <future>
#include <gtest/gtest.h>

namespace {

/// A pipe with a server's end and a client's.
struct Pipes : testing::Test {
    const WideString Name = ControlPipeName(GetCurrentProcessId()) + TEXT("_test");
    std::optional<OwnedHandle> Server, Client;

    static std::string Result(BOOL succeeded) {
        return succeeded ? "success" : "error " + std::to_string(GetLastError());
    }
    void Create() {
        Server.emplace(CreateNamedPipeW(Name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT, PIPE_UNLIMITED_INSTANCES, 512, 512,
                                        0, nullptr));
        EXPECT_TRUE(*Server);
    }
    std::string Open() {
        Client.emplace(CreateFileW(Name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        return Result(static_cast<bool>(*Client));
    }
    void CreateAndOpen() {
        Create();
        EXPECT_EQ(Open(), "success");
        EXPECT_EQ(Result(ConnectNamedPipe(Server->Get(), nullptr)), Error(ERROR_PIPE_CONNECTED));
    }
    static std::string Error(DWORD code) { return "error " + std::to_string(code); }
    static std::string Read(const OwnedHandle& end) {
        char bytes[64];
        DWORD count = 0;
        const BOOL succeeded = ReadFile(end.Get(), bytes, sizeof bytes, &count, nullptr);
        return succeeded ? std::string(bytes, count) : Result(FALSE);
    }
    static std::string Peek(const OwnedHandle& end) {
        DWORD count = 0;
        const BOOL succeeded = PeekNamedPipe(end.Get(), nullptr, 0, nullptr, &count, nullptr);
        return succeeded ? std::to_string(count) : Result(FALSE);
    }
    /// Runs a call that blocks on `end` and cancels it; one cancel may come before the call.
    template <typename Call>
    static std::string Cancelled(const OwnedHandle& end, Call call) {
        std::future<std::string> result = std::async(std::launch::async, call);
        EXPECT_TRUE(Eventually([&] {
            CancelIoEx(end.Get(), nullptr);
            return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        return result.get();
    }
};

TEST_F(Pipes, AClientFindsAFreeInstanceOrHearsWhyNot) {
    EXPECT_EQ(Open(), Error(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Result(WaitNamedPipeW(Name.c_str(), 20)), Error(ERROR_FILE_NOT_FOUND));
    CreateAndOpen();
    OwnedHandle first = std::move(*Client);
    EXPECT_EQ(Open(), Error(ERROR_PIPE_BUSY));
    EXPECT_EQ(Result(WaitNamedPipeW(Name.c_str(), 20)), Error(ERROR_SEM_TIMEOUT));
    const OwnedHandle firstInstance = std::move(*Server);
    Create();
    EXPECT_EQ(Result(WaitNamedPipeW(Name.c_str(), 20)), "success");
    EXPECT_EQ(Open(), "success");
}

TEST_F(Pipes, BytesOutliveTheirWriterAndThenThePipeIsBroken) {
    CreateAndOpen();
    EXPECT_EQ(Peek(*Server), "0");
    EXPECT_TRUE(WriteBytes(Client->Get(), "bytes"));
    Client.reset();
    EXPECT_EQ(Peek(*Server), "5");
    EXPECT_EQ(Read(*Server), "bytes");
    EXPECT_EQ(Peek(*Server), Error(ERROR_BROKEN_PIPE));
    EXPECT_EQ(Read(*Server), Error(ERROR_BROKEN_PIPE));
    EXPECT_FALSE(WriteBytes(Server->Get(), "x"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});
    Server.reset();
    EXPECT_EQ(Open(), Error(ERROR_FILE_NOT_FOUND)) << "a closed instance leaves nothing behind";
}

TEST_F(Pipes, ADisconnectEndsBothEnds) {
    CreateAndOpen();
    std::future<bool> clientEnds =
        std::async(std::launch::async, [this] { return Read(*Client).starts_with("error"); });
    EXPECT_TRUE(DisconnectNamedPipe(Server->Get()));
    EXPECT_TRUE(clientEnds.get());
    EXPECT_EQ(Read(*Server), Error(ERROR_PIPE_NOT_CONNECTED));
    EXPECT_FALSE(PeekNamedPipe(Server->Get(), nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_FALSE(WriteBytes(Client->Get(), "x"));
}

TEST_F(Pipes, ACallThatBlocksCanBeCancelledAndHarmsNoLaterOne) {
    Create();
    const auto connect = [this] { return Result(ConnectNamedPipe(Server->Get(), nullptr)); };
    EXPECT_EQ(Cancelled(*Server, connect), Error(ERROR_OPERATION_ABORTED));
    EXPECT_EQ(Open(), "success");
    EXPECT_EQ(connect(), Error(ERROR_PIPE_CONNECTED));
    EXPECT_EQ(Cancelled(*Client, [this] { return Read(*Client); }), Error(ERROR_OPERATION_ABORTED));
    EXPECT_TRUE(WriteBytes(Server->Get(), "x"));
    EXPECT_EQ(Read(*Client), "x");
    const auto write = [this] { return Result(WriteBytes(Server->Get(), std::string(1 << 20, 'x'))); };
    EXPECT_EQ(Cancelled(*Server, write), Error(ERROR_OPERATION_ABORTED));
}

TEST(Processes, OneIsKnownUntilItEnds) {
    ChildProcess child(ModulePath(nullptr), {"--host", "stay"});
    EXPECT_EQ(child.Read("\n"), "serving");
    const auto entry = [&] { return FindProcessEntry(TakeProcessSnapshot(), child.Id); };
    EXPECT_EQ(entry().th32ParentProcessID, GetCurrentProcessId());
    EXPECT_TRUE(ModulePath(nullptr).ends_with(entry().szExeFile));
    const OwnedHandle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, child.Id));
    WCHAR path[1024];
    DWORD size = 5, code = 0;
    EXPECT_FALSE(QueryFullProcessImageNameW(process.Get(), 0, path, &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_TRUE(QueryFullProcessImageNameW(process.Get(), 0, path, &(size = 1024)));
    EXPECT_EQ(WideView(path, size), ModulePath(nullptr));
    FILETIME own{}, later{}, unused{};
    EXPECT_TRUE(GetProcessTimes(GetCurrentProcess(), &own, &unused, &unused, &unused));
    EXPECT_TRUE(GetProcessTimes(process.Get(), &later, &unused, &unused, &unused));
    EXPECT_LT(std::pair(own.dwHighDateTime, own.dwLowDateTime), std::pair(later.dwHighDateTime, later.dwLowDateTime));
    EXPECT_EQ(WaitForSingleObject(process.Get(), 1), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(GetExitCodeProcess(process.Get(), &code) && code == STILL_ACTIVE);
    child.Input.reset();
    EXPECT_EQ(WaitForSingleObject(process.Get(), INFINITE), DWORD{WAIT_OBJECT_0});
    EXPECT_TRUE(GetExitCodeProcess(process.Get(), &code) && code == 0);
    EXPECT_EQ(child.WaitForExitCode(), 0u);
    EXPECT_EQ(entry().th32ProcessID, 0u);
}

}  // namespace
