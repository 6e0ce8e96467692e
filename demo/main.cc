// A small viewer that hosts the library: a window that answers commands, a board to answer from, and a console that
// tells what happens. All of the viewer's state belongs to the window's thread. Its one argument is a board file.

#include "commands.h"
#include "platform/platform.h"

#include <atomic>
#include <cstdio>
#include <set>
#include <thread>

namespace {

constexpr UINT CheckClientsMessage = WM_APP + 1;
constexpr auto CheckClientsPause = std::chrono::milliseconds(250);
constexpr char DefaultBoard[] = "demo/demo_board.orv";

Viewer viewer;
std::set<std::string> shownClients;
std::atomic<HWND> hostWindow{nullptr};

void Print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

/// Tells which clients have come and gone since the last look.
void CheckClients() {
    std::set<std::string> clients;
    for (std::int32_t i = 0; i < OrvaneMcp_GetClientCount(); ++i) {
        ClientInfo info{};
        info.Size = sizeof info;
        // A client may leave between the count and this call; then the next look tells.
        if (!OrvaneMcp_GetClientInfo(i, &info)) break;
        clients.insert(FromWide(info.DisplayName) + ", " + FromWide(info.Transport) + ", since " +
                       FromWide(info.ConnectedAt));
    }
    for (const std::string& client : clients) {
        if (!shownClients.contains(client)) Print("client came: " + client);
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

/// Ctrl+C, on a thread of the system's. The window's thread does the ending.
BOOL WINAPI AnswerConsole(DWORD) {
    PostMessageW(hostWindow, WM_CLOSE, 0, 0);
    return TRUE;
}

/// The window that takes commands. It is for messages only; a viewer with a face would give its main window.
struct HostWindow {
    HostWindow() {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = AnswerMessage;
        windowClass.lpszClassName = TEXT("OrvaneDemoViewer");
        RegisterClassW(&windowClass);
        hostWindow = CreateWindowExW(0, windowClass.lpszClassName, TEXT("Orvane"), 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                     nullptr, nullptr);
        if (!hostWindow) throw Refusal("The window can't be created.");
    }
    ~HostWindow() { DestroyWindow(hostWindow); }  // has no effect on one that WM_CLOSE has destroyed
    HostWindow& operator=(HostWindow&&) = delete;
};

/// The library's server, from its start to its stop.
struct ControlServer {
    explicit ControlServer(HWND window) {
        ControlServerStartInfo info{};
        info.HostWindowHandle = window;
        if (OrvaneMcp_StartControlServer(&info)) return;
        OrvaneMcpChar error[256]{};
        OrvaneMcp_GetLastError(error, std::size(error));
        throw Refusal(FromWide(error));
    }
    ~ControlServer() { OrvaneMcp_StopControlServer(); }
    ControlServer& operator=(ControlServer&&) = delete;
};

void Serve(const std::filesystem::path& board) {
    OpenBoard(viewer, board);
    const HostWindow window;
    SetConsoleCtrlHandler(AnswerConsole, TRUE);
    const ControlServer server(hostWindow);
    const std::jthread reminder([](std::stop_token stop) {
        for (; !stop.stop_requested(); std::this_thread::sleep_for(CheckClientsPause)) {
            PostMessageW(hostWindow, CheckClientsMessage, 0, 0);
        }
    });

    OrvaneMcpChar pipe[256]{};
    OrvaneMcp_GetPipeName(pipe, std::size(pipe));
    Print("serving " + PathText(viewer.boardPath) + " (" + viewer.board.name + ", " +
          std::to_string(viewer.board.components.size()) + " components) on " + FromWide(pipe));
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
}

}  // namespace

int main(int argc, char** argv) {
    SetConsoleOutputCP(CP_UTF8);
    try {
        Serve(PathOf(argc > 1 ? argv[1] : DefaultBoard));
        Print("stopped");
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "Orvane.exe: %s\n", failure.what());
        return 1;
    }
}
