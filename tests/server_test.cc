#include "host_window.h"
#include "hostlink/discovery.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"

#include <future>

/// What a getter of the library gives and tells.
static std::string Told(std::int32_t (*getter)(OrvaneMcpChar*, std::int32_t), std::int32_t capacity = 1024) {
    WCHAR text[1024] = TEXT("untouched");
    const std::int32_t result = getter(text, capacity);
    return std::to_string(result) + " " + WideToUtf8(text);
}

TEST_F(ServerTest, AStartNamesThePipeAndTheLauncherAndIsAnnouncedUntilTheStop) {
    const std::string ownId = std::to_string(GetCurrentProcessId());
    const std::tuple<DWORD, WideView, std::string, std::string> rows[] = {
        {0, TEXT("C:\\Orvane"), ownId, "C:\\Orvane\\orvane_mcp.exe"},
        {4294967295, TEXT("C:/Orvane/"), "4294967295", "C:/Orvane/orvane_mcp.exe"},
        {0, TEXT(""), ownId, WideToUtf8(GetExecutableDirectory()) + "\\orvane_mcp.exe"},
    };
    for (const auto& [processIdOverride, directory, number, path] : rows) {
        const std::string pipe = "\\\\.\\pipe\\orvane_mcp_control_" + number;
        EXPECT_EQ(Start(nullptr, processIdOverride, directory), 1);
        EXPECT_EQ(Told(OrvaneMcp_GetServerPath), "1 " + path);
        EXPECT_EQ(FindControlPipes(), std::vector{Utf8ToWide(pipe)});  // announced for this process, which lives
        OrvaneMcp_StopControlServer();
        EXPECT_FALSE(IsControlServerAnnounced());
        EXPECT_EQ(Told(OrvaneMcp_GetPipeName), "1 " + pipe);
    }
    EXPECT_EQ(Told(OrvaneMcp_GetPipeName, 5) + Told(OrvaneMcp_GetPipeName, 0), "1 \\\\.\\0 untouched");
}

TEST_F(ServerTest, AClientIsNamedByItsFirstWriteAndRenamedByRequest) {
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
        {"HELLO Inspector \r\n", "Inspector,", "\xC3\xA9\xFF ", "\xC3\xA9\xEF\xBF\xBD,"},
        {"HELLO\n", "HELLO,", "", "MCP client,"},
        {"HELLO \n", "MCP client,", "codex", "Codex MCP client,"},
        {"HELLO a\nGET_NET\t\n", "a\nGET_NET,", std::string(128, 'x'), std::string(127, 'x') + ","},
        {std::string("HELLO a\0b (bridge pid 4)\n", 25), "a,", "y", "y,"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4),", "claude", "Claude MCP client (bridge pid 4),"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4),", "Y (BRIDGE PID 7)", "Y (BRIDGE PID 7) (bridge pid 4),"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4),", "y (bridge pid 7)", "y (bridge pid 7),"},
    };
    OrvaneMcp_StartControlServer(nullptr);
    for (const auto& [firstWrite, name, rename, newName] : rows) {
        RawClient client;
        EXPECT_EQ(client.Send(firstWrite) ? client.Read() : "", "OK");
        EXPECT_EQ(ClientNames(), name);
        EXPECT_EQ(client.Exchange("CLIENT_NAME\t" + rename), "OK\tClient name updated.");
        EXPECT_EQ(ClientNames(), newName);
        ClientInfo info{515, {}, {}, {}};
        EXPECT_EQ(OrvaneMcp_GetClientInfo(0, &info) + OrvaneMcp_GetClientInfo(0, nullptr), 0);
        EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1);
    }
    RawClient client;
    client.Send("HELLO " + std::string(249, 'x') + "GET_BOARD_STATE\n");
    EXPECT_EQ(client.Read("available"), "OK\nERR\tOrvane main window is not ") << "a request behind 255 bytes";
}

TEST_F(ServerTest, ARequestReachesTheHostByItsIdAndIsAnsweredByOneLine) {
    const std::string unknown = "ERR\tUnknown Orvane MCP command.";
    std::vector<std::pair<std::string, std::string>> rows = {
        {"GET_BOARD_STATE\r", "OK\t2:"},
        {"GET_BOARD_STATE\t", unknown},
        {"FIND_COMPONENTS_UI\tcharger", "OK\t5:SHOW_UI\tcharger"},
        {"GET_NET\ta\\nb\r\r", "OK\t7:a\\\\nb"},
        {"get_net\tVCC", unknown},
        {"HELLO again", unknown},
        {std::string("GET_NET\ta\xFF\0b", 12), "OK\t7:a\xEF\xBF\xBD"},
        {"\r\n\nGET_NET\t", "OK\t7:"},
    };
    for (const HostVerb& verb : HostVerbs) {
        if (!verb.HasPayload()) continue;
        const std::string text = std::string(verb.TextPrefix) + "a b\tc";
        rows.emplace_back(std::string(verb.Literal) + "a b\tc", "OK\t" + std::to_string(verb.CommandId) + ":" + text);
    }
    HostWindow host;
    Start(host.Handle);
    RawClient client("one");
    EXPECT_EQ(Start(nullptr, 4242), 1) << "runs already, and changes nothing";
    for (const auto& [request, reply] : rows) EXPECT_EQ(client.Exchange(request), reply) << request;
}

TEST_F(ServerTest, LinesAreCutFromEachClientsStreamWhereverItsWritesEnd) {
    HostWindow host;
    Start(host.Handle);
    RawClient other("other"), client("one");
    client.Send("GET_NET\ta\nGET_NET\tb\nGET_N");
    EXPECT_EQ(client.Read("b\n"), "OK\t7:a\nOK\t7:");
    for (const char byte : std::string("ET\tc\n")) client.Send({&byte, 1});
    EXPECT_EQ(client.Read(), "OK\t7:c");
    const std::string text = std::string(1022, 'x') + "\xF0\x9F\x98\x80" + std::string(1000, 'x');
    EXPECT_EQ(client.Exchange("GET_NET\t" + text), "OK\t7:" + text);
    EXPECT_EQ(ClientNames(), "other,one,");
    client.Send("GET_NET\td\nGET_NET\te\nGET_NET\tunfinished");  // whole lines are carried out still
    client.Pipe.reset();
    EXPECT_TRUE(Eventually([] { return ClientNames() == "other,"; }));
    EXPECT_EQ(host.Commands, 6);
}

TEST_F(ServerTest, DisconnectClientsFreesASessionThatWritesToAClientThatDoesNotRead) {
    HostWindow host([](HostCommand& command) { return SetLongReply(command, WideString(100000, 'x')), 0; });
    Start(host.Handle);
    RawClient client("deaf");
    client.Send("GET_NET\ta\nGET_NET\tb\nGET_NET\tc\n");
    EXPECT_EQ(client.Read("\t"), "ERR");
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1);
    EXPECT_TRUE(SessionsBecome(0));
    EXPECT_EQ(host.Commands, 1);
}

TEST_F(ServerTest, ASessionThatOutlivesAStopHarmsNobody) {
    std::promise<void> restarted, finish;
    HostWindow second;
    HostWindow first([&](HostCommand& command) {
        OrvaneMcp_StopControlServer();
        EXPECT_EQ(OrvaneMcp_GetClientCount(), 0);
        Start(second.Handle);
        restarted.set_value();
        finish.get_future().wait();
        return Echo(command);
    });
    Start(first.Handle);
    RawClient greeting, old("old");
    EXPECT_TRUE(SessionsBecome(2));
    old.Send("GET_NET\ta\nCLIENT_NAME\trenamed\nGET_NET\tb\n");
    restarted.get_future().wait();
    RawClient fresh("fresh");
    EXPECT_EQ(greeting.Exchange("HELLO greeting"), "<end>");
    finish.set_value();
    EXPECT_TRUE(SessionsBecome(1));
    EXPECT_EQ(ClientNames(), "fresh,");
    EXPECT_EQ(fresh.Exchange("GET_NET\tc"), "OK\t7:c");
    EXPECT_EQ(first.Commands + second.Commands, 2);
}

TEST_F(ServerTest, APipeThatCannotBeCreatedIsReportedAndTheServerCanBeStopped) {
    OwnedHandle taken(CreateNamedPipeW(ControlPipeName(4242).c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr));
    EXPECT_EQ(Start(nullptr, 4242), 1);
    EXPECT_TRUE(Eventually([] { return Told(OrvaneMcp_GetLastError).ends_with("create Orvane MCP control pipe."); }));
    OrvaneMcp_StopControlServer();
    EXPECT_EQ(Start(), 1);
    EXPECT_EQ(Told(OrvaneMcp_GetLastError), "0 ");
}
