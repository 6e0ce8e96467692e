/// Whole-process figures of the bridge and the control server, beside what people would use instead. Prints one table
/// in Markdown. Linux only: it drives Windows programs through wine like any other process.
///
/// Arguments: NAME=COMMAND for each bridge to be measured, followed by viewer:NAME=COMMAND for the viewer it talks to
/// and by clients:NAME=COMMAND for the idle clients that the viewer is given, and errors=FILE for what they all say on
/// standard error. Each command is split at blanks. The peer called "SDK server" is what ratios refer to.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

[[noreturn]] void Fail(const std::string& why) {
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    std::exit(1);
}

/// A line of progress on standard error, so that a long run shows that it is alive.
void Say(const std::string& what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
}

// ---- Processes -----------------------------------------------------------------------------------------------------

/// Where the children's standard error goes.
std::string childErrors = "/dev/null";

/// A child with pipes on its standard input and output; killed at the end if it still runs.
class Child {
  public:
    explicit Child(const std::string& command) {
        std::vector<std::string> words;
        std::istringstream stream(command);
        for (std::string word; stream >> word;) words.push_back(word);
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        int input[2], output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) Fail("no pipes");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], 0);
        posix_spawn_file_actions_adddup2(&actions, output[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, childErrors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
            Fail("cannot start " + command);
        }
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        close(output[1]);
        in_ = input[1];
        out_ = output[0];
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        close(in_);
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        if (drain_.joinable()) drain_.join();
        close(out_);
    }

    pid_t Pid() const { return pid_; }

    /// Writes `request` and takes the output's next `bytes`, or its next line when that is 0. Gives what was read.
    std::string Exchange(const std::string& request, std::size_t bytes = 0) {
        constexpr std::size_t alwaysTaken = 4096;  // by an empty pipe, at once
        std::string reply;
        std::size_t sent = 0;
        static std::vector<char> chunk(1 << 20);
        const auto whole = [&] { return bytes > 0 ? reply.size() >= bytes : !reply.empty() && reply.back() == '\n'; };
        const auto take = [&] {
            const ssize_t count = read(out_, chunk.data(), chunk.size());
            if (count <= 0) Fail("a program ended in the middle");
            reply.append(chunk.data(), static_cast<std::size_t>(count));
        };
        if (request.size() <= alwaysTaken) {
            if (write(in_, request.data(), request.size()) < 0) Fail("a program takes nothing");
            while (!whole()) take();
            return reply;
        }
        // Both at once, so that neither side waits for the other with full pipes.
        fcntl(in_, F_SETFL, O_NONBLOCK);
        while (!whole()) {
            pollfd ends[2] = {{out_, POLLIN, 0}, {in_, POLLOUT, 0}};
            if (poll(ends, sent < request.size() ? 2 : 1, 60000) <= 0) Fail("no answer within a minute");
            if (sent < request.size() && (ends[1].revents & POLLOUT) != 0) {
                const ssize_t count = write(in_, request.data() + sent, request.size() - sent);
                if (count > 0) sent += static_cast<std::size_t>(count);
            }
            if ((ends[0].revents & (POLLIN | POLLHUP)) != 0) take();
        }
        fcntl(in_, F_SETFL, 0);
        return reply;
    }

    /// Throws away all that it says from here on.
    void Discard() {
        drain_ = std::thread([this] {
            char chunk[4096];
            while (read(out_, chunk, sizeof chunk) > 0) {
            }
        });
    }

    /// Private memory in KiB.
    double PrivateMemory() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/smaps_rollup");
        double sum = 0;
        for (std::string line; std::getline(file, line);) {
            if (line.rfind("Private_", 0) == 0) sum += std::atof(line.c_str() + line.find(':') + 1);
        }
        return sum;
    }

    /// Processor time of all its threads so far, in seconds.
    double CpuSeconds() const {
        double nanoseconds = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
            double spent = 0;
            std::ifstream(task.path() / "schedstat") >> spent;
            nanoseconds += spent;
        }
        return nanoseconds / 1e9;
    }

  private:
    pid_t pid_ = 0;
    int in_ = -1, out_ = -1;
    std::thread drain_;
};

struct Viewer {
    Child Process;
    std::string PipeName;

    /// Waits for the line by which it says where it serves.
    explicit Viewer(const std::string& command) : Process(command) {
        const std::string line = Process.Exchange("");
        const std::size_t start = line.find("\\\\.\\pipe");
        if (start == std::string::npos) Fail("the viewer does not serve: " + line);
        PipeName = line.substr(start, line.find_last_not_of("\r\n") + 1 - start);
        Process.Discard();
    }
};

// ---- Messages ------------------------------------------------------------------------------------------------------

const std::string Initialize =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2024-11-05","capabilities":{},)"
    R"("clientInfo":{"name":"bench","version":"1"}}})"
    "\n";
const std::string Initialized = R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
                                "\n";
const std::string ListTools = R"({"jsonrpc":"2.0","id":2,"method":"tools/list","params":{}})"
                              "\n";
const std::string FailingCall =
    R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"select_net","arguments":{}}})"
    "\n";
const std::string PipeCall =
    R"({"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"select_component","arguments":{"refdes":"PU2"}}})"
    "\n";

/// A call that fails its check, with an argument of `bytes` bytes that its tool does not look at.
std::string LargeCall(std::size_t bytes, bool framed) {
    std::string body =
        R"({"jsonrpc":"2.0","id":5,"method":"tools/call","params":{"name":"select_net","arguments":{"x":")";
    body += std::string(bytes - body.size() - 4, 'x') + "\"}}}";
    return framed ? "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body : body + "\n";
}

// ---- The table -----------------------------------------------------------------------------------------------------

struct Row {
    std::string What, Unit;
    std::map<std::string, double> Values;
    bool MoreIsBetter = false;
};
std::vector<Row> rows;
std::vector<std::string> columns;
const std::string Reference = "SDK server";

void Put(const std::string& what, const std::string& unit, const std::string& column, double value, bool more = false) {
    for (Row& row : rows) {
        if (row.What == what) {
            row.Values[column] = value;
            return;
        }
    }
    rows.push_back({what, unit, {{column, value}}, more});
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, value >= 100 ? "%.0f" : value >= 1 ? "%.2f" : "%.4f", value);
    return text;
}

void PrintTable() {
    std::printf("| What | Unit |");
    for (const std::string& column : columns) std::printf(" %s |", column.c_str());
    std::printf(" native against |\n|---|---|");
    for (std::size_t i = 0; i <= columns.size(); ++i) std::printf("---|");
    for (const Row& row : rows) {
        std::printf("\n| %s | %s |", row.What.c_str(), row.Unit.c_str());
        for (const std::string& column : columns) {
            const auto value = row.Values.find(column);
            std::printf(" %s |", value == row.Values.end() ? "" : Number(value->second).c_str());
        }
        const auto own = row.Values.find("native");
        std::string ratios;
        for (const std::string& other : {Reference, std::string("cat")}) {
            const auto value = row.Values.find(other);
            if (own == row.Values.end() || value == row.Values.end()) continue;
            const double ratio = row.MoreIsBetter ? own->second / value->second : value->second / own->second;
            ratios += (ratios.empty() ? "" : ", ") + other + ": " + Number(ratio) + "×";
        }
        std::printf(" %s |", ratios.c_str());
    }
    std::printf("\n");
}

// ---- The measurements ----------------------------------------------------------------------------------------------

struct Subject {
    std::string Name, Command, Viewer, Clients;
};

void MeasureStart(const Subject& subject) {
    std::vector<double> times;
    for (int i = 0; i < 12; ++i) {
        const auto start = Clock::now();
        Child child(subject.Command);
        child.Exchange(Initialize);
        if (i > 0) times.push_back(Seconds(start) * 1000);
    }
    Put("process start to `initialize` answered", "ms", subject.Name, Median(times));
}

/// This process and those that it starts share one core for as long as this lives: waking another core can take longer
/// than all that two programs do for one message.
class OneCore {
  public:
    OneCore() {
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++cpu) {
            if (CPU_ISSET(cpu, &before_)) CPU_SET(cpu, &one);
        }
        sched_setaffinity(0, sizeof one, &one);
    }
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;
    ~OneCore() { sched_setaffinity(0, sizeof before_, &before_); }

  private:
    cpu_set_t before_;
};

/// How often a second `request` is answered, one after the other, and what the program spends on each.
void MeasureRate(const std::string& what, const std::string& column, Child& child, const std::string& request) {
    constexpr int count = 5000;
    for (int i = 0; i < count; ++i) child.Exchange(request);
    std::vector<double> rates, costs;
    for (int run = 0; run < 7; ++run) {
        const double cpu = child.CpuSeconds();
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i) child.Exchange(request);
        rates.push_back(count / Seconds(start));
        costs.push_back((child.CpuSeconds() - cpu) * 1e6 / count);
    }
    Put(what + ", one after the other, warmed up", "per s", column, Median(rates), true);
    Put(what + ", processor time, warmed up", "µs", column, Median(costs));
}

/// The same for the first requests of a process, which is as many as a session sends.
void MeasureFirst(const std::string& what, const Subject& subject, const std::string& request) {
    constexpr int count = 200;
    std::vector<double> rates;
    for (int run = 0; run < 7; ++run) {
        Child child(subject.Command);
        child.Exchange(Initialize);
        child.Exchange(Initialized + request);
        const auto start = Clock::now();
        for (int i = 0; i < count; ++i) child.Exchange(request);
        rates.push_back(count / Seconds(start));
    }
    Put(what + ", one after the other, a session's first 200", "per s", subject.Name, Median(rates), true);
}

void MeasureRequests(const Subject& subject) {
    const OneCore core;
    Child child(subject.Command);
    child.Exchange(Initialize);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // the connection behind the answer
    child.Exchange(Initialized + ListTools);
    const std::string list = child.Exchange(ListTools);
    Put("private memory after `initialize` and `tools/list`", "KiB", subject.Name, child.PrivateMemory());
    const std::string listing = "`tools/list`", failing = "a call that fails its check";
    MeasureFirst(listing, subject, ListTools);
    MeasureRate(listing, subject.Name, child, ListTools);
    const std::string failure = child.Exchange(FailingCall);
    MeasureFirst(failing, subject, FailingCall);
    MeasureRate(failing, subject.Name, child, FailingCall);
    if (subject.Name == "native") {
        Child cat("cat");
        MeasureRate(listing, "cat", cat, std::string(list.size() - 1, 'x') + "\n");
        MeasureRate(failing, "cat", cat, std::string(failure.size() - 1, 'x') + "\n");
    }
}

void MeasureLargeMessages(const Subject& subject) {
    Child child(subject.Command);
    const std::size_t body = child.Exchange(FailingCall).size() - 1;
    const std::size_t framedReply = ("Content-Length: " + std::to_string(body) + "\r\n\r\n").size() + body;
    for (const bool framed : {true, false}) {
        for (const std::size_t mebibytes : {8, 16, 32}) {
            const std::string message = LargeCall(mebibytes << 20, framed);
            const std::string what = std::string(framed ? "framed" : "bare") + " message of " +
                                     std::to_string(mebibytes) + " MiB to a tool that ignores it";
            std::vector<double> own, limit;
            Child cat("cat");
            for (int i = 0; i < 5; ++i) {
                auto start = Clock::now();
                child.Exchange(message, framed ? framedReply : 0);
                own.push_back(static_cast<double>(mebibytes) / Seconds(start));
                if (subject.Name != "native") continue;
                start = Clock::now();
                cat.Exchange(message, message.size());
                limit.push_back(static_cast<double>(mebibytes) / Seconds(start));
            }
            Put(what, "MiB/s", subject.Name, Median(own), true);
            if (!limit.empty()) Put(what, "MiB/s", "cat", Median(limit), true);
        }
    }
}

void MeasurePipeCalls(const Subject& subject) {
    const Viewer viewer(subject.Viewer);
    Child bridge(subject.Command);
    bridge.Exchange(PipeCall);
    constexpr int count = 50;
    const double bridgeCpu = bridge.CpuSeconds(), viewerCpu = viewer.Process.CpuSeconds();
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        bridge.Exchange(PipeCall);
        times.push_back(Seconds(start) * 1000);
    }
    Put("`tools/call` through the pipe", "ms", subject.Name, Median(times));
    Put("processor time of the bridge for a call", "ms", subject.Name,
        (bridge.CpuSeconds() - bridgeCpu) * 1000 / count);
    Put("processor time of the viewer for a call", "ms", subject.Name,
        (viewer.Process.CpuSeconds() - viewerCpu) * 1000 / count);
}

void MeasureIdle(const Subject& subject, int seconds) {
    const auto share = [&](Child& bridge) {
        const double before = bridge.CpuSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        return (bridge.CpuSeconds() - before) / seconds * 100;
    };
    {
        Child bridge(subject.Command);
        bridge.Exchange(Initialize);
        Put("idle bridge, no viewer", "% of a core", subject.Name, share(bridge));
    }
    const Viewer viewer(subject.Viewer);
    Child bridge(subject.Command);
    bridge.Exchange(PipeCall);
    Put("idle bridge beside a viewer", "% of a core", subject.Name, share(bridge));
}

void MeasureIdleClients(const Subject& subject) {
    const Viewer viewer(subject.Viewer);
    std::vector<std::unique_ptr<Child>> processes;
    double aloneCpu = 0, aloneMemory = 0;
    std::size_t clients = 0;
    for (const std::size_t wanted : {0, 50, 250}) {
        if (wanted > clients) {
            const std::string more = std::to_string(wanted - clients);
            processes.push_back(std::make_unique<Child>(subject.Clients + " " + viewer.PipeName + " " + more));
            processes.back()->Exchange("");
            clients = wanted;
        }
        const double before = viewer.Process.CpuSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        const double cpu = (viewer.Process.CpuSeconds() - before) * 10, memory = viewer.Process.PrivateMemory();
        if (clients == 0) {
            Put("viewer without a client: processor", "% of a core", subject.Name, aloneCpu = cpu);
            Put("viewer without a client: private memory", "KiB", subject.Name, aloneMemory = memory);
            continue;
        }
        const std::string each = "each of " + std::to_string(clients) + " idle clients: ";
        const double count = static_cast<double>(clients);
        Put(each + "processor", "% of a core", subject.Name, (cpu - aloneCpu) / count);
        Put(each + "private memory of the viewer", "KiB", subject.Name, (memory - aloneMemory) / count);
    }
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    std::vector<Subject> subjects;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::size_t equals = argument.find('=');
        if (equals == std::string::npos) Fail("what is " + argument + "?");
        const std::string name = argument.substr(0, equals), command = argument.substr(equals + 1);
        const std::size_t colon = name.find(':');
        if (name == "errors") {
            childErrors = command;
            continue;
        }
        if (colon == std::string::npos) {
            subjects.push_back({name, command, "", ""});
            continue;
        }
        for (Subject& subject : subjects) {
            if (subject.Name != name.substr(colon + 1)) continue;
            (name.substr(0, colon) == "viewer" ? subject.Viewer : subject.Clients) = command;
        }
    }
    const char* const idle = std::getenv("ORVANE_BENCH_IDLE_SECONDS");
    for (const Subject& subject : subjects) {
        columns.push_back(subject.Name);
        Say(subject.Name + ": start");
        MeasureStart(subject);
        Say(subject.Name + ": requests");
        {
            // The bridge's own figures are those of a connected one.
            const auto viewer = subject.Viewer.empty() ? nullptr : std::make_unique<Viewer>(subject.Viewer);
            MeasureRequests(subject);
        }
        if (subject.Viewer.empty()) continue;
        Say(subject.Name + ": large messages");
        MeasureLargeMessages(subject);
        Say(subject.Name + ": calls through the pipe");
        MeasurePipeCalls(subject);
        Say(subject.Name + ": idle");
        MeasureIdle(subject, idle != nullptr ? std::max(std::atoi(idle), 1) : 60);
        Say(subject.Name + ": idle clients");
        MeasureIdleClients(subject);
    }
    columns.push_back("cat");
    PrintTable();
    return 0;
}
