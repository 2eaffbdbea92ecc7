"""The command wire as a peer sees it that keeps to no rule."""
import array
import fcntl
import mmap
import os
import re
import socket
import struct

HEAD = struct.Struct("=II")  # kind, number
REQUEST, ANSWER, EVENT = 1, 2, 3
_LARGEST = 1 << 18  # bytes, twice what a message may have
_WINDOW_BYTES = 64 << 20
_F_ADD_SEALS, _SEALS = 1033, 1 | 2 | 4  # against sealing, shrinking and growing
_NUMBERS = ("-1", "0", "1", "7", "63", "64", "4095", "65535", "2147483647", "-2147483648",
            "4294967296", "18446744073709551615", "9999999999999999999999", "1e9", "0x", "0x101000",
            "nan", "")


def make_window():
    window = os.memfd_create("hostile", os.MFD_ALLOW_SEALING)
    os.ftruncate(window, _WINDOW_BYTES)
    fcntl.fcntl(window, _F_ADD_SEALS, _SEALS)
    return window


def receive(sock):
    """Bytes and descriptors of a message; no bytes: the peer is gone."""
    data, fds, _, _ = socket.recv_fds(sock, _LARGEST, 16)
    return data, fds


def send(sock, data, fds=()):
    """False when the peer does not take it."""
    control = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", fds))] if fds else []
    try:
        sock.sendmsg([data], control, socket.MSG_DONTWAIT | socket.MSG_NOSIGNAL)
    except (BlockingIOError, BrokenPipeError, ConnectionResetError, OSError):
        return False
    return True


def mutate(random, text):
    """A text near the given one: other numbers, other braces, pieces gone, twice or elsewhere."""
    for _ in range(random.choice((1, 1, 2, 4))):
        way = random.randrange(7)
        at, end = sorted(random.randrange(len(text) + 1) for _ in range(2))
        numbers = list(re.finditer(r"\d+", text))
        if way <= 1 and numbers:
            number = random.choice(numbers)
            text = text[:number.start()] + random.choice(_NUMBERS) + text[number.end():]
        elif way == 2:
            text = text[:at] + text[end:]
        elif way == 3:
            text = text[:end] + text[at:]
        elif way == 4:
            text = text[:at] + random.choice("{}=,+:\0\n\xff ") * random.choice((1, 1, 70)) + text[at:]
        elif way == 5:
            pairs = text.split(",")
            random.shuffle(pairs)
            text = ",".join(pairs)
        else:
            text = text[:at] + "x" * random.choice((1, 300, 140000)) + text[at:]
    return text


def message(random, text):
    """The text in a message, or in what is none."""
    kind = random.choice((REQUEST, REQUEST, REQUEST, REQUEST, ANSWER, EVENT, 0, 0xffffffff))
    data = HEAD.pack(kind, random.randrange(1 << 32)) + text.encode("latin-1", "replace")
    if random.random() < 0.1:
        data = data[:random.randrange(1, 12)]
    return data[:200_000]


def hostile_descriptors(random):
    """Descriptors of the wrong kind or number. The caller closes them."""
    fds = []
    for _ in range(random.choice((0, 1, 2, 2, 3, 8, 9, 200))):
        way = random.randrange(6)
        if way == 0:
            fds.append(os.open(random.choice(("/dev/null", "/dev/zero", "/proc/self/status", "/")),
                               os.O_RDONLY))
        elif way == 1:
            fds.append(os.eventfd(0))
            if random.random() < 0.5:
                os.eventfd_write(fds[-1], (1 << 64) - 2)  # one more would block
        elif way == 2:
            fds += os.pipe()
        elif way == 3:
            fds.append(os.memfd_create("loose"))
        elif way == 4:
            fds.append(make_window())
        else:
            fds.append(os.open("/", os.O_PATH))
    return fds


def scribble(random, window, sessions):
    """Noise in the rings and words of session areas, or in the rate-control blocks in front of them.
    `sessions`: offset of each area in the window, and the bell that wakes its reader."""
    with mmap.mmap(window, 0) as memory:
        if random.random() < 0.2:
            at = 4 * random.randrange(sessions[0][0] // 4)
            memory[at:at + 4] = random.choice((random.randbytes(4), b"\xff\xff\xff\x7f"))
        for area, bell in sessions:
            for _ in range(random.choice((1, 4, 40))):
                # The words of both sides, or of a descriptor: offset, time, size and number, slot.
                word = random.choice((8, 16, *[128 + random.randrange(256)] * 8))
                memory[area + 8 * word:area + 8 * word + 8] = random.choice((
                    random.randbytes(8), b"\xff" * 8, b"\0" * 8, b"\xff" * 7 + b"\x7f",
                    struct.pack("=q", 1 << random.randrange(63)),
                    struct.pack("=q", random.randrange(1 << 28))))
                if word >= 128 and word % 4 == 2:  # small enough to be kept, or outside of the area
                    size = random.choice((0, 1, 5000, 1 << 29, 0xffffffff))
                    struct.pack_into("=I", memory, area + 8 * word, size)
            # As if some of them had just been announced.
            head = struct.unpack_from("=I", memory, area)[0] + random.choice((0, 1, 5, 63, 1 << 30))
            struct.pack_into("=I", memory, area, head & 0x7fffffff)
            os.eventfd_write(bell, 1)


def extreme(random):
    return random.choice(_NUMBERS)


def areas_in(text):
    """Offsets of the session areas that a creation hands out."""
    return [int(found) for found in re.findall(r"offset=(\d{1,15})", text)]
