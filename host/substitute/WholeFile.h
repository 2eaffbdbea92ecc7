// The writing of whole files.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace quill::stream {

// Writes a file under a temporary name beside `path`, syncs it, and then gives it that name: nobody
// sees half of it, and an older file of that name stays whole until then. An older one has to be a
// regular file; its mode does not stay, and of a link the link is replaced. On failure nothing is
// left behind, false with `error`. Any thread.
[[nodiscard]] bool WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes,
                                  std::string& error);

}  // namespace quill::stream
