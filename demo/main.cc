// A small viewer that hosts the library: a window that answers commands, a board to answer from, and a console that
// shows what happens. All of the viewer's state belongs to the window's thread. Its one argument is a board file.

#include "viewer.h"

#include <atomic>
#include <iostream>
#include <thread>

namespace {

constexpr UINT CheckClientsMessage = WM_APP + 1;
Viewer viewer;
std::string shownClients;
std::atomic<HWND> host{nullptr};  ///< the window that answers commands

/// Prints who is connected if that has changed since the last check.
void CheckClients() {
    std::string clients;
    ClientInfo info{};
    info.Size = sizeof info;
    // A client that leaves meanwhile ends the loop early; the next check sees the others.
    for (std::int32_t i = 0; OrvaneMcp_GetClientInfo(i, &info); ++i)
        clients += (i == 0 ? "" : "; ") + OneLine(FromWide(info.DisplayName)) + ", since " + FromWide(info.ConnectedAt);
    if (clients != shownClients) std::cout << (clients.empty() ? "no clients" : "clients: " + clients) << std::endl;
    shownClients = clients;
}

LRESULT CALLBACK AnswerMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case HostCommandMessage: {
            // The record is the library's, on the stack of a thread that waits for this call to return.
            HostCommand& command = *reinterpret_cast<HostCommand*>(lParam);
            if (command.Size < sizeof command) return 0;
            CheckClients();
            std::cout << AnswerCommand(viewer, command) << std::endl;
            return command.Success;
        }
        case CheckClientsMessage: CheckClients(); return 0;
        case WM_DESTROY: PostQuitMessage(0); return 0;
        default: return DefWindowProcW(window, message, wParam, lParam);
    }
}

/// Starts the server and waits until clients can connect. Returns the pipe's name; a Refusal has the library's reason.
std::string StartServer(HWND window) {
    ControlServerStartInfo info{};
    info.HostWindowHandle = window;
    OrvaneMcpChar pipe[256]{}, reason[256]{};
    const bool started = OrvaneMcp_StartControlServer(&info) && OrvaneMcp_GetPipeName(pipe, 256);
    // The listener creates the pipe a moment after the start, or leaves an error.
    for (; !OrvaneMcp_GetLastError(reason, 256) && started; Sleep(1))
        if (WaitNamedPipeW(pipe, 1)) return FromWide(pipe);
    OrvaneMcp_StopControlServer();
    throw Refusal(FromWide(reason));
}

}  // namespace

int main(int argc, char** argv) try {
    SetConsoleOutputCP(CP_UTF8);
    viewer = OpenBoard(argc > 1 ? argv[1] : "demo/demo_board.orv");
    WNDCLASSW type{};
    type.lpfnWndProc = AnswerMessage;
    type.lpszClassName = TEXT("OrvaneDemoViewer");
    RegisterClassW(&type);
    // A message-only window; a viewer with a user interface would pass its main window.
    host = CreateWindowExW(0, type.lpszClassName, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    if (!host) throw Refusal("The window can't be created.");
    // Ctrl+C arrives on one of the system's threads; the window's thread does the shutdown.
    SetConsoleCtrlHandler([](DWORD) -> BOOL { return PostMessageW(host, WM_CLOSE, 0, 0); }, TRUE);
    const std::string pipeName = StartServer(host);
    const std::jthread reminder([](std::stop_token stop) {
        for (; !stop.stop_requested(); Sleep(250)) PostMessageW(host, CheckClientsMessage, 0, 0);
    });
    std::cout << "serving " << PathText(viewer.boardPath) << " on " << pipeName << std::endl;
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    OrvaneMcp_StopControlServer();
    std::cout << "stopped" << std::endl;
    return 0;
} catch (const std::exception& failure) {
    std::cerr << "Orvane.exe: " << OneLine(failure.what()) << std::endl;
    return 1;
}
