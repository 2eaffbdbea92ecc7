"""A client that breaks every rule of the wire, and a real-time side that does."""
import os
import select
import signal
import socket
import time

from . import wire
from .judging import judge_end, judge_frames, read_log
from .processes import PATIENCE, Fault
from .rounds import KINDS

_MOST_BYTES = 256 << 20
_HELLO = "cmd=hello,version=1,base=0x100000"
_CREATE = (
    "type=Application,layout={type=pipeline,layout={%s+ShmSink:name=shmsink,session_name=s1,"
    "init=true}},status=%s,cmd=tesselCreate,sessions={s1={offset=%s,size=%s}},"
    "blocks={%s=%s},board={sensor=test,mic=test,loop=true,paced=true,slots=%s}")
_PLACES = (8192, 33554432, 4096, 744, 8)  # session and its size, block and its size, slots
_CHAINS = (
    "pv-yuv-src-adv:w=160,h=120+h264-encoder-dma:name=h264,goptype=IPPP,gop=15,qp=0,vbrc=0x101000,"
    "fr=30,clk=400000", "pv-yuv-src-adv:w=160,h=120")
_OTHERS = ("cmd=tesselMedia,object_base=0x%x", "cmd=tesselStatus,object_base=0x%x,status=play",
           "cmd=tesselDestroy,object_base=0x%x", "cmd=tesselList",
           "cmd=tesselSet,stream=%d,word=qp_max,value=40",
           "cmd=tesselRequest,stream=%d,word=keyframe_req", "cmd=ProbeAudioDriver,devType=%d",
           "cmd=SetAudioDriver,devType=Microphone,object_base=0x%x,vol=40", "")


class _Intruder:
    def __init__(self, round):
        self._random = round.random
        self._window = wire.make_window()
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._socket.connect(round.path("board"))
        self._bells = [os.eventfd(0, os.EFD_NONBLOCK), os.eventfd(0, os.EFD_NONBLOCK)]
        if self._random.random() < 0.9:
            self._hello()

    def _hello(self):
        self._send(wire.HEAD.pack(wire.REQUEST, 1) + _HELLO.encode(), [self._window])

    def _create(self):
        random, places = self._random, list(_PLACES)
        way = random.random()
        if way < 0.4:
            places[random.randrange(len(places))] = random.choice(
                (wire.extreme(random), random.randrange(1 << 27), 1 << random.randrange(64)))
        text = _CREATE % (random.choice(_CHAINS), random.choice(("ready", "play", "play")), *places)
        if way > 0.7:
            text = wire.mutate(random, text)
        self._send(wire.HEAD.pack(wire.REQUEST, 2) + text.encode("latin-1"), self._bells)

    def step(self):
        random = self._random
        way = random.randrange(12)
        if way == 0:
            self._hello()
        elif way <= 3:
            self._create()
        elif way <= 7:
            text = random.choice(_OTHERS)
            text = text % random.randrange(1, 40) if "%" in text else text
            if random.random() < 0.5:
                text = wire.mutate(random, text)
            self._send(wire.message(random, text))
        elif way == 8:
            self._send(wire.message(random, random.choice((_HELLO, "cmd=tesselCreate"))),
                       wire.hostile_descriptors(random), True)
        elif way == 9:
            self._send(random.randbytes(random.choice((1, 7, 8, 100, 100_000))))
        elif way == 10:
            wire.scribble(random, self._window, [(8192, self._bells[1])])
        elif random.random() < 0.5:  # else its answers pile up
            self._read()

    def _send(self, data, fds=(), closes=False):
        wire.send(self._socket, data, fds)
        for fd in fds if closes else ():
            os.close(fd)

    def _read(self):
        while select.select([self._socket], [], [], 0)[0]:
            try:
                data, fds = wire.receive(self._socket)
            except OSError:
                return
            for fd in fds:
                os.close(fd)
            if not data:
                return

    def close(self):
        self._socket.close()
        for fd in (self._window, *self._bells):
            os.close(fd)


def hostile_client(round):
    """Clients that send nonsense; another one does not notice."""
    side = round.listen()
    witness = round.witness()
    intruders = [_Intruder(round) for _ in range(round.random.randint(1, 4))]
    for _ in range(round.random.choice((30, 200))):
        round.random.choice(intruders).step()
        if round.random.random() < 0.1:
            round.pause(0.05)
    witness.go_on()
    for intruder in intruders:
        intruder.close()
    round.witness().finish()
    witness.finish()
    round.end_side(side)


class _Proxy:
    """Stands between a client and the real-time side, and changes what passes."""

    def __init__(self, round, behaviour):
        self._random = round.random
        self._behaviour = behaviour
        self._rate = round.random.choice((0.02, 0.1, 0.5))
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(round.path("proxy"))
        self._listener.listen()
        self._board = round.path("board")
        self._peers = {}  # socket: the one that its messages go to
        self._sides = set()
        self._window = None
        self._sessions = []  # offset in the window, and bell of its reader

    def pump(self, seconds):
        """Passes on messages for a while."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            ready = select.select([self._listener, *self._peers], [], [], min(left, 0.02))[0]
            for sock in ready:
                if sock is self._listener:
                    self._accept()
                elif sock in self._peers:
                    self._pass(sock)
            if self._behaviour == "scribbles" and self._sessions and self._random.random() < 0.3:
                wire.scribble(self._random, self._window, self._sessions)

    def _accept(self):
        client = self._listener.accept()[0]
        side = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        side.connect(self._board)
        self._peers[client], self._peers[side] = side, client
        self._sides.add(side)

    def _pass(self, sock):
        try:
            data, fds = wire.receive(sock)
        except OSError:
            data, fds = b"", []
        if not data:
            self._drop(sock)
            return
        is_answer = sock in self._sides
        if not is_answer:
            self._look(data, fds)
        if is_answer and self._behaviour != "scribbles" and self._random.random() < self._rate:
            self._harm(sock, data)
        else:
            wire.send(self._peers[sock], data, fds)
        for fd in fds:
            os.close(fd)

    def _look(self, data, fds):
        text = data[wire.HEAD.size:].decode("latin-1")
        if "cmd=hello" in text and len(fds) == 1 and self._window is None:
            self._window = os.dup(fds[0])
        if "cmd=tesselCreate" in text:
            self._sessions += zip(wire.areas_in(text), map(os.dup, fds[::2]))

    def _harm(self, sock, data):
        random, client = self._random, self._peers[sock]
        if self._behaviour == "leaves":
            self._drop(sock)
        elif self._behaviour == "mutates":
            text = wire.mutate(random, data[wire.HEAD.size:].decode("latin-1"))
            head = data[:wire.HEAD.size] if random.random() < 0.7 else random.randbytes(8)
            fds = wire.hostile_descriptors(random)
            wire.send(client, (head + text.encode("latin-1"))[:200_000], fds)
            for fd in fds:
                os.close(fd)
        elif self._behaviour == "babbles":
            for _ in range(random.choice((1, 10, 300))):
                wire.send(client, random.choice((
                    wire.HEAD.pack(wire.EVENT, 0) + b"event=end,object_base=0x%x" %
                    random.randrange(9), wire.HEAD.pack(wire.ANSWER, random.randrange(20)),
                    wire.message(random, "cmd=hello"), random.randbytes(50))))
            wire.send(client, data)
        # "withholds": the answer never comes.

    def _drop(self, sock):
        other = self._peers.pop(sock)
        self._peers.pop(other, None)
        sock.close()
        other.close()

    def close(self):
        for sock in [self._listener, *self._peers]:
            sock.close()
        if self._window is not None:
            os.close(self._window)
        for _, bell in self._sessions:
            os.close(bell)


def hostile_side(round):
    """The real-time side answers wrongly, never, or writes noise into the shared memory."""
    side = round.listen()
    behaviour = round.random.choice(("mutates", "babbles", "withholds", "leaves", "scribbles",
                                     "scribbles"))
    proxy = _Proxy(round, behaviour)
    kind = round.random.choice((*KINDS, (("pcm",), "wav")))
    client = round.capture("--rtos", round.path("proxy"), name=behaviour, kind=kind)
    interrupt = time.monotonic() + round.random.uniform(0.5, 2)
    deadline = interrupt + PATIENCE
    while client.code() is None and (now := time.monotonic()) < deadline:
        proxy.pump(0.05)
        if now > interrupt and signal.SIGINT not in client.signals:
            client.signal(signal.SIGINT)
        if os.path.exists(client.output) and os.path.getsize(client.output) > _MOST_BYTES:
            client.kill()
            raise Fault(f"a capture of some seconds has more than {_MOST_BYTES} bytes")
    judge_end(client, client.wait(1), may_fail=True, because="")
    proxy.close()
    frames = read_log(client.log)
    if behaviour in ("withholds", "leaves"):
        judge_frames(frames)
        client.judge_file()
    round.witness().finish()
    round.end_side(side)
