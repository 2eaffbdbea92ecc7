"""Programs under test: each starts in a process group of its own, and ends with this one."""
import ctypes
import os
import resource
import signal
import subprocess
import time

PATIENCE = 30  # s that a program may take for what it does in well under one on an idle machine
_PR_SET_PDEATHSIG = 1
_PR_SET_CHILD_SUBREAPER = 36
_libc = ctypes.CDLL(None)
_living = {}  # by pid: the programs that have not been waited for


class Fault(Exception):
    """What a round is judged by did not hold."""


def adopt_orphans():
    """Makes this process the parent of what its programs leave behind, so that it is seen."""
    _libc.prctl(_PR_SET_CHILD_SUBREAPER, 1)


class Program:
    """A running program. Its output is in the round's folder: NAME.out and NAME.err."""

    def __init__(self, folder, name, words, *, limits=(), closed=(), stdout=None,
                 variables=None):
        """`limits`: pairs of a resource and its value; `closed`: standard descriptors to close;
        `variables`: more of the environment."""
        self.name = name
        self.folder = folder
        self.words = [str(word) for word in words]
        self.signals = set()  # that it was sent

        def prepare():  # in the new process
            _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)
            # A shell that runs this in the background has them ignored.
            for number in (signal.SIGINT, signal.SIGHUP, signal.SIGTERM):
                signal.signal(number, signal.SIG_DFL)
            for what, most in limits:
                resource.setrlimit(what, (most, most))
            for descriptor in closed:
                os.close(descriptor)

        environment = {k: v for k, v in os.environ.items()
                       if k not in ("TESSEL_RTOS_SOCKET", "QUILL_DEBUG")}
        environment["TMPDIR"] = os.path.join(folder, "tmp")
        environment.update(variables or {})
        with open(self._path("out"), "wb") as out, open(self._path("err"), "wb") as err:
            self._process = subprocess.Popen(
                self.words, cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                stdout=out if stdout is None else stdout, stderr=err, start_new_session=True,
                preexec_fn=prepare)
        self.pid = self._process.pid
        _living[self.pid] = self

    def _path(self, end):
        return os.path.join(self.folder, f"{self.name}.{end}")

    def said(self, end="err"):
        with open(self._path(end), errors="replace") as file:
            return file.read()

    def signal(self, number):
        if self.code() is None:
            self.signals.add(number)
            os.kill(self.pid, number)

    def code(self):
        """None while it runs, minus N when signal N has ended it."""
        code = self._process.poll()
        if code is not None:
            _living.pop(self.pid, None)
        return code

    def wait(self, patience=PATIENCE):
        """How it ended. A program that does not end is a fault; its threads are written down."""
        try:
            self._process.wait(patience)
        except subprocess.TimeoutExpired:
            self._write_threads()
            raise Fault(f"{self.name} hangs: it has not ended within {patience} s") from None
        return self.code()

    def child(self):
        """The real-time side that it has started; None when there is none yet."""
        for pid, parent, _ in processes():
            if parent == self.pid:
                return pid
        return None

    def threads(self):
        return len(os.listdir(f"/proc/{self.pid}/task"))

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def kill(self):
        self.signal(signal.SIGKILL)
        self._process.wait()
        self.code()

    def _write_threads(self):
        with open(self._path("threads"), "w") as file:
            for task in os.listdir(f"/proc/{self.pid}/task"):
                words = [task]
                for what in ("comm", "wchan", "syscall"):
                    words.append(_read(f"/proc/{self.pid}/task/{task}/{what}").strip())
                file.write(" ".join(words) + "\n")


def _read(path):
    try:
        with open(path) as file:
            return file.read()
    except OSError:
        return ""


def processes():
    """Pid, parent and state of every process."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        fields = _read(f"/proc/{pid}/stat").rpartition(")")[2].split()
        if fields:
            yield int(pid), int(fields[1]), fields[0]


def _orphans():
    """The processes that lost their parent and still run. Those that have ended are reaped."""
    running = []
    for pid, parent, state in processes():
        if parent != os.getpid() or pid in _living:
            continue
        if state == "Z":
            os.waitpid(pid, os.WNOHANG)
        else:
            running.append(pid)
    return running


def end_all():
    """Ends what still runs. The names of orphans that should have ended by themselves."""
    for program in list(_living.values()):
        program.kill()
    deadline = time.monotonic() + PATIENCE / 2
    while (left := _orphans()) and time.monotonic() < deadline:
        time.sleep(0.02)
    names = [f"{_read(f'/proc/{pid}/comm').strip()} ({pid})" for pid in left]
    while left:
        for pid in left:
            os.kill(pid, signal.SIGKILL)
        time.sleep(0.02)
        left = _orphans()
    return names


def until(is_so, what, patience=PATIENCE):
    """Waits until `is_so()` is true and returns its value."""
    deadline = time.monotonic() + patience
    while not (value := is_so()):
        if time.monotonic() > deadline:
            raise Fault(f"{what}: not within {patience} s")
        time.sleep(0.01)
    return value
