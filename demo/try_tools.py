#!/usr/bin/env python3
"""Trying tools by hand: type a tool's name and its arguments as JSON, see the result; pictures become files."""
import argparse
import base64
import json
import os
import pathlib
import subprocess
import sys

import session


def copy_of_board(out):
    """A copy of the demo board in `out`, so that edits meet no file of the project's; gives the board's path."""
    for name in ("demo_board.orv", "demo_schematic.sch", "diagnostic_hints.yaml"):
        pathlib.Path(out, name).write_bytes((session.HERE / name).read_bytes())
    return f"{out}/demo_board.orv"


def run(client, line, out, pictures):
    """Calls what `line` names; gives the number of pictures so far."""
    name, _, arguments = line.partition(" ")
    try:
        text, image, failed = session.call_tool(client, name, json.loads(arguments or "{}"))
    except json.JSONDecodeError as error:
        print(f"the arguments are no JSON: {error}")
        return pictures
    print(("failed: " if failed else "") + text)
    if image is not None:
        pictures += 1
        path = pathlib.Path(out, f"picture_{pictures}.png")
        path.write_bytes(base64.b64decode(image["data"]))
        print(f"picture: {path}")
    return pictures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--viewer", required=True, help="the command that starts the viewer, without a board")
    parser.add_argument("--launcher", required=True, help="the command that starts the launcher")
    parser.add_argument("--out", required=True, help="a folder for the board's copy and the pictures")
    options = parser.parse_args()
    os.makedirs(options.out, exist_ok=True)

    board = copy_of_board(options.out)
    viewer = session.Program(session.words_of([options.viewer]) + [board], subprocess.DEVNULL)
    client = None
    try:
        print(viewer.next_line())
        client = session.start(session.words_of([options.launcher]))
        session.request(client, "initialize")
        tools = [tool["name"] for tool in session.request(client, "tools/list")["result"]["tools"]]
        print("tools: " + " ".join(tools))
        print('for example: select_component {"refdes":"PU2"}    an empty line or the end of input ends it')
        pictures = 0
        while True:
            print("> " if sys.stdin.isatty() else "", end="", flush=True)
            line = sys.stdin.readline().strip()
            if not line:
                break
            pictures = run(client, line, options.out, pictures)
        return session.close(client)
    except (RuntimeError, OSError) as error:
        print(error, file=sys.stderr)
        return 1
    finally:
        for program in (client, viewer):
            if program is not None and program.process.poll() is None:
                program.process.kill()


if __name__ == "__main__":
    sys.exit(main())
