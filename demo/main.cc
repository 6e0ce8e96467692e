// A small viewer that hosts the library: a window that answers commands, a board to answer from, and a console that
// shows what happens. All of the viewer's state belongs to the window's thread. Its one argument is a board file.

#include "commands.h"

#include <atomic>
#include <iostream>
#include <set>
#include <thread>

namespace {

constexpr UINT CheckClientsMessage = WM_APP + 1;

Viewer viewer;
std::set<std::string> shownClients;
std::atomic<HWND> hostWindow{nullptr};

/// Reports which clients have come and gone since the last look.
void CheckClients() {
    std::set<std::string> clients;
    ClientInfo info{};
    info.Size = sizeof info;
    // A client that leaves in between ends the loop early; the next look sees the others.
    for (std::int32_t i = 0; OrvaneMcp_GetClientInfo(i, &info); ++i) {
        const std::string name = FromWide(info.DisplayName), transport = FromWide(info.Transport);
        clients.insert(OneLine(name + " over " + transport + ", since " + FromWide(info.ConnectedAt)));
    }
    for (const std::string& client : clients)
        if (!shownClients.contains(client)) std::cout << "client connected: " << client << std::endl;
    for (const std::string& client : shownClients)
        if (!clients.contains(client)) std::cout << "client left: " << client << std::endl;
    shownClients = std::move(clients);
}

LRESULT CALLBACK AnswerMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case HostCommandMessage: {
            // The record is the library's and lives on another thread's stack, which waits for this call to return.
            HostCommand& command = *reinterpret_cast<HostCommand*>(lParam);
            if (command.Size < sizeof command) return 0;
            CheckClients();
            std::cout << AnswerCommand(viewer, command) << std::endl;
            return command.Success;
        }
        case CheckClientsMessage: CheckClients(); return 0;
        case WM_CLOSE: DestroyWindow(window); return 0;
        case WM_DESTROY: PostQuitMessage(0); return 0;
        default: return DefWindowProcW(window, message, wParam, lParam);
    }
}

/// Ctrl+C, on a thread of the system's. The window's thread shuts down.
BOOL WINAPI AnswerConsole(DWORD) {
    return PostMessageW(hostWindow, WM_CLOSE, 0, 0);
}

/// Ends what Serve began, however it ends.
struct Host {
    HWND window;
    ~Host() {
        OrvaneMcp_StopControlServer();
        DestroyWindow(window);  // Ctrl+C has done so already, which does no harm
    }
};

/// Starts the server and waits until clients can connect. Returns the pipe's name; a Refusal has the library's reason.
std::string StartServer(HWND window) {
    ControlServerStartInfo info{};
    info.HostWindowHandle = window;
    OrvaneMcpChar text[256]{};
    if (OrvaneMcp_StartControlServer(&info)) {
        OrvaneMcp_GetPipeName(text, 256);
        const auto pipeName = ToWide(FromWide(text));
        // The listener makes the pipe a moment after the start, or leaves an error.
        while (!OrvaneMcp_GetLastError(text, 256)) {
            if (WaitNamedPipeW(pipeName.c_str(), 1)) return FromWide(pipeName);
            Sleep(1);
        }
    }
    OrvaneMcp_GetLastError(text, 256);
    throw Refusal(FromWide(text));
}

void Serve(const std::filesystem::path& board) {
    OpenBoard(viewer, board);
    WNDCLASSW type{};
    type.lpfnWndProc = AnswerMessage;
    type.lpszClassName = TEXT("OrvaneDemoViewer");
    RegisterClassW(&type);
    // For messages only; a viewer with a face would give its main window.
    const Host host{
        CreateWindowExW(0, type.lpszClassName, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr)};
    if (!host.window) throw Refusal("The window can't be created.");
    hostWindow = host.window;
    SetConsoleCtrlHandler(AnswerConsole, TRUE);
    const std::string pipeName = StartServer(host.window);
    const std::jthread reminder([](std::stop_token stop) {
        for (; !stop.stop_requested(); Sleep(250)) PostMessageW(hostWindow, CheckClientsMessage, 0, 0);
    });
    std::cout << "serving " << PathText(viewer.boardPath) << " on " << pipeName << std::endl;
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
}

}  // namespace

int main(int argc, char** argv) try {
    SetConsoleOutputCP(CP_UTF8);
    Serve(PathOf(argc > 1 ? argv[1] : "demo/demo_board.orv"));
    std::cout << "stopped" << std::endl;
    return 0;
} catch (const std::exception& failure) {
    std::cerr << "Orvane.exe: " << OneLine(failure.what()) << std::endl;
    return 1;
}
