#include "platform/thread.h"

#if defined(_WIN32)

#include <process.h>

namespace {

OwnedHandle StartThread(ThreadBody body, void* argument) {
    // Not std::thread and detach(): in the cross compiler's thread library, a thread that ends before it is detached
    // hands its record to the next thread while its own exit still uses it. Then one thread runs twice and another
    // never, or the process crashes. Closing a thread's handle has no such race.
    return OwnedHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, body, argument, 0, nullptr)));
}

}  // namespace

bool StartDetachedThread(ThreadBody body, void* argument) {
    return static_cast<bool>(StartThread(body, argument));
}

bool JoinableThread::Start(ThreadBody body, void* argument) {
    thread_ = StartThread(body, argument);
    return static_cast<bool>(thread_);
}

bool JoinableThread::EndsWithin(DWORD milliseconds) {
    return !thread_ || WaitForSingleObject(thread_.Get(), milliseconds) != WAIT_TIMEOUT;
}

#else

#include <chrono>
#include <exception>
#include <thread>

bool StartDetachedThread(ThreadBody body, void* argument) try {
    std::thread(body, argument).detach();
    return true;
} catch (const std::exception&) {
    return false;
}

bool JoinableThread::Start(ThreadBody body, void* argument) try {
    ended_ = std::async(std::launch::async, [body, argument] { body(argument); });
    return true;
} catch (const std::exception&) {
    return false;
}

bool JoinableThread::EndsWithin(DWORD milliseconds) {
    return !ended_.valid() || ended_.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready;
}

#endif
