#include "standin/handles.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace {

struct ThreadQueue;

struct Window {
    WNDPROC Procedure = nullptr;
    std::shared_ptr<ThreadQueue> Owner;
};

/// A message that its sender waits for; on the sender's stack.
struct SentMessage {
    MSG Message = {};
    std::shared_ptr<ThreadQueue> Sender;
    LRESULT Result = 0;
    bool Answered = false;
};

/// A thread's messages.
struct ThreadQueue {
    std::condition_variable Changed;
    std::deque<MSG> Posted;
    std::deque<SentMessage*> Sent;
    std::list<SentMessage*> Running;  // taken, their windows' procedures under way
    std::optional<int> QuitCode;
};

struct Desktop {
    std::mutex Mutex;  // guards all windows and queues; never held while a window's procedure runs
    std::map<std::u16string, WNDPROC> Classes;
    std::map<HWND, Window> Windows;
    std::uintptr_t LastWindow = 0x10000;
};

Desktop& TheDesktop() {
    static Desktop& desktop = *new Desktop;
    return desktop;
}

void Answer(SentMessage& sent, LRESULT result) {
    sent.Result = result;
    sent.Answered = true;
    sent.Sender->Changed.notify_all();
}

/// Takes a window away and answers those who wait for it with 0. Under the desktop's mutex.
void RemoveWindow(Desktop& desktop, HWND window) {
    const auto found = desktop.Windows.find(window);
    if (found == desktop.Windows.end()) return;
    const std::shared_ptr<ThreadQueue> owner = found->second.Owner;
    desktop.Windows.erase(found);
    std::erase_if(owner->Posted, [window](const MSG& message) { return message.hwnd == window; });
    const auto isDead = [window](SentMessage* sent) { return sent->Message.hwnd == window; };
    for (SentMessage* sent : owner->Sent) {
        if (isDead(sent)) Answer(*sent, 0);
    }
    std::erase_if(owner->Sent, isDead);
}

/// Ends a thread's windows with the thread.
struct QueueOwner {
    std::shared_ptr<ThreadQueue> Queue = std::make_shared<ThreadQueue>();
    QueueOwner() = default;
    QueueOwner(const QueueOwner&) = delete;
    QueueOwner& operator=(const QueueOwner&) = delete;
    ~QueueOwner() {
        Desktop& desktop = TheDesktop();
        const std::lock_guard guard(desktop.Mutex);
        for (auto next = desktop.Windows.begin(); next != desktop.Windows.end();) {
            const HWND window = next->first;
            const bool own = next->second.Owner == Queue;
            ++next;
            if (own) RemoveWindow(desktop, window);
        }
        // A procedure that ended its own thread will never answer.
        for (SentMessage* sent : Queue->Running) Answer(*sent, 0);
        Queue->Running.clear();
    }
};

const std::shared_ptr<ThreadQueue>& OwnQueue() {
    thread_local QueueOwner owner;
    return owner.Queue;
}

/// Runs the messages that other threads have sent to this thread's windows. Gives the lock up while one runs.
void RunSentMessages(Desktop& desktop, ThreadQueue& own, std::unique_lock<std::mutex>& lock) {
    while (!own.Sent.empty()) {
        SentMessage* const sent = own.Sent.front();
        own.Sent.pop_front();
        const auto window = desktop.Windows.find(sent->Message.hwnd);
        if (window == desktop.Windows.end()) {
            Answer(*sent, 0);
            continue;
        }
        own.Running.push_front(sent);
        const WNDPROC procedure = window->second.Procedure;
        const MSG message = sent->Message;
        lock.unlock();
        const LRESULT result = procedure(message.hwnd, message.message, message.wParam, message.lParam);
        lock.lock();
        own.Running.remove(sent);
        Answer(*sent, result);
    }
}

/// The window's procedure, null with the last error set when there is no such window.
WNDPROC ProcedureOf(Desktop& desktop, HWND window) {
    const auto found = desktop.Windows.find(window);
    if (found != desktop.Windows.end()) return found->second.Procedure;
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return nullptr;
}

}  // namespace

WORD RegisterClassW(const WNDCLASSW* windowClass) {
    Desktop& desktop = TheDesktop();
    const std::lock_guard guard(desktop.Mutex);
    const bool added = desktop.Classes.emplace(windowClass->lpszClassName, windowClass->lpfnWndProc).second;
    if (!added) return static_cast<WORD>(Outcome(ERROR_CLASS_ALREADY_EXISTS));
    constexpr std::size_t firstAtom = 0xC000;
    return static_cast<WORD>(firstAtom + desktop.Classes.size());
}

HWND CreateWindowExW(DWORD, LPCWSTR className, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID) {
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    Desktop& desktop = TheDesktop();
    const std::lock_guard guard(desktop.Mutex);
    const auto found = desktop.Classes.find(className);
    if (found == desktop.Classes.end()) {
        SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    const HWND window = reinterpret_cast<HWND>(desktop.LastWindow += 2);
    desktop.Windows[window] = {found->second, own};
    return window;
}

BOOL DestroyWindow(HWND window) {
    Desktop& desktop = TheDesktop();
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    WNDPROC procedure = nullptr;
    {
        const std::lock_guard guard(desktop.Mutex);
        procedure = ProcedureOf(desktop, window);
        if (procedure == nullptr) return FALSE;
        if (desktop.Windows[window].Owner != own) return Outcome(ERROR_ACCESS_DENIED);
    }
    procedure(window, WM_DESTROY, 0, 0);
    const std::lock_guard guard(desktop.Mutex);
    RemoveWindow(desktop, window);
    return TRUE;
}

BOOL IsWindow(HWND window) {
    Desktop& desktop = TheDesktop();
    const std::lock_guard guard(desktop.Mutex);
    return ProcedureOf(desktop, window) != nullptr ? TRUE : FALSE;
}

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM, LPARAM) {
    if (message == WM_CLOSE) DestroyWindow(window);
    return 0;
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    Desktop& desktop = TheDesktop();
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    std::unique_lock lock(desktop.Mutex);
    const WNDPROC procedure = ProcedureOf(desktop, window);
    if (procedure == nullptr) return 0;
    const std::shared_ptr<ThreadQueue> owner = desktop.Windows[window].Owner;
    if (owner == own) {
        lock.unlock();
        return procedure(window, message, wParam, lParam);
    }
    SentMessage sent;
    sent.Message = {.hwnd = window, .message = message, .wParam = wParam, .lParam = lParam, .time = 0, .pt = {}};
    sent.Sender = own;
    owner->Sent.push_back(&sent);
    owner->Changed.notify_all();
    while (!sent.Answered) {
        if (own->Sent.empty()) own->Changed.wait(lock);
        RunSentMessages(desktop, *own, lock);
    }
    return sent.Result;
}

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    Desktop& desktop = TheDesktop();
    const std::lock_guard guard(desktop.Mutex);
    const auto found = desktop.Windows.find(window);
    if (found == desktop.Windows.end()) return Outcome(ERROR_INVALID_WINDOW_HANDLE);
    ThreadQueue& owner = *found->second.Owner;
    owner.Posted.push_back(
        {.hwnd = window, .message = message, .wParam = wParam, .lParam = lParam, .time = GetTickCount(), .pt = {}});
    owner.Changed.notify_all();
    return TRUE;
}

void PostQuitMessage(int exitCode) {
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    const std::lock_guard guard(TheDesktop().Mutex);
    own->QuitCode = exitCode;
    own->Changed.notify_all();
}

BOOL GetMessageW(MSG* message, HWND window, UINT first, UINT last) {
    Desktop& desktop = TheDesktop();
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    const auto wanted = [&](const MSG& posted) {
        const bool inRange = (first == 0 && last == 0) || (posted.message >= first && posted.message <= last);
        return inRange && (window == nullptr || posted.hwnd == window);
    };
    std::unique_lock lock(desktop.Mutex);
    if (window != nullptr && ProcedureOf(desktop, window) == nullptr) return -1;
    for (;;) {
        RunSentMessages(desktop, *own, lock);
        const auto found = std::find_if(own->Posted.begin(), own->Posted.end(), wanted);
        if (found != own->Posted.end()) {
            *message = *found;
            own->Posted.erase(found);
            return TRUE;
        }
        if (own->QuitCode) {
            *message = {};
            message->message = WM_QUIT;
            message->wParam = static_cast<WPARAM>(*own->QuitCode);
            own->QuitCode.reset();
            return FALSE;
        }
        own->Changed.wait(lock);
    }
}

// There is no keyboard here.
BOOL TranslateMessage(const MSG*) {
    return FALSE;
}

LRESULT DispatchMessageW(const MSG* message) {
    WNDPROC procedure = nullptr;
    {
        Desktop& desktop = TheDesktop();
        const std::lock_guard guard(desktop.Mutex);
        procedure = ProcedureOf(desktop, message->hwnd);
    }
    return procedure == nullptr ? 0 : procedure(message->hwnd, message->message, message->wParam, message->lParam);
}

LPVOID CoTaskMemAlloc(SIZE_T size) {
    return std::malloc(std::max<SIZE_T>(size, 1));
}

void CoTaskMemFree(LPVOID block) {
    std::free(block);
}
