// Blocks of memory that both operating systems see.
#pragma once

#include <string>

#include "quill/VbrcBlock.h"
#include "quill/Visibility.h"

namespace tessel {

// Bytes in memory.
class QUILL_PUBLIC IBuffer {
 public:
  virtual void* Data() const = 0;        // borrowed for the buffer's life; may be null
  virtual std::size_t Size() const = 0;  // bytes; 0 when Data() is null

 protected:
  ~IBuffer() = default;
};

class QUILL_PUBLIC IBufferNamed : public IBuffer {
 public:
  virtual const std::string& Name() const = 0;

 protected:
  ~IBufferNamed() = default;
};

}  // namespace tessel

namespace quill::stream {

// Owns one block of the shared window. Client's thread.
class QUILL_PUBLIC SharedMemory : public tessel::IBufferNamed {
 public:
  // `name` may be null. Data() is null when the window is full.
  SharedMemory(const char* name, std::size_t size_bytes);
  virtual ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  void* Data() const override { return _data; }
  std::size_t Size() const override { return _data == nullptr ? 0 : _size_bytes; }
  const std::string& Name() const override { return _name; }

 private:
  std::string _name;
  std::size_t _size_bytes;
  void* _data;
};

// A rate-control block that its owner steers directly.
class QUILL_PUBLIC VBRC : public SharedMemory {
 public:
  // The block holds its defaults and has no extra area beyond the fixed part.
  explicit VBRC(const char* name);
  VbrcBlock* Block() const { return static_cast<VbrcBlock*>(Data()); }  // null as Data() is
};

}  // namespace quill::stream
