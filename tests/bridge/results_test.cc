#include "tools/results.h"

#include "bridge/scripted_link.h"

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
