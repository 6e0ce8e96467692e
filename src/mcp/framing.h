/// Turns standard input into messages and messages into standard output. A message comes behind a Content-Length
/// header block or as one bare line; each reply goes out in the framing of the message read last.
/// Everything here runs on the bridge's calling thread.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

/// The largest body that a header may announce; the smallest is 1 byte.
inline constexpr std::size_t LargestFramedBody = 33554432;

/// How every reply begins; the id's text follows.
inline constexpr std::string_view ReplyHead = R"({"jsonrpc":"2.0","id":)";

/// Reads the next message into `out`, blocking for as long as the client is silent. False when input ended first;
/// what had come of an unfinished message is dropped.
bool ReadMcpMessage(std::string& out);

/// Writes one message and flushes. A client that has gone away is not noticed here: its input ends as well.
void WriteMcpMessage(std::string_view body);

/// The same for a body in parts, which are not joined first: one of them may be a long constant text.
void WriteMcpMessage(std::initializer_list<std::string_view> parts);

/// Reads one line, its line end included. A last line without a line feed still counts; false when there is none.
bool ReadInputLine(std::string& line);

/// True when `line`, without its line end, is a usable Content-Length header; `length` takes its number of bytes.
bool ParseContentLength(const std::string& line, std::size_t& length);
