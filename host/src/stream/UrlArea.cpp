#include "UrlArea.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "quill/Hash.h"
#include "quill/VbrcBlock.h"

namespace quill::stream {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

// A copy of the area, checked before it is used.
struct Area {
  unsigned user;
  int most_bytes;
  int used_bytes;
  std::string bytes;  // as many as are used, if the area has them
  friend bool operator==(const Area&, const Area&) = default;
};

Area Look(std::span<std::byte> block) {
  auto& vbrc = *reinterpret_cast<VbrcBlock*>(block.data());
  Area area = {vbrc.extra_user.load(kRelaxed), vbrc.extra_max.load(kRelaxed),
               vbrc.extra_len.load(std::memory_order_acquire), ""};
  const auto room = static_cast<int>(block.size() - offsetof(VbrcBlock, extra));
  if (area.used_bytes < 1 || area.used_bytes > room) return area;
  area.bytes.resize(static_cast<std::size_t>(area.used_bytes));
  std::uint8_t* extra = ExtraArea(vbrc);
  for (char& letter : area.bytes) {
    // Acquire: the next look is behind this one.
    letter = static_cast<char>(std::atomic_ref(*extra++).load(std::memory_order_acquire));
  }
  return area;
}

bool Read(const Area& area, std::string& url, std::string& error) {
  if (area.user != base::Hash(kUrlOwner)) {
    error = "the extra area belongs to somebody else";
  } else if (area.bytes.empty() || area.used_bytes > area.most_bytes) {
    error = "extra_len=" + std::to_string(area.used_bytes) + " is outside the extra area";
  } else if (area.bytes.find('\0') != area.bytes.size() - 1) {
    error = "the URL in the extra area does not end where it should";
  } else {
    url = area.bytes.substr(0, area.bytes.size() - 1);
    return true;
  }
  return false;
}

}  // namespace

bool ReadUrlArea(std::span<std::byte> block, std::string& url, std::string& error) {
  // The client empties the area before it writes a URL and stores the length last. An area that is
  // empty, or that differs when read again, is being written.
  constexpr int kMostLooks = 1000;
  constexpr std::chrono::microseconds kNap(100);
  Area untrusted = Look(block);
  for (int i = 0; i < kMostLooks; ++i) {
    const Area again = Look(block);
    if (again == untrusted && again.used_bytes != 0) return Read(again, url, error);
    if (again.used_bytes == 0) std::this_thread::sleep_for(kNap);
    untrusted = again;
  }
  if (untrusted.used_bytes == 0) return Read(untrusted, url, error);
  error = "the URL in the extra area never stands still";
  return false;
}

}  // namespace quill::stream
