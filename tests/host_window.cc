#include "host_window.h"

#include "control/announcement.h"

#include <ctime>
#include <iostream>
#include <regex>
#include <sstream>

static thread_local HostWindow* threadHost = nullptr;

static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CLOSE) return DestroyWindow(window);
    if (message == WM_DESTROY) PostQuitMessage(0);
    if (message != HostCommandMessage) return DefWindowProcW(window, message, wParam, lParam);
    HostCommand& command = *reinterpret_cast<HostCommand*>(lParam);
    EXPECT_EQ(command.Text, WideString(command.LongText).substr(0, 1023));
    EXPECT_TRUE(wParam == 0 && command.Size == 34864 && command.Reserved == 0 && command.Success == 0);
    EXPECT_TRUE(*command.Reply == 0 && command.LongReply == nullptr && command.LongReplyLength == 0);
    ++threadHost->Commands;
    return threadHost->OnCommand(command);
}

void SetLongReply(HostCommand& command, WideView text) {
    command.LongReply = static_cast<WCHAR*>(CoTaskMemAlloc(text.size() * sizeof(WCHAR) + 1));
    command.LongReplyLength = static_cast<std::uint32_t>(text.copy(command.LongReply, text.size()));
}

LRESULT Echo(HostCommand& command) {
    const WideView text(command.LongText, command.LongTextLength);
    SetLongReply(command, Utf8ToWide(std::to_string(command.CommandId) + ":" + WideToUtf8(text)));
    return command.Success = 1;
}

HostWindow::HostWindow(std::function<LRESULT(HostCommand&)> answer) : OnCommand(std::move(answer)) {
    std::promise<HWND> created;
    Thread = std::thread([&] {
        threadHost = this;
        const WCHAR* const name = TEXT("OrvaneTestHost");
        const WNDCLASSW windowClass{0, Procedure, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, name};
        RegisterClassW(&windowClass);  // fails for all but the first, which is enough
        created.set_value(CreateWindowExW(0, name, name, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr));
        for (MSG message; GetMessageW(&message, nullptr, 0, 0) > 0;) DispatchMessageW(&message);
    });
    Handle = created.get_future().get();
}

HostWindow::~HostWindow() {
    PostMessageW(Handle, WM_CLOSE, 0, 0);
    Thread.join();
}

void ServerTest::TearDown() {
    OrvaneMcp_StopControlServer();
    EXPECT_TRUE(SessionsBecome(0));
    for (const auto& sessions : ServerState().SessionsByStage) EXPECT_EQ(sessions, 0);
    AnnounceControlServer(false);
}

int ServerTest::Start(HWND window, DWORD processIdOverride, WideView directory) {
    ControlServerStartInfo info{0, window, processIdOverride, {}};
    directory.copy(info.Directory, directory.size());
    return OrvaneMcp_StartControlServer(&info);
}

std::vector<std::string> ServerTest::ClientNames() {
    std::vector<std::string> names;
    ClientInfo info{sizeof info, {}, {}, {}};
    for (int i = 0; OrvaneMcp_GetClientInfo(i, &info) != 0; ++i) names.push_back(WideToUtf8(info.DisplayName));
    EXPECT_EQ(OrvaneMcp_GetClientCount(), static_cast<int>(names.size()));
    return names;
}

void AskForTrace() {
    static char level[] = "ORVANE_MCP_TRACE=9";
    putenv(level);
}

std::string TraceIn(const std::string& output, DWORD processId) {
    if (testing::Test::HasFailure()) std::cout << output;  // it may have been caught with the failure's text
    const std::regex head("(\\d\\d:\\d\\d):\\d\\d\\.\\d{3} orvane_mcp " + std::to_string(processId) + ": (.*)");
    const std::regex varying("((after|for|control_) ?)\\d+( ms)?(: Windows.*)?|(error \\d+)\\. .*");
    std::string lines;
    std::smatch match;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        if (!std::regex_search(line, match, head)) continue;
        EXPECT_TRUE(match[1] == LocalTime("%H:%M") || match[1] == LocalTime("%H:%M", 60)) << line;
        lines += std::regex_replace(match[2].str(), varying, "$1$5$3") + "\n";
    }
    return lines;
}

std::string LocalTime(const char* format, int secondsAgo) {
    const std::time_t time = std::time(nullptr) - secondsAgo;
    char text[64] = {};
    std::strftime(text, sizeof text, format, std::localtime(&time));
    return text;
}
