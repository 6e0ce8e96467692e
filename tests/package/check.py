#!/usr/bin/env python3
"""Looks at the package. `check.py files PACKAGE VERSION`: what the shipped files import and export, how they are
protected, and whether their symbols belong to them. `check.py content PACKAGE BUNDLE`: what both hold, that no file
tells where it was built, and that the documents' links lead to files of the package. `check.py host PACKAGE FOLDER`:
whether the folder's host.exe serves a call of the package's launcher."""
import json
import pathlib
import re
import subprocess
import sys
import uuid

CHECKOUT = pathlib.Path(__file__).resolve().parents[2]
EXPORTS = set(re.findall(r"^ +(\w+)$", (CHECKOUT / "src/api/orvane_mcp.def").read_text("utf-8"), re.M))
SYSTEM = {"advapi32.dll", "kernel32.dll", "msvcrt.dll"}


def check(holds, what):
    print(what)
    if not holds:
        sys.exit("FAILED: " + what)


def run(*words, **options):
    return subprocess.run([str(word) for word in words], check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def check_file(file, imports, exports, version, function):
    """`function` must be found in the symbols, with its source file."""
    name = file.name
    dump = run("llvm-readobj", "--file-headers", "--sections", "--coff-imports", "--coff-exports",
               "--coff-debug-directory", file)
    found = {word.lower() for word in re.findall(r"^Import {\n  Name: (\S+)", dump, re.M)}
    check(found and found <= imports, f"{name} imports from {', '.join(sorted(found))}")
    check(set(re.findall(r"^Export {\n.*\n  Name: (\w+)", dump, re.M)) == exports, f"{name} exports {len(exports)}")
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        check(f"IMAGE_DLL_CHARACTERISTICS_{flag} " in dump, f"{name}: {flag}")
    check("TimeDateStamp: 1970-01-01 00:00:00" in dump, f"{name} holds no time")
    sections = re.findall(r"^  Section {\n.*?^  }$", dump, re.M | re.S)
    check(sections and not any("MEM_EXECUTE" in one and "MEM_WRITE" in one for one in sections),
          f"{name}: no section is writable and executable")
    check(".debug_" not in dump, f"{name} is stripped")
    content = file.read_bytes()
    check(len(content) < 1 << 20, f"{name}: {len(content)} bytes")
    for word in ("VS_VERSION_INFO", version, "Orvane MCP"):
        check(word.encode("utf-16-le") in content, f"{name} tells {word!r} of itself")

    symbols = file.parent.parent / "symbols" / f"{name}.pdb"
    about = run("llvm-pdbutil", "dump", "--summary", "--symbols", symbols)
    signature, age = (re.search(rf"PDB{what}: \(?([^)\n]+)", dump).group(1) for what in ("GUID", "Age"))
    guid = uuid.UUID(re.search(r"GUID: {(.+)}", about).group(1))
    check(guid.bytes_le == bytes.fromhex(signature) and f"Age: {age}\n" in about, f"{symbols.name} belongs to {name}")
    check(f"PDBFileName: {symbols.name}\n" in dump, f"{name} names {symbols.name} without a folder")
    check(f"`{function}`" in about, f"{symbols.name} knows {function}")
    lines = run("llvm-pdbutil", "dump", "--l", symbols)
    check(re.search(r"^(src|launcher)\\\S+\.cc \(MD5: .*\n.*line/addr", lines, re.M), f"{symbols.name} knows source lines")


def check_content(package, bundle):
    names = {path.name for path in package.iterdir()}
    check(names == {"README", "NOTICE", "CHANGELOG.md", "SECURITY.md",
                    "bin", "symbols", "lib", "include", "docs", "examples"}, "it holds " + ", ".join(sorted(names)))
    manifest = json.loads((bundle / "manifest.json").read_text("utf-8"))
    started = manifest["server"]["mcp_config"]["command"].replace("${__dirname}", str(bundle))
    check(pathlib.Path(started).is_file(), "the bundle has what it starts")
    # Symbols name the folders where Debian has its compiler and its headers.
    for path in (one for top in (package, bundle) for one in sorted(top.rglob("*")) if one.is_file()):
        folders = [str(CHECKOUT), "/home/", "/root/", "/tmp/"] + ([] if path.suffix == ".pdb" else ["/usr/lib", "/usr/x86"])
        told = [folder for folder in folders if folder.encode() in path.read_bytes()]
        check(not told, f"{path.name} names no folder of the build {told or ''}".rstrip())
    for document in package.rglob("*.md"):
        for link in re.findall(r"\]\(([^:)\s#]+)[)#]", document.read_text("utf-8")):
            target = (document.parent / link).resolve()
            check(target.exists() and target.is_relative_to(package.resolve()), f"{document.name} links to {link}")


def check_host(package, folder):
    """The host serves one call of the package's launcher."""
    viewer = subprocess.Popen(["wine", folder / "host.exe"], stdout=subprocess.PIPE, text=True)
    check(viewer.stdout.readline().startswith("serving \\\\.\\pipe\\orvane_mcp_control_"), "the host serves")
    call = {"jsonrpc": "2.0", "id": 1, "method": "tools/call",
            "params": {"name": "select_net", "arguments": {"net": "+VIN"}}}
    result = json.loads(run("wine", package / "bin/orvane_mcp.exe", input=json.dumps(call) + "\n"))["result"]
    text = "ORVANE_FINAL stop=true no_followup_tools=true\nselected_net=+VIN"
    check(result == {"content": [{"type": "text", "text": text}], "isError": False}, "it answers a call")
    rest, _ = viewer.communicate(timeout=60)
    check("MCP client (bridge pid" in rest and rest.endswith("stopped\n"), "it shows its client and stops")
    check(viewer.returncode == 0, "it exits with 0")


part, package, rest = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
if part == "files":
    check_file(package / "bin/orvane_mcp.dll", SYSTEM, EXPORTS, rest, "OrvaneMcp_StartControlServer")
    check_file(package / "bin/orvane_mcp.exe", SYSTEM | {"orvane_mcp.dll"}, set(), rest, "main")
elif part == "content":
    check_content(package, pathlib.Path(rest))
else:
    check_host(package, pathlib.Path(rest))
