/// orvane_mcp.exe: the program that an MCP client starts. It serves that client until its input ends.

#include "api/exports.h"
#include "launcher/check.h"
#include "launcher/parent_watch.h"
#include "platform/platform.h"

#include <cstdio>
#include <string_view>

namespace {

constexpr const char HelpText[] =
    "orvane_mcp.exe is an MCP server: an MCP client starts it, without arguments, and talks to it over standard\n"
    "input and output.\n"
    "\n"
    "  --check    looks for a running Orvane and reports whether an agent can reach it; exits with 0 if so, else 1\n"
    "  --version  prints the version\n"
    "  --help     shows this text\n"
    "\n"
    "With the environment variable ORVANE_MCP_TRACE=1 the server reports what it does on standard error; with\n"
    "ORVANE_MCP_TRACE=2 it adds the contents of messages.\n";

int Serve() {
    // Tell a person at a terminal why nothing happens. On standard error, since standard output is for MCP alone.
    DWORD mode = 0;
    if (GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0) {
        std::fputs(
            "orvane_mcp is an MCP server: an MCP client starts it and talks to it over standard input and output.\n"
            "To stop it, end its input or press Ctrl+C. --help shows what else it can do.\n",
            stderr);
    }
    StartParentWatch();
    return OrvaneMcp_RunStdioBridge();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Serve();
    const std::string_view argument = argv[1];
    if (argc > 2) return std::fprintf(stderr, "orvane_mcp: one argument at most\n\n%s", HelpText), 2;
    if (argument == "--check") return RunCheck();
    if (argument == "--version") return std::puts("orvane_mcp " ORVANE_VERSION), 0;
    if (argument == "--help") return std::fputs(HelpText, stdout), 0;
    std::fprintf(stderr, "orvane_mcp: unknown argument \"%s\"\n\n%s", argv[1], HelpText);
    return 2;
}
