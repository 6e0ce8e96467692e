#include "control/clients.h"
#include "hostlink/client_identity.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(ClientName, IsWorkedOutFromTheParentsImage) {
    const std::pair<WideString, std::string> rows[] = {
        {TEXT("\u00c9\U0001F600 Claude\x7f"), "Claude MCP client (bridge pid 4294967295, parent ??? Claude\x7f)"},
        {TEXT("claude-CODEX.exe"), "Codex MCP client (bridge pid 4294967295, parent claude-CODEX.exe)"},
        {TEXT("Code - Insiders.exe"), "MCP client (bridge pid 4294967295, parent Code - Insiders.exe)"},
        {TEXT(""), "MCP client (bridge pid 4294967295)"},
    };
    for (const auto& [parent, name] : rows) EXPECT_EQ(FormatClientName(4294967295, parent), name);
}

TEST(Utf8, GoesBothWaysUpToANul) {
    const std::string bytes = "a\xc2\xb5\xe2\x82\xac\xf0\x9f\x98\x80" + std::string(70000, 'x');
    const WideString units = TEXT("a\u00b5\u20ac\U0001F600") + WideString(70000, 'x');
    EXPECT_EQ(Utf8ToWide(bytes + "\0b"s), units);
    EXPECT_EQ(WideToUtf8(units + WideString({0, 'b'})), bytes);
    EXPECT_EQ(Utf8ToWide("\0a\xc2\xb5\x7f\0"s), WideString({0, 'a', '?', '?', 0x7F, 0}));
    EXPECT_EQ(WideToUtf8(WideString({0, 'a', 0xB5, 0x7F, 0x80, 0})), "\0a?\x7f?\0"s);
    EXPECT_EQ(Utf8ToWide("\xed\xa0\x80-\xf4\x90\x80\x80"),
              TEXT("\ufffd\ufffd-\ufffd\ufffd\ufffd"));  // as Windows counts
    EXPECT_EQ(WideToUtf8(WideString({'a', 0xD83D, '-', 0xDE00})), "a\xef\xbf\xbd-\xef\xbf\xbd");
}

TEST(Paths, AreReadIntoABufferThatGrows) {
    for (const DWORD length : {5, 1024, 5000, 32768, 32769}) {
        std::vector<DWORD> sizes;
        const WideString path = ReadGrowingPath([&](WCHAR* buffer, DWORD& size) {
            sizes.push_back(size);
            if (size < length) return PathRead::BufferTooSmall;
            std::fill_n(buffer, size = length, WCHAR('x'));
            return PathRead::Complete;
        });
        EXPECT_EQ(path, WideString(length <= 32768 ? length : 0, 'x')) << length;
        EXPECT_TRUE(sizes.front() == 1024 && sizes.back() <= 32768) << length;
    }
}
