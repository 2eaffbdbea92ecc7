#include "Layout.h"

namespace tessel::dualos {

using quill::stream::VbrcBlock;

namespace {

constexpr char kHead[] = "type=pipeline,layout={";

const VbrcBlock kUnsteered{};

int Read(const VbrcBlock::Word& word) { return word.load(std::memory_order_relaxed); }

}  // namespace

Layout::Layout(const std::string& source) : _block(kUnsteered) { _text << kHead << source; }

Layout::Layout(const VbrcBlock& block, int width, int height)
    : _block(block), _address(quill::base::ToString<const void*>(&block)) {
  _text << kHead << Camera(width, height);
}

Layout::Layout(int width, int height, const std::string& format)
    : Layout(Camera(width, height) + ",fmt=" + format) {}

std::string Layout::Camera(int width, int height) {
  return "pv-yuv-src-adv:w=" + std::to_string(width) + ",h=" + std::to_string(height);
}

Layout& Layout::PcmFilter(int samples_per_second) {
  _text << "+PcmFilter:rate=" << samples_per_second;
  return *this;
}

Layout& Layout::Channels(int channels) {
  _text << ",ch=" << channels;
  return *this;
}

Layout& Layout::AacEncoder(const std::string& profile, int bit_rate_bps, int channels,
                           int bandwidth_hz) {
  _text << "+aac-encoder:name=aac,profile=" << profile << ",br=" << bit_rate_bps
        << ",ch=" << channels << ",bw=" << bandwidth_hz;
  return *this;
}

Layout& Layout::FrameTrigger() {
  _text << "+FrameTrigger:name=trig,vbrc=" << _address;
  return *this;
}

Layout& Layout::FrameDroper() {
  _text << "+FrameDroper:name=fdrop,vbrc=" << _address;
  return *this;
}

Layout& Layout::H264Encoder(const api::streaming::common::H264MediaInfo& info) {
  _text << "+h264-encoder-dma:name=h264,goptype=" << info.goptype << ",gop=" << info.gop
        << ",qp=" << Read(_block.qp);
  EncoderClock();
  return *this;
}

Layout& Layout::JpegEncoderDma() {
  _text << "+jpeg-encoder-dma:name=jpeg,qp=" << Read(_block.qp);
  EncoderClock();
  return *this;
}

// Has no QP key: this encoder reads the QP from the block.
Layout& Layout::JpegEncoder() {
  _text << "+jpeg-encoder:name=jpeg";
  EncoderClock();
  return *this;
}

Layout& Layout::SnapEncoder() {
  _text << "+jpeg-encoder:name=jpeg,qp=" << Read(_block.qp) << ",vbrc=" << _address
        << ",clk=400000";
  return *this;
}

void Layout::EncoderClock() {
  _text << ",vbrc=" << _address << ",fr=" << Read(_block.framerate_max) << ",clk=400000";
}

Layout& Layout::H264VBrc() {
  _text << "+H264VBrc:name=vbrc,vbrc=" << _address;
  return *this;
}

std::string Layout::ShmSink(const std::string& session_name) {
  _text << "+ShmSink:name=shmsink,session_name=" << session_name << ",init=true}";
  return _text.str();
}

}  // namespace tessel::dualos
