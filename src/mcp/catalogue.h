/// The constant texts that introduce the server to an agent: who it is, what its tools do and how to use
/// them. Their wording steers agents and is part of the protocol. All are pure ASCII and the same for every client.
#pragma once

#include <string_view>

/// What follows the id in the reply to `initialize`, from the comma to the brace that closes the message.
extern const std::string_view InitializeResultText;

/// What follows the id in the reply to `tools/list`: all tools, from the comma to the closing brace.
extern const std::string_view ToolListResultText;

/// The whole answer of the tool `list_commands`, as plain text of several lines.
extern const std::string_view SampleUsageText;
