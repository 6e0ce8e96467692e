/// Real processes and many clients under load, while viewers die and servers stop. Every call must come to exactly one
/// result, and nothing may hang. Run in the folder of the programs; the argument is about how many seconds the
/// open-ended parts take.

#include "../child_process.h"
#include "../host_window.h"
#include "control/clients.h"
#include "protocol/control_protocol.h"

#include <iostream>

namespace {

std::atomic<long> calls = 0, results = 0, doubled = 0, hung = 0;

void Say(const std::string& text) {
    std::cout << "stress: " << text << std::endl;
}

/// Threads that end by themselves.
using Crew = std::vector<std::future<void>>;

/// If one hangs, the run ends with it, since it can't be joined.
void Join(const Crew& crew, const std::string& part) {
    for (const std::future<void>& member : crew) {
        if (member.wait_for(std::chrono::minutes(1)) == std::future_status::ready) continue;
        Say(part + " hang");
        std::_Exit(1);
    }
}

struct Bridge {
    ChildProcess Process{TEXT("./orvane_mcp.exe")};
    int LastId = 0;
    std::atomic<DWORD> LastSuccess = 0;  // tick

    void Call() {
        const std::string id = std::to_string(++LastId);
        ++calls;
        Process.Send(R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":"tools/call","params":{"name":"select_net",)" +
                     R"("arguments":{"net":"net"}}})" + "\n");
        const std::string reply = Process.Read("\n");
        if (reply.ends_with("<end>")) return;  // lost: no result is counted
        const bool good = reply.ends_with(R"("text":"1:net"}],"isError":false}})");
        const bool told = good || reply.ends_with(R"("isError":true}})");
        ++(told && reply.starts_with(R"({"jsonrpc":"2.0","id":)" + id + ",") ? results : doubled);
        if (good) LastSuccess = GetTickCount();
    }
};

/// 20 bridges call without pause while the viewer is killed and started again. Then they end and have no more to say.
void BridgesAndRestarts(const WideString& self, int restarts) {
    std::array<Bridge, 20> bridges;
    std::atomic<bool> done = false;
    Crew crew;
    for (Bridge& bridge : bridges) {
        crew.push_back(std::async(std::launch::async, [&] {
            while (!done) bridge.Call();
        }));
    }
    DWORD worst = 0;
    for (int i = 1; i <= restarts; ++i) {
        ChildProcess viewer(self, {"--restarting", "0"});
        if (viewer.Read("serving") != "") Say("the viewer did not start"), ++hung;
        const DWORD back = GetTickCount();
        if (i % 10 != 0) {
            Sleep(50 + std::rand() % 400);
            continue;
        }
        const bool all = Eventually([&] {
            return std::all_of(bridges.begin(), bridges.end(), [&](const Bridge& bridge) {
                return static_cast<std::int32_t>(bridge.LastSuccess - back) > 0;
            });
        });
        worst = std::max(worst, GetTickCount() - back);
        if (!all || GetTickCount() - back > 3000) ++hung;
        Say("viewer killed " + std::to_string(i) + " times, every bridge works again after " + std::to_string(worst) +
            " ms at most");
    }
    done = true;
    Join(crew, "bridges");
    for (Bridge& bridge : bridges) {
        bridge.Process.Input.reset();
        if (bridge.Process.Read("\n") != "<end>") ++doubled;
        if (bridge.Process.WaitForExitCode() != 0) ++hung;
    }
}

/// How many sessions are starting, greeting, polling, in a command and ending.
std::string SessionsByStage() {
    std::string text;
    for (const std::atomic<std::int32_t>& count : ServerState().SessionsByStage) text += std::to_string(count) + " ";
    return text;
}

/// The program as a host that starts and stops its server without a pause, or with one of up to 40 ms. Then a line of
/// input tells it that all clients have gone: a second later no session may be left. Without a round it serves until it
/// is killed.
int RunRestartingHost(int rounds) {
    constexpr DWORD stopLimit = 2000;
    HostWindow host;
    DWORD longest = 0;
    int atLimit = 0;
    ServerTest::Start(host.Handle);
    std::cout << "serving" << std::endl;
    for (int i = 0; i < rounds; ++i) {
        ServerTest::Start(host.Handle);
        Sleep(std::rand() % 3 == 0 ? 0 : std::rand() % 40);
        const DWORD start = GetTickCount();
        OrvaneMcp_StopControlServer();
        const DWORD took = GetTickCount() - start;
        longest = std::max(longest, took);
        if (took < stopLimit) continue;
        ++atLimit;
        std::cout << "stop " << i << " ran into its limit, by stage " << SessionsByStage() << std::endl;
    }
    std::cout << rounds << " starts and stops, the longest stop " << longest << " ms; done" << std::endl;
    std::cin.get();
    Sleep(1000);
    const int left = ServerState().ActiveSessions;
    std::cout << atLimit << " stops at their limit, " << left << " sessions left, by stage " << SessionsByStage()
              << ". " << std::endl;
    return atLimit == 0 && left == 0 && OrvaneMcp_GetClientCount() == 0 ? 0 : 1;
}

/// A host's starts and stops while clients come and go and the processors have more to do than they can.
void StartsAndStops(const WideString& self, int rounds) {
    ChildProcess host(self, {"--restarting", std::to_string(rounds)});
    if (!host.Read("\n").starts_with("serving")) Say("the host did not start"), ++hung;
    const WideString pipe = ControlPipeName(host.Id);
    std::atomic<bool> done = false;
    std::atomic<long> opened = 0;
    Crew crew;
    // Each opens the pipe and leaves after as many lines: 0 at once, 1 when greeted, 2 at the server's stop.
    for (const int lines : {1, 1, 0, 2}) {
        crew.push_back(std::async(std::launch::async, [&, lines] {
            while (!done) {
                OwnedHandle client(
                    CreateFileW(pipe.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
                if (!client) Sleep(1);  // between two runs of the server
                opened += client ? 1 : 0;
                if (!client || lines == 0) continue;
                WriteBytes(client.Get(), "HELLO passing\n");
                MarkedReader reader;
                for (int i = 0; i < lines && !reader.Until("\n", client.Get()).ends_with("<end>"); ++i) {
                }
            }
        }));
    }
    // Idle loops that keep the processors busy.
    for (int i = 0; i < 2; ++i) {
        crew.push_back(std::async(std::launch::async, [&] {
            while (!done) continue;
        }));
    }
    const std::string told = host.Read("; done");
    done = true;
    Join(crew, "clients of a host that restarts its server");
    host.Send("\n");
    host.Read("\n");
    const std::string left = host.Read(". ");
    if (host.WaitForExitCode() != 0) ++hung;
    Say(std::to_string(opened) + " connections, " + told + ", " + left);
}

/// One of many clients.
void Exchange(int number) {
    RawClient client("client " + std::to_string(number));
    for (int i = 0; i < 20; ++i) {
        const std::string net = std::to_string(number) + "." + std::to_string(i);
        ++calls;
        const std::string reply = client.Exchange("GET_NET\t" + net);
        if (!reply.ends_with("<end>")) ++(reply == "OK\t7:" + net ? results : doubled);
    }
}

/// 250 clients at once, and five each that never greet, stop reading or go away in the middle; then all are
/// disconnected. Gives the threads and handles that are in use after them.
std::string Crowd() {
    std::string requests;
    for (int i = 0; i < 200; ++i) requests += "GET_NET\tsome net with a name\n";
    {
        std::array<RawClient, 5> mute, deaf;
        Crew good, bad;
        for (int number = 0; number < 250; ++number) good.push_back(std::async(std::launch::async, Exchange, number));
        for (RawClient& client : deaf) {
            client.Exchange("HELLO deaf");
            bad.push_back(std::async(std::launch::async, [&] { client.Send(requests); }));
            RawClient("gone").Send("GET_NET\thalf a li");
        }
        Join(good, "raw clients");
        OrvaneMcp_DisconnectClients();
        Join(bad, "deaf clients");
    }
    if (!ServerTest::SessionsBecome(0) || OrvaneMcp_GetClientCount() != 0) Say("clients leave sessions"), ++hung;
    const std::string used = ThreadsAndHandles();
    Say("a crowd of clients has come and gone, in use are " + used);
    return used;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && argv[1] == std::string("--restarting")) return RunRestartingHost(std::atoi(argv[2]));
    const DWORD seconds = argc > 1 ? static_cast<DWORD>(std::atoi(argv[1])) : 60;
    const WideString self = Utf8ToWide(argv[0]);
    if (argc > 2 && argv[1] == std::string("--starts-and-stops")) {
        for (int times = std::atoi(argv[2]); times > 0; --times) StartsAndStops(self, 1000);
        return hung == 0 ? 0 : 1;
    }
    BridgesAndRestarts(self, static_cast<int>(std::max<DWORD>(100, seconds)));
    StartsAndStops(self, 1000);
    HostWindow host;
    ServerTest::Start(host.Handle);
    for (const DWORD start = GetTickCount(); GetTickCount() - start < seconds * 1000;) {
        if (LeftBehind(Crowd) != "") Say("they leave more each time"), ++hung;
    }
    OrvaneMcp_StopControlServer();
    const long lost = calls - results - doubled;
    Say(std::to_string(calls) + " calls, " + std::to_string(results) + " results, " + std::to_string(lost) + " lost, " +
        std::to_string(doubled) + " doubled, " + std::to_string(hung) + " hung");
    return lost == 0 && doubled == 0 && hung == 0 && testing::UnitTest::GetInstance()->Passed() ? 0 : 1;
}
