#include "mcp/framing.h"

#include <gtest/gtest.h>

TEST(ContentLength, IsTakenFromAUsableHeaderInAnyCase) {
    const std::pair<std::string, std::size_t> headers[] = {
        {"Content-Length: 1", 1},     {"content-length:33554432", 33554432}, {"CONTENT-LENGTH:\t 0017", 17},
        {"Content-Length: 5 ; x", 5}, {"Content-Length: +12abc", 12},
    };
    std::size_t length = 0;
    for (const auto& [line, bytes] : headers) EXPECT_EQ(ParseContentLength(line, length) ? length : 0, bytes) << line;
    for (const std::string line :
         {"Content-Length: 33554433", "Content-Length: 0", "Content-Length: -5", "Content-Length: 0x10",
          "Content-Length: 99999999999999999999999", "Content-Length: abc", "Content-Length:", "Content-Length",
          "Content-Length : 5", " Content-Length: 5", "Content\rLength: 5", "Content-Type: 55555", "{}", ""}) {
        EXPECT_FALSE(ParseContentLength(line, length)) << line;
    }
}
