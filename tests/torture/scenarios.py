"""The scenarios, in the order of the table that they are reported in."""
from . import sides, storage

# Name, the function that plays a round, what the round is judged by.
SCENARIOS = (
    ("kill-own-side", sides.kill_own_side, "its client ends, says why, and its file plays"),
    ("kill-client", sides.kill_client, "its file plays; its side ends, or serves another client"),
    ("kill-shared-side", sides.kill_shared_side, "clients end, say why; a new side takes the name"),
    ("stop", sides.stop, "the stopped one goes on; another client's frames and file"),
    ("slow", sides.slow, "what was read plays; another client's frames and file"),
    ("hold", sides.hold, "another client's frames and file"),
    ("full-disk", storage.full_disk, "the client says why, its file plays; another client's too"),
)
