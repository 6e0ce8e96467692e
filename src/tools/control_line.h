/// Builds control lines: a verb and its fields, one tab between two fields, no line feed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// `text` with every tab, line feed and carriage return turned into a blank, so that a value can neither end the
/// line nor shift a later field.
std::string SanitizeField(std::string_view text);

/// Appends a tab, `key`, a tab and the sanitised `value`: one edit of an update verb.
void AppendEditField(std::string& line, std::string_view key, std::string_view value);

/// A positional line under construction. The verb brings its own tab, which stands before the first field.
class ControlLine {
  public:
    explicit ControlLine(std::string_view verb) : line_(verb) {}

    ControlLine& Text(std::string_view value);
    ControlLine& Number(std::int64_t value);
    ControlLine& Flag(bool value);

    const std::string& Line() const { return line_; }

  private:
    std::string& NextField();

    std::string line_;
    bool hasField_ = false;
};
