// A child after fork: what the library shares with the real-time side stays the parent's.
#pragma once

namespace quill::stream {

// True in a child after fork: what this library shares with the other side is the parent's.
bool IsForkedChild();
// Makes a child after fork give up its copy of the command wire's end: the real-time side has to
// notice when the parent is gone.
void CloseInForkedChild(int fd);
// Undoes CloseInForkedChild(fd) if it is still registered; call it before closing the descriptor.
void KeepInForkedChild(int fd);

}  // namespace quill::stream
