// Files that appear whole or not at all.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "UniqueFd.h"

namespace quill::stream {

// A file that is written under a temporary name in the same folder and then renamed: no reader sees
// half of it. An existing file is replaced then; it has to be a regular file, and its mode is not
// kept. A symbolic link is replaced itself. One thread.
class AtomicFile {
 public:
  // Empty, with `error`, when the file cannot be created.
  static std::optional<AtomicFile> Open(const std::string& path, std::string& error);
  AtomicFile(AtomicFile&&) = default;
  ~AtomicFile();  // removes a file that was not finished

  // Writes it, syncs it and gives it its name. False with `error`. Once.
  [[nodiscard]] bool Finish(std::span<const std::uint8_t> bytes, std::string& error);

 private:
  AtomicFile() = default;
  tessel::UniqueFd _file;  // open until it has its name
  std::string _path;
  std::string _temporary;
};

}  // namespace quill::stream
