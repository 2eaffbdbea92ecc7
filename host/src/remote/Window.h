// The Linux side's book-keeping of the shared window: who has which part of it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "quill/VbrcBlock.h"
#include "SharedWindow.h"

namespace quill::stream {

// A part of the window, given back when destroyed. Movable; the window outlives all of them.
class WindowArea {
 public:
  WindowArea() = default;
  WindowArea(std::uint64_t offset, std::span<std::byte> bytes) : _offset(offset), _bytes(bytes) {}
  WindowArea(WindowArea&& other) noexcept;
  WindowArea& operator=(WindowArea&& other) noexcept;
  ~WindowArea();

  explicit operator bool() const { return !_bytes.empty(); }
  std::uint64_t Offset() const { return _offset; }
  std::span<std::byte> Bytes() const { return _bytes; }

 private:
  std::uint64_t _offset = 0;
  std::span<std::byte> _bytes;
};

// One for the process, made at first use and never destroyed: frames may outlive everything else.
// Any thread.
class Window {
 public:
  // Null, and logged, when the system refuses it or this is a child after fork, where the memory
  // and the connection are the parent's.
  static Window* Globle();

  // A zeroed part of at least `size_bytes`, page-aligned; empty, and logged, when none is free.
  WindowArea Allocate(std::size_t size_bytes);
  const tessel::link::SharedWindow& Memory() const { return *_memory; }

  // Blocks that the real-time side may be told of by address. They belong to `owner`, which is only
  // an identity here, and go with it. Null, and logged, when none is free.
  void* AllocateBlock(std::size_t size_bytes, const void* owner);
  static void FreeBlocksOf(const void* owner);

  struct Block {
    WindowArea area;
    std::size_t asked_bytes;
    // The rate-control record at its start; null when it is too small for one.
    VbrcBlock* Vbrc() const;
  };
  // The block that begins at the address in `text`; null when there is none. A block that is held
  // is not handed out again, even when its owner is gone.
  static std::shared_ptr<const Block> BlockAt(const char* text);

  std::size_t UsedBytes() const;
  std::size_t FreePieces() const;

 private:
  friend class WindowArea;
  explicit Window(std::unique_ptr<tessel::link::SharedWindow> memory);
  void Free(std::uint64_t offset, std::span<std::byte> bytes);

  std::unique_ptr<tessel::link::SharedWindow> _memory;
  mutable std::mutex _mutex;
  std::map<std::uint64_t, std::uint64_t> _free;  // guarded by _mutex; offset -> bytes
  // Guarded by _mutex; by owner.
  std::multimap<const void*, std::shared_ptr<const Block>> _blocks;
};

}  // namespace quill::stream
