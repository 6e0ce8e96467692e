#include "standin/watcher.h"

#include "standin/descriptor.h"

#include <cerrno>
#include <dlfcn.h>
#include <memory>
#include <mutex>
#include <signal.h>
#include <sys/epoll.h>
#include <thread>
#include <unordered_map>

namespace {

using Callback = std::shared_ptr<std::function<void()>>;

/// Immortal: the thread outlives static destruction.
struct WatcherState {
    std::mutex Mutex;
    std::unordered_map<std::uint64_t, Callback> Callbacks;
    std::uint64_t LastId = 0;
    Descriptor Epoll{epoll_create1(EPOLL_CLOEXEC)};
};

void RunWatcher(WatcherState& state) {
    for (;;) {
        epoll_event events[64];
        const int count = epoll_wait(state.Epoll.Get(), events, 64, -1);
        for (int i = 0; i < count; ++i) {
            Callback callback;
            {
                const std::lock_guard guard(state.Mutex);
                const auto found = state.Callbacks.find(events[i].data.u64);
                if (found != state.Callbacks.end()) callback = found->second;
            }
            if (callback) (*callback)();
        }
    }
}

WatcherState& Watcher() {
    static WatcherState& state = *[] {
        auto* const created = new WatcherState;
        StartServiceThread([created] { RunWatcher(*created); });
        return created;
    }();
    return state;
}

/// A thread started meanwhile takes no signals either.
struct AllSignalsBlocked {
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &Previous);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &Previous, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    sigset_t Previous;
};

}  // namespace

std::uint64_t StartWatch(int descriptor, std::uint32_t events, std::function<void()> onReady) {
    WatcherState& state = Watcher();
    const std::lock_guard guard(state.Mutex);
    const std::uint64_t id = ++state.LastId;
    state.Callbacks[id] = std::make_shared<std::function<void()>>(std::move(onReady));
    epoll_event event = {.events = events, .data = {.u64 = id}};
    if (epoll_ctl(state.Epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0) return id;
    state.Callbacks.erase(id);
    return 0;
}

void ChangeWatch(std::uint64_t watch, int descriptor, std::uint32_t events) {
    epoll_event event = {.events = events, .data = {.u64 = watch}};
    epoll_ctl(Watcher().Epoll.Get(), EPOLL_CTL_MOD, descriptor, &event);
}

void EndWatch(std::uint64_t watch, int descriptor) {
    if (watch == 0) return;
    WatcherState& state = Watcher();
    Callback ended;  // destroyed outside the lock: it may own the last reference to something that ends a watch
    const std::lock_guard guard(state.Mutex);
    epoll_ctl(state.Epoll.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
    const auto found = state.Callbacks.find(watch);
    if (found == state.Callbacks.end()) return;
    ended = std::move(found->second);
    state.Callbacks.erase(found);
}

void StartServiceThread(std::function<void()> body) {
    Dl_info here = {};
    if (dladdr(reinterpret_cast<void*>(&StartServiceThread), &here) != 0) {
        dlopen(here.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
    const AllSignalsBlocked blocked;
    std::thread(std::move(body)).detach();
}
