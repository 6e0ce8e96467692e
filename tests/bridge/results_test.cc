#include "tools/results.h"

#include "bridge/scripted_link.h"

TEST(RenderControlReply, WritesOneResult) {
    const std::string good = R"("}],"isError":false}})", bad = R"("}],"isError":true}})";
    const auto image = [&](const std::string& mimeType, const std::string& data) {
        return R"("},{"type":"image","mimeType":")" + mimeType + R"(","data":")" + data + good;
    };
    const std::string rows[][3] = {
        // The prefix decides what becomes of the text, which is unescaped once and escaped once.
        {"OK", "OK", good},
        {"ok\ta\\nb", R"(ok\ta\\nb)", good},
        {"ERR\tORVANE_MCP_IMAGE mime_type=a data=b\\n\\\\n", R"(ORVANE_MCP_IMAGE mime_type=a data=b\n\\n)", bad},
        {"OK\ta\\\\nb\\rc\td\\te\\n\\", R"(a\\nb\rc\td\\te\n\\)", good},
        {"OK\t\x01\b\x0b\f\x1f\x7f\"/\xc2\xb5\xff", "\\u0001\\b\\u000b\\f\\u001f\x7f\\\"/\xc2\xb5\xff", good},
        // A marker line becomes an image, and line breaks at the end of the remaining text are removed.
        {"ORVANE_MCP_IMAGE data=x mime_type=a data=b", "", image("a", "b")},  // the first blank belongs to the marker
        {"OK\t\\nx\\nORVANE_MCP_IMAGE mime_type=a data=b\\ny", R"(\nx\ny)", image("a", "b")},
        {"OK\tx\\r\\n\\nORVANE_MCP_IMAGE mime_type=a data=b\\n\\r\\n", "x", image("a", "b")},
        {"OK\tORVANE_MCP_IMAGE w=5 mime_type=a/\"b data=Q data=R== ", "", image(R"(a/\"b)", "Q data=R== ")},
        {"OK\tORVANE_MCP_IMAGE mime_type=a data=b\\nORVANE_MCP_IMAGE x", "ORVANE_MCP_IMAGE x", image("a", "b")},
        // A malformed marker line is removed too, and a second one stays.
        {"OK\tx\\nORVANE_MCP_IMAGE mime_type=a\\n data=b\\n", R"(x\n data=b)", good},
        {"OK\tORVANE_MCP_IMAGE  data=b mime_type=a data=c\\ny", "y", good},
        {"OK\tORVANE_MCP_IMAGE mime_type= data=b\\ny", "y", good},
        {"OK\tORVANE_MCP_IMAGE mime_type=a data=\\nORVANE_MCP_IMAGE x", "ORVANE_MCP_IMAGE x", good},
        // What only resembles a marker line stays, and so do line breaks at the end.
        {"OK\tx\\n ORVANE_MCP_IMAGE mime_type=a data=b\\n", R"(x\n ORVANE_MCP_IMAGE mime_type=a data=b\n)", good},
        {"OK\tORVANE_MCP_IMAGE\\nmime_type=a data=b", R"(ORVANE_MCP_IMAGE\nmime_type=a data=b)", good},
        {"x\\nORVANE_MCP_IMAGE mime_type=a data=b", R"(x\\nORVANE_MCP_IMAGE mime_type=a data=b)", good},
    };
    for (const auto& [reply, text, tail] : rows) {
        EXPECT_EQ(WrittenBody([&reply = reply] { RenderControlReply(R"("7\"")", reply); }),
                  R"({"jsonrpc":"2.0","id":"7\"","result":{"content":[{"type":"text","text":")" + text + tail)
            << reply;
    }
}

/// The result of a command, whose text is given, and what the bridge did for it.
static void ExpectResult(std::string_view text, const std::vector<std::string>& calls) {
    const std::string body = WrittenBody([] { RunControlCommand("7", "GET_NET\tN"); });
    EXPECT_NE(body.find("\"text\":\"" + std::string(text) + "\"}]"), body.npos) << body;
    EXPECT_EQ(Link.Calls, calls) << text;
    Link = {};
}

TEST(RunControlCommand, SendsALineAgainOnlyWhenItWasNotAnswered) {
    Link = {};
    Link.Answer = [](auto) { return "OK\tonce"; };
    ExpectResult("once", {"GET_NET\tN"});
    Link.Answer = [](auto) { return Link.Calls.size() < 3 ? std::nullopt : std::optional("OK\tagain"); };
    ExpectResult("again", {"GET_NET\tN", "2000", "GET_NET\tN"});
    Link.Answer = [](auto) { return std::nullopt; };
    ExpectResult(SendFailureText, {"GET_NET\tN", "2000", "GET_NET\tN"});
    Link.Answer = [](auto) { return std::nullopt; };
    Link.CanConnect = false;
    ExpectResult(SendFailureText, {"GET_NET\tN", "2000"});
    Link.Answer = [](auto) -> std::optional<std::string> { throw std::bad_alloc(); };
    ExpectResult(ReplyTooLargeText, {"GET_NET\tN"});
}

TEST(RenderControlReply, NeedsNoMemoryForTheResult) {
    std::string reply = "OK\t" + std::string(3 << 20, '"') + "\\nORVANE_MCP_IMAGE mime_type=a data=b";
    EXPECT_GT(WrittenBody([&] { RenderControlReply("7", std::move(reply)); }, 1 << 16).size(), 6u << 20);
}
