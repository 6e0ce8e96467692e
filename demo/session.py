#!/usr/bin/env python3
"""Plays an agent: starts the demo viewer and the launcher, calls every tool and checks what comes back.

The client half (start, request, notify, call_tool, close) is for other scripts to import. Everything else is the
play: a transcript on standard output, and exit status 0 only when all 19 tools answered as expected.
"""
import argparse
import base64
import json
import os
import pathlib
import queue
import shlex
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import textwrap
import threading

TOOL_COUNT = 19
LINE_LENGTH = 110
PATIENCE = 60  # seconds for one answer, a slow first start included
HERE = pathlib.Path(__file__).resolve().parent


# ---- A client of the launcher ----------------------------------------------------------------------------------------

class Program:
    """A child process whose output lines wait in a queue; None in the queue is the end of its output."""

    def __init__(self, command, stdin):
        self.process = subprocess.Popen(command, stdin=stdin, stdout=subprocess.PIPE)
        self.lines = queue.Queue()
        self.last_id = 0
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line.decode("utf-8", "replace").rstrip("\r\n"))
        self.lines.put(None)

    def next_line(self):
        """The next line of output; raises an error when none comes."""
        try:
            line = self.lines.get(timeout=PATIENCE)
        except queue.Empty:
            line = None
        if line is None:
            raise RuntimeError(f"{self.process.args} has nothing more to say")
        return line


def start(command):
    """Starts the launcher, given as a list of words, and gives the client that the other functions take."""
    return Program(command, subprocess.PIPE)


def send(client, message):
    client.process.stdin.write(json.dumps({"jsonrpc": "2.0", **message}, ensure_ascii=False).encode() + b"\n")
    client.process.stdin.flush()


def notify(client, method):
    send(client, {"method": method})


def request(client, method, params=None):
    """Sends a request and gives its whole answer, result or error."""
    client.last_id += 1
    send(client, {"id": client.last_id, "method": method, "params": params or {}})
    answer = json.loads(client.next_line())
    if answer.get("id") != client.last_id:
        raise RuntimeError(f"answer to another request: {answer}")
    return answer


def call_tool(client, name, arguments):
    """Calls a tool; gives its text, its image block or None, and whether the result is an error."""
    answer = request(client, "tools/call", {"name": name, "arguments": arguments})
    if "error" in answer:
        return answer["error"]["message"], None, True
    blocks = answer["result"]["content"]
    text = "".join(block["text"] for block in blocks if block["type"] == "text")
    image = next((block for block in blocks if block["type"] == "image"), None)
    return text, image, answer["result"]["isError"]


def close(client):
    """Ends the client's input and gives the exit status of the launcher."""
    client.process.stdin.close()
    return client.process.wait(PATIENCE)


# ---- The play ------------------------------------------------------------------------------------------------------

def calls(out):
    """What the agent does: tool, arguments, words that its answer must hold, and whether it must be an error."""
    edited = f"{out}/edited_board.orv"
    values = [{"refdes": "PR6", "value": "40.2K_1206_1%"}, {"refdes": "XX1", "value": "none"}]
    return [
        ("list_commands", {}, ["complete list, 15 examples", "15. There is no"], False),
        ("get_board_state", {}, ["attached_pdf_path=", "components=46", "selected_refdes=\n"], False),
        ("find_components", {"query": "find the charger on the board"}, ["ORVANE_FINAL", "selected_refdes=PU1"], False),
        ("find_components", {"query": "fingerprint reader"}, ["ORVANE_NO_LOCAL_CANDIDATE"], False),
        ("list_components", {"query": "+VLED", "limit": 2}, ["total=3", "next_offset=2"], False),
        ("find_components", {"query": "find 10K components", "show_in_find_parts": True},
         ["ORVANE_FINAL", "shown_in_find_parts=5"], False),
        ("get_component_info", {"refdes": "U4"}, ["Info=Backlight boost driver", "BL_EN"], False),
        ("select_component", {"refdes": "pu2"}, ["ORVANE_FINAL", "selected=true", "selected_refdes=PU2"], False),
        ("select_component", {}, ["requires a non-empty refdes"], True),
        ("select_component", {"refdes": "PU99"}, ["no 'PU99'"], True),
        ("select_pin", {"refdes": "PU2", "pin": "PG"}, ["ORVANE_FINAL", "selected_net=PG_3V5V"], False),
        ("select_net", {"net": "+3VALW"}, ["ORVANE_FINAL", "no_followup_tools=true"], False),
        ("get_net_info", {"net": "+3VALW"}, ["PL2.2", "U2.1"], False),
        ("get_diagnostic_hints", {"query": "What should I check when there is no backlight?"},
         ["DIAGNOSTIC_NOTES status=match", "BL_EN"], False),
        ("get_diagnostic_hints", {"query": "the speaker crackles"}, ["DIAGNOSTIC_NOTES status=none"], False),
        ("extract_pdfium_text", {"output_path": f"{out}/schematic.json"}, ["json_path=", "pages=2"], False),
        ("extract_pdfium_text", {"page_start": 1, "page_end": 1}, ["\"page\":1", "PR4 23.2K_1206_1%"], False),
        ("get_pdf_page_context", {"page": 1, "query": "PR4", "radius": 60}, ["hits=3", "23.2K_1206_1%"], False),
        ("render_pdf_page_image", {"page": 1, "image_mode": "page"}, ["ORVANE_DISPLAY_IMAGE_REQUIRED"], False),
        ("render_pdf_page_image", {"page": 1, "query": "PU2"}, ["ORVANE_DISPLAY_IMAGE_REQUIRED", "image_path="], False),
        ("update_component", {"refdes": "PR4", "description": "23.2K_1206_1%", "note": ""},
         ["COMPONENT_UPDATED", "Info=23.2K_1206_1%"], False),
        ("bulk_update_components", {"updates": values}, ["updated=1", "missing_refdes=XX1"], False),
        ("update_net", {"net": "PG_3V5V", "new_name": "PGOOD_ALW"}, ["pin_count=3"], False),
        ("get_net_info", {"net": "PGOOD_ALW"}, ["PU2.4", "U2.10", "U5.3"], False),
        ("export_orv", {"path": edited}, ["ORV_EXPORTED", "edited_board.orv"], False),
        ("search_files", {"query": "edited boardview", "open_first": True},
         ["ORVANE_FILE_OPENED", "opened_path=", "edited_board.orv"], False),
        ("get_component_info", {"refdes": "PR6"}, ["Info=40.2K_1206_1%"], False),
        ("search_indexed_content", {"query": "PGOOD_ALW", "file_type": "boardview"},
         ["edited_board.orv\tnet PGOOD_ALW", "pin 3 EN PGOOD_ALW"], False),
    ]


def paint(text, code):
    return f"\033[{code}m{text}\033[0m" if sys.stdout.isatty() else text


def tell(who, text, code="1"):
    print(f"{paint(who.rjust(8), code)}  {text}", flush=True)


def tell_answer(text, most=7):
    """The first lines of an answer, long ones cut."""
    lines = text.split("\n")
    shown = lines if len(lines) <= most + 1 else lines[:most]
    for line in shown:
        rest = len(line) - LINE_LENGTH
        cut = paint(f" ... {rest} more characters", "2") if rest > 25 else ""
        print("          " + (line[:LINE_LENGTH] if cut else line).replace("\t", "  ") + cut)
    if len(shown) < len(lines):
        print(paint(f"          ... {len(lines) - len(shown)} more lines", "2"))


def check_png(data):
    """Raises an error unless the bytes begin as a PNG does; gives the picture's size."""
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("no PNG signature")
    width, height = struct.unpack_from(">II", data, 16)
    return f"{width} x {height} pixels"


def play(client, out, called, complaints):
    """Makes all calls; notes the name of each tool called and what was unexpected in the two lists."""
    images = 0

    def complain(text):
        complaints.append(text)
        tell("WRONG", text, "1;31")

    tell("agent", "initialize")
    params = {"protocolVersion": "2024-11-05", "capabilities": {}, "clientInfo": {"name": "demo", "version": "1"}}
    result = request(client, "initialize", params)["result"]
    tell_answer(f"{result['serverInfo']['title']} {result['serverInfo']['version']}, protocol "
                f"{result['protocolVersion']}, {len(result['instructions'])} characters of instructions")
    notify(client, "notifications/initialized")
    tell("agent", "tools/list")
    tools = [tool["name"] for tool in request(client, "tools/list")["result"]["tools"]]
    tell_answer(textwrap.fill(f"{len(tools)} tools: {', '.join(tools)}", LINE_LENGTH))
    if len(tools) != TOOL_COUNT:
        complain(f"{len(tools)} tools are listed")

    for name, arguments, words, must_fail in calls(out):
        tell("agent", paint(name, "1;36") + " " + json.dumps(arguments))
        text, image, failed = call_tool(client, name, arguments)
        called.append(name)
        tell("refused" if failed else "answer", text.split("\n", 1)[0], "33" if failed else "32")
        if "\n" in text:
            tell_answer(text.split("\n", 1)[1])
        if failed != must_fail:
            complain(f"{name}: isError is {failed}")
        for word in words:
            if word not in text + "\n":
                complain(f"{name}: the answer lacks {word!r}")
        if (image is not None) != ("ORVANE_DISPLAY_IMAGE_REQUIRED" in words):
            complain(f"{name}: an image is missing or too many")
        if image is not None:
            images += 1
            path = pathlib.Path(out, f"page_image_{images}.png")
            path.write_bytes(base64.b64decode(image["data"], validate=True))
            try:
                tell("image", f"{image['mimeType']}, {check_png(path.read_bytes())}, saved as {path}", "35")
            except (ValueError, struct.error) as error:
                complain(f"{name}: {error}")
    if set(tools) != set(called):
        complain(f"not called: {sorted(set(tools) - set(called))}")


def words_of(command):
    """A command given as several words, or as one that holds them all."""
    return shlex.split(command[0]) if len(command) == 1 else command


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--viewer", nargs="+", required=True,
                        help="the words that start the viewer; the last may be a board file")
    parser.add_argument("--launcher", nargs="+", required=True, help="the words that start the launcher")
    parser.add_argument("--out", required=True, help="a folder for the board's copy, the images and the edited board")
    options = parser.parse_args()

    # The board is copied, so that the edits meet no file of the user's. Relative and with forward slashes, its path
    # means the same to a Windows program.
    viewer_words = words_of(options.viewer)
    board = pathlib.Path(viewer_words.pop()) if viewer_words[-1].endswith(".orv") else HERE / "demo_board.orv"
    out = pathlib.Path(os.path.relpath(options.out)).as_posix()
    os.makedirs(out, exist_ok=True)
    for file in (board, *board.parent.glob("*.sch"), *board.parent.glob("*.yaml")):
        shutil.copy(file, out)
    # Away from a viewer that the user may have open; only the native build looks at this.
    scratch = tempfile.TemporaryDirectory(prefix="orvane_demo_")
    os.environ.setdefault("ORVANE_STANDIN_DIR", scratch.name)

    viewer = client = None
    called, complaints, console = [], [], []
    try:
        viewer = Program(viewer_words + [f"{out}/{board.name}"], subprocess.DEVNULL)
        console.append(viewer.next_line())
        tell("viewer", console[0], "32")
        if not console[0].startswith("serving "):
            raise RuntimeError("the viewer does not serve")
        client = start(words_of(options.launcher))
        play(client, out, called, complaints)
        status = close(client)
        tell("agent", f"closes its end; the launcher ends with {status}")
        if status != 0:
            complaints.append(f"the launcher ended with {status}")
        while not console[-1].startswith("client left: "):
            console.append(viewer.next_line())
        viewer.process.send_signal(signal.SIGINT)
        status = viewer.process.wait(PATIENCE)
        while (line := viewer.lines.get(timeout=PATIENCE)) is not None:
            console.append(line)
        tell("viewer", f"Ctrl+C; the viewer ends with {status}. Its console:", "32")
        tell_answer("\n".join(console[1:]), most=60)
        if status != 0 or console[-1] != "stopped":
            complaints.append(f"the viewer ended with {status} and said {console[-1]!r}")
    except (RuntimeError, OSError, ValueError, KeyError, queue.Empty, subprocess.TimeoutExpired) as error:
        complaints.append(f"{type(error).__name__}: {error}")
    finally:
        for program in (client, viewer):
            if program and program.process.poll() is None:
                program.process.kill()
    for complaint in complaints:
        tell("WRONG", complaint, "1;31")
    tools = len(set(called))
    print(f"demo: {tools} tools called, {len(called)} calls, {len(complaints)} unexpected results")
    return 0 if tools == TOOL_COUNT and not complaints else 1


if __name__ == "__main__":
    sys.exit(main())
