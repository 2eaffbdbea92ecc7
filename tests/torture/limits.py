"""Too few descriptors, too little memory, and no standard descriptors."""
import os
import re
import resource
import signal
import socket

from . import wire
from .judging import judge_end
from .processes import Fault

_MIB = 1 << 20


def _end_limited(client):
    """A client that may have met its limit: it works, or it says what it lacks."""
    client.reach(10)
    client.signal(signal.SIGINT)
    code = client.wait()
    if code == 127 and "loading shared libraries" in client.said():
        return  # the limit did not even let it start
    judge_end(client, code, may_fail=True, because="")
    client.judge_file()


def limited_client(round):
    """A client with few descriptors or little memory, and a real-time side of its own or not."""
    is_shared = round.random.random() < 0.5
    side = round.listen() if is_shared else None
    witness = round.witness() if is_shared else None
    if round.random.random() < 0.5:
        limit = (resource.RLIMIT_NOFILE, round.random.randint(3, 30))
    else:
        limit = (resource.RLIMIT_AS, round.random.randint(200, 6000) * _MIB)
    _end_limited(round.capture(name="limited", board=is_shared, limits=[limit]))
    if is_shared:
        witness.finish()
        round.end_side(side)


def _memory_of(side, word):
    """VmSize or VmData, in bytes."""
    with open(f"/proc/{side.pid}/status") as file:
        return int(re.search(rf"{word}:\s+(\d+) kB", file.read()).group(1)) * 1024


def _limit(round, side):
    """A resource of the real-time side, and a limit just above what it uses."""
    way = round.random.choice(("descriptors", "addresses", "data"))
    if way == "descriptors":
        return resource.RLIMIT_NOFILE, side.descriptors() + round.random.choice((0, 0, 1, 3, 9))
    # None, some for a message, some beside a thread's stack of 8 MiB, some beside a window.
    spare = (round.random.choice((0, 8, 8, 16, 24, 4096)) + round.random.uniform(0, 1)) * _MIB
    if way == "addresses":
        return resource.RLIMIT_AS, _memory_of(side, "VmSize") + spare
    return resource.RLIMIT_DATA, _memory_of(side, "VmData") + spare


def limited_side(round):
    """A real-time side runs short of descriptors or memory while clients come and go; then it has
    enough again, and serves new ones."""
    side = round.listen()
    witness = round.witness()
    clients = [round.capture(name="limited", board=True) for _ in range(round.random.randint(0, 3))]
    # One that has been: its thread's stack is used again, without a question for memory.
    gone = round.run(["tessel", "devices", "--rtos", round.path("board")], name="gone")
    judge_end(gone, gone.wait())
    talker = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    talker.connect(round.path("board"))
    wire.send(talker, wire.HEAD.pack(wire.REQUEST, 1))
    talker.recv(100)  # now it has its thread
    round.pause(0.2)
    what, most = _limit(round, side)
    before = resource.prlimit(side.pid, what)
    resource.prlimit(side.pid, what, (int(most), before[1]))
    clients += [round.capture(name="limited", board=True) for _ in range(round.random.randint(1, 3))]
    # Some thousand pieces of memory for a message, more than there is.
    for count in (10, 1000, 12000):
        text = ",".join(f"k{i}={'v' * (60_000 // count)}" for i in range(count))
        wire.send(talker, wire.HEAD.pack(wire.REQUEST, 2) + text.encode())
    talker.close()
    for client in clients:
        client.reach(1)
        client.signal(signal.SIGINT)
        judge_end(client, client.wait(), may_fail=True, because="")
    if what == resource.RLIMIT_NOFILE:
        witness.go_on()
    resource.prlimit(side.pid, what, before)
    for client in clients:
        client.judge_file()
    round.witness().finish()
    if what == resource.RLIMIT_NOFILE or witness.code() is None:
        witness.finish()
    round.end_side(side)


def _judge_standard(name, pid):
    """What stands at the standard descriptors may be written to without harm."""
    for number in (0, 1, 2):
        try:
            target = os.readlink(f"/proc/{pid}/fd/{number}")
        except OSError:
            continue
        if target != "/dev/null" and not target.endswith((".out", ".err")):
            raise Fault(f"{name} has {target} as its descriptor {number}")


def closed_descriptors(round):
    """Both sides start without some of the standard descriptors; none of their own takes the place
    of one, so that nothing they say lands in it."""
    def some():
        return [number for number in (0, 1, 2) if round.random.random() < 0.6]
    is_shared = round.random.random() < 0.7
    how = {"variables": {"QUILL_DEBUG": "trace"}} if round.random.random() < 0.7 else {}
    side = round.listen(closed=some()) if is_shared else None
    client = round.capture(board=is_shared, closed=some(), **how)
    client.go_on(30)
    _judge_standard(client.name, client.pid)
    if own := side.pid if side else client.child():
        _judge_standard("tessel-rtos", own)
    client.signal(signal.SIGINT)
    if (code := client.wait()) != 0:
        raise Fault(f"{client.name} ended with {code}: {client.said().strip()[-300:]!r}")
    client.judge_file()
    if is_shared:
        round.witness().finish()
        round.end_side(side)
