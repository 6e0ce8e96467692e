#!/usr/bin/env python3
"""Looks at the files that are shipped: what they import and export, how they are protected, whether a second build is
the same, and whether the package alone is enough to build a host that works."""
import json
import pathlib
import re
import subprocess
import sys

EXPORTS = {"OrvaneMcp_" + name for name in (
    "RunStdioBridge", "StartControlServer", "StopControlServer", "GetApiVersion", "GetPipeName", "GetServerPath",
    "GetLastError", "GetClientCount", "GetClientInfo", "DisconnectClients")}
SYSTEM = {"advapi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "user32.dll"}
passed = failed = 0


def check(holds, what):
    global passed, failed
    passed, failed = passed + bool(holds), failed + (not holds)
    print(("ok      " if holds else "FAILED  ") + what)


def run(*words, **options):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True, **options).stdout


def check_file(file, again, imports, exports):
    dump = run("x86_64-w64-mingw32-objdump", "-p", file)
    name = file.name
    found = {word.lower() for word in re.findall(r"DLL Name: (\S+)", dump)}
    check(found and found <= imports, f"{name} imports from {', '.join(sorted(found))}")
    check(set(re.findall(r"^\t\[ *\d+\] (\w+)$", dump, re.M)) == exports, f"{name} exports {len(exports)} functions")
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        check(re.search(rf"^\s+{flag}$", dump, re.M), f"{name}: {flag}")
    sections = re.findall(r"^ +\d+ (\S+).*\n +(.*)$", run("x86_64-w64-mingw32-objdump", "-h", file), re.M)
    loose = [section for section, flags in sections if "CODE" in flags and "READONLY" not in flags]
    check(sections and not loose, f"{name}: no section is writable and executable {loose or ''}")
    check(not any(section.startswith(".debug") for section, _ in sections), f"{name} is stripped")
    check(pathlib.Path(f"{file}.debug").stat().st_size > 0, f"{name}: symbols are kept beside it")
    content = file.read_bytes()
    check(len(content) < 1 << 20, f"{name}: {len(content)} bytes")
    for word in ("VS_VERSION_INFO", "0.9", "Orvane MCP"):
        check(word.encode("utf-16-le") in content, f"{name} tells {word!r} of itself")
    check(again.read_bytes() == content, f"{name}: a second build gives the same bytes")


def check_host(package, host):
    """The host of the package serves one call of the package's launcher."""
    viewer = subprocess.Popen(["wine", host], stdout=subprocess.PIPE, text=True)
    check(viewer.stdout.readline().startswith("serving \\\\.\\pipe\\orvane_mcp_control_"), "a host of the package serves")
    call = {"jsonrpc": "2.0", "id": 1, "method": "tools/call",
            "params": {"name": "select_net", "arguments": {"net": "+VIN"}}}
    answer = run("wine", package / "bin/orvane_mcp.exe", input=json.dumps(call) + "\n")
    result = json.loads(answer)["result"]
    text = "ORVANE_FINAL stop=true no_followup_tools=true\nselected_net=+VIN"
    check(result == {"content": [{"type": "text", "text": text}], "isError": False}, "it answers a call")
    rest, _ = viewer.communicate(timeout=60)
    check("MCP client (bridge pid" in rest and rest.endswith("stopped\n"), "it shows its client and stops")
    check(viewer.returncode == 0, "it ends in order")


def main():
    out, again, package, host = map(pathlib.Path, sys.argv[1:])
    check_file(out / "orvane_mcp.dll", again / "orvane_mcp.dll", SYSTEM, EXPORTS)
    check_file(out / "orvane_mcp.exe", again / "orvane_mcp.exe", SYSTEM | {"orvane_mcp.dll"}, set())
    check_host(package, host)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
