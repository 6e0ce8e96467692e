/// What texts cost inside one process. From a reply line of the pipe to a finished result: throughput beside memcpy of
/// the same bytes, and the most memory that it took; the results go to the null device. And the scanners, beside memcpy
/// or memchr of the message.

#include "bridge/message_loop.h"
#include "mcp/framing.h"
#include "mcp/scanning.h"
#include "tools/results.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <string>
#include <vector>

namespace {

/// The median of several runs, in MiB/s.
template <typename Run>
double Throughput(std::size_t bytes, Run run) {
    std::vector<double> rates;
    for (int i = 0; i < 7; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
        rates.push_back(static_cast<double>(bytes) / (1 << 20) / spent.count());
    }
    std::sort(rates.begin(), rates.end());
    return rates[rates.size() / 2];
}

/// A figure of this process's memory, in bytes: VmRSS what it has now, VmHWM the most that it has had.
std::size_t MemoryLine(const char* name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name, 0) == 0) return std::stoul(line.substr(line.find_first_of("0123456789"))) * 1024;
    }
    return 0;
}

std::string TextReply(std::size_t size) {
    std::string reply = "OK\t";
    while (reply.size() < size)
        reply += "PU2\tbuck converter \"main\"\tpins 24 nets +VIN GND PGOOD_ALW and what else hangs on it\\n";
    return reply;
}

std::string ImageReply(std::size_t size) {
    return "OK\tORVANE_DISPLAY_IMAGE_REQUIRED\\nORVANE_MCP_IMAGE mime_type=image/png data=" + std::string(size, 'A');
}

/// memcpy into fresh memory.
double CopyThroughput(const std::string& text) {
    return Throughput(text.size(), [&] {
        const std::unique_ptr<char[]> target(new char[text.size()]);
        std::memcpy(target.get(), text.data(), text.size());
        const volatile char sink = target[text.size() / 2];
        static_cast<void>(sink);
    });
}

void PrintScan(const char* what, double own, const char* limit, double limitRate) {
    std::fprintf(stderr, "| %s | %.0f | %s %.0f | %.2f |\n", what, own, limit, limitRate, own / limitRate);
}

/// Calls with an argument of `size` bytes, as a bulk update sends them.
void MeasureScans(std::size_t size) {
    std::string updates = R"({"arguments":{"updates":[)";
    while (updates.size() < size) updates += R"({"refdes":"PU2","description":"buck converter","note":"checked"},)";
    updates += "0]}}";
    const std::string text = R"({"arguments":{"updates_json":")" + std::string(size, 'x') + "\"}}";
    const double copy = CopyThroughput(text);
    const auto rate = [size](auto scan) {
        return Throughput(size, [&] {
            const volatile bool done = scan();
            static_cast<void>(done);
        });
    };
    const double search = rate([&] { return std::memchr(updates.data(), '\n', updates.size()) != nullptr; });
    PrintScan("no method", rate([&] { return FindMethod(updates) == Method::Other; }), "memchr", search);
    PrintScan("an absent key", rate([&] { return FindJsonString(updates, "none").has_value(); }), "memchr", search);
    PrintScan("an array, unchanged", rate([&] { return FindJsonRawValue(updates, "updates").has_value(); }), "memcpy",
              copy);
    PrintScan("a string", rate([&] { return FindJsonString(text, "updates_json").has_value(); }), "memcpy", copy);
}

void MeasureReply(const char* kind, const std::string& reply) {
    std::string given = reply;
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts at what stands now
    const std::size_t before = MemoryLine("VmRSS");
    RenderControlReply("1", std::move(given));
    const std::size_t peak = MemoryLine("VmHWM") - before + reply.size();
    // Each run has a reply of its own to use up, as the bridge has.
    std::vector<std::string> replies(7, reply);
    const double own = Throughput(reply.size(), [&] {
        RenderControlReply("1", std::move(replies.back()));
        replies.pop_back();
    });
    const double copy = CopyThroughput(reply);
    std::fprintf(stderr, "| %s reply of %zu MiB | %.0f | %.0f | %.2f | %.1f times the reply |\n", kind,
                 reply.size() >> 20, own, copy, own / copy,
                 static_cast<double>(peak) / static_cast<double>(reply.size()));
}

}  // namespace

int main() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    // Large blocks come fresh from the system for both sides, as a bridge's first large reply finds them.
    mallopt(M_MMAP_THRESHOLD, 1 << 16);
    std::fputs(
        "| From a reply to a result | MiB/s | memcpy, MiB/s | share of it | peak memory |\n|---|---|---|---|---|\n",
        stderr);
    for (const std::size_t mebibytes : {4, 8, 16}) {
        MeasureReply("text", TextReply(mebibytes << 20));
        MeasureReply("image", ImageReply(mebibytes << 20));
    }
    std::fputs("\n| Scanning a message of 16 MiB | MiB/s | limit, MiB/s | share of it |\n|---|---|---|---|\n", stderr);
    MeasureScans(std::size_t{16} << 20);
    return 0;
}
