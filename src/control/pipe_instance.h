/// One instance of the control pipe: the server's end of one connection.
#pragma once

#include "platform/owned.h"

#include <atomic>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

/// Shared by the session that serves it, its entry in the client list and whoever ends it from outside. The handle is
/// closed when the last of them lets go, so no one acts on a handle that was closed or that the system gave out anew.
struct PipeInstance {
    explicit PipeInstance(OwnedHandle pipe) : Pipe(std::move(pipe)) {}

    const OwnedHandle Pipe;
    /// Set by EndConnections, and by a reply that fails while the client is there. From then on the session makes no
    /// pipe call and takes up no further line.
    std::atomic<bool> Leaving = false;
    /// True while the session is inside a pipe call.
    std::atomic<bool> InCall = false;
    /// Set when a reply could not be written whole; nothing more is written then. Session thread only.
    bool Broken = false;
};

/// Announces a pipe call of the session for as long as it lives. False, with nothing announced, once the connection
/// is being ended: the session must not make the call then.
class PipeCall {
  public:
    explicit PipeCall(PipeInstance& instance) : instance_(instance) {
        // Announced before the look at Leaving: EndConnections sets that before it looks at InCall, so that one of the
        // two always sees the other.
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

/// Ends connections from another thread: frees their sessions from calls that block, then disconnects. Tries for a
/// second in all; a session whose call the system would not cancel till then ends with that call.
void EndConnections(const std::vector<std::shared_ptr<PipeInstance>>& instances);

/// Writes bytes as they are, with one call. Blocks until the pipe has taken them. Failures are not told: of a client
/// that has gone the session still takes what it had sent, and one that is there loses its connection. Session thread
/// only.
void WriteReplyBytes(PipeInstance& instance, std::string_view bytes);

/// Writes a reply and, with a second call, its line feed.
void WriteReplyLine(PipeInstance& instance, std::string_view text);
