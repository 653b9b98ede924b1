"""Workers: each plants one fault at a time in its own copy and runs programs until one notices."""
import ctypes
import multiprocessing
import multiprocessing.connection
import os
import resource
import shutil
import signal
import subprocess
import time
from pathlib import Path

GIB = 1 << 30
SET_CHILD_SUBREAPER, SET_DEATH_SIGNAL = 36, 1  # of <sys/prctl.h>
FIRST_LIMIT = 300.0  # seconds, before a program's normal time is known
libc = ctypes.CDLL(None)


def begin_program():
    """In the child: a fault may take memory, disk or time without end, and must not outlive us."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (12 * GIB, 12 * GIB))
    resource.setrlimit(resource.RLIMIT_FSIZE, (GIB, GIB))
    libc.prctl(SET_DEATH_SIGNAL, signal.SIGKILL)


def end_children():
    """Ends what a program left behind: it became this worker's child when its parent died."""
    mine = Path(f"/proc/self/task/{os.getpid()}/children")
    while True:
        children = [int(pid) for pid in mine.read_text().split()]
        if not children:
            return
        for pid in children:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        for pid in children:
            try:
                os.waitpid(pid, 0)
            except ChildProcessError:
                pass


class Worker:
    """Plants and tests, in a process of its own."""

    def __init__(self, own):
        self.own, self.built = own, own.built
        self.scratch = own.folder / "scratch"
        self.environment = {
            **os.environ, "QCSDIR": str(self.built.tree / "data" / "qcs"), "LC_ALL": "C.UTF-8",
            "TMPDIR": str(self.scratch), "LD_LIBRARY_PATH": str(own.folder / "lib")}

    def run(self, program, limit):
        """How the program ended ("passed", "failed", "hung"), and after how many seconds."""
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir()
        begin = time.monotonic()
        process = subprocess.Popen(
            program.command(self.built, self.own.folder), cwd=self.scratch, env=self.environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            start_new_session=True, preexec_fn=begin_program)
        try:
            ended = "failed" if process.wait(limit) else "passed"
        except subprocess.TimeoutExpired:
            ended = "hung"
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
        taken = time.monotonic() - begin
        end_children()
        return ended, taken

    def check(self, name, limit):
        """Runs one program on the right sources."""
        program = self.named(name)
        if not self.own.link_program(program):
            return "does not link", 0.0
        return self.run(program, limit)

    def named(self, name):
        return next(program for program in self.built.programs if program.name == name)

    def test(self, fault, order):
        """What becomes of a fault, and which program noticed."""
        path = self.own.folder / fault.path
        right = path.read_bytes()
        try:
            lines = right.decode().split("\n")
            before = lines[fault.line - 1]
            lines[fault.line - 1] = before.replace(before.strip(), fault.after)
            path.write_text("\n".join(lines))
            nothing = self.own.compile_users(fault.path)
            return (nothing, "") if nothing else self.seek(order)
        finally:
            path.write_bytes(right)
            self.own.put_objects_back(fault.path)

    def seek(self, order):
        if not self.own.link_library():
            return "does not compile", ""
        for name, limit in order:
            program = self.named(name)
            if not self.own.link_program(program):
                return "does not compile", ""
            ended, _ = self.run(program, limit)
            if ended != "passed":
                return f"caught: {ended}", name
        return "not caught", ""


def serve(own, channel):
    """A worker's life: (what to do, arguments) comes in, the outcome goes out."""
    libc.prctl(SET_CHILD_SUBREAPER, 1)
    libc.prctl(SET_DEATH_SIGNAL, signal.SIGTERM)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    signal.signal(signal.SIGTERM, lambda *_: (end_children(), os._exit(1)))
    worker = Worker(own)
    while True:
        what, arguments = channel.recv()
        channel.send(getattr(worker, what)(*arguments))


class Workers:
    """Hands tasks to idle workers and outcomes to who asked."""

    def __init__(self, owns):
        self.idle, self.busy, self.processes = [], {}, []
        for own in owns:
            here, there = multiprocessing.Pipe()
            process = multiprocessing.Process(target=serve, args=(own, there), daemon=True)
            process.start()
            self.processes.append(process)
            self.idle.append(here)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.terminate()
            process.join()

    def run(self, next_task, done):
        """Runs what next_task() gives until it gives None with nobody busy: (key, what, arguments);
        done(key, outcome) may bring new tasks about."""
        while True:
            while self.idle and (task := next_task()):
                channel = self.idle.pop()
                channel.send(task[1:])
                self.busy[channel] = task[0]
            if not self.busy:
                return
            for channel in multiprocessing.connection.wait(list(self.busy)):
                key = self.busy.pop(channel)
                self.idle.append(channel)
                done(key, channel.recv())
