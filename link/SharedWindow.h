// The memory object that both processes map: rate-control blocks and session areas. The Linux side
// makes it and keeps all book-keeping in its own memory; the window holds only what is shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "UniqueFd.h"

namespace tessel::link {

// Any thread; constant after construction.
class SharedWindow {
 public:
  // The largest window that the process may make: the limit on the size of files (`ulimit -f`)
  // holds for memory objects too.
  static std::size_t MostBytes();
  // A new window, sealed against changing its size. Pages cost memory only once touched. Null, with
  // `error` set, when it would exceed MostBytes() or the system refuses.
  static std::unique_ptr<SharedWindow> Create(std::size_t size_bytes, std::string& error);
  // Maps a window made by the other side, after checking its seals and that the kernel has a page
  // for each place that is touched; its size is what the kernel says. Null, with `error` set, when
  // it could change under our feet or cannot be mapped.
  static std::unique_ptr<SharedWindow> Attach(UniqueFd fd, std::string& error);
  ~SharedWindow();
  SharedWindow(const SharedWindow&) = delete;
  SharedWindow& operator=(const SharedWindow&) = delete;

  int Fd() const { return _fd.Get(); }
  std::byte* Base() const { return _base; }
  std::size_t Size() const { return _size_bytes; }

  // The area at `offset`, or an empty span when any of it lies outside.
  std::span<std::byte> Area(std::uint64_t offset, std::uint64_t size_bytes) const;
  // Gives the pages of an area, which must be page-aligned, back to the system; it reads as zero.
  void Clear(std::span<std::byte> area) const;

 private:
  SharedWindow(UniqueFd fd, std::byte* base, std::size_t size_bytes)
      : _fd(std::move(fd)), _base(base), _size_bytes(size_bytes) {}
  static std::unique_ptr<SharedWindow> Map(UniqueFd fd, std::string& error);

  UniqueFd _fd;
  std::byte* _base;
  std::size_t _size_bytes;
};

}  // namespace tessel::link
