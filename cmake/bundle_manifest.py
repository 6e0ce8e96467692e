#!/usr/bin/env python3
"""bundle_manifest.py VERSION TOOLS FILE: writes the manifest of the Claude Desktop bundle. Claude shows a list of tools
before it installs the bundle; it comes from the table in TOOLS, docs/tools.md, which is tested against the catalogue."""
import json
import pathlib
import re
import sys

version, tools, target = sys.argv[1], *map(pathlib.Path, sys.argv[2:])
rows = re.findall(r"^\| \[`(\w+)`\]\S* \| (.+?) \|", tools.read_text("utf-8"), re.M)
if not rows:
    sys.exit(f"{tools}: there is no table of tools")
launcher = "server/orvane_mcp.exe"
manifest = {
    "manifest_version": "0.3",
    "name": "orvane-mcp",
    "display_name": "Orvane",
    "version": version,
    "description": "Ask about the board that is open in Orvane: find parts, follow nets, read its schematic.",
    "author": {"name": "Orvane"},
    "icon": "icon.png",
    "server": {"type": "binary", "entry_point": launcher,
               "mcp_config": {"command": "${__dirname}/" + launcher, "args": []}},
    "tools": [{"name": name, "description": description} for name, description in rows],
    "keywords": ["boardview", "schematic", "repair"],
    "compatibility": {"platforms": ["win32"]},
}
target.write_text(json.dumps(manifest, indent=2, ensure_ascii=False) + "\n", "utf-8")
