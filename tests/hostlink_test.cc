#include "child_process.h"
#include "control/announcement.h"
#include "host_window.h"
#include "hostlink/client_identity.h"
#include "hostlink/connection.h"
#include "hostlink/discovery.h"
#include "limited_memory.h"
#include "protocol/control_protocol.h"
#include "text/trace.h"
#include "tools/results.h"

static void SetAnnounced(LPCWSTR value, DWORD type, const WideString& data) {
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_CURRENT_USER, Announcement::Key, 0, KEY_SET_VALUE, &key);
    const auto* const bytes = reinterpret_cast<const BYTE*>(data.data());
    RegSetValueExW(key, value, 0, type, bytes, static_cast<DWORD>(data.size() * sizeof(WCHAR)));
    RegCloseKey(key);
}

static void CatchTrace() {
    AskForTrace();
    testing::internal::CaptureStdout();
    StartTraceOn(STD_OUTPUT_HANDLE);
}

struct Discovery : ServerTest {};

TEST_F(Discovery, FindsOnlyAWholeAnnouncementOfALiveProcess) {
    ServerState().PipeName = TEXT("own");
    ChildProcess dead(TEXT("./orvane_mcp.exe"));
    dead.Kill(STILL_ACTIVE);
    const std::tuple<LPCWSTR, DWORD, WideString, std::string> rows[] = {
        {Announcement::PipeName, REG_EXPAND_SZ, WideString(511, '%') + WCHAR(0), std::string(511, '%')},
        {Announcement::PipeName, REG_SZ, WideString(512, 'x') + WCHAR(0), ""},
        {Announcement::PipeName, REG_BINARY, TEXT("x"), ""},
        {Announcement::ControlServerEnabled, REG_DWORD, {0, 1}, "own"},
        {Announcement::ControlServerEnabled, REG_DWORD, {0, 0}, ""},
        {Announcement::ControlServerEnabled, REG_BINARY, {1, 0}, ""},
        {Announcement::ProcessId, REG_DWORD, {static_cast<WCHAR>(dead.Id), static_cast<WCHAR>(dead.Id >> 16)}, ""},
    };
    for (const auto& [value, type, data, found] : rows) {
        AnnounceControlServer(true);
        OrvaneMcp_StopControlServer();  // without a server it withdraws nothing
        SetAnnounced(value, type, data);
        std::string names;
        for (const WideString& name : FindControlPipes()) names += WideToUtf8(name);
        EXPECT_EQ(names, found) << WideToUtf8(value) << " as " << type << ", " << data.size() << " units";
    }
}

/// The names of a viewer that only speaks when it is spoken to, and its one instance of that pipe.
struct Connection : ServerTest {
    const WideString Name = ControlPipeName(4242);
    const std::string NameText = WideToUtf8(Name);
    Connection() { ServerState().PipeName = Name; }
    void TearDown() override {
        CloseControlConnection();
        ServerTest::TearDown();
    }
    HANDLE CreatePipe() const { return CreateNamedPipeW(Name.c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr); }
};

TEST_F(Connection, NeedsAnOkToItsGreeting) {
    const std::string endless(1000, 'x'), large(8192, 'y');
    // What the viewer answers to the greeting, in pieces, and its reply to the line that follows when it was accepted.
    const std::pair<std::vector<std::string>, std::string> rows[] = {{{endless}, ""},
                                                                     {{"O", "K", "\n"}, "reply"},
                                                                     {{"OK\r\nlost\n"}, large},
                                                                     {{"OK\t\n"}, ""},
                                                                     {{"ok\n"}, ""},
                                                                     {{"\n"}, ""},
                                                                     {{"OK"}, ""}};
    CatchTrace();
    for (const auto& row : rows) {
        HANDLE pipe = CreatePipe();
        std::thread viewer([&row, &endless, pipe] {
            const auto& [answer, reply] = row;
            ConnectNamedPipe(pipe, nullptr);
            MarkedReader reader;
            EXPECT_EQ(reader.Until("\n", pipe), "HELLO " + BuildClientName());
            for (const std::string& piece : answer) WriteBytes(pipe, piece);
            if (!reply.empty() && reader.Until("\n", pipe) == "line") WriteBytes(pipe, reply), WriteBytes(pipe, "\r\n");
            // The bridge leaves a viewer that says no more.
            EXPECT_TRUE(answer[0] != endless || reader.Until("\n", pipe) == "<end>");
            CloseHandle(pipe);
        });
        AnnounceControlServer(true);
        const auto& [answer, reply] = row;
        EXPECT_EQ(ConnectControlPipe(MainThreadConnectTimeOut), !reply.empty()) << answer[0];
        if (reply == large) {
            const LargestAllocation limit(4096);
            EXPECT_THROW(static_cast<void>(SendControlLine("line")), std::bad_alloc);
            EXPECT_FALSE(EnsureControlConnection(0)) << "the rest of that reply is nobody's";
        } else {
            EXPECT_EQ(SendControlLine("line").value_or(""), reply);
        }
        viewer.join();
        CloseControlConnection();
    }
    EXPECT_EQ(TraceIn(testing::internal::GetCapturedStdout()), FileText(ORVANE_TRACES "greetings"));
}

#if !defined(_WIN32)
/// In the place of the stand-in's: the waits for a busy pipe.
static std::string waits;
BOOL WaitNamedPipeW(LPCWSTR name, DWORD timeOut) {
    waits += WideToUtf8(name) + " " + std::to_string(timeOut);
    return TRUE;
}
#endif

TEST_F(Connection, OpensOnlyPipesOfThisMachineThatAreFree) {
    const std::string path = "C:\\board.orv", end = NameText.substr(NameText.rfind('\\') + 1);
    const std::string rows[] = {"\\\\.\\pipe\\x\\..\\" + end,
                                "\\\\.\\pipe\\ . \\" + end,
                                "\\\\.\\pipe\\",
                                "\\\\localhost\\pipe\\" + end,
                                "//./pipe/" + end,
                                path,
                                "\\\\.\\pipe\\..\\" + path,
                                NameText + "0",
                                NameText,
                                "\\\\.\\PIPE\\" + end};
    const OwnedHandle busy(CreatePipe());
    const RawClient client(Name);
    CatchTrace();
    AnnounceControlServer(true);
    for (const std::string& announced : rows) {
        SetAnnounced(Announcement::PipeName, REG_SZ, Utf8ToWide(announced) + WCHAR(0));
        EXPECT_EQ(WideToUtf8(FindControlPipes().at(0)), announced) << "a candidate all the same";
        EXPECT_FALSE(ConnectControlPipe(1)) << announced;
    }
    AnnounceControlServer(false);
    EXPECT_FALSE(ConnectControlPipe(1));
    EXPECT_EQ(TraceIn(testing::internal::GetCapturedStdout()), FileText(ORVANE_TRACES "refusals"));
#if !defined(_WIN32)
    EXPECT_EQ(waits, NameText + " 250\\\\.\\PIPE\\" + end + " 250");
#endif
}

TEST_F(Connection, ServesACommandAgainWhenTheViewerHasComeBackAndKeepsNothingOld) {
    HostWindow host;
    Start(host.Handle);
    EXPECT_FALSE(EnsureControlConnection(0)) << "no time, no attempt";
    EXPECT_TRUE(EnsureControlConnection(MainThreadConnectTimeOut));
    const std::string text(2000, 'x');
    EXPECT_EQ(SendControlLine("GET_NET\t" + text), "OK\t7:" + text);
    const auto comeBack = [&] {
        OrvaneMcp_StopControlServer();
        EXPECT_TRUE(ServerState().ActiveSessions == 0 && ServerState().HostWindow == nullptr) << "not after a stop";
        Start(host.Handle);
        EXPECT_TRUE(EnsureControlConnection(0)) << "open, though dead";
        testing::internal::CaptureStdout();
        RunControlCommand("1", "GET_NET\tagain");
        EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr("7:again"));
        return ThreadsAndHandles();
    };
    EXPECT_EQ(LeftBehind(comeBack), "");
}
