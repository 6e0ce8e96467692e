// A small viewer that hosts the library: a window that answers commands, a board to answer from, and a console that
// shows what happens. All of the viewer's state belongs to the window's thread. Its one argument is a board file.

#include "commands.h"
#include "platform/platform.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <set>
#include <thread>

namespace {

constexpr UINT CheckClientsMessage = WM_APP + 1;
constexpr auto CheckClientsPause = std::chrono::milliseconds(250);

Viewer viewer;
std::set<std::string> shownClients;
std::atomic<HWND> hostWindow{nullptr};

void Print(const std::string& line) {
    std::printf("%s\n", OneLine(line).c_str());
    std::fflush(stdout);
}

/// Reports which clients have come and gone since the last look.
void CheckClients() {
    std::set<std::string> clients;
    for (std::int32_t i = 0; i < OrvaneMcp_GetClientCount(); ++i) {
        ClientInfo info{};
        info.Size = sizeof info;
        // A client may leave between the count and this call; the next look sees that.
        if (!OrvaneMcp_GetClientInfo(i, &info)) break;
        clients.insert(FromWide(info.DisplayName) + " over " + FromWide(info.Transport) + ", since " +
                       FromWide(info.ConnectedAt));
    }
    for (const std::string& client : clients) {
        if (!shownClients.contains(client)) Print("client connected: " + client);
    }
    for (const std::string& client : shownClients) {
        if (!clients.contains(client)) Print("client left: " + client);
    }
    shownClients = std::move(clients);
}

LRESULT CALLBACK AnswerMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case HostCommandMessage: {
            // The record is the library's and lives on another thread's stack, which waits for this call to return.
            HostCommand& command = *reinterpret_cast<HostCommand*>(lParam);
            if (command.Size < sizeof command) return 0;
            CheckClients();
            Print(AnswerCommand(viewer, command));
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
    PostMessageW(hostWindow, WM_CLOSE, 0, 0);
    return TRUE;
}

/// The server from its start, once clients can connect, to its stop. Throws a Refusal with the library's reason.
struct ControlServer {
    static constexpr std::int32_t TextSize = 256;
    OrvaneMcpChar PipeName[TextSize]{}, Error[TextSize]{};

    explicit ControlServer(HWND window) {
        ControlServerStartInfo info{};
        info.HostWindowHandle = window;
        if (OrvaneMcp_StartControlServer(&info)) {
            OrvaneMcp_GetPipeName(PipeName, TextSize);
            // The listener makes the pipe a moment after the start, or leaves an error.
            while (!OrvaneMcp_GetLastError(Error, TextSize)) {
                if (WaitNamedPipeW(PipeName, 1)) return;
                Sleep(1);
            }
            OrvaneMcp_StopControlServer();
        }
        OrvaneMcp_GetLastError(Error, TextSize);
        throw Refusal(FromWide(Error));
    }
    ~ControlServer() { OrvaneMcp_StopControlServer(); }
    ControlServer& operator=(ControlServer&&) = delete;
};

void Serve(const std::filesystem::path& board) {
    OpenBoard(viewer, board);
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = AnswerMessage;
    windowClass.lpszClassName = TEXT("OrvaneDemoViewer");
    RegisterClassW(&windowClass);
    // It is for messages only; a viewer with a face would give its main window. Destroying it twice does no harm.
    const std::unique_ptr<std::remove_pointer_t<HWND>, decltype(&DestroyWindow)> window(
        CreateWindowExW(0, windowClass.lpszClassName, TEXT("Orvane"), 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                        nullptr),
        DestroyWindow);
    if (!window) throw Refusal("The window can't be created.");
    hostWindow = window.get();
    SetConsoleCtrlHandler(AnswerConsole, TRUE);
    const ControlServer server(window.get());
    const std::jthread reminder([](std::stop_token stop) {
        for (; !stop.stop_requested(); std::this_thread::sleep_for(CheckClientsPause)) {
            PostMessageW(hostWindow, CheckClientsMessage, 0, 0);
        }
    });
    Print("serving " + PathText(viewer.boardPath) + " on " + FromWide(server.PipeName));
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
}

}  // namespace

int main(int argc, char** argv) {
    SetConsoleOutputCP(CP_UTF8);
    try {
        Serve(PathOf(argc > 1 ? argv[1] : "demo/demo_board.orv"));
        Print("stopped");
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "Orvane.exe: %s\n", OneLine(failure.what()).c_str());
        return 1;
    }
}
