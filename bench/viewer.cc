/// A viewer that answers at once. A net called "image 614400" is answered with a picture of that many bytes, "text
/// 614400" with that much text, anything else with "OK". Prints the pipe's name, then "asked" for each command that its
/// window receives. Ends with its input.

#include "api/exports.h"
#include "platform/platform.h"
#include "text/wide.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

namespace {

void Say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

WideString MakeReply(const std::string& net) {
    const std::size_t blank = net.find(' ');
    if (blank == std::string::npos) return TEXT("OK");
    const auto size = static_cast<std::size_t>(std::atoll(net.c_str() + blank));
    if (net.starts_with("text")) return WideString(size, 'A');
    return WideString(TEXT("ORVANE_MCP_IMAGE mime_type=image/png data=")) + WideString(size, 'A');
}

LRESULT CALLBACK AnswerMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    static std::map<WideString, WideString> replies;  // built once, so that no figure includes building them
    if (message == WM_CLOSE) return DestroyWindow(window);
    if (message == WM_DESTROY) PostQuitMessage(0);
    if (message != HostCommandMessage) return DefWindowProcW(window, message, wParam, lParam);
    HostCommand& command = *reinterpret_cast<HostCommand*>(lParam);
    const WideString net(command.LongText, command.LongTextLength);
    auto known = replies.find(net);
    if (known == replies.end()) known = replies.emplace(net, MakeReply(WideToUtf8(net))).first;
    Say("asked");
    const WideString& reply = known->second;
    command.LongReply = static_cast<WCHAR*>(CoTaskMemAlloc(reply.size() * sizeof(WCHAR)));
    command.LongReplyLength = static_cast<std::uint32_t>(reply.copy(command.LongReply, reply.size()));
    return command.Success = 1;
}

}  // namespace

int main() {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = AnswerMessage;
    windowClass.lpszClassName = TEXT("OrvaneBenchViewer");
    RegisterClassW(&windowClass);
    const HWND window = CreateWindowExW(0, windowClass.lpszClassName, TEXT("Orvane"), 0, 0, 0, 0, 0, HWND_MESSAGE,
                                        nullptr, nullptr, nullptr);
    ControlServerStartInfo info{};
    info.HostWindowHandle = window;
    WCHAR pipeName[256]{};
    if (window == nullptr || OrvaneMcp_StartControlServer(&info) == 0) return 1;
    OrvaneMcp_GetPipeName(pipeName, 256);
    while (WaitNamedPipeW(pipeName, 1) == 0) Sleep(1);
    Say(WideToUtf8(pipeName));
    std::thread([window] {
        while (std::getchar() != EOF) {
        }
        PostMessageW(window, WM_CLOSE, 0, 0);
    }).detach();
    for (MSG message; GetMessageW(&message, nullptr, 0, 0) > 0;) DispatchMessageW(&message);
    OrvaneMcp_StopControlServer();
    return 0;
}
