"""Either side is killed, stopped, slow, or keeps what it gets."""
import fcntl
import os
import signal

from .judging import judge_end
from .processes import Fault, until
from .rounds import KINDS

_LOSS = "the real-time side is gone|cannot open|cannot start"


def kill_own_side(round):
    """The real-time side that the client has started is killed."""
    capture = round.capture()
    if round.random.random() < 0.8:
        capture.reach(round.random.randrange(1, 60))
    pid = until(lambda: capture.child() or capture.code() is not None, "a real-time side starts")
    if capture.code() is None:
        os.kill(pid, signal.SIGKILL)
    capture.fail(_LOSS)


def kill_client(round):
    """A client is killed, at once or amid frames; its own real-time side must end with it."""
    board = round.random.random() < 0.5
    side = round.listen() if board else None
    witness = round.witness() if board else None
    victim = round.capture(name="victim", board=board)
    if round.random.random() < 0.8:
        victim.reach(round.random.randrange(1, 60))
    else:
        round.pause(0.3)
    victim.signal(signal.SIGKILL)
    victim.wait()
    victim.judge_file(is_torn=True)
    if board:
        witness.finish()
        round.end_side(side)


def kill_shared_side(round):
    """A real-time side with several clients is killed; another one takes its place."""
    side = round.listen()
    captures = [round.capture(board=True) for _ in range(round.random.randint(1, 3))]
    for capture in captures:
        if round.random.random() < 0.8:
            capture.reach(round.random.randrange(1, 40))
    side.kill()
    for capture in captures:
        capture.fail(_LOSS)
    side = round.listen()
    round.witness().finish()
    round.end_side(side)


def stop(round):
    """The real-time side or a client is stopped for a while and goes on."""
    side = round.listen()
    witness = round.witness()
    other = round.capture(board=True, name="stopped")
    if round.random.random() < 0.7:
        other.reach(round.random.randrange(1, 30))
    stopped = round.random.choice((side, other))
    for _ in range(round.random.randint(1, 3)):
        stopped.signal(signal.SIGSTOP)
        round.pause(0.8)
        if stopped is other:
            witness.go_on()
        stopped.signal(signal.SIGCONT)
        round.pause(0.2)
    if other.code() is None and other.frames():
        other.finish()
    else:  # a command of its opening may have met the stop
        other.signal(signal.SIGINT)
        other.fail("cannot|interrupted before", may_succeed=True)
    witness.finish()
    round.end_side(side)


def slow(round):
    """A client whose output is read slowly, and then maybe no more."""
    side = round.listen()
    witness = round.witness()
    kind = round.random.choice((KINDS[1], KINDS[4]))
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    client = round.capture(name="slow", kind=kind, board=True, target="-", stdout=writer)
    os.close(writer)
    received = open(client.output, "wb")
    with received, os.fdopen(reader, "rb", buffering=0) as pipe:
        for _ in range(round.random.randint(1, 12)):
            received.write(pipe.read(round.random.randint(1, 65536)))
            received.flush()
            round.pause(0.1)
        witness.go_on()
        leaves = round.random.random() < 0.5
        if not leaves:
            client.signal(signal.SIGINT)
            while block := pipe.read(1 << 20):
                received.write(block)
    if leaves:
        client.fail("cannot write standard output", is_torn=True)
    else:
        judge_end(client, client.wait())
        client.judge_file()
    witness.finish()
    round.end_side(side)


def hold(round):
    """A client keeps all frames that it can get, and is killed with them."""
    side = round.listen()
    witness = round.witness()
    slots = round.random.randint(2, 24)
    holder = round.run(["tessel_tests", f"--hold={round.random.randint(1, slots)},{slots}"],
                       name="holder", variables={"TESSEL_RTOS_SOCKET": round.path("board")})
    until(lambda: holder.said("out") == "h" or holder.code() is not None, "frames are held")
    if holder.code() is not None:
        raise Fault(f"the holding client ended with {holder.code()}: {holder.said()[-300:]!r}")
    witness.go_on(30)
    holder.kill()
    round.witness().finish()
    witness.finish()
    round.end_side(side)
