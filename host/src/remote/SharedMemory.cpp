#include "quill/SharedMemory.h"

#include "Window.h"

namespace quill::stream {

SharedMemory::SharedMemory(const char* name, std::size_t size_bytes)
    : _name(name == nullptr ? "" : name), _size_bytes(size_bytes), _data(nullptr) {
  Window* window = Window::Globle();
  if (window != nullptr) _data = window->AllocateBlock(size_bytes, this);
}

SharedMemory::~SharedMemory() { Window::FreeBlocksOf(this); }

VBRC::VBRC(const char* name) : SharedMemory(name, kVbrcBlockBytes) {
  if (Block() != nullptr) InitVbrcBlock(*Block(), 0);
}

}  // namespace quill::stream
