"""What the comparisons of bench/ share: running programs in turn, measuring and judging them."""

import mmap
import os
import shlex
import signal
import sys
import time

MIB = 1 << 20
BLOCK = 4 * MIB


class Comparison_Failed(Exception):
    """A program did not do what it was run for, so that its times mean nothing."""


class Run:
    """What one run of a program took, and the server that it talked to."""

    def __init__(self, wall, usage):
        self.wall = wall
        self.cpu = usage.ru_utime + usage.ru_stime
        self.peak = usage.ru_maxrss * 1024
        self.server = 0.0


class Program:
    """One member of a comparison; `server` is a Server whose CPU time is measured beside it."""

    def __init__(self, name, command, server=None):
        self.name = name
        self.command = command
        self.server = server
        self.runs = []

    def median(self, measure):
        figures = sorted(getattr(run, measure) for run in self.runs)
        middle = len(figures) // 2
        return figures[middle] if len(figures) % 2 else (figures[middle - 1] + figures[middle]) / 2


class Target:
    """What a program, the first one if none is named, shall reach in one measure of a case (an
    attribute of Run): at most so many times another's figure, or at most an absolute one."""

    def __init__(self, measure, limit, other=None, program=None):
        self.measure = measure
        self.limit = limit
        self.other = other
        self.program = program

    def judge(self, programs):
        named = {program.name: program for program in programs}
        figure = named.get(self.program, programs[0]).median(self.measure)
        if self.other is not None:
            figure /= named[self.other].median(self.measure)
            text = f"{self.measure} {figure:.2f} x {self.other}, target {self.limit:.2f}"
            text = f"{self.program}: {text}" if self.program else text
        else:
            figure /= MIB
            text = f"{self.measure} {figure:.1f} MiB, target {self.limit} MiB"
        return f"{text}: {verdict(figure, self.limit)}"


class Case:
    """Programs that do the same job on the same data.

    prepare() is called before each run and verify(program, thorough) after it, both untimed.
    A run uses about `written` bytes of memory for what it writes.
    """

    def __init__(self, title, programs, targets, written, prepare, verify):
        self.title = title
        self.programs = programs
        self.targets = targets
        self.written = written
        self.prepare = prepare
        self.verify = verify


class Runner:
    def __init__(self, work, runs):
        self.work = work
        self.runs = runs
        self.stdout = os.path.join(work, "stdout")
        self.stderr = os.path.join(work, "stderr")
        # None of the programs shall read or leave anything in the user's home.
        self.environment = dict(os.environ, LC_ALL="C", HOME=work, RCLONE_CONFIG="/dev/null",
                                XDG_STATE_HOME=work)

    def measure(self, command):
        flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC
        actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, self.stdout, flags, 0o600),
                   (os.POSIX_SPAWN_OPEN, 2, self.stderr, flags, 0o600)]
        start = time.perf_counter()
        pid = os.posix_spawnp(command[0], command, self.environment, file_actions=actions)
        code, usage = wait(pid)
        wall = time.perf_counter() - start
        if code != 0:
            with open(self.stderr, errors="replace") as file:
                reason = file.read(2000)
            raise Comparison_Failed(f"{shlex.join(command)}: exit code {code}\n{reason}")
        return Run(wall, usage)

    def measure_beside(self, server, command):
        before = server.cpu() if server else 0.0
        run = self.measure(command)
        run.server = server.cpu() - before if server else 0.0
        return run

    def run(self, case):
        print(f"\n{case.title}", flush=True)
        # The first turn counts for nothing but its results; it warms up what else there is.
        for turn in range(self.runs + 1):
            for program in case.programs:
                aside(case.prepare)
                os.sync()
                aside(touch_memory, case.written)
                run = self.measure_beside(program.server, program.command)
                aside(case.verify, program, turn == 0)
                if turn > 0:
                    program.runs.append(run)
        report(case)


def aside(job, *args):
    """Does a job in a process of its own: what a program inherits from this one counts as its peak
    memory, so this one stays small."""
    sys.stdout.flush()
    child = os.fork()
    if child == 0:
        code = 1
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        try:
            job(*args)
            code = 0
        except (Comparison_Failed, OSError) as failure:
            print(f"compare: {failure}", file=sys.stderr, flush=True)
        finally:
            os._exit(code)
    if wait(child)[0] != 0:
        raise Comparison_Failed("given up")


def wait(pid):
    """Waits for a child, which does not outlive an interrupted comparison.

    Returns its exit code, negative for a signal, and what it used."""
    try:
        _, status, usage = os.wait4(pid, 0)
    except BaseException:
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
        raise
    return os.waitstatus_to_exitcode(status), usage


def touch_memory(size):
    """Uses memory and gives it back. A virtual machine returns free memory to its host, and the
    next program to touch it pays several times the price of the copy; so that none of them does,
    each finds memory that was in use a moment ago."""
    size = min(size, os.sysconf("SC_AVPHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") // 2)
    with mmap.mmap(-1, max(size, mmap.PAGESIZE)) as memory:
        for offset in range(0, size, mmap.PAGESIZE):
            memory[offset] = 1


def report(case):
    cio = case.programs[0]
    served = cio.server is not None
    measures = ("wall", "cpu", "peak") + (("server",) if served else ())
    print(f"{'program':16} {'wall s':>8} {'(min..max)':>16} {'CPU s':>8} {'peak MiB':>9}"
          f"{' server CPU s' if served else ''}   cio/it: {'wall':>6} {'CPU':>6} {'peak':>6}"
          f"{' server' if served else ''}")
    for program in case.programs:
        walls = [run.wall for run in program.runs]
        line = (f"{program.name:16} {program.median('wall'):8.2f} "
                f"{f'({min(walls):.2f}..{max(walls):.2f})':>16} {program.median('cpu'):8.2f} "
                f"{program.median('peak') / MIB:9.1f}")
        if served:
            line += f" {program.median('server'):12.2f}"
        if program is not cio:
            line += "          " + "".join(
                f" {ratio(cio.median(m), program.median(m)):>6}" for m in measures)
        print(line)
    for target in case.targets:
        print(f"  {target.judge(case.programs)}")
    sys.stdout.flush()


def ratio(a, b):
    return f"{a / b:.2f}" if b else "-"


def verdict(figure, limit):
    return "met" if figure <= limit else "NOT met"


def to_file(command, path):
    """A program that writes to standard output, which becomes a file."""
    return ["sh", "-c", 'out=$1; shift; exec "$@" >"$out"', "sh", path] + command


def file_url(path):
    return "file://" + "".join(
        chr(b) if chr(b).isascii() and (chr(b).isalnum() or chr(b) in "/-._~") else f"%{b:02X}"
        for b in os.fsencode(path))


def warm(path):
    """Brings the files of a tree into the page cache."""
    for directory, _, names in os.walk(path):
        for name in names:
            with open(os.path.join(directory, name), "rb", buffering=0) as file:
                while file.read(BLOCK):
                    pass


def machine():
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
    return f"{os.cpu_count()} processors, {memory / (1 << 30):.1f} GiB of memory"
