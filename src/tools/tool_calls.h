/// The tools: what each reads from a call, what it checks and what it sends to the viewer.
#pragma once

#include <string_view>
#include <vector>

/// The names of all tools, in the order of the catalogue.
[[nodiscard]] std::vector<std::string_view> ToolNames();

/// Carries out one `tools/call`. `idText` is the request's id as JSON text, `message` the whole message. Writes exactly
/// one result on every path; a failed call's has "isError":true. Bridge's calling thread only; blocks until the viewer
/// has answered.
void HandleToolCall(std::string_view idText, std::string_view message);
