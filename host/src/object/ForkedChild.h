// A child after fork: what the library shares with the real-time side stays the parent's.
#pragma once

namespace quill::stream {

// True in a child after fork.
bool IsForkedChild();
// Closes `fd`, the socket of the command wire, in a child after fork: else the real-time side would
// not notice the end of the parent.
void CloseInForkedChild(int fd);
// Undoes CloseInForkedChild(fd) if it is still registered; call it before closing the descriptor.
void KeepInForkedChild(int fd);

}  // namespace quill::stream
