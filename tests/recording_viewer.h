/// What a test of the bridge's half needs around it: a viewer to talk to, and a look at standard output.
#pragma once

#include "control/announcement.h"
#include "hostlink/connection.h"
#include "protocol/control_protocol.h"
#include "raw_client.h"

#include <gtest/gtest.h>

/// Serves one client on a pipe of its own and is announced for as long as it lives. Records every line, and answers a
/// request with success and no text. Its end closes this process's control connection.
class RecordingViewer {
  public:
    RecordingViewer() {
        ServerState().PipeName = name_;  // the announcement is the server's own
        AnnounceControlServer(true);
    }
    ~RecordingViewer() {
        AnnounceControlServer(false);
        // Ends the wait for a client that never came. With one there this opens nothing.
        OwnedHandle(CreateFileW(name_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        CloseControlConnection();
        thread_.join();
    }

    /// The lines since the last call, the greeting included. A line is recorded before it is answered.
    std::vector<std::string> TakeLines() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

  private:
    const WideString name_ = ControlPipeName(GetCurrentProcessId()) + TEXT("_recording");
    const OwnedHandle pipe_{CreateNamedPipeW(name_.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT, 1, 512, 512, 0, nullptr)};
    std::mutex mutex_;
    std::vector<std::string> lines_;
    std::thread thread_{[this] {
        ConnectNamedPipe(pipe_.Get(), nullptr);  // fails when the client was quicker, which is as good
        for (MarkedReader reader;;) {
            const std::string line = reader.Until("\n", pipe_.Get());
            if (line.ends_with("<end>")) return;
            const std::lock_guard lock(mutex_);
            lines_.push_back(line);
            WriteBytes(pipe_.Get(), line.starts_with(HelloPrefix) ? "OK\n" : "OK\t\n");
        }
    }};
};

/// Runs `write` and gives the body of the one framed message that it puts out; its header is checked here. On Windows
/// the output is written and read back as a text file, which leaves it as it was.
template <typename Write>
std::string WrittenBody(Write write) {
    testing::internal::CaptureStdout();
    write();
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string body = output.substr(output.find('{'));
    EXPECT_EQ(output, "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    return body;
}
