#include "platform/thread.h"

#if defined(_WIN32)

#include "platform/owned.h"

#include <process.h>

bool StartDetachedThread(ThreadBody body, void* argument) {
    // Not std::thread and detach(): with the cross compiler's thread library a thread that ends before it is detached
    // leaves its record to the next thread while its own exit still uses it. Then one thread runs twice and another
    // never, or the process dies. Closing the handle of a thread has no such race.
    const OwnedHandle thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, body, argument, 0, nullptr)));
    return static_cast<bool>(thread);
}

#else

#include <system_error>
#include <thread>

bool StartDetachedThread(ThreadBody body, void* argument) try {
    std::thread(body, argument).detach();
    return true;
} catch (const std::exception&) {
    return false;
}

#endif
