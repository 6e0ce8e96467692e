#include "trace_log.h"

#include "text/trace.h"

#include <ctime>
#include <regex>
#include <sstream>

TraceLog::TraceLog() {
    static char level[] = "ORVANE_MCP_TRACE=2";
    putenv(level);
    testing::internal::CaptureStdout();
    StartTraceOn(STD_OUTPUT_HANDLE);
}

std::string TraceLog::Lines(const std::string& output, DWORD processId) const {
    const std::regex head("(\\d\\d:\\d\\d):\\d\\d\\.\\d{3} orvane_mcp " + std::to_string(processId) + ": (.*)");
    const std::regex varying("((after|for|control_) ?)\\d+( ms)?|(error \\d+)\\. .*");
    std::string lines;
    std::smatch match;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        if (!std::regex_search(line, match, head)) continue;
        EXPECT_TRUE(match[1] == LocalTime("%H:%M") || match[1] == LocalTime("%H:%M", 60)) << line;
        lines += std::regex_replace(match[2].str(), varying, "$1$4$3") + "\n";
    }
    return lines;
}

std::string LocalTime(const char* format, int secondsAgo) {
    const std::time_t time = std::time(nullptr) - secondsAgo;
    char text[64] = {};
    std::strftime(text, sizeof text, format, std::localtime(&time));
    return text;
}
