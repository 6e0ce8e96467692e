/// A host inside the test program, and what the tests of its control server share.
#pragma once

#include "raw_client.h"

#include <functional>
#include <future>
#include <gmock/gmock.h>

/// Leaves `text` in a block of its own; the library frees it.
void SetLongReply(HostCommand& command, WideView text);

/// Answers with success and the command's id and text, such as "7:VCC".
LRESULT Echo(HostCommand& command);

/// A message-only window whose thread checks every command and gives it to `answer`, and the message its result.
struct HostWindow {
    const std::function<LRESULT(HostCommand&)> OnCommand;
    std::atomic<int> Commands = 0;  // so far, the one under way included
    HWND Handle = nullptr;
    std::thread Thread;

    explicit HostWindow(std::function<LRESULT(HostCommand&)> answer = Echo);
    ~HostWindow();
};

/// Leaves no server, no session and no announcement behind a test.
struct ServerTest : testing::Test {
    void TearDown() override;
    static int Start(HWND window = nullptr, DWORD processIdOverride = 0, WideView directory = TEXT("C:\\Orvane"));
    static bool SessionsBecome(int count) {
        return Eventually([=] { return ServerState().ActiveSessions == count; });
    }
    /// The display names, as the host reads them.
    static std::vector<std::string> ClientNames();
};

/// Asks the programs that this one starts for a full trace.
void AskForTrace();

/// The trace of a process in its output, without times, durations, pipes' numbers and the system's words.
std::string TraceIn(const std::string& output, DWORD processId = GetCurrentProcessId());

/// A moment ago in local time, in a format of strftime's.
std::string LocalTime(const char* format, int secondsAgo = 0);
