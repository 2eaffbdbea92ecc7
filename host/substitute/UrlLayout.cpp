#include "UrlLayout.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "quill/Hash.h"
#include "quill/ostream_string.h"
#include "quill/VbrcBlock.h"

namespace quill::stream {
namespace {

using base::AttrSet;

constexpr auto kRelaxed = std::memory_order_relaxed;

// The URL that stands in the extra area of a rate-control block. Both operating systems, and the
// client while this looks, may write there: what is read is copied first and then checked.
class UrlSimple : public UrlLayout {
 public:
  explicit UrlSimple(std::shared_ptr<const Window::Block> block) : _block(std::move(block)) {}

  bool Next(std::string& url, std::string& error) override {
    // The client empties the area before it writes, and says the length behind it: an empty one, or
    // one that has changed on the second look, is being written, for as long as that thread gets
    // no time.
    constexpr int kMostLooks = 1000;
    constexpr std::chrono::microseconds kNap(100);
    Area untrusted = Look();
    for (int i = 0; i < kMostLooks; ++i) {
      const Area again = Look();
      if (again == untrusted && again.used_bytes != 0) return Read(again, url, error);
      if (again.used_bytes == 0) std::this_thread::sleep_for(kNap);
      untrusted = again;
    }
    if (untrusted.used_bytes == 0) return Read(untrusted, url, error);
    error = "the URL in the extra area never stands still";
    return false;
  }

 private:
  struct Area {
    unsigned user;
    int most_bytes;
    int used_bytes;
    std::string bytes;  // as many as are used, if the area has them
    friend bool operator==(const Area&, const Area&) = default;
  };

  Area Look() const {
    const std::span<std::byte> block = _block->area.Bytes().first(_block->asked_bytes);
    auto& vbrc = *_block->Vbrc();
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

  static bool Read(const Area& area, std::string& url, std::string& error) {
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

  const std::shared_ptr<const Window::Block> _block;
};

// The URL that a function of this process gives.
class UrlCallback : public UrlLayout {
 public:
  using Function = std::string (*)(void* handle);
  UrlCallback(Function function, void* handle) : _function(function), _handle(handle) {}

  bool Next(std::string& url, std::string& error) override {
    url = _function(_handle);
    if (url.empty()) error = "the callback gives no URL";
    return !url.empty();
  }

 private:
  const Function _function;
  void* const _handle;
};

}  // namespace

std::unique_ptr<UrlLayout> UrlLayout::Create(const AttrSet& description, std::string& error) {
  const char* text = description.Get("type");
  const std::string type = text == nullptr ? "" : text;
  if (type == "UrlSimple") {
    auto block = Window::BlockAt(description.Get("vbrc"));
    if (block != nullptr && block->Vbrc() != nullptr)
      return std::make_unique<UrlSimple>(std::move(block));
    error = "UrlSimple: vbrc= names no rate-control block";
  } else if (type == "UrlCallback") {
    const auto function =
        reinterpret_cast<UrlCallback::Function>(base::ReadHandle(description.Get("cb")));
    auto* handle = reinterpret_cast<void*>(base::ReadHandle(description.Get("hd")));
    if (function != nullptr) return std::make_unique<UrlCallback>(function, handle);
    error = "UrlCallback: cb= names no function";
  } else {
    error = "type=" + type + " is neither UrlSimple nor UrlCallback";
  }
  return nullptr;
}

}  // namespace quill::stream
