/// What the fuzzers hold the product against: small, plain and independent of its code.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Ends the fuzzer with `what` when `holds` is false, so that the input is kept as a finding.
inline void Require(bool holds, const char* what) {
    if (!holds) throw std::logic_error(what);
}

/// True when the bytes are well-formed UTF-8.
bool IsUtf8(std::string_view bytes);

/// True when `text` is exactly one JSON value in UTF-8, with blanks around it or not.
bool IsJson(std::string_view text);

struct Message {
    std::string Body;
    bool Framed;
};

/// Takes the next message off the input of a bridge; nothing when there is none left, or only a part of one.
std::optional<Message> TakeInputMessage(std::string_view& input);

/// Takes the next message off the output of a bridge; nothing when there is none left. Its framing must be flawless.
std::optional<Message> TakeOutputMessage(std::string_view& output);

using Position = std::optional<std::size_t>;  // nothing: the scan failed

/// Where the value of `key` begins.
Position ValueOf(const std::string& m, const std::string& key, const char* blanks = " \t\r\n");

/// The position after the closing quote of the string that opens at `at`; `text` gets its bytes unescaped.
Position AfterString(const std::string& m, std::size_t at, std::string& text);

/// The id's own text, or "".
std::string IdOf(const std::string& m);

/// Standard output, caught in memory from here to Text().
class CaughtOutput {
  public:
    CaughtOutput() : console_(stdout) { stdout = open_memstream(&data_, &size_); }
    CaughtOutput(const CaughtOutput&) = delete;
    CaughtOutput& operator=(const CaughtOutput&) = delete;
    ~CaughtOutput() {
        std::fclose(stdout);
        stdout = console_;
        std::free(data_);
    }
    std::string_view Text() {
        std::fflush(stdout);
        return {data_, size_};
    }

  private:
    std::FILE* console_;
    char* data_ = nullptr;
    std::size_t size_ = 0;
};
