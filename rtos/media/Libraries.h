// The FFmpeg libraries' objects, owned.
#pragma once

#include <memory>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace tessel::rtos {

// Keeps the libraries from writing to the user's terminal. Any thread.
void SilenceLibraries();

struct LibraryFree {
  void operator()(AVCodecContext* codec) const;
  void operator()(AVFrame* frame) const;
  void operator()(AVPacket* packet) const;
};
using CodecPtr = std::unique_ptr<AVCodecContext, LibraryFree>;
using FramePtr = std::unique_ptr<AVFrame, LibraryFree>;
using PacketPtr = std::unique_ptr<AVPacket, LibraryFree>;

// Empty ones; null when there is no memory.
FramePtr MakeFrame();
PacketPtr MakePacket();

}  // namespace tessel::rtos
