#include "mcp/framing.h"

#include <gtest/gtest.h>

TEST(ParseContentLength, AcceptsOneHeaderInAnyCaseWithALengthInRange) {
    const std::pair<std::string, std::size_t> headers[] = {
        {"Content-Length: 1", 1},     {"content-length:33554432", 33554432}, {"CONTENT-LENGTH:\t 0017", 17},
        {"Content-Length: 5 ; x", 5}, {"Content-Length: +12abc", 12},
    };
    for (const auto& [line, length] : headers) EXPECT_EQ(ParseContentLength(line), length) << line;
    for (const std::string line :
         {"Content-Length: 33554433", "Content-Length: 0", "Content-Length: -5", "Content-Length: 0x10",
          "Content-Length: 99999999999999999999999", "Content-Length: abc", "Content-Length:", "Content-Length",
          "Content-Length : 5", " Content-Length: 5", "Content\rLength: 5", "Content-Type: 55555", "{}", "",
          "Xontent-Length: 5", "\"ontent-length: 5", "Content-Length; 5"}) {
        EXPECT_EQ(ParseContentLength(line), std::nullopt) << line;
    }
}
