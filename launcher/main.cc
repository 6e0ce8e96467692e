/// orvane_mcp.exe: the program that an MCP client starts. It serves that client until its input ends.

#include "api/exports.h"
#include "platform/platform.h"

#include <cstdio>

int main() {
    // A person at a terminal sees nothing else from a server that waits for JSON. Standard output is MCP's alone.
    DWORD mode = 0;
    if (GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0) {
        std::fputs(
            "orvane_mcp is an MCP server: an MCP client starts it and talks to it over standard input and output.\n"
            "To stop it, end its input or press Ctrl+C.\n",
            stderr);
    }
    return OrvaneMcp_RunStdioBridge();
}
