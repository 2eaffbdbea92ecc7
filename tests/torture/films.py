"""Damaged films, and things that are no films, as a sensor or a microphone."""
import os
import subprocess

from .processes import Fault
from .rounds import SMALL

_FORMS = (("mkv", "libx264", "aac"), ("mp4", "libx264", "aac"), ("mov", "mjpeg", "pcm_s16le"),
          ("avi", "mpeg4", "mp2"), ("ts", "libx264", "mp2"), ("mpg", "mpeg1video", "mp2"))


def _make_film(random, path, video, sound):
    size, rate = random.choice(("160x120", "320x240", "98x66")), random.choice((25, 30))
    subprocess.run(
        ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=s={size}:r={rate}:d=2",
         "-f", "lavfi", "-i", "sine=r=48000:d=2", "-c:v", video, "-c:a", sound, "-threads", "1",
         "-pix_fmt", "yuvj420p" if video == "mjpeg" else "yuv420p", "-strict", "-1",
         "-fflags", "+bitexact", "-flags", "+bitexact", path], check=True, timeout=60)


def _damage(random, data):
    """Bytes with flipped bits, overwritten, cut, missing or repeated pieces."""
    data = bytearray(data)
    for _ in range(random.choice((1, 1, 2, 5))):
        way = random.choice(("flips", "flips", "head", "noise", "cut", "gap", "repeat"))
        at = random.randrange(len(data))
        size = min(len(data) - at, random.choice((1, 16, 300, 5000)))
        if way == "flips":
            for _ in range(random.choice((1, 10, 100, 1000))):
                data[random.randrange(len(data))] ^= 1 << random.randrange(8)
        elif way == "head":
            for _ in range(random.randint(1, 20)):
                data[random.randrange(min(len(data), 2000))] = random.randrange(256)
        elif way == "noise":
            data[at:at + size] = random.randbytes(size)
        elif way == "cut" and at > 0:
            del data[at:]
        elif way == "gap" and size < len(data):
            del data[at:at + size]
        elif way == "repeat":
            data[at:at] = data[at:at + size] * random.choice((1, 20))
    return bytes(data)


def _strange(round):
    """A path to what is no film."""
    path = round.path("strange")
    way = round.random.choice(("fifo", "folder", "empty", "playlist", "script", "zeros", "noise"))
    if way in ("fifo", "playlist", "script"):
        os.mkfifo(round.path("fifo.ts"))
    if way == "fifo":
        return round.path("fifo.ts")
    if way == "folder":
        return round.folder
    if way == "zeros":
        return "/dev/zero"
    text = {"playlist": "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nfifo.ts\n#EXT-X-ENDLIST\n",
            "script": "ffconcat version 1.0\nfile fifo.ts\n", "empty": ""}.get(way)
    path += {"playlist": ".m3u8", "script": ".ffconcat"}.get(way, ".mkv")
    with open(path, "wb") as file:
        file.write(round.random.randbytes(20000) if text is None else text.encode())
    return path


def _film(round):
    if round.random.random() < 0.25:
        return _strange(round)
    end, video, sound = round.random.choice(_FORMS)
    path = round.path(f"film.{end}")
    _make_film(round.random, path, video, sound)
    with open(path, "rb") as file:
        damaged = _damage(round.random, file.read())
    with open(path, "wb") as file:
        file.write(damaged)
    return path


def damaged_films(round):
    """A film with damage plays as far as it can; the real-time side goes on for others."""
    is_shared = round.random.random() < 0.5
    side = round.listen() if is_shared else None
    witness = round.witness() if is_shared else None
    film = _film(round)
    kind = round.random.choice(((("h264", *SMALL), "mkv"), (("h264", "aac", *SMALL), "mkv"),
                                (("jpeg", *SMALL), "mjpeg"), (("pcm",), "wav"),
                                (("aac",), "aac")))
    words = []
    if kind[0][0] not in ("pcm", "aac"):
        words += ["--sensor", film]
    if {"pcm", "aac"} & set(kind[0]):
        words += ["--mic", film]
    client = round.capture(*words, "--once", "--unpaced", name="player", kind=kind, board=is_shared)
    client.fail("", may_succeed=True)
    if "real-time side is gone" in client.said():
        raise Fault(f"the film has ended the real-time side: {client.said().strip()[-300:]!r}")
    if os.path.exists(client.output) and os.path.getsize(client.output) > 64 << 20:
        raise Fault(f"a film of 2 s makes {os.path.getsize(client.output)} bytes")
    if is_shared:
        witness.finish()
        round.end_side(side)
