#include "tools/results.h"

#include "recording_viewer.h"

TEST(ControlReply, BecomesOneResult) {
    const std::string good = R"("}],"isError":false}})", bad = R"("}],"isError":true}})";
    const auto image = [&](const std::string& mimeType, const std::string& data) {
        return R"("},{"type":"image","mimeType":")" + mimeType + R"(","data":")" + data + good;
    };
    const std::string rows[][3] = {
        // The prefix decides how the text is taken. It is unescaped once and escaped once.
        {"OK", "OK", good},
        {"ok\ta\\nb", R"(ok\ta\\nb)", good},
        {"ERR\tORVANE_MCP_IMAGE mime_type=a data=b\\n\\\\n", R"(ORVANE_MCP_IMAGE mime_type=a data=b\n\\n)", bad},
        {"OK\ta\\\\nb\\rc\td\\te\\n\\", R"(a\\nb\rc\td\\te\n\\)", good},
        {"OK\t\x01\b\x0b\f\x1f\x7f\"/\xc2\xb5\xff", "\\u0001\\b\\u000b\\f\\u001f\x7f\\\"/\xc2\xb5\xff", good},
        // A marker line becomes an image, and the line breaks that then end the text go with it.
        {"ORVANE_MCP_IMAGE data=x mime_type=a data=b", "", image("a", "b")},  // the first blank is the marker's own
        {"OK\t\\nx\\nORVANE_MCP_IMAGE mime_type=a data=b\\ny", R"(\nx\ny)", image("a", "b")},
        {"OK\tx\\r\\n\\nORVANE_MCP_IMAGE mime_type=a data=b\\n\\r\\n", "x", image("a", "b")},
        {"OK\tORVANE_MCP_IMAGE w=5 mime_type=a/\"b data=Q data=R== ", "", image(R"(a/\"b)", "Q data=R== ")},
        {"OK\tORVANE_MCP_IMAGE mime_type=a data=b\\nORVANE_MCP_IMAGE x", "ORVANE_MCP_IMAGE x", image("a", "b")},
        // A malformed marker line goes as well, and no second one is looked for.
        {"OK\tx\\nORVANE_MCP_IMAGE mime_type=a\\n data=b\\n", R"(x\n data=b)", good},
        {"OK\tORVANE_MCP_IMAGE  data=b mime_type=a data=c\\ny", "y", good},
        {"OK\tORVANE_MCP_IMAGE mime_type= data=b\\ny", "y", good},
        {"OK\tORVANE_MCP_IMAGE mime_type=a data=\\nORVANE_MCP_IMAGE x", "ORVANE_MCP_IMAGE x", good},
        // What only resembles a marker line stays, and so do the line breaks at the end.
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
