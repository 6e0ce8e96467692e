"""The programs that are measured: started with pipes, asked one thing at a time, observed through /proc."""
import atexit
import os
import re
import subprocess
import threading
import time
from pathlib import Path

ERRORS = Path("build/bench/errors.log")


def now():
    return time.clock_gettime(time.CLOCK_MONOTONIC)


def cpu_seconds(pid):
    """Processor time of all threads of a process so far."""
    nanoseconds = 0
    for task in Path(f"/proc/{pid}/task").iterdir():
        try:
            nanoseconds += int((task / "schedstat").read_text().split()[0])
        except FileNotFoundError:
            pass  # a thread that has just ended
    return nanoseconds / 1e9


def wine_server():
    """The process id of this Wine prefix's server, whose working directory is named after the prefix."""
    prefix = os.stat(os.environ["WINEPREFIX"])
    directory = f"server-{prefix.st_dev:x}-{prefix.st_ino:x}"
    for process in Path("/proc").glob("[0-9]*"):
        try:
            if os.readlink(process / "cwd").endswith(directory) and "wineserver" in (process / "comm").read_text():
                return int(process.name)
        except OSError:
            pass  # it has ended, or is another user's
    raise SystemExit("bench: Wine's server is not running")


class Program:
    """A child process. Our own programs end with their input; third-party servers, which may not, are killed."""

    def __init__(self, *command, stdin=subprocess.PIPE, stdout=subprocess.PIPE):
        self.command = [str(word) for word in command]
        with ERRORS.open("ab") as errors:
            self.process = subprocess.Popen(self.command, bufsize=0, stdin=stdin, stdout=stdout, stderr=errors)
        atexit.register(self.process.kill)  # whatever happens; does nothing if it has ended
        self.pid = self.process.pid
        self.input = self.process.stdin and self.process.stdin.fileno()
        self.output = self.process.stdout and self.process.stdout.fileno()

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        for end in (self.process.stdin, self.process.stdout):
            if end:
                end.close()
        try:
            self.process.wait(10 if self.command[0] != "node" else 0)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def send(self, message):
        os.write(self.input, message)

    def read(self):
        data = os.read(self.output, 1 << 20)
        if not data:
            raise SystemExit(f"bench: {' '.join(self.command)} ended; see {ERRORS}")
        return data

    def line(self):
        """Reads until what has arrived ends with a line feed."""
        data = self.read()
        while not data.endswith(b"\n"):
            data += self.read()
        return data

    def ask(self, message):
        """Sends a short message and returns its answer, one line."""
        os.write(self.input, message)
        return self.line()

    def ask_large(self, message, answer_bytes):
        """Sends a message of any size while reading an answer of this size, so that neither side blocks forever."""
        sender = threading.Thread(target=self._send_all, args=(message,))
        sender.start()
        while answer_bytes > 0:
            answer_bytes -= len(self.read())
        sender.join()

    def _send_all(self, message):
        rest = memoryview(message)
        while rest:
            rest = rest[os.write(self.input, rest):]

    def cpu(self):
        return cpu_seconds(self.pid)

    def private_memory(self):
        """In bytes."""
        text = Path(f"/proc/{self.pid}/smaps_rollup").read_text()
        return sum(int(size) * 1024 for size in re.findall(r"^Private_\w+: +(\d+) kB", text, re.M))

    def memory(self, line):
        """A line of the process's status, in bytes: VmRSS is its memory now, VmHWM the peak since reset_peak."""
        return int(re.search(rf"^{line}:\s+(\d+) kB", Path(f"/proc/{self.pid}/status").read_text(), re.M)[1]) * 1024

    def reset_peak(self):
        Path(f"/proc/{self.pid}/clear_refs").write_text("5")


class Crowd:
    """Many copies of the empty program, asleep on one shared input."""

    def __init__(self, command):
        self.command = command
        self.input = os.pipe()
        self.output = os.pipe()
        self.programs = []

    def grow_to(self, count):
        while len(self.programs) < count:
            more = min(count - len(self.programs), 20)
            self.programs += [Program(*self.command, stdin=self.input[0], stdout=self.output[1]) for _ in range(more)]
            while more > 0:
                more -= len(os.read(self.output[0], more))

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        for end in self.input:
            os.close(end)
        for program in self.programs:
            program.__exit__()
        for end in self.output:
            os.close(end)


class OneCore:
    """Programs started inside share one core with the bench: waking another core can take longer than all the work
    that two programs do for a message."""

    def __enter__(self):
        self.before = os.sched_getaffinity(0)
        os.sched_setaffinity(0, {min(self.before)})

    def __exit__(self, *failure):
        os.sched_setaffinity(0, self.before)
