#include "Window.h"

#include <atomic>
#include <string>

#include "quill/Debug.h"
#include "quill/Host.h"

#include "Construction.h"
#include "ForkedChild.h"

namespace quill::stream {
namespace {

using tessel::link::SharedWindow;

constexpr std::size_t kPage = 4096;  // areas of their own pages can be cleared and given back

std::atomic<Window*> g_window{nullptr};
const bool g_follows_objects = [] {
  base::Construction::OnGone([](const base::object& gone) { Window::FreeBlocksOf(&gone); });
  return true;
}();

// As the options say; less where a limit asks for it and a stream still fits in, with a page each
// for its block and for the start of the window.
std::size_t WindowBytes() {
  const host::Options options = host::GetOptions();
  const std::size_t most_bytes = SharedWindow::MostBytes();
  const bool is_useful = most_bytes >= kPage * 2 && most_bytes - kPage * 2 >= options.session_bytes;
  if (options.window_bytes <= most_bytes || !is_useful) return options.window_bytes;
  WriteLine(kNotice, kGreen, "WindowBytes",
            "the shared window gets " + std::to_string(most_bytes) + " bytes instead of " +
                std::to_string(options.window_bytes) + ": the limit on file sizes (ulimit -f)");
  return most_bytes;
}

}  // namespace

WindowArea::WindowArea(WindowArea&& other) noexcept
    : _offset(other._offset), _bytes(std::exchange(other._bytes, {})) {}

WindowArea& WindowArea::operator=(WindowArea&& other) noexcept {
  std::swap(_offset, other._offset);
  std::swap(_bytes, other._bytes);
  return *this;
}

WindowArea::~WindowArea() {
  if (!_bytes.empty() && !IsForkedChild()) g_window.load()->Free(_offset, _bytes);
}

Window* Window::Globle() {
  if (Failed(IsForkedChild(), "IsForkedChild()", "the shared window is the parent process's")) {
    return nullptr;
  }
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  if (g_window.load() == nullptr) {
    std::string error;
    auto memory = SharedWindow::Create(WindowBytes(), error);
    if (Failed(memory == nullptr, "!memory", error)) return nullptr;
    g_window.store(new Window(std::move(memory)));
  }
  return g_window.load();
}

Window::Window(std::unique_ptr<tessel::link::SharedWindow> memory) : _memory(std::move(memory)) {
  // The first page stays unused, so that no part of the window has the offset 0.
  _free[kPage] = _memory->Size() / kPage * kPage - kPage;
}

WindowArea Window::Allocate(std::size_t size_bytes) {
  const std::uint64_t wanted = (size_bytes + kPage - 1) / kPage * kPage;
  {
    const std::lock_guard lock(_mutex);
    for (auto place = _free.begin(); wanted > 0 && place != _free.end(); ++place) {
      const auto [offset, free_bytes] = *place;
      if (free_bytes < wanted) continue;
      _free.erase(place);
      if (free_bytes > wanted) _free[offset + wanted] = free_bytes - wanted;
      return {offset, _memory->Area(offset, wanted)};
    }
  }
  const bool is_limited = _memory->Size() >= SharedWindow::MostBytes();
  Fail("!area", "the shared window has no room for ", std::to_string(size_bytes), " bytes",
       is_limited ? "; the limit on file sizes (ulimit -f) keeps it small" : "");
  return {};
}

void Window::Free(std::uint64_t offset, std::span<std::byte> bytes) {
  _memory->Clear(bytes);  // the next owner gets zeroed memory
  const std::lock_guard lock(_mutex);
  auto place = _free.emplace(offset, bytes.size()).first;
  const auto after = std::next(place);
  if (after != _free.end() && offset + place->second == after->first) {
    place->second += after->second;
    _free.erase(after);
  }
  if (place == _free.begin()) return;
  const auto before = std::prev(place);
  if (before->first + before->second == offset) {
    before->second += place->second;
    _free.erase(place);
  }
}

void* Window::AllocateBlock(std::size_t size_bytes, const void* owner) {
  WindowArea area = Allocate(size_bytes);
  if (!area) return nullptr;
  void* block = area.Bytes().data();
  const std::lock_guard lock(_mutex);
  _blocks.emplace(owner, std::make_shared<const Block>(Block{std::move(area), size_bytes}));
  return block;
}

void Window::FreeBlocksOf(const void* owner) {
  Window* window = g_window.load();
  if (window == nullptr || IsForkedChild()) return;
  std::vector<std::shared_ptr<const Block>>
      gone;  // freed after the lock, which freeing takes again
  const std::lock_guard lock(window->_mutex);
  const auto [first, last] = window->_blocks.equal_range(owner);
  for (auto place = first; place != last; ++place) gone.push_back(std::move(place->second));
  window->_blocks.erase(first, last);
}

VbrcBlock* Window::Block::Vbrc() const {
  if (asked_bytes < kVbrcBlockBytes) return nullptr;
  return reinterpret_cast<VbrcBlock*>(area.Bytes().data());
}

std::shared_ptr<const Window::Block> Window::BlockAt(const char* text) {
  const Window* window = Globle();
  if (window == nullptr) return nullptr;
  const auto* address = reinterpret_cast<const std::byte*>(base::ReadHandle(text));
  const std::lock_guard lock(window->_mutex);
  for (const auto& [owner, block] : window->_blocks) {
    if (block->area.Bytes().data() == address) return block;
  }
  return nullptr;
}

std::size_t Window::UsedBytes() const {
  const std::lock_guard lock(_mutex);
  std::size_t used = _memory->Size() / kPage * kPage - kPage;
  for (const auto& [offset, free_bytes] : _free) used -= free_bytes;
  return used;
}

std::size_t Window::FreePieces() const {
  const std::lock_guard lock(_mutex);
  return _free.size();
}

}  // namespace quill::stream
