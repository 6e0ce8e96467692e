/// The thread of one connected client: reads its greeting, registers it, cuts its bytes into lines and has each
/// answered.
#pragma once

#include "control/pipe_instance.h"
#include "control/state.h"
#include "text/wide.h"

#include <cstdint>
#include <memory>

/// Counts one session while it lives, and keeps track of its stage. A stop waits until none is counted.
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

/// Starts a session on a thread of its own for a connected instance. When no thread can be started, the connection is
/// closed.
void StartClientSession(std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun);

/// Serves the client until it leaves, a reply can't be written, the connection is ended from outside or the run of the
/// server is over. Throws std::bad_alloc when the pending input or a command outgrows memory. On every way out the
/// client is off the list and its connection closed.
void RunClientSession(ClientSession& session);
