/// Builds control lines: a verb and its fields, separated by tabs, without the line feed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The text as a field: tabs, line feeds and carriage returns become blanks, so a value can't end the line or shift a
/// later field.
[[nodiscard]] std::string SanitizeField(std::string_view text);

/// A line under construction. The verb ends with its own tab, so the first field adds none.
class ControlLine {
  public:
    explicit ControlLine(std::string_view verb) : line_(verb) {}

    /// A text field, sanitized.
    ControlLine& Text(std::string_view value);
    ControlLine& Number(std::int64_t value);
    ControlLine& Flag(bool value);

    /// One edit of an update verb, as two fields: `name` and the value. Adds nothing if there is no value.
    ControlLine& AppendEditField(std::string_view name, const std::optional<std::string>& value);
    ControlLine& AppendEditField(std::string_view name, std::optional<bool> value);

    bool HasEdits() const { return hasEdits_; }
    const std::string& Line() const { return line_; }

  private:
    std::string& NextField();

    std::string line_;
    bool hasField_ = false;
    bool hasEdits_ = false;
};
