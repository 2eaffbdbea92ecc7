// The writing of whole files.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "UniqueFd.h"

namespace quill::stream {

// A file that is written under a temporary name beside its own, and then gets that: nobody sees
// half of it, and an older file of that name stays whole until then. An older one has to be a
// regular file; its mode does not stay, and of a link the link is replaced. One thread.
class AtomicFile {
 public:
  // None, with `error`, when there can be no such file. Nothing is left behind then.
  static std::optional<AtomicFile> Open(const std::string& path, std::string& error);
  AtomicFile(AtomicFile&&) = default;
  ~AtomicFile();  // of one that is not whole nothing is left behind

  // Writes it, syncs it and gives it its name. False with `error`. Once.
  [[nodiscard]] bool Finish(std::span<const std::uint8_t> bytes, std::string& error);

 private:
  AtomicFile() = default;
  tessel::UniqueFd _file;  // open until it has its name
  std::string _path;
  std::string _temporary;
};

}  // namespace quill::stream
