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

// Traces print a mode through the pointer conversion.
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
  // Goes on: the answer is judged by the next two checks.
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

bool StreamVbrc::FreeVbrc() {
  if (_vbrc == nullptr) return true;
  // The host knows the block by the object that is dying; a missing function is logged there.
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
  if (brc == kConstant) _vbrc->qp.store(0, kRelaxed);
  return true;
}

void StreamVbrc::SetBitRate(int bits_per_second) {
  _vbrc->bitrate_target.store(bits_per_second, kRelaxed);
}
void StreamVbrc::SetBitRateMinimum(int bits_per_second) {
  _vbrc->bitrate_min.store(bits_per_second, kRelaxed);
}
void StreamVbrc::SetBitRateMaximum(int bits_per_second) {
  _vbrc->bitrate_max.store(bits_per_second, kRelaxed);
}
void StreamVbrc::SetFrameRate(int frames_per_second) {
  _vbrc->framerate.store(frames_per_second, kRelaxed);
}
void StreamVbrc::SetFrameRateMinimum(int frames_per_second) {
  _vbrc->framerate_min.store(frames_per_second, kRelaxed);
}
void StreamVbrc::SetFrameRateMaximum(int frames_per_second) {
  _vbrc->framerate_max.store(frames_per_second, kRelaxed);
}
void StreamVbrc::SetQP(int qp) { _vbrc->qp.store(qp, kRelaxed); }
void StreamVbrc::SetQPMinimum(int qp) { _vbrc->qp_min.store(qp, kRelaxed); }
void StreamVbrc::SetQPMaximum(int qp) { _vbrc->qp_max.store(qp, kRelaxed); }

// What was asked and what the far side reports are different words.
int StreamVbrc::GetCurrentBitRate() const { return _vbrc->bitrate.load(kRelaxed); }
int StreamVbrc::GetCurrentFrameRate() const { return _vbrc->framerate.load(kRelaxed); }
int StreamVbrc::GetCurrentQP() const { return _vbrc->qp.load(kRelaxed); }

}  // namespace tessel::dualos
