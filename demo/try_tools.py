#!/usr/bin/env python3
"""Calls tools by hand: type a tool's name and its arguments, read the answer; pictures become files."""
import argparse
import json
import os
import pathlib
import shlex
import subprocess
import sys

import session

BOARD = "demo_board.orv"
HELP = """Type a tool's name and its arguments, as name=value or as JSON:
    get_component_info refdes=UC1
    find_components query="find 10K components" show_in_find_parts=true
    bulk_update_components {"updates":[{"refdes":"PR4","value":"23.2K_1206_1%"}]}
help lists the tools, help TOOL describes one, quit ends the session."""


def example_of(name):
    """A call of this tool that works on the demo board."""
    for _, tool, arguments, words in session.CALLS:
        if tool == name and session.REFUSED not in words:
            if all(isinstance(value, (str, int)) for value in arguments.values()):
                return " ".join([name] + [f"{key}={shown(value)}" for key, value in arguments.items()])
            return f"{name} {json.dumps(arguments)}"
    return name


def shown(value):
    return json.dumps(value) if not isinstance(value, str) or " " in value or not value else value


def arguments_of(tool):
    """The tool's arguments, the optional ones in brackets."""
    schema = tool["inputSchema"]
    required = schema.get("required", [])
    return " ".join(key if key in required else f"[{key}]" for key in schema["properties"])


def tell_help(tools, name):
    if name not in tools:
        for tool in tools.values():
            print(f"{tool['name']} {arguments_of(tool)}".rstrip() + f"\n    for example: {example_of(tool['name'])}")
        print(HELP)
        return
    tool = tools[name]
    print(f"{name} {arguments_of(tool)}\n{tool['description']}")
    for key, value in tool["inputSchema"]["properties"].items():
        choice = f", one of {', '.join(value['enum'])}" if "enum" in value else ""
        default = f", default {json.dumps(value['default'])}" if "default" in value else ""
        print(f"    {key}: {value['type']}{choice}{default}")
    print(f"for example: {example_of(name)}")


def parse(tool, text):
    """Reads a tool's arguments, as JSON or as name=value words. Raises ValueError, which says what is wrong."""
    if text.startswith("{"):
        return json.loads(text)
    properties = tool["inputSchema"]["properties"]
    arguments = {}
    for word in shlex.split(text):
        key, equals, value = word.partition("=")
        if not equals or key not in properties:
            raise ValueError(f"'{word}' is not an argument of {tool['name']}, which takes: {arguments_of(tool)}")
        arguments[key] = value if properties[key]["type"] == "string" else json.loads(value)
    return arguments


def call(client, tools, line, out):
    """Calls the tool that `line` names, prints its answer and saves its picture."""
    name, _, text = line.partition(" ")
    if name not in tools:
        print(f"There is no tool {name}. Type help for a list.")
        return
    try:
        arguments = parse(tools[name], text.strip())
    except ValueError as error:
        print(f"I can't read these arguments: {error}")
        return
    answer, image, failed = session.call_tool(client, name, arguments)
    print(("refused: " if failed else "") + answer.rstrip("\n"))
    if image is not None:
        number = 1
        while pathlib.Path(out, f"picture_{number}.png").exists():
            number += 1
        path = f"{out}/picture_{number}.png"
        print(f"picture: {session.save_picture(image, path)}, saved as {path}")


def complete_names(tools):
    """Makes the Tab key complete names, if the system supports it."""
    try:
        import readline  # pylint: disable=import-outside-toplevel # not on every system
    except ImportError:
        return

    def complete(start, state):
        words = readline.get_line_buffer()[:readline.get_begidx()].split()
        if not words or words == ["help"]:
            names = [*tools, *([] if words else ["help", "quit"])]
        else:
            names = [f"{key}=" for key in tools.get(words[0], {"inputSchema": {"properties": {}}})
                     ["inputSchema"]["properties"]]
        found = [name for name in names if name.startswith(start)]
        return found[state] if state < len(found) else None

    readline.set_completer_delims(" ")
    readline.set_completer(complete)
    readline.parse_and_bind("tab: complete")


def lines():
    """What the user types, line by line, until quit or the end of input."""
    while True:
        try:
            line = (input("> ") if sys.stdin.isatty() else input()).strip()
        except (EOFError, KeyboardInterrupt):
            print()
            return
        if line in ("quit", "exit"):
            return
        if line:
            yield line


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--viewer", required=True, help="the command that starts the viewer, without a board")
    parser.add_argument("--launcher", required=True, help="the command that starts the bridge")
    parser.add_argument("--out", required=True, help="a folder for a copy of the board and the pictures")
    parser.add_argument("--attach", action="store_true", help="use a viewer that is already running")
    options = parser.parse_args()

    viewer = client = None
    try:
        if options.attach:
            os.makedirs(options.out, exist_ok=True)
        else:
            session.copy_board(session.HERE / BOARD, options.out)
            viewer, line = session.start_viewer(session.words_of([options.viewer]),
                                                f"{options.out}/{BOARD}")
            print(line)
        client = session.start(session.words_of([options.launcher]))
        tools = {tool["name"]: tool for tool in session.initialize(client, "inspect")[1]}
        if options.attach:
            state, _, failed = session.call_tool(client, "get_board_state", {})
            if failed:
                raise RuntimeError(f"{state} Start a viewer first, for example with:\n"
                                   f"    {options.viewer} {session.HERE.name}/{BOARD}")
            print(state.split("\nselected_refdes", 1)[0])
        print(f"{len(tools)} tools: {' '.join(tools)}\n{HELP}")
        complete_names(tools)
        for line in lines():
            if line.split()[0] == "help":
                tell_help(tools, line[4:].strip())
            else:
                call(client, tools, line, options.out)
        return session.close(client)
    except (RuntimeError, OSError, ValueError, subprocess.SubprocessError) as error:
        print(error, file=sys.stderr)
        return 1
    finally:
        session.stop(client, viewer)


if __name__ == "__main__":
    sys.exit(main())
