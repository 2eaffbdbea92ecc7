"""Clients of all sorts come and go, politely or not, beside one that stays."""
import json
import signal

from .judging import judge_end
from .processes import Fault, until


def _words(round):
    """A command of `tessel` for a real-time side that runs already."""
    number = round.random.randrange(1, 100)
    return round.random.choice((
        ("top", "--json", "--interval", "0.05", "--count", 3), ("devices",),
        ("snap", f"file://{round.folder}/snap.jpeg", "--size", "320x240"),
        ("set", 1, f"bitrate={number}k"), ("key", 1), ("volume", "mic", number),
        ("mute", "speaker", "on")))


def _end(round, client):
    """Ends a client in one of the ways that a user has; how it then may end."""
    way = round.random.choice(("wait", "kill", "interrupt", "twice", "terminate", "hangup"))
    if way == "wait" and client.name.startswith("capture"):
        way = "interrupt"
    number = {"kill": signal.SIGKILL, "terminate": signal.SIGTERM,
              "hangup": signal.SIGHUP}.get(way, signal.SIGINT)
    if way != "wait":
        client.signal(number)
        if way == "twice":
            round.pause(0.4)
            client.signal(number)
    code = client.wait()
    # A signal before the tool watches for them, or a second one, ends it as signals do.
    if code in (-number, 128 + number) and way != "wait":
        return
    judge_end(client, code, may_fail=True, because="")


def _streams(round):
    """What `tessel top` shows of all streams."""
    top = round.run(["tessel", "top", "--json", "--count", 1, "--rtos", round.path("board")])
    judge_end(top, top.wait())
    return [json.loads(line) for line in top.said("out").splitlines()]


def churn(round):
    """Twenty clients at most four at a time; then nothing of them is left in the real-time side."""
    side = round.listen()
    witness = round.witness()
    threads, descriptors = side.threads(), side.descriptors()
    clients = []
    for _ in range(20):
        if round.random.random() < 0.5:
            clients.append(round.capture(board=True))
        else:
            clients.append(round.run(["tessel", *_words(round), "--rtos", round.path("board")]))
        round.pause(0.15)
        if len(clients) == 4:
            _end(round, clients.pop(round.random.randrange(4)))
    for client in clients:
        _end(round, client)
    until(lambda: side.threads() <= threads and side.descriptors() <= descriptors,
          "threads and descriptors of clients that are gone go, too")
    if len(streams := _streams(round)) != 1:
        raise Fault(f"{len(streams)} streams are listed, one client is left")
    witness.finish()
    round.end_side(side)
