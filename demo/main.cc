// A small viewer that hosts the library: a window that answers commands, a board to answer from, and a console that
// tells what happens. All of the viewer's state belongs to the window's thread.

#include "commands.h"
#include "platform/platform.h"
#include "text.h"

#include <atomic>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

constexpr UINT CheckClientsMessage = WM_APP + 1;
constexpr auto CheckClientsPause = std::chrono::milliseconds(500);

constexpr char Usage[] =
    "Usage: Orvane.exe [BOARD] [--process-id-override N]\n"
    "Shows a board to agents: serves the control pipe until Ctrl+C, and tells on the console what they ask.\n"
    "  BOARD                     a board file; without it demo_board.orv beside this program or in ./demo\n"
    "  --process-id-override N   the number in the pipe's name, in place of this process's id\n"
    "  --help                    this text\n";

struct Options {
    std::filesystem::path board;
    std::uint32_t processIdOverride = 0;
    bool help = false;
};

Viewer viewer;
std::vector<std::string> listedClients;
std::string shownError;
std::atomic<HWND> hostWindow{nullptr};
std::atomic<bool> ended{false};

void Print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

template <std::size_t Capacity>
std::string TextIn(const OrvaneMcpChar (&text)[Capacity]) {
    return FromWide(text, std::char_traits<OrvaneMcpChar>::length(text));
}

/// Tells which clients have come and gone since the last look, and a failure that the server met since.
void CheckServer() {
    std::vector<std::string> clients;
    for (std::int32_t i = 0; i < OrvaneMcp_GetClientCount(); ++i) {
        ClientInfo info{};
        info.Size = sizeof info;
        // A client may leave between the count and this call; then the next look tells.
        if (!OrvaneMcp_GetClientInfo(i, &info)) break;
        clients.push_back(TextIn(info.DisplayName) + ", " + TextIn(info.Transport) + ", since " +
                          TextIn(info.ConnectedAt));
    }
    std::vector<std::string> gone = listedClients;
    for (const std::string& client : clients) {
        const auto known = std::find(gone.begin(), gone.end(), client);
        if (known == gone.end()) {
            Print("client came: " + client);
        } else {
            gone.erase(known);
        }
    }
    for (const std::string& client : gone) Print("client left: " + client);
    listedClients = std::move(clients);

    OrvaneMcpChar error[256];
    if (OrvaneMcp_GetLastError(error, std::size(error)) && TextIn(error) != shownError) {
        shownError = TextIn(error);
        Print("server: " + shownError);
    }
}

LRESULT CALLBACK AnswerMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case HostCommandMessage: {
            // The record is the library's and lives on another thread's stack, which waits for this call to return.
            HostCommand& command = *reinterpret_cast<HostCommand*>(lParam);
            if (command.Size < sizeof command) return 0;
            CheckServer();
            Print(AnswerCommand(viewer, command));
            return command.Success;
        }
        case CheckClientsMessage: CheckServer(); return 0;
        case WM_CLOSE: DestroyWindow(window); return 0;
        case WM_DESTROY: PostQuitMessage(0); return 0;
        default: return DefWindowProcW(window, message, wParam, lParam);
    }
}

/// Runs on a thread of the system's. The window's thread does the ending; a closing console would not wait for it.
BOOL WINAPI AnswerConsole(DWORD event) {
    PostMessageW(hostWindow, WM_CLOSE, 0, 0);
    if (event == CTRL_CLOSE_EVENT) ended.wait(false);
    return TRUE;
}

/// The window that takes commands. It is for messages only; a viewer with a face would give its main window.
struct HostWindow {
    HWND handle;

    HostWindow() {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = AnswerMessage;
        windowClass.lpszClassName = TEXT("OrvaneDemoViewer");
        RegisterClassW(&windowClass);
        handle = CreateWindowExW(0, windowClass.lpszClassName, TEXT("Orvane"), 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                 nullptr, nullptr);
        if (!handle) throw Refusal("The window can't be created.");
    }
    ~HostWindow() {
        if (IsWindow(handle)) DestroyWindow(handle);
    }
    HostWindow(const HostWindow&) = delete;
    HostWindow& operator=(const HostWindow&) = delete;
};

/// The library's server, from its start to its stop.
struct ControlServer {
    ControlServer(HWND window, std::uint32_t processIdOverride) {
        ControlServerStartInfo info{};
        info.HostWindowHandle = window;
        info.ProcessIdOverride = processIdOverride;
        if (OrvaneMcp_StartControlServer(&info)) return;
        OrvaneMcpChar error[256]{};
        OrvaneMcp_GetLastError(error, std::size(error));
        throw Refusal(TextIn(error));
    }
    ~ControlServer() { OrvaneMcp_StopControlServer(); }
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;
};

struct PictureFolder {
    ~PictureFolder() {
        std::error_code failure;
        if (!viewer.pictureFolder.empty()) std::filesystem::remove_all(viewer.pictureFolder, failure);
    }
};

/// Reminds the window every half second to look at the clients, until it is asked to stop.
void RemindWindow(std::stop_token stop, HWND window) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    while (!stop.stop_requested()) {
        wake.wait_for(lock, stop, CheckClientsPause, [] { return false; });
        PostMessageW(window, CheckClientsMessage, 0, 0);
    }
}

Options ReadOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help") {
            options.help = true;
        } else if (argument == "--process-id-override" && i + 1 < argc) {
            const char* const end = argv[i + 1] + std::strlen(argv[i + 1]);
            const auto read = std::from_chars(argv[i + 1], end, options.processIdOverride);
            if (read.ec != std::errc{} || read.ptr != end) throw Refusal("The process id must be a number.");
            ++i;
        } else if (argument.starts_with("-") || !options.board.empty()) {
            throw Refusal("Unknown argument: " + std::string(argument));
        } else {
            options.board = PathOf(argument);
        }
    }
    return options;
}

std::filesystem::path ProgramFolder() {
    OrvaneMcpChar path[1024]{};
    const DWORD length = GetModuleFileNameW(nullptr, path, std::size(path));
    return PathOf(FromWide(path, length)).parent_path();
}

void Serve(const Options& options) {
    viewer.dataFolders = {ProgramFolder(), "demo"};
    OpenBoard(viewer, options.board.empty() ? FindData(viewer, "demo_board.orv") : options.board);
    viewer.dataFolders.insert(viewer.dataFolders.begin(), viewer.boardPath.parent_path());

    const PictureFolder pictures;
    const HostWindow window;
    hostWindow = window.handle;
    SetConsoleCtrlHandler(AnswerConsole, TRUE);
    const ControlServer server(window.handle, options.processIdOverride);
    const std::jthread reminder(RemindWindow, window.handle);

    OrvaneMcpChar pipe[256]{};
    OrvaneMcp_GetPipeName(pipe, std::size(pipe));
    Print("serving " + PathText(viewer.boardPath) + " (" + viewer.board.name + ", " +
          std::to_string(viewer.board.components.size()) + " components) on " + TextIn(pipe));
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    Print("stopping");
}

}  // namespace

int main(int argc, char** argv) {
    SetConsoleOutputCP(CP_UTF8);
    int status = 0;
    try {
        const Options options = ReadOptions(argc, argv);
        if (options.help) {
            std::fputs(Usage, stdout);
        } else {
            Serve(options);
            Print("stopped");
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "Orvane.exe: %s\nTry --help.\n", failure.what());
        status = 1;
    }
    ended = true;
    ended.notify_all();
    return status;
}
