#include "tools/control_line.h"

#include <algorithm>

std::string SanitizeField(std::string_view text) {
    std::string field(text);
    std::replace_if(
        field.begin(), field.end(), [](char byte) { return byte == '\t' || byte == '\n' || byte == '\r'; }, ' ');
    return field;
}

std::string& ControlLine::NextField() {
    if (hasField_) line_ += '\t';
    hasField_ = true;
    return line_;
}

ControlLine& ControlLine::Text(std::string_view value) {
    NextField() += SanitizeField(value);
    return *this;
}

ControlLine& ControlLine::Number(std::int64_t value) {
    NextField() += std::to_string(value);
    return *this;
}

ControlLine& ControlLine::Flag(bool value) {
    NextField() += value ? '1' : '0';
    return *this;
}

ControlLine& ControlLine::AppendEditField(std::string_view name, const std::optional<std::string>& value) {
    if (!value) return *this;
    hasEdits_ = true;
    return Text(name).Text(*value);
}

ControlLine& ControlLine::AppendEditField(std::string_view name, std::optional<bool> value) {
    if (!value) return *this;
    hasEdits_ = true;
    return Text(name).Flag(*value);
}
