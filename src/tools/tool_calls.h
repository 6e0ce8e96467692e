/// The tools: the arguments that each reads and checks, and the line that it sends to the viewer.
#pragma once

#include <string_view>
#include <vector>

/// The names of all tools, in the order of the catalogue.
[[nodiscard]] std::vector<std::string_view> ToolNames();

/// Carries out one `tools/call`. `idText` is the request's id as JSON text, `message` the whole message. Always writes
/// exactly one result; if the call failed, it has "isError":true. Runs on the bridge's calling thread only; blocks
/// until the viewer has answered.
void HandleToolCall(std::string_view idText, std::string_view message);
