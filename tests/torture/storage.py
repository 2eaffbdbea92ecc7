"""The disk is full, or a file may not grow; a film is damaged."""
import os
import resource
import subprocess

from .rounds import KINDS

_FULL = "No space left|File too large|cannot write|cannot finish|cannot open"


def _tmpfs(round, size_bytes):
    """A small file system; None without the right to mount one."""
    folder = round.path("disk")
    os.mkdir(folder)
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size_bytes}", "none", folder],
                             capture_output=True, check=False)
    if mounted.returncode != 0:
        return None
    round.mounts.append(lambda: subprocess.run(["umount", "-l", folder], check=False))
    return folder


def full_disk(round):
    """The disk fills up under a capture; of the same real-time side another one goes on."""
    side = round.listen()
    witness = round.witness()
    kind = round.random.choice(KINDS[:6])
    size = round.random.choice((4, 16, 64, 256)) * 1024
    way = round.random.choice(("tmpfs", "limit", "late limit", "device"))
    folder = _tmpfs(round, size) if way == "tmpfs" else None
    how = {}
    if way == "limit":
        how = {"limits": [(resource.RLIMIT_FSIZE, size)]}
    elif way == "device":
        how = {"target": round.path(f"device.{kind[1]}")}
        os.symlink("/dev/full", how["target"])
    elif folder:
        how = {"target": os.path.join(folder, f"film.{kind[1]}")}
    client = round.capture(name="full", kind=kind, board=True, **how)
    client.output = None if way == "device" else how.get("target", client.output)
    if not how:
        client.reach(3)
        resource.prlimit(client.pid, resource.RLIMIT_FSIZE, (size, size))
    client.fail(_FULL, is_torn=True)
    witness.finish()
    round.end_side(side)
