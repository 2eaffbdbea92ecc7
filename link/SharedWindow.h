// The memory object that both processes map: rate-control blocks and session areas. Linux creates
// it and keeps all book-keeping in its own memory; the window holds only what is shared.
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
  // The size in bytes of the largest window that the process may create. The limit on the size of
  // files (`ulimit -f`) applies to memory objects too.
  static std::size_t MostBytes();
  // Creates a window whose size is sealed. A page takes memory only once it is touched. Null, with
  // `error` set, when the window would exceed MostBytes() or the system refuses.
  static std::unique_ptr<SharedWindow> Create(std::size_t size_bytes, std::string& error);
  // Maps a window that the peer has created; the kernel reports its size. Null, with `error` set,
  // when the size is not sealed, the window consists of huge pages, or it cannot be mapped.
  static std::unique_ptr<SharedWindow> Attach(UniqueFd fd, std::string& error);
  ~SharedWindow();
  SharedWindow(const SharedWindow&) = delete;
  SharedWindow& operator=(const SharedWindow&) = delete;

  int Fd() const { return _fd.Get(); }
  std::byte* Base() const { return _base; }
  std::size_t Size() const { return _size_bytes; }

  // The area at `offset`, or an empty span when any of it lies outside.
  std::span<std::byte> Area(std::uint64_t offset, std::uint64_t size_bytes) const;
  // Zeroes an area and returns its pages to the system. REQUIRES: the area is page-aligned.
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
