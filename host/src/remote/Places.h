// Where the parts of an installation stand, seen from this library.
#pragma once

#include <string>

namespace quill::stream {

// Folder of this library, without a slash at the end. Any thread.
std::string LibraryFolder();
// Full path of a program or library that comes with this one: beside it, in ../bin beside it, or
// where it is installed. Empty when it stands in none of these.
std::string FindProgram(const std::string& name);
std::string FindLibrary(const std::string& name);
// An input of the board as the real-time side finds it from any working directory.
std::string AbsoluteInput(const std::string& input);

}  // namespace quill::stream
