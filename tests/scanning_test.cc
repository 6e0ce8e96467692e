#include "mcp/scanning.h"

#include "bridge/message_loop.h"

#include <gtest/gtest.h>

TEST(FindJson, ReturnsTheFirstValueOfItsOwnType) {
    EXPECT_EQ(FindJsonString(R"({"a":{"k":"X"},"k":"Y"})", "k"), "X");
    EXPECT_EQ(FindJsonInt(R"({"k":2147483648)", "k"), -2147483648);
    EXPECT_EQ(FindJsonBool(R"({"k":trueish})", "k"), true);
    EXPECT_EQ(FindJsonRawValue("{\"k\": [ 1 ,\n {\"a\":\"U1\"},] ,\"x\":1}", "k"), "[ 1 ,\n {\"a\":\"U1\"},]");
    for (const std::string missed : {R"({"x":[1]})", R"({"k":})", R"({"k":[1}})", R"({"k")", "{\"k\": \r\n", ""}) {
        const bool found = FindJsonString(missed, "k") || FindJsonInt(missed, "k") || FindJsonBool(missed, "k");
        EXPECT_FALSE(found || FindJsonRawValue(missed, "k")) << missed;
    }
}

TEST(SkipJsonValue, RefusesACutOffOrTooDeepValueAndStaysInsideTheMessage) {
    constexpr std::string_view whole = R"({"a":[1,{"b":"c\"d"} ,"e\\"] , "f":{"g" : [[]]},})";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const auto end = length == whole.size() ? std::optional(length) : std::nullopt;
        EXPECT_EQ(SkipJsonValue(whole.substr(0, length), 0), end) << whole.substr(0, length);
    }
    for (const std::size_t depth : {512, 513, 3'000'000}) {
        const std::string nested = std::string(depth, '[') + std::string(depth, ']');
        EXPECT_EQ(SkipJsonValue(nested, 0), depth == 512 ? std::optional(2 * depth) : std::nullopt) << depth;
    }
}

TEST(FindMethod, KnowsTwoSpellingsAnywhereAndAnOrder) {
    const std::pair<std::string, Method> rows[] = {
        {R"({"x":{"method":"tools/call"},"method":"c"})", Method::ToolsCall},
        {R"({"method": "tools/list"})", Method::ToolsList},
        {R"([{"method":"tools/call"},{"method":"tools/list"}])", Method::ToolsList},
    };
    for (const auto& [message, method] : rows) EXPECT_EQ(FindMethod(message), method) << message;
    for (const auto message :
         {R"({"method":  "tools/list"})", R"({"method":"tools/lists"})", R"({"x":"\"method\":\"tools/list\""})"}) {
        EXPECT_EQ(FindMethod(message), Method::Other) << message;
    }
}
