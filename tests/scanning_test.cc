#include "mcp/scanning.h"

#include "bridge/message_loop.h"

#include <gtest/gtest.h>

/// Checks a Find operation on messages with and without a usable value of "k".
template <typename Value, typename Find>
static void ExpectValues(Find find, std::initializer_list<std::pair<std::string, Value>> found,
                         std::initializer_list<std::string> missed) {
    for (const auto& [message, value] : found) EXPECT_EQ(find(message, "k"), value) << message;
    for (const auto& message : missed) EXPECT_EQ(find(message, "k"), std::nullopt) << message;
}

TEST(FindJson, ReturnsTheFirstValueOfItsOwnType) {
    ExpectValues<std::string>(
        FindJsonString,
        {{"{ \"k\"\r\n :\t\r\n \"\"", ""},
         {R"({"a":{"k":"X"},"k":"Y"})", "X"},
         {"{\"query\":\"k\",\"net\":\"\n\xc2\xb5\"", "\n\xc2\xb5"},
         {R"({"k":"a\tb\"c\\d\/e\b\f\n\r,\u0041\q"})", "a\tb\"c\\d/e\b\f\n\r,u0041q"}},
        {R"({"K":"a","xk":"b","kx":"c"})", R"({"k":5})", R"({"k":null,"x":"y"})", R"({"k":"abc)", R"({"k":"abc\)",
         R"({"k":"abc\")", R"({"k"})", R"({"k")", R"({"k":)", "{\"k\": \r\n", R"("k)", ""});
    ExpectValues<std::int32_t>(
        FindJsonInt,
        {{R"({"query":"k","x":025.9})", 25}, {R"({"k":2147483648)", -2147483648}, {R"({"k":-4294967297})", -1}},
        {R"({"k":"25"})", R"({"k":+3})", R"({"k":-})", R"({"k":-)", R"({"k":true})", R"({"x":1})"});
    ExpectValues<bool>(FindJsonBool, {{R"({"k":trueish})", true}, {R"({"k": false)", false}},
                       {R"({"k":"true"})", R"({"k":1})", R"({"k":null})", R"({"k":tru)", R"({"x":true})"});
    ExpectValues<std::string_view>(
        FindJsonRawValue,
        {{"{\"k\": [ 1 ,\n {\"a\":\"U1\"},] ,\"x\":1}", "[ 1 ,\n {\"a\":\"U1\"},]"},
         {R"({"k":{"a":"}]","b":[{},[]],"c" : 1,},"x":1})", R"({"a":"}]","b":[{},[]],"c" : 1,})"},
         {R"({"k":"[1]\"]\\"})", R"("[1]\"]\\")"},
         {"{\"k\":1 # 2\t\r\n}", "1 # 2\t"}},
        {R"({"k":})", R"({"k":,"x":1})", R"({"k":[1}})", R"({"k":[,1]})", R"({"k":["a" 1]})", R"({"k":{a:1}})",
         R"({"k":{"a" 1}})", R"({"k":{"a":}})", R"({"k":{"a":1]})", R"({"k":{,}})", R"({"x":[1]})"});
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

TEST(ExtractMessageId, ReturnsTheIdAsWritten) {
    constexpr std::string_view rows[][2] = {
        {R"({"arguments":{"net":"id","x":5},"id":9})", "5"},
        {R"({"params":{"id":null},"id":2})", "null"},
        {"{\n \"id\" :\t\n1.5]\n}", "\n1.5]\n"},
        {R"({"id":""})", R"("")"},
        {R"({"id":"a, }\"b\\"})", R"("a, }\"b\\")"},
    };
    for (const auto& [message, id] : rows) EXPECT_EQ(ExtractMessageId(message), id) << message;
    for (const auto message : {R"({"ID":7})", R"({"id":,"x":1})", R"({"id":"a\")", R"({"id": )", R"({"id")", ""}) {
        EXPECT_EQ(ExtractMessageId(message), std::nullopt) << message;
    }
}

TEST(FindMethod, KnowsTwoSpellingsAnywhereAndAnOrder) {
    const std::pair<std::string, Method> rows[] = {
        {R"({"x":{"method":"tools/call"},"method":"c"})", Method::ToolsCall},
        {R"({"method": "tools/list"})", Method::ToolsList},
        {R"({"method":"notifications/initialized"})", Method::Initialized},
        {R"([{"method":"tools/call"},{"method":"tools/list"}])", Method::ToolsList},
        {R"([{"method":"initialize"},{"method":"notifications/initialized"}])", Method::Initialize},
    };
    for (const auto& [message, method] : rows) EXPECT_EQ(FindMethod(message), method) << message;
    for (const auto message :
         {R"({"method":  "tools/list"})", R"({"method" : "tools/list"})", R"({"method":"tools\/list"})",
          R"({"method":"tools/lists"})", R"({"method":"x/tools/list"})", R"({"x":"\"method\":\"tools/list\""})"}) {
        EXPECT_EQ(FindMethod(message), Method::Other) << message;
    }
}
