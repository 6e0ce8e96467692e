/// One instance of the control pipe: the server's end of one connection.
#pragma once

#include "platform/owned.h"

#include <atomic>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

/// Shared by its session, its record in the client list and whoever ends it from outside. The last owner closes the
/// handle, so no one can use a handle that was closed or that the system has reused.
struct PipeInstance {
    explicit PipeInstance(OwnedHandle pipe) : Pipe(std::move(pipe)) {}

    const OwnedHandle Pipe;
    /// Set by EndConnections, and when a reply fails although the client is still there. From then on the session makes
    /// no pipe calls and carries out no more lines.
    std::atomic<bool> Leaving = false;
    /// True while the session is inside a pipe call.
    std::atomic<bool> InCall = false;
    /// Set when a reply could not be written in full. Nothing is written after that. Session thread only.
    bool Broken = false;
};

/// Marks the session as inside a pipe call. Converts to false, and marks nothing, if the connection is being ended: the
/// session must not make the call then.
class PipeCall {
  public:
    explicit PipeCall(PipeInstance& instance) : instance_(instance) {
        // InCall is set before Leaving is read; EndConnections sets Leaving before it reads InCall. So at least one of
        // the two threads always sees the other.
        instance_.InCall = true;
        if (instance_.Leaving) instance_.InCall = false;
    }
    PipeCall(const PipeCall&) = delete;
    PipeCall& operator=(const PipeCall&) = delete;
    ~PipeCall() { instance_.InCall = false; }

    explicit operator bool() const { return instance_.InCall; }

  private:
    PipeInstance& instance_;
};

/// Ends connections from another thread: cancels the calls that their sessions are blocked in, then disconnects. Keeps
/// trying for about a second. A session whose call can't be cancelled by then ends when that call returns.
void EndConnections(const std::vector<std::shared_ptr<PipeInstance>>& instances);

/// Writes bytes unchanged, in as few calls as possible. Blocks until the pipe has accepted them. Reports no failure: if
/// the client is gone, the session still carries out what it sent; if it is still there, it is disconnected, because it
/// would wait for this reply forever. Session thread only.
void WriteReplyBytes(PipeInstance& instance, std::string_view bytes);

/// Writes a reply, then its line feed.
void WriteReplyLine(PipeInstance& instance, std::string_view text);
