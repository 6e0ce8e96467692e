// Message-only windows, and the message queue of each thread.
#include "standin/windows.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace {

/// A message whose sender is waiting; lives on the sender's stack.
struct SentMessage {
    MSG Message = {};
    LRESULT Result = 0;
    bool Answered = false;
    std::condition_variable Changed;
};

/// A thread's messages.
struct ThreadQueue {
    std::deque<MSG> Posted;
    std::deque<SentMessage*> Sent;
    std::optional<int> QuitCode;
    std::condition_variable Changed;
};

struct Window {
    WNDPROC Procedure = nullptr;
    std::shared_ptr<ThreadQueue> Owner;
};

struct Desktop {
    std::mutex Mutex;  // guards all windows, queues and sent messages; never held while a window's procedure runs
    std::map<std::u16string, WNDPROC> Classes;
    std::map<HWND, Window> Windows;
    std::uintptr_t LastWindow = 0x10000;
};

Desktop& desktop = *new Desktop;

/// The caller holds the desktop's mutex. Once it is released, the sender's record may be gone.
void Answer(SentMessage& sent, LRESULT result) {
    sent.Result = result;
    sent.Answered = true;
    sent.Changed.notify_one();
}

/// A copy of the window's record; empty if there is no such window. The caller holds the desktop's mutex.
Window FindWindow(HWND window) {
    const auto found = desktop.Windows.find(window);
    return found == desktop.Windows.end() ? Window() : found->second;
}

/// Removes a window and its messages; waiting senders get 0. The caller holds the desktop's mutex.
void RemoveWindow(HWND window) {
    const std::shared_ptr<ThreadQueue> owner = FindWindow(window).Owner;
    if (!owner) return;
    desktop.Windows.erase(window);
    std::erase_if(owner->Posted, [window](const MSG& message) { return message.hwnd == window; });
    std::erase_if(owner->Sent, [window](SentMessage* sent) {
        const bool isDead = sent->Message.hwnd == window;
        if (isDead) Answer(*sent, 0);
        return isDead;
    });
}

const std::shared_ptr<ThreadQueue>& OwnQueue() {
    thread_local const auto queue = std::make_shared<ThreadQueue>();
    return queue;
}

/// Handles the messages that other threads have sent to this thread's windows. Releases the lock meanwhile.
void RunSentMessages(ThreadQueue& own, std::unique_lock<std::mutex>& lock) {
    while (!own.Sent.empty()) {
        SentMessage* const sent = own.Sent.front();
        own.Sent.pop_front();
        const MSG message = sent->Message;
        const WNDPROC procedure = FindWindow(message.hwnd).Procedure;
        lock.unlock();
        const LRESULT result = procedure(message.hwnd, message.message, message.wParam, message.lParam);
        lock.lock();
        Answer(*sent, result);
    }
}

}  // namespace

WORD RegisterClassW(const WNDCLASSW* windowClass) {
    const std::lock_guard lock(desktop.Mutex);
    return desktop.Classes.emplace(windowClass->lpszClassName, windowClass->lpfnWndProc).second ? 1 : 0;
}

HWND CreateWindowExW(DWORD, LPCWSTR className, LPCWSTR, DWORD, int, int, int, int, HWND, void*, HINSTANCE, LPVOID) {
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    const std::lock_guard lock(desktop.Mutex);
    const HWND window = reinterpret_cast<HWND>(desktop.LastWindow += 2);
    desktop.Windows[window] = {desktop.Classes.at(className), own};
    return window;
}

BOOL DestroyWindow(HWND window) {
    SendMessageW(window, WM_DESTROY, 0, 0);
    const std::lock_guard lock(desktop.Mutex);
    RemoveWindow(window);
    return TRUE;
}

BOOL IsWindow(HWND window) {
    const std::lock_guard lock(desktop.Mutex);
    return FindWindow(window).Owner ? TRUE : FALSE;
}

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM, LPARAM) {
    if (message == WM_CLOSE) DestroyWindow(window);
    return 0;
}

/// Unlike the real one, handles no messages for this thread's windows while it waits for another thread.
LRESULT SendMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const std::shared_ptr<ThreadQueue>& own = OwnQueue();
    std::unique_lock lock(desktop.Mutex);
    const Window window = FindWindow(handle);
    if (!window.Owner) return 0;
    if (window.Owner == own) {
        lock.unlock();
        return window.Procedure(handle, message, wParam, lParam);
    }
    SentMessage sent;
    sent.Message = {handle, message, wParam, lParam};
    window.Owner->Sent.push_back(&sent);
    window.Owner->Changed.notify_one();
    sent.Changed.wait(lock, [&sent] { return sent.Answered; });
    return sent.Result;
}

BOOL PostMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const std::lock_guard lock(desktop.Mutex);
    const Window window = FindWindow(handle);
    if (!window.Owner) return FALSE;
    window.Owner->Posted.push_back({handle, message, wParam, lParam});
    window.Owner->Changed.notify_one();
    return TRUE;
}

void PostQuitMessage(int exitCode) {
    const std::lock_guard lock(desktop.Mutex);
    OwnQueue()->QuitCode = exitCode;
}

/// Returns messages for any of the thread's windows; the filters are ignored.
BOOL GetMessageW(MSG* message, HWND, UINT, UINT) {
    ThreadQueue& own = *OwnQueue();
    std::unique_lock lock(desktop.Mutex);
    for (;;) {
        RunSentMessages(own, lock);
        if (!own.Posted.empty()) {
            *message = own.Posted.front();
            own.Posted.pop_front();
            return TRUE;
        }
        if (own.QuitCode) {
            *message = {nullptr, WM_QUIT, static_cast<WPARAM>(*own.QuitCode), 0};
            own.QuitCode.reset();
            return FALSE;
        }
        own.Changed.wait(lock);
    }
}

LRESULT DispatchMessageW(const MSG* message) {
    return SendMessageW(message->hwnd, message->message, message->wParam, message->lParam);
}

LPVOID CoTaskMemAlloc(std::size_t size) {
    return std::malloc(std::max<std::size_t>(size, 1));
}

void CoTaskMemFree(LPVOID block) {
    std::free(block);
}
