#include "bridge/scripted_link.h"
#include "mcp/catalogue.h"
#include "tools/results.h"
#include "tools/tool_calls.h"

static std::string Call(const std::string& tool, const std::string& arguments, std::size_t largest = SIZE_MAX) {
    const std::string message = R"({"params":{"name":")" + tool + R"(","arguments":{)" + arguments + "}}}";
    return WrittenBody([&] { HandleToolCall("7", message); }, largest);
}

static std::string Result(const std::string& text, bool isError) {
    return R"({"jsonrpc":"2.0","id":7,"result":{"content":[{"type":"text","text":")" + text + R"("}],"isError":)" +
           (isError ? "true}}" : "false}}");
}

TEST(HandleToolCall, SendsOneControlLine) {
    Link = {};
    // Arguments, and the fields that they become, with a bar for each tab.
    using Rows = std::initializer_list<std::pair<std::string, std::string>>;
    const auto sends = [&](const std::string& tool, const std::string& verb, Rows rows) {
        for (const auto& [arguments, fields] : rows) {
            std::string line = verb + fields;
            for (char& byte : line) byte = byte == '|' ? '\t' : byte;
            EXPECT_EQ(Call(tool, arguments), Result("", false)) << tool << " " << arguments;
            EXPECT_EQ(std::exchange(Link.Calls, {}), std::vector{line}) << tool << " " << arguments;
        }
    };
    sends("get_board_state", "GET_BOARD_STATE", {{R"("refdes":"U1")", ""}});
    sends("select_pin", "SELECT_PIN|", {{R"("pin":"BH18","refdes":"UG1")", "UG1|BH18"}});
    sends("select_net", "SELECT_NET|", {{R"("net":"+3V\tA\nB\r","extra":1)", "+3V A B "}});
    sends("find_components", "FIND_COMPONENTS|", {{R"("query":"\t","show_in_find_parts":"true")", " "}});
    sends("find_components", "FIND_COMPONENTS_UI|", {{R"("query":"10K","show_in_find_parts":true)", "10K"}});
    sends("get_net_info", "GET_NET|", {{"\"net\":\"\\\"\\\\n\xc2\xb5\"", "\"\\n\xc2\xb5"}});
    sends("update_component", "UPDATE_COMPONENT|",
          {{R"("description":"d\te","new_refdes":"V","refdes":"U\t1")", "U 1|new_refdes|V|description|d e"},
           {R"("note":"","display_info":"i","description":"d","refdes":"U")", "U|description|d|display_info|i|note|"}});
    sends("bulk_update_components", "BULK_UPDATE_COMPONENTS|",
          {{"\"dry_run\":true,\"updates_path\":\"u\",\"updates\":[\n\t\"\\n\"\r\n]", R"(description|1|1|[  "\n"  ]|u)"},
           {R"("skip_missing":false,"field":"","updates_json":"[1]","updates":[])", "|0|0|[]|"},
           {R"("field":"note","updates_json":"[1,\n\"a\"]","updates":[2)", R"(note|1|0|[1, "a"]|)"},
           {R"("updates_path":"C:\\u")", R"(description|1|0||C:\u)"}});
    sends("update_net", "UPDATE_NET|",
          {{R"("no_connect":false,"description":"","new_name":"","net":"N")", "N|new_name||description||no_connect|0"},
           {R"("no_connect":true,"note":"n","description":"d\r","net":"N")", "N|description|d |note|n|no_connect|1"}});
    sends("export_orv", "EXPORT_ORV|", {{R"("path":"C:\\b\\x.orv")", R"(C:\b\x.orv)"}});
    sends("list_components", "LIST_COMPONENTS|",
          {{R"("offset":-1,"limit":81,"query":"q")", "0|80|1|q"},
           {R"("offset":2147483647,"limit":-3,"include_nets":false)", "2147483647|25|0|"}});
    sends("search_indexed_content", "SEARCH_INDEXED_CONTENT|",
          {{R"("query":"q","limit":0,"whole_word":true,"show_window":true,"file_type":"PDF")", "25|1|0|0|all||||q|1"},
           {R"("query":"q","limit":101,"regex":true,"file_type":"pdf","path_filter":"p")", "100|0|1|0|pdf||p||q|0"},
           {R"("query":"q","extended_search":true,"file_type":"boardview","file_path":"f","file_name_contains":"c")",
            "25|0|0|1|boardview|f||c|q|0"}});
    sends("get_pdf_page_context", "GET_PDF_PAGE_CONTEXT|",
          {{R"("page":3,"limit":301,"pdf_path":"p","query":"q")", "3|160|300|0|crop|q|p|0"},
           {R"("page":1,"radius":2001,"limit":0,"image_mode":"page")", "1|2000|80|0|page|||0"},
           {R"("page":1,"radius":-1,"image_mode":"Page","include_image":true)", "1|0|80|1|crop|||614400"}});
    sends("extract_pdfium_text", "PDFIUM_EXTRACT_TEXT|",
          {{R"("pdf_path":"p","output_path":"o")", "1|0|1|1|6000|p|o"},
           {R"("page_start":0,"page_end":-1,"include_text":false,"max_words_per_page":-1)", "1|0|0|1|0||"},
           {R"("page_start":9,"page_end":2,"include_words":false,"max_words_per_page":20001)", "9|2|1|0|20000||"}});
    sends("render_pdf_page_image", "GET_PDF_PAGE_CONTEXT|",
          {{R"("page":2,"limit":5,"include_image":false,"image_mode":"page")", "2|180|80|1|page|||614400"},
           {R"("page":2,"radius":2001,"query":"q","pdf_path":"p")", "2|2000|80|1|crop|q|p|614400"}});
    sends("search_files", "SEARCH_FILES|",
          {{R"("query":"q","open_first":true,"whole_word":true,"open_mode":"attach")", "1|10|0|default|0||q|1|0|0"},
           {R"("query":"q","show_window":true,"regex":true,"limit":26)", "0|25|1|default|0||q|0|1|0"},
           {R"("query":"q","highlight_whole_word":true,"highlight_text":"h","open_mode":"standalone")",
            "0|10|0|standalone|1|h|q|0|0|0"},
           {R"("query":"q","extended_search":true,"open_mode":"attach_to_current_board")",
            "0|10|0|attach_to_current_board|0||q|0|0|1"}});
}

TEST(HandleToolCall, AsksForImagesOfTheClientsSize) {
    for (const std::string client : {"MCP client (bridge pid 1, parent CLAUDE.EXE)", "Codex MCP client"}) {
        Link = {};
        Link.ClientName = client;
        Call("render_pdf_page_image", R"("page":2)");
        const std::string limit = client.starts_with("Codex") ? "0" : "614400";
        EXPECT_EQ(Link.Calls, std::vector{"GET_PDF_PAGE_CONTEXT\t2\t180\t80\t1\tcrop\t\t\t" + limit}) << client;
    }
}

TEST(HandleToolCall, FailsWithoutALineWhenAnArgumentIsMissing) {
    Link = {};
    const auto fails = [](const std::string& tool, const std::string& need, std::initializer_list<std::string> calls) {
        for (const auto& arguments : calls) {
            EXPECT_EQ(Call(tool, arguments), Result(tool + " requires " + need, true)) << tool << " " << arguments;
        }
    };
    const std::pair<std::string, std::string> texts[] = {
        {"find_components", "query"}, {"search_files", "query"},        {"get_diagnostic_hints", "query"},
        {"get_net_info", "net"},      {"get_component_info", "refdes"}, {"search_indexed_content", "query"},
        {"update_net", "net"},        {"select_component", "refdes"},   {"export_orv", "path"},
    };
    for (const auto& [tool, name] : texts) fails(tool, "a non-empty " + name + " argument.", {'"' + name + R"(":"")"});
    fails("select_pin", "non-empty refdes and pin arguments.", {R"("pin":"1")", R"("refdes":"U1")"});
    fails("get_pdf_page_context", "a 1-based page argument.", {"", R"("page":0)", R"("page":"1")"});
    fails("render_pdf_page_image", "a 1-based page argument.", {R"("page":-1)"});
    fails("update_component", "at least one edit field: new_refdes, description/display_info, or note.",
          {R"("refdes":"U1","note":5)"});
    fails("update_net", "at least one edit field: new_name, description, note, or no_connect.",
          {R"("net":"N","no_connect":1)"});
    fails("bulk_update_components", "updates array, updates_json string, or updates_path.", {R"("updates":[1)"});
    EXPECT_EQ(Call(R"(Select_\"Net)", R"("net":"N")"), Result(R"(Unknown Orvane MCP tool: Select_\"Net)", true));
    EXPECT_EQ(WrittenBody([] { HandleToolCall("7", R"({"name":7})"); }),
              Result("MCP tool call is missing the tool name.", true));
    const std::string large = R"("net":")" + std::string(1 << 20, 'x') + '"';
    EXPECT_EQ(Call("select_net", large, 1 << 16), Result("Failed to send command to Orvane.", true))
        << "memory ran out";
    EXPECT_TRUE(Link.Calls.empty());
}

TEST(HandleToolCall, AnswersListCommandsAfterAnAttemptToConnect) {
    Link = {};
    std::string text(SampleUsageText);
    for (std::size_t at = 0; (at = text.find('\n', at)) != text.npos;) text.replace(at, 1, "\\n");
    EXPECT_EQ(Call("list_commands", ""), Result(text, false));
    EXPECT_EQ(Link.Calls, std::vector<std::string>{"2000"});
    EXPECT_EQ(Link.WrittenBeforeConnecting, 0);
}
