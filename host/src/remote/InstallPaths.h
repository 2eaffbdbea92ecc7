// Paths of what is installed with this library, and of the inputs that the options name.
#pragma once

#include <string>

namespace quill::stream {

// Folder of this library, without a slash at the end. Any thread.
std::string LibraryFolder();
// Full path of a program or library that is installed with this one. It is searched for in the
// library's folder, then (programs only) in ../bin, then where the build installs it. Empty when it
// is in none of these. Any thread.
std::string FindProgram(const std::string& name);
std::string FindLibrary(const std::string& name);
// `input` (a sensor or microphone of the options) as the real-time side can open it from any
// working directory: the path of a file becomes absolute. Any thread.
std::string AbsoluteInput(const std::string& input);

}  // namespace quill::stream
