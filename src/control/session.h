/// The thread of one connected client: reads its greeting, registers it, splits its bytes into lines and has each one
/// answered.
#pragma once

#include "control/pipe_instance.h"
#include "control/state.h"
#include "text/wide.h"

#include <cstdint>
#include <memory>

/// Counts one session while it lives and tracks its stage. A stop waits for the count to reach 0.
class SessionCount {
  public:
    SessionCount();
    SessionCount(const SessionCount&) = delete;
    SessionCount& operator=(const SessionCount&) = delete;
    ~SessionCount();

    void Enter(SessionStage stage);

  private:
    SessionStage stage_ = SessionStage::Starting;
};

/// A session belongs to the run of the server that accepted it and ends with that run, even if the server has been
/// started again since.
struct ClientSession {
    std::shared_ptr<PipeInstance> Pipe;
    std::uint64_t ServerRun = 0;
    std::uint64_t ClientId = 0;  // set when the client is registered
    SessionCount Count = {};
};

/// Starts a session on its own thread for a connected instance. Closes the connection if no thread can be started.
void StartClientSession(std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun);

/// Serves the client until it leaves, a reply can't be written, the connection is ended from outside or the server run
/// is over. Throws std::bad_alloc if the pending input or a command outgrows memory. However it ends, the client is off
/// the list and its connection is closed.
void RunClientSession(ClientSession& session);
