#include "StreamVbrc.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "quill/AttrSet.h"
#include "quill/Debug.h"
#include "quill/Factory.h"

namespace tessel::dualos {

using quill::base::AttrSet;
using quill::base::Factory;
using quill::stream::Fail;
using quill::stream::Failed;
using quill::stream::kVbrcBlockBytes;
using quill::stream::Trace;
using quill::stream::VbrcBlock;

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

// Traces print a mode in the form of a pointer.
const void* AsPointer(int value) {
  return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(value));
}

}  // namespace

StreamVbrc::StreamVbrc(int extra_size) {
  // Goes on: the object exists without its block.
  static_cast<void>(Failed(!CreateVbrc(extra_size), "!CreateVbrc(extra_size)"));
}

StreamVbrc::~StreamVbrc() { static_cast<void>(Failed(!FreeVbrc(), "!FreeVbrc()")); }

bool StreamVbrc::CreateVbrc(int extra_size) {
  if (_vbrc != nullptr) return true;
  AttrSet ap;
  ap.Add("size", static_cast<int>(kVbrcBlockBytes) + extra_size);
  // Goes on: the next two checks judge the answer.
  static_cast<void>(
      Failed(!Factory::Globle().Run("shm_alloc", ap), "!Factory::Globle().Run(\"shm_alloc\",ap)"));
  const char* ptr = ap.Get("ptr");
  if (Failed(ptr == nullptr, "!ap.Get(\"ptr\",_vbrc)")) return false;
  _vbrc = reinterpret_cast<VbrcBlock*>(std::strtoul(ptr, nullptr, 16));
  if (Failed(!_vbrc, "!_vbrc")) return false;
  quill::stream::InitVbrcBlock(*_vbrc, extra_size);
  return true;
}

void StreamVbrc::Request(VbrcBlock::Word VbrcBlock::*count) {
  if (Failed(!_vbrc, "!_vbrc")) return;
  (_vbrc->*count).fetch_add(1, kRelaxed);
}

void StreamVbrc::Store(VbrcBlock::Word VbrcBlock::*word, int value) {
  if (!Failed(!_vbrc, "!_vbrc")) (_vbrc->*word).store(value, kRelaxed);
}

int StreamVbrc::Load(VbrcBlock::Word VbrcBlock::*word) const {
  return Failed(!_vbrc, "!_vbrc") ? 0 : (_vbrc->*word).load(kRelaxed);
}

bool StreamVbrc::FreeVbrc() {
  if (_vbrc == nullptr) return true;
  // The host finds the block by the object that is being destroyed, and logs a missing function.
  std::uintptr_t result = 0;
  Factory::Globle().Call("shm_free", result);
  _vbrc = nullptr;
  return true;
}

std::vector<StreamVbrc::BitRateControl> StreamVbrc::BitRateControlSupportedList() const {
  return _brcList;
}

bool StreamVbrc::IsSupport(BitRateControl brc) const {
  for (const BitRateControl entry : _brcList) {
    Trace("", AsPointer(entry), ",", AsPointer(brc));
    if (entry == brc) return true;
  }
  Fail(quill::base::ToString<int>(brc).c_str());
  return false;
}

bool StreamVbrc::SelectBitRateControl(BitRateControl brc) {
  if (Failed(!IsSupport(brc), "!IsSupport(brc)", static_cast<int>(brc))) return false;
  _brc = brc;
  if (brc == kConstant) Store(&VbrcBlock::qp, 0);
  return true;
}

void StreamVbrc::SetBitRate(int bits_per_second) {
  Store(&VbrcBlock::bitrate_target, bits_per_second);
}
void StreamVbrc::SetBitRateMinimum(int bits_per_second) {
  Store(&VbrcBlock::bitrate_min, bits_per_second);
}
void StreamVbrc::SetBitRateMaximum(int bits_per_second) {
  Store(&VbrcBlock::bitrate_max, bits_per_second);
}
void StreamVbrc::SetFrameRate(int frames_per_second) {
  Store(&VbrcBlock::framerate, frames_per_second);
}
void StreamVbrc::SetFrameRateMinimum(int frames_per_second) {
  Store(&VbrcBlock::framerate_min, frames_per_second);
}
void StreamVbrc::SetFrameRateMaximum(int frames_per_second) {
  Store(&VbrcBlock::framerate_max, frames_per_second);
}
void StreamVbrc::SetQP(int qp) { Store(&VbrcBlock::qp, qp); }
void StreamVbrc::SetQPMinimum(int qp) { Store(&VbrcBlock::qp_min, qp); }
void StreamVbrc::SetQPMaximum(int qp) { Store(&VbrcBlock::qp_max, qp); }

// Only the bit rate is reported by the real-time side; the other two return what was set.
int StreamVbrc::GetCurrentBitRate() const { return Load(&VbrcBlock::bitrate); }
int StreamVbrc::GetCurrentFrameRate() const { return Load(&VbrcBlock::framerate); }
int StreamVbrc::GetCurrentQP() const { return Load(&VbrcBlock::qp); }

}  // namespace tessel::dualos
