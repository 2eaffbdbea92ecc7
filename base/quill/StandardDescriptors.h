// Standard input, output and error of a program, which it may be started without.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace quill::base {

// Opens /dev/null where one of the three is closed: else the next file would take its number, and
// what is meant for the terminal would be written into it. Opened the wrong way round, so that
// reading and writing still fail, as they do on a closed one. At the start of main().
inline void FillStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // A new descriptor gets the lowest number that is free.
    if (fcntl(fd, F_GETFD) < 0) static_cast<void>(open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY));
  }
}

}  // namespace quill::base
