/// What the bridge traces, as tests compare it.
#pragma once

#include "platform/platform.h"

#include <gtest/gtest.h>
#include <string>

/// While it lives, this process and those that it starts trace at level 2: here on standard output, which is caught.
struct TraceLog {
    TraceLog();
    /// What this process has traced, without times, durations, pipes' numbers and the system's words; once.
    std::string Lines() const { return Lines(testing::internal::GetCapturedStdout(), GetCurrentProcessId()); }
    /// The same from the output of a process.
    std::string Lines(const std::string& output, DWORD processId) const;
};

/// A moment ago in local time, in a format of strftime's.
std::string LocalTime(const char* format, int secondsAgo = 0);
