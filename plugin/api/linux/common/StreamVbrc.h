// Rate control through a block of shared memory that the real-time side's encoder reads.
#pragma once

#include <vector>

#include "quill/VbrcBlock.h"
#include "tessel/IBitRateControl.h"

namespace tessel::dualos {

// Owns one block from construction to destruction. If the block could not be allocated, which is
// logged, setters have no effect and getters return 0. Client's thread.
class StreamVbrc : public virtual api::streaming::common::IBitRateControl {
 public:
  // `extra_size`: bytes of the extra area beyond the fixed part.
  explicit StreamVbrc(int extra_size);
  ~StreamVbrc() override;
  StreamVbrc(const StreamVbrc&) = delete;
  StreamVbrc& operator=(const StreamVbrc&) = delete;

  void SetBitRate(int bits_per_second) override;
  std::vector<BitRateControl> BitRateControlSupportedList() const override;
  bool IsSupport(BitRateControl brc) const override;
  bool SelectBitRateControl(BitRateControl brc) override;
  void SetFrameRate(int frames_per_second) override;
  void SetFrameRateMinimum(int frames_per_second) override;
  void SetFrameRateMaximum(int frames_per_second) override;
  void SetBitRateMinimum(int bits_per_second) override;
  void SetBitRateMaximum(int bits_per_second) override;
  void SetQP(int qp) override;
  void SetQPMinimum(int qp) override;
  void SetQPMaximum(int qp) override;
  int GetCurrentFrameRate() const override;
  int GetCurrentBitRate() const override;
  int GetCurrentQP() const override;

 protected:
  // Allocates the block; true at once if it exists already.
  bool CreateVbrc(int extra_size);
  // Always true.
  bool FreeVbrc();
  // Makes one request of the real-time side by advancing `count`, a running count in the block.
  void Request(quill::stream::VbrcBlock::Word quill::stream::VbrcBlock::*count);

  void Store(quill::stream::VbrcBlock::Word quill::stream::VbrcBlock::*word, int value);
  int Load(quill::stream::VbrcBlock::Word quill::stream::VbrcBlock::*word) const;

  quill::stream::VbrcBlock* _vbrc = nullptr;
  BitRateControl _brc = static_cast<BitRateControl>(0);  // none selected
  std::vector<BitRateControl> _brcList;                  // filled by the source's constructor
};

}  // namespace tessel::dualos
