// "file://" URLs and the writing of whole files.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace quill::stream {

// The path that a URL names: "file://" and a path, relative to the working directory unless it
// begins with "/". A "%" and two hexadecimal digits stand for a byte (RFC 3986); numbering patterns
// as printf has them, "%d" and "%03d", stay as they are, and so does any other "%". False with
// `error`, which does not repeat the URL.
[[nodiscard]] bool ReadFileUrl(const std::string& url, std::string& path, std::string& error);

// Writes a file under a temporary name beside `path`, syncs it, and then gives it that name: nobody
// sees half of it, and an older file of that name stays whole until then. An older one has to be a
// regular file. On failure nothing is left behind, false with `error`. Any thread.
[[nodiscard]] bool WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes,
                                  std::string& error);

}  // namespace quill::stream
