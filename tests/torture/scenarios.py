"""The scenarios, in the order of the table that they are reported in."""
from . import churn, films, intruders, limits, sides, storage

# Name, the function that plays a round, what the round is judged by.
SCENARIOS = (
    ("kill-own-side", sides.kill_own_side, "its client ends, says why, and its file plays"),
    ("kill-client", sides.kill_client, "its file plays; its side ends, or serves another client"),
    ("kill-shared-side", sides.kill_shared_side, "clients end, say why; a new side takes the name"),
    ("stop", sides.stop, "the stopped one goes on; another client's frames and file"),
    ("slow", sides.slow, "what was read plays; another client's frames and file"),
    ("hold", sides.hold, "another client's frames and file"),
    ("full-disk", storage.full_disk, "the client says why, its file plays; another client's too"),
    ("damaged-films", films.damaged_films, "what is captured plays; the real-time side lives"),
    ("hostile-client", intruders.hostile_client, "other clients' frames and files"),
    ("hostile-side", intruders.hostile_side, "the client ends, and says why"),
    ("limited-client", limits.limited_client, "it works or says what it lacks; another client"),
    ("limited-side", limits.limited_side, "it serves new clients afterwards; another client"),
    ("closed", limits.closed_descriptors, "frames, and files without lines of the log in them"),
    ("churn", churn.churn, "threads, descriptors and list of the side; another client"),
)
