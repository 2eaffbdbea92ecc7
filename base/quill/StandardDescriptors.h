// Standard input, output and error of a program that may have been started without them.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace quill::base {

// Opens /dev/null in place of each of the three that is closed. Otherwise the next file opened
// would take its number, and output meant for the terminal would go into that file. Standard input
// is opened for writing and the others for reading, so that using them still fails. Call at the
// start of main().
inline void FillStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // A new descriptor gets the lowest free number.
    if (fcntl(fd, F_GETFD) < 0) static_cast<void>(open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY));
  }
}

}  // namespace quill::base
