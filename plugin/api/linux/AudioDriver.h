// An audio device of the real-time side: learns what it is when it is created, and passes changes
// of its controls on.
#pragma once

#include <cstdint>
#include <string>

#include "common/AudioDevice.h"
#include "quill/IClass.h"
#include "quill/object.h"

namespace tessel::dualos {

// A change that did not reach the device is kept here all the same: the two can differ until the
// next one. Client's thread.
class AudioDriver : public quill::base::Object,
                    public dev::AudioDevice,
                    public quill::base::IFactoryHelper {
 public:
  // `deviceKind` is the device's name over there: "Microphone" or "Speaker".
  explicit AudioDriver(const char* deviceKind);

  // Probes the device, whatever the attributes. On failure what was read before keeps its value.
  bool configure(quill::base::AttrSet& attributes) override;

  bool Volume(int volume) override;
  int Volume() const override { return _volume; }
  bool AGC(bool is_on) override;
  bool AGC() const override { return _agc; }
  bool Mute(bool is_muted) override;
  bool Mute() const override { return _mute; }

 protected:
  std::string devType;
  std::uintptr_t _obj = 0;  // handle of the device over there; 0 before it is configured

 private:
  bool Send(const char* key, const std::string& value) const;
};

}  // namespace tessel::dualos
