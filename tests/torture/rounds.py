"""One round of a scenario: a folder of its own, and the verbs that scenarios are written in."""
import os
import random
import shutil
import signal
import time

from . import processes
from .judging import crashes, judge_end, judge_frames, judge_media, read_log
from .processes import Fault, Program, until

SMALL = ("--width", 160, "--height", 120)
# What to capture, and into which container: each takes a frame at a time, so a file is never half
# a frame behind its log.
KINDS = (
    (("h264", *SMALL, "--fps", 100), "mkv"),
    (("h264", *SMALL, "--fps", 60, "--goptype", "IP"), "h264"),
    (("h264-vbrc", *SMALL, "--capture-fps", 100, "--fps", 50), "mkv"),
    (("h264-push", *SMALL, "--fps", 100), "mkv"),
    (("jpeg", *SMALL, "--fps", 50), "mjpeg"),
    (("yuv", *SMALL), "y4m"),
    (("aac",), "aac"),
    (("h264", "aac", *SMALL, "--fps", 60), "mkv"),
    (("jpeg", "pcm", *SMALL, "--fps", 60), "mkv"),
)


class Capture(Program):
    """`tessel capture` with a frame log."""

    def __init__(self, folder, name, binaries, kind, more, *, target=None, **how):
        """`target`: what it writes to instead of its file."""
        kind, extension = kind
        self.first = kind[0]
        self.output = os.path.join(folder, f"{name}.{extension}")
        self.log = os.path.join(folder, f"{name}.jsonl")
        words = [os.path.join(binaries, "tessel"), "capture", *kind, "-q",
                 "--frame-log", self.log, "-o", target or self.output, *more]
        super().__init__(folder, name, words, **how)

    def frames(self):
        """What its log has so far."""
        return read_log(self.log, is_torn=True)

    def reach(self, count):
        """Waits for `count` frames in all, or for its end."""
        until(lambda: len(self.frames()) >= count or self.code() is not None,
              f"{self.name} has {len(self.frames())} frames, not {count}")

    def go_on(self, count=15):
        """It runs, and `count` more frames come."""
        self.reach(len(self.frames()) + count)
        if self.code() is not None:
            raise Fault(f"{self.name} ended with {self.code()}: {self.said().strip()[-300:]!r}")

    def judge_file(self, is_torn=False):
        frames = read_log(self.log, is_torn)
        judge_frames(frames)
        if frames and self.output:
            judge_media(self.output, [f for f in frames if f.get("source") in (None, self.first)],
                        is_torn)

    def finish(self):
        """Ends it by Ctrl-C. It was never disturbed, so everything about it is whole."""
        self.go_on()
        self.signal(signal.SIGINT)
        judge_end(self, self.wait())
        self.judge_file()

    def fail(self, because, *, may_succeed=False, is_torn=False):
        """It ends by itself and says why; what it has written plays."""
        code = self.wait()
        if code == 0 and not may_succeed:
            raise Fault(f"{self.name} ended with 0 in spite of the fault")
        judge_end(self, code, may_fail=True, because=because)
        self.judge_file(is_torn)


class Round:
    """`random` is the round's own: the same for the same seed, scenario and number."""

    def __init__(self, name, seed, folder, binaries):
        self.random = random.Random(f"{seed}/{name}")
        self.folder = folder
        self.binaries = binaries
        self.mounts = []
        self._programs = []
        self._names = set()
        os.makedirs(os.path.join(folder, "tmp"))

    def path(self, name):
        return os.path.join(self.folder, name)

    def _free_name(self, name):
        number = 1
        while f"{name}{number}" in self._names:
            number += 1
        self._names.add(f"{name}{number}")
        return f"{name}{number}"

    def run(self, words, *, name=None, **how):
        """Starts one of the programs, which `words` begins with."""
        program, *rest = words
        self._programs.append(Program(self.folder, self._free_name(name or program),
                                      [os.path.join(self.binaries, program), *rest], **how))
        return self._programs[-1]

    def listen(self, **how):
        """A real-time side at `board`, that serves already."""
        board = self.path("board")
        side = self.run(["tessel-rtos", "--listen", board], **how)
        before = os.stat(board).st_ino if os.path.exists(board) else 0
        until(lambda: side.code() is not None or
              os.path.exists(board) and os.stat(board).st_ino != before, "tessel-rtos listens")
        if side.code() is not None:
            raise Fault(f"tessel-rtos ended with {side.code()}: {side.said().strip()!r}")
        return side

    def end_side(self, side):
        """Ends the real-time side, which the round must have left alive."""
        side.signal(signal.SIGTERM)
        judge_end(side, side.wait())
        if os.path.exists(self.path("board")):
            raise Fault("tessel-rtos has left its socket behind")

    def capture(self, *more, name="capture", kind=None, board=False, **how):
        """Starts a capture; of a kind by chance unless told. `board`: of listen()'s side."""
        if board:
            more = ("--rtos", self.path("board"), *more)
        self._programs.append(Capture(self.folder, self._free_name(name), self.binaries,
                                      kind or self.random.choice(KINDS), more, **how))
        return self._programs[-1]

    def witness(self):
        """Another client of the same real-time side, which goes on whatever happens to others."""
        kind = KINDS[self.random.choice((0, 3, 4))]
        for _ in range(3):
            witness = self.capture(name="witness", kind=kind, board=True)
            try:
                witness.go_on()
                return witness
            except Fault as fault:
                # A machine that is too busy for the time-out of a command is no fault.
                if "no answer within" not in witness.said():
                    raise
                failure = fault
        raise failure

    def pause(self, most):
        time.sleep(self.random.uniform(0, most))

    def close(self):
        """Ends everything. Crashes, and what should have been gone by itself, in words."""
        leftovers = [f"{name} still runs" for name in processes.end_all()]
        leftovers += [words for program in self._programs for words in crashes(program)]
        while self.mounts:
            self.mounts.pop()()
        leftovers += [f"tmp/{name} is left behind" for name in os.listdir(self.path("tmp"))]
        return leftovers

    def remove(self):
        shutil.rmtree(self.folder, ignore_errors=True)
