/// The bridge without a pipe: this program's own connection records what the bridge does and answers by a script.
#pragma once

#include "hostlink/connection.h"
#include "limited_memory.h"

#include <functional>
#include <gtest/gtest.h>
#include <vector>

struct ScriptedLink {
    /// Every attempt to connect, as its time-out in milliseconds, and every line, in their order.
    std::vector<std::string> Calls;
    bool CanConnect = true;
    std::string ClientName = "Claude MCP client";
    std::function<std::optional<std::string>(std::string_view line)> Answer = [](auto) { return "OK\t"; };
    /// What was on standard output at the first attempt to connect, in bytes; -1 without one.
    long WrittenBeforeConnecting = -1;
};

/// The link that the functions of hostlink/connection.h use; a test sets it up anew.
extern ScriptedLink Link;

/// Runs `write`, with no allocation larger than `largest`, and returns the body of the one framed message that it
/// writes; its header is checked here. On Windows the output goes through a text file, which leaves it unchanged.
template <typename Write>
std::string WrittenBody(Write write, std::size_t largest = SIZE_MAX) {
    testing::internal::CaptureStdout();
    {
        const LargestAllocation limit(largest);
        write();
    }
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string body = output.substr(std::min(output.find('{'), output.size()));
    EXPECT_EQ(output, "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    return body;
}
