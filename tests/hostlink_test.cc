#include "child_process.h"
#include "control/announcement.h"
#include "host_window.h"
#include "hostlink/client_identity.h"
#include "hostlink/connection.h"
#include "hostlink/discovery.h"
#include "protocol/control_protocol.h"
#include "tools/results.h"

#include <fstream>

TEST_F(ServerTest, OnlyAWholeAnnouncementOfALiveProcessIsFound) {
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
        {Announcement::ControlServerEnabled, REG_DWORD, {1, 0, 0, 0}, ""},
        {Announcement::ProcessId, REG_DWORD, {static_cast<WCHAR>(dead.Id), static_cast<WCHAR>(dead.Id >> 16)}, ""},
    };
    for (const auto& [value, type, data, found] : rows) {
        AnnounceControlServer(true);
        OrvaneMcp_StopControlServer();  // without a server it withdraws nothing
        HKEY key = nullptr;
        RegOpenKeyExW(HKEY_CURRENT_USER, Announcement::Key, 0, KEY_SET_VALUE, &key);
        const auto* const bytes = reinterpret_cast<const BYTE*>(data.data());
        RegSetValueExW(key, value, 0, type, bytes, static_cast<DWORD>(data.size() * sizeof(WCHAR)));
        RegCloseKey(key);
        std::string names;
        for (const WideString& name : FindControlPipes()) names += WideToUtf8(name);
        EXPECT_EQ(names, found) << WideToUtf8(value) << " as " << type << ", " << data.size() << " units";
    }
}

TEST_F(ServerTest, NothingButAnOkToItsGreetingConnectsTheBridge) {
    ServerState().PipeName = ControlPipeName(4242);
    const std::string endless(1000, 'x');
    for (const std::vector<std::string>& answer : std::vector<std::vector<std::string>>{
             {endless}, {"O", "K", "\n"}, {"OK\r\nlost\n"}, {"OK\t\n"}, {"ok\n"}, {"\n"}, {"OK"}}) {
        const bool accepted = answer.size() > 1 || answer[0].starts_with("OK\r\n");
        HANDLE pipe = CreateNamedPipeW(ControlPipeName(4242).c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr);
        std::thread viewer([&] {
            ConnectNamedPipe(pipe, nullptr);
            MarkedReader reader;
            EXPECT_EQ(reader.Until("\n", pipe), "HELLO " + BuildClientName());
            for (const std::string& piece : answer) WriteBytes(pipe, piece);
            if (accepted && reader.Until("\n", pipe) == "line") WriteBytes(pipe, "reply\n");
            // The bridge leaves a viewer that says no more.
            const bool left = answer[0] != endless || reader.Until("\n", pipe) == "<end>";
            EXPECT_TRUE(left);
            CloseHandle(pipe);
        });
        AnnounceControlServer(true);
        EXPECT_EQ(ConnectControlPipe(MainThreadConnectTimeOut), accepted) << answer[0];
        EXPECT_EQ(SendControlLine("line").value_or("none"), accepted ? "reply" : "none");
        viewer.join();
        CloseControlConnection();
    }
}

TEST_F(ServerTest, OnlyPipesOfThisMachineAreOpened) {
    Start();
    const WideString own = ControlPipeName(GetCurrentProcessId()), name = own.substr(own.rfind('\\') + 1);
    const std::filesystem::path file = std::filesystem::absolute("announced.txt");
    std::ofstream(file) << "untouched";
    const WideString path = Utf8ToWide(file.string());
    const std::pair<WideString, bool> rows[] = {
        {TEXT("\\\\.\\PIPE\\") + name, true},
        {TEXT("\\\\.\\pipe\\x\\..\\") + name, false},
        {TEXT("\\\\localhost\\pipe\\") + name, false},
        {TEXT("//./pipe/") + name, false},
        {path, false},
        {TEXT("\\\\.\\pipe\\..\\") + path, false},
    };
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_CURRENT_USER, Announcement::Key, 0, KEY_SET_VALUE, &key);
    for (const auto& [announced, opened] : rows) {
        const auto* const bytes = reinterpret_cast<const BYTE*>(announced.c_str());
        RegSetValueExW(key, Announcement::PipeName, 0, REG_SZ, bytes,
                       static_cast<DWORD>((announced.size() + 1) * sizeof(WCHAR)));
        EXPECT_EQ(WideToUtf8(FindControlPipes().at(0)), WideToUtf8(announced)) << "a candidate all the same";
        EXPECT_EQ(ConnectControlPipe(opened ? MainThreadConnectTimeOut : 1), opened) << WideToUtf8(announced);
        CloseControlConnection();
    }
    RegCloseKey(key);
    std::ifstream left(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(left), {}), "untouched");
    left.close();
    std::filesystem::remove(file);
}

TEST_F(ServerTest, ACommandIsSentAgainToAViewerThatHasComeBackAndNothingOldIsKept) {
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
    CloseControlConnection();
}
