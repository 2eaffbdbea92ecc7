// The URL of the next picture, as it stands in the extra area of a rate-control block.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace quill::stream {

// Reads the URL in the extra area of the rate-control block that begins at `block`, which ends
// where the area does. Both operating systems, and the client while this looks, may write there:
// it waits about a tenth of a second for a URL that is being written. False with `error` when there
// is none. Any thread. REQUIRES: `block` is aligned as a VbrcBlock and not
// smaller.
[[nodiscard]] bool ReadUrlArea(std::span<std::byte> block, std::string& url, std::string& error);

}  // namespace quill::stream
