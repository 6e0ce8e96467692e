/// Byte streams: the ends of pipes and the standard streams.
#pragma once

#include "standin/descriptor.h"
#include "standin/windows.h"

#include <memory>
#include <mutex>

class PendingCall;
struct InstanceFile;

struct File {
    std::mutex Mutex;                          // guards the rest
    std::shared_ptr<const Descriptor> Stream;  // calls hold it too, so its number isn't reused during one
    bool Listening = false;                    // the stream is a socket waiting for its client
    PendingCall* Calls = nullptr;
    std::shared_ptr<InstanceFile> Instance;  // at a server's end only
};

/// A call that may block. It lives on its thread's stack and can be cancelled while it does.
class PendingCall {
  public:
    explicit PendingCall(File& file);
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;
    ~PendingCall();

    /// Blocks until `descriptor` is ready for `events`, POLLIN or POLLOUT. Returns ERROR_SUCCESS then, and
    /// ERROR_OPERATION_ABORTED once the call has been cancelled.
    DWORD AwaitReady(int descriptor, short events) const;

  private:
    friend bool CancelCalls(File& file);
    File& file_;
    Descriptor cancelled_;  // an event, readable once the call has been cancelled
    PendingCall* next_;
};

/// Cancels every call in progress; false if there is none.
bool CancelCalls(File& file);

/// True if the other end has closed or ended the connection. Unread bytes may be left.
bool HasHungUp(const Descriptor& stream);
