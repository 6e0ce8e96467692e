#include "control/protocol.h"

WideString ControlPipeName(DWORD processId) {
    WCHAR name[256];
    swprintf_s(name, std::size(name), TEXT("\\\\.\\pipe\\orvane_mcp_control_%lu"),
               static_cast<unsigned long>(processId));
    return name;
}

std::string EscapeReplyText(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char byte : text) {
        switch (byte) {
            case '\n': escaped += "\\n"; break;
            case '\r': escaped += "\\r"; break;
            case '\\': escaped += "\\\\"; break;
            default: escaped += byte; break;
        }
    }
    return escaped;
}

std::string UnescapeControlText(std::string_view text) {
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
        switch (next) {
            case 'n': plain += '\n'; break;
            case 'r': plain += '\r'; break;
            case '\\': plain += '\\'; break;
            default: plain += text[i]; continue;
        }
        ++i;
    }
    return plain;
}
