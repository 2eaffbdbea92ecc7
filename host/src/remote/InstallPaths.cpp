#include "InstallPaths.h"

#include <filesystem>
#include <initializer_list>
#include <system_error>

#include <dlfcn.h>
#include <unistd.h>

namespace quill::stream {
namespace {

namespace fs = std::filesystem;

std::string FirstReadable(std::initializer_list<std::string> candidates) {
  for (const std::string& path : candidates) {
    if (access(path.c_str(), R_OK) == 0) return path;
  }
  return "";
}

}  // namespace

std::string LibraryFolder() {
  Dl_info info = {};
  if (dladdr(reinterpret_cast<void*>(&LibraryFolder), &info) == 0) return ".";
  std::error_code failure;
  const fs::path path = fs::canonical(info.dli_fname, failure);
  return failure ? "." : path.parent_path().string();
}

std::string FindProgram(const std::string& name) {
  const std::string folder = LibraryFolder();
  return FirstReadable({folder + "/" + name, folder + "/../bin/" + name,
                        std::string(TESSEL_INSTALLED_BIN) + "/" + name});
}

std::string FindLibrary(const std::string& name) {
  return FirstReadable(
      {LibraryFolder() + "/" + name, std::string(TESSEL_INSTALLED_LIB) + "/" + name});
}

std::string AbsoluteInput(const std::string& input) {
  const std::string kind = input.substr(0, input.find(':'));
  if (kind.empty() || kind == "test" || kind == "tone" || kind == "alsa") return input;
  std::error_code failure;
  const fs::path path = fs::absolute(input, failure);
  return failure ? input : path.string();
}

}  // namespace quill::stream
