/// What the fuzzers hold the product against: small, plain and independent of its code.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

/// Ends the fuzzer with `what` when `holds` is false, so that the input is kept as a finding.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

/// True when the bytes are well-formed UTF-8.
bool IsUtf8(std::string_view bytes);

/// True when `text` is exactly one JSON value in UTF-8, with blanks around it or not.
bool IsJson(std::string_view text);

/// Takes the next message off the output of a bridge and returns its body; nothing when there is none left. Ends the
/// fuzzer when its framing is broken.
std::optional<std::string_view> TakeOutputMessage(std::string_view& output);

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
