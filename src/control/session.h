/// One connected client's thread: takes its greeting, registers it, cuts its bytes into lines and has them answered.
#pragma once

#include "control/pipe_instance.h"
#include "control/state.h"
#include "text/wide.h"

#include <cstdint>
#include <memory>

/// Counts one session for as long as it lives, and notes its stage. A stop waits for these counts.
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

/// What a session is made of. It belongs to the run of the server that accepted it and ends with it, even when the
/// server has been started again meanwhile.
struct ClientSession {
    std::shared_ptr<PipeInstance> Pipe;
    std::uint64_t ServerRun = 0;
    std::uint64_t ClientId = 0;  // set when the client is registered
    SessionCount Count = {};
};

/// Starts a detached session thread for a connected instance. False when no thread can be started: the connection
/// closes as its last owner lets go.
bool StartClientSession(std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun);

/// Serves the client until it leaves, a reply can't be written to it, its connection is ended from outside or its run
/// of the server is over.
/// Throws std::bad_alloc when the client's pending input or a command outgrows memory; the client is off the list
/// then, as on every other way out.
void RunClientSession(ClientSession& session);
