"""What a capture promises under a fault: how it ends, what it logs, and that its file plays."""
import json
import os
import re
import signal
import subprocess

from .processes import Fault

# Of files that are too short to be told by their contents.
_FORMATS = {"aac": "aac", "h264": "h264", "mjpeg": "mjpeg"}
# What no program may ever say.
_CRASH = re.compile(r"Sanitizer|terminate called|Assertion|stack smashing|double free|corrupted")


def read_log(path, is_torn=False):
    """The frames of a frame log. `is_torn`: its writer was killed, so the last line may be cut."""
    if not os.path.exists(path):
        return []
    with open(path, errors="replace") as file:
        lines = file.read().split("\n")
    tail = lines.pop()
    if tail and not is_torn:
        raise Fault(f"the frame log ends in half a line: {tail!r}")
    try:
        return [json.loads(line) for line in lines]
    except ValueError as error:
        raise Fault(f"the frame log has a line that is not JSON: {error}") from None


def judge_frames(frames):
    """Sequence and times rise within each source, and no frame is empty."""
    last = {}
    for number, frame in enumerate(frames):
        before = last.get(frame.get("source"))
        if frame["size"] <= 0:
            raise Fault(f"frame {number} is empty: {frame}")
        for key in ("seq", "timestamp"):
            if before and frame[key] <= before[key]:
                raise Fault(f"frame {number}: {key} {frame[key]} follows {before[key]}")
        last[frame.get("source")] = frame


def judge_media(path, frames, is_torn=False):
    """Every frame of the file decodes, and its first stream has `frames`. `is_torn`: its writer was
    killed, so the file may end within a frame, and without what the muxer had not interleaved."""
    form = _FORMATS.get(path.rpartition(".")[2])
    probe = subprocess.run(
        ["ffprobe", "-v", "error", "-count_frames", "-show_entries",
         "stream=codec_type,nb_read_frames", "-of", "json", *(["-f", form] if form else []), path],
        capture_output=True, text=True, errors="replace", timeout=60, check=False)
    if not is_torn and (probe.returncode != 0 or probe.stderr):
        raise Fault(f"{os.path.basename(path)} does not play: {probe.stderr.strip()[:200]}")
    streams = json.loads(probe.stdout or "{}").get("streams", [])
    counts = [int(stream.get("nb_read_frames", 0)) for stream in streams]
    # The reader of bare samples cuts them as it likes.
    least = len(frames) if not path.endswith(".wav") else 1
    if is_torn:  # the decoder may give up the frame in front of the cut, too
        least -= 2 if frames and "source" not in frames[0] else 60
    if not counts and least > 0 or counts and counts[0] < least:
        raise Fault(f"{os.path.basename(path)}: {counts} frames play, {len(frames)} were written")


def crashes(program):
    """What it died of, in words, unless it was told to."""
    code = program.code()
    if code is not None and code < 0 and -code not in program.signals:
        yield f"{program.name} was ended by signal {-code}"
    if crash := _CRASH.search(program.said()):
        yield f"{program.name} says: {program.said()[crash.start():][:200].strip()}"


def judge_end(program, code, *, may_fail=False, because=""):
    """The program ended by itself: with 0, or, where it may fail, with 1 and a line that tells why.
    `because`: an expression that the line has to match."""
    log = getattr(program, "log", "")
    if code == 0 or code == -signal.SIGINT and -code in program.signals and not os.path.exists(log):
        return  # the latter: interrupted before it was ready for that
    words = f"{program.name} ended with {code}: {program.said().strip()[-300:]!r}"
    if code != 1 or not may_fail:
        raise Fault(words)
    lines = [line for line in program.said().splitlines() if re.match(r"tessel(-rtos)?: \S", line)]
    if not lines or not re.search(because, "\n".join(lines)):
        raise Fault(f"{words}; no line that says \"{because}\"")
