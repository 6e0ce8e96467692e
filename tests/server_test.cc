#include "control/clients.h"
#include "control/host_command.h"
#include "host_window.h"
#include "hostlink/discovery.h"
#include "protocol/control_protocol.h"

using testing::ElementsAre;

struct ControlServer : ServerTest {};

/// What a getter returns, and the text that it leaves in the buffer.
static std::pair<int, std::string> Get(std::int32_t (*getter)(OrvaneMcpChar*, std::int32_t), int capacity = 1024) {
    WCHAR text[1024] = TEXT("untouched");
    const int result = getter(text, capacity);
    return {result, WideToUtf8(text)};
}

/// The bytes of a value of the announcement; "" when there is no such value.
static std::string Stored(LPCWSTR value) {
    HKEY key = nullptr;
    DWORD type = 0, size = 512;
    std::string bytes(size, '?');
    RegOpenKeyExW(HKEY_CURRENT_USER, Announcement::Key, 0, KEY_QUERY_VALUE, &key);
    const OwnedRegistryKey closing(key);
    const auto error = RegQueryValueExW(key, value, nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size);
    return error == ERROR_SUCCESS ? bytes.substr(0, size) : "";
}

TEST_F(ControlServer, AStartNamesThePipeAndTheLauncherAndAnnouncesThePipeUntilTheStop) {
    const std::tuple<DWORD, WideView, std::string, std::string> rows[] = {
        {0, TEXT(""), std::to_string(GetCurrentProcessId()), WideToUtf8(GetExecutableDirectory()) + "\\orvane_mcp.exe"},
        {4294967295, TEXT("C:/Orvane/"), "4294967295", "C:/Orvane/orvane_mcp.exe"},
    };
    for (const auto& [processId, directory, pipeNumber, launcher] : rows) {
        const std::string pipe = "\\\\.\\pipe\\orvane_mcp_control_" + pipeNumber;
        const WideString name = Utf8ToWide(pipe);
        EXPECT_EQ(Start(nullptr, processId, directory), 1);
        EXPECT_EQ(Start(nullptr, 4242, TEXT("C:\\Other")), 1) << "it runs already, and nothing changes";
        EXPECT_EQ(Get(OrvaneMcp_GetServerPath), std::pair(1, launcher));
        EXPECT_THAT(FindControlPipes(), ElementsAre(name));
        const std::string bytes(reinterpret_cast<const char*>(name.c_str()), (name.size() + 1) * sizeof(WCHAR));
        EXPECT_EQ(Stored(Announcement::PipeName), bytes) << "the terminating NUL included";
        EXPECT_EQ(Stored(Announcement::ControlServerEnabled), std::string({1, 0, 0, 0}));
        OrvaneMcp_StopControlServer();
        EXPECT_EQ(Stored(Announcement::ControlServerEnabled), std::string(4, 0));
        EXPECT_EQ(Stored(Announcement::ProcessId) + Stored(Announcement::PipeName), "");
        EXPECT_EQ(Get(OrvaneMcp_GetPipeName), std::pair(1, pipe));
        EXPECT_FALSE(*RawClient().Pipe) << "nobody listens after a stop";
    }
}

TEST_F(ControlServer, AStartReportsAPipeThatCannotBeCreatedAndCanBeRepeated) {
    const OwnedHandle taken(
        CreateNamedPipeW(ControlPipeName(4242).c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr));
    const std::pair<int, std::string> failure(1, "Failed to create Orvane MCP control pipe.");
    EXPECT_EQ(Start(nullptr, 4242), 1);
    EXPECT_TRUE(Eventually([&] { return Get(OrvaneMcp_GetLastError) == failure; }));
    OrvaneMcp_StopControlServer();
    // The getters cut their text, and refuse a buffer that they can't use.
    for (const auto getter : {OrvaneMcp_GetPipeName, OrvaneMcp_GetServerPath, OrvaneMcp_GetLastError}) {
        for (const int fit : {0, 4}) EXPECT_EQ(Get(getter, fit + 1), std::pair(1, Get(getter).second.substr(0, fit)));
        for (const int capacity : {0, -1}) EXPECT_EQ(Get(getter, capacity), std::pair(0, std::string("untouched")));
        EXPECT_EQ(getter(nullptr, 5), 0);
    }
    EXPECT_EQ(Get(OrvaneMcp_GetLastError), failure);
    Start();
    EXPECT_EQ(Get(OrvaneMcp_GetLastError), std::pair(0, std::string()));
    EXPECT_EQ(OrvaneMcp_GetApiVersion(), 11);
}

TEST_F(ControlServer, AClientIsShownByItsFirstWriteAndThenByItsRename) {
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
        {"HELLO Inspector \r\n", "Inspector", "\xC3\xA9\xFF ", "\xC3\xA9\xEF\xBF\xBD"},
        {"HELLO\n", "HELLO", " \t\xE3\x80\x80", "MCP client"},
        {"HELLO \n", "MCP client", "claude, MyCodexTool", "Codex MCP client"},
        {"HELLO b\n", "b", "\xC2\xA0 CODE\t", "VS Code MCP client"},
        {"HELLO a\nGET_NET\t\n", "a\nGET_NET", std::string(128, 'x'), std::string(127, 'x')},
        {std::string("HELLO a\0b (bridge pid 4)\n", 25), "a", "y", "y"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4)", "claude", "Claude MCP client (bridge pid 4)"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4)", "y (bridge pid 7)", "y (bridge pid 7)"},
    };
    OrvaneMcp_StartControlServer(nullptr);
    for (const auto& [firstWrite, name, rename, newName] : rows) {
        RawClient client;
        EXPECT_EQ(client.Send(firstWrite) ? client.Read() : "", "OK");
        EXPECT_THAT(ClientNames(), ElementsAre(name));
        EXPECT_EQ(client.Exchange("CLIENT_NAME\t" + rename), "OK\tClient name updated.");
        EXPECT_THAT(ClientNames(), ElementsAre(newName));
        EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1);
        EXPECT_EQ(client.Read(), "<end>");
    }
}

TEST_F(ControlServer, AClientIsShownWithTheTimeOfItsConnectionWhichAStopEndsAtOnce) {
    Start();
    RawClient client("one");
    const char* const format = "%Y-%m-%d %H:%M:%S";
    ClientInfo info{517, {}, {}, {}};
    for (const int index : {-1, 1}) EXPECT_EQ(OrvaneMcp_GetClientInfo(index, &info), 0) << index;
    EXPECT_EQ(OrvaneMcp_GetClientInfo(0, nullptr), 0);
    EXPECT_EQ(OrvaneMcp_GetClientInfo(0, &(info = {515, {}, {}, {}})), 0);
    EXPECT_EQ(OrvaneMcp_GetClientInfo(0, &(info = {516, {}, {}, {}})), 1);
    EXPECT_EQ(WideToUtf8(info.Transport), "stdio bridge");
    EXPECT_THAT((std::array{LocalTime(format), LocalTime(format, 1), LocalTime(format, 2)}),
                testing::Contains(WideToUtf8(info.ConnectedAt)));
    const std::shared_ptr<PipeInstance> heldElsewhere = ServerState().Clients.at(0).Pipe;
    OrvaneMcp_StopControlServer();
    EXPECT_EQ(client.Read(), "<end>");
    EXPECT_TRUE(PipeCall(*heldElsewhere));
    EndConnections({heldElsewhere});
    EXPECT_FALSE(PipeCall(*heldElsewhere)) << "no call after that";
}

TEST_F(ControlServer, ASessionHandsEachRequestToTheHostByItsIdAndAnswersWithOneLine) {
    const std::string text = std::string(1022, 'x') + "\xF0\x9F\x98\x80" + std::string(1000, 'x');
    const std::pair<std::string, std::string> rows[] = {
        {"FIND_COMPONENTS_UI\tcharger\r", "OK\t5:SHOW_UI\tcharger"},
        {"get_net\tVCC", "ERR\tUnknown Orvane MCP command."},
        {std::string("GET_NET\ta\xFF\0b", 12), "OK\t7:a\xEF\xBF\xBD"},
        {"\r\n\nGET_NET\t" + text, "OK\t7:" + text},
    };
    HostWindow host;
    Start(host.Handle);
    RawClient client;
    client.Send("HELLO " + std::string(249, 'x') + "GET_BOARD_STATE\n");
    EXPECT_EQ(client.Read(), "OK");
    EXPECT_EQ(client.Read(), "OK\t2:") << "the greeting takes 255 bytes";
    for (const auto& [request, reply] : rows) EXPECT_EQ(client.Exchange(request), reply) << request;
}

TEST_F(ControlServer, SessionsLeaveNoThreadAndNoHandleBehindEvenOfAClientThatDoesNotRead) {
    HostWindow host([](HostCommand& command) { return SetLongReply(command, WideString(100000, 'x')), 0; });
    Start(host.Handle);
    const auto round = [] {
        RawClient deaf("deaf");
        deaf.Send("GET_NET\ta\nGET_NET\tb\n");
        EXPECT_EQ(deaf.Read("\t"), "ERR");
        for (int i = 0; i < 50; ++i) {
            const RawClient silent;
            RawClient("hasty").Send("GET_NET\thalf a li");
        }
        EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1);
        EXPECT_TRUE(SessionsBecome(0));
        return ThreadsAndHandles();
    };
    EXPECT_EQ(LeftBehind(round), "");
}

TEST_F(ControlServer, ASessionHarmsNobodyWhenItOutlivesAStop) {
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
    EXPECT_EQ(ServerState().Clients.at(0).Id, 1u) << "the old client's id too";
    EXPECT_EQ(greeting.Exchange("HELLO greeting"), "<end>");
    finish.set_value();
    EXPECT_TRUE(SessionsBecome(1));
    EXPECT_THAT(ClientNames(), ElementsAre("fresh"));
    EXPECT_EQ(fresh.Exchange("GET_NET\tc"), "OK\t7:c");
    EXPECT_EQ(first.Commands + second.Commands, 2);
}

TEST_F(ControlServer, DisconnectingFailsOnlyWhenClientsStayThatNobodyCouldDisconnect) {
    HostWindow host([](HostCommand& command) {
        EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1) << "its client stays in the list until the command is done";
        return Echo(command);
    });
    Start(host.Handle);
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1) << "there are none";
    EXPECT_EQ(RawClient("one").Exchange("GET_NET\ta"), "<end>");
    EXPECT_TRUE(SessionsBecome(0));
    const auto noPipe = std::make_shared<PipeInstance>(OwnedHandle());
    EXPECT_EQ(RegisterClient(TEXT("without a pipe"), noPipe, ServerState().ServerRun), 2u);
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 0);
    EXPECT_THAT(ClientNames(), ElementsAre("without a pipe"));
}

TEST_F(ControlServer, AHostsReplyComesFromWhatTheHostLeavesInTheRecord) {
    const std::string noWindow = "ERR\tOrvane main window is not available.";
    const std::tuple<int, LRESULT, WideString, std::optional<WideString>, std::string> rows[] = {
        {0, 0, {}, {}, "ERR\tOrvane command failed."},
        {1, 0, {}, {}, "ERR\tOK"},
        {-1, -1, {}, {}, "OK\tOK"},
        {0, 1, TEXT("a\r\n\\n\t"), {}, "ERR\ta\\r\\n\\\\n\t"},
        {1, 1, WideString(16384, 'x'), {}, "OK\t" + std::string(16384, 'x')},
        {1, 1, TEXT("x"), WideString(100000, 'y'), "OK\t" + std::string(100000, 'y')},
        {1, 1, TEXT("x"), TEXT(""), "OK\tOK"},
        {1, 1, TEXT("x"), WideString{'a', 0xD83D, 0xDE00, 0xD83D, 0, 'b'}, "OK\ta\xF0\x9F\x98\x80\xEF\xBF\xBD"},
    };
    auto row = std::begin(rows);
    std::optional<HostWindow> host(std::in_place, [&row](HostCommand& command) {
        const auto& [success, result, reply, longReply, line] = *row;
        reply.copy(command.Reply, std::size(command.Reply));
        if (longReply) SetLongReply(command, *longReply);
        command.Success = success;
        return result;
    });
    Start(host->Handle);
    const std::uint64_t run = ServerState().ServerRun;
    for (; row != std::end(rows); ++row) EXPECT_EQ(SendHostCommand(7, "", run), std::get<std::string>(*row));
    EXPECT_EQ(SendHostCommand(7, "", run - 1), noWindow) << "of a run that is over";
    host.reset();
    EXPECT_EQ(SendHostCommand(7, "", run), noWindow) << "a window that was destroyed";
}
