// An audio device of the real-time side. It reads the device's properties when it is created and
// forwards changes of the controls.
#pragma once

#include <cstdint>
#include <string>

#include "common/AudioDevice.h"
#include "quill/IClass.h"
#include "quill/object.h"

namespace tessel::dualos {

// A change that fails to reach the device is stored here nevertheless, so this object and the
// device may differ until the next change. Client's thread.
class AudioDriver : public quill::base::Object,
                    public dev::AudioDevice,
                    public quill::base::IFactoryHelper {
 public:
  // `deviceKind` is the device's name on the real-time side: "Microphone" or "Speaker".
  explicit AudioDriver(const char* deviceKind);

  // Probes the device; ignores the attributes. On failure the properties read so far keep their new
  // values.
  bool configure(quill::base::AttrSet& attributes) override;

  bool Volume(int volume) override;
  int Volume() const override { return _volume; }
  bool AGC(bool is_on) override;
  bool AGC() const override { return _agc; }
  bool Mute(bool is_muted) override;
  bool Mute() const override { return _mute; }

 protected:
  std::string devType;
  std::uintptr_t _obj = 0;  // the device's handle on the real-time side; 0 before configure()

 private:
  bool Send(const char* key, const std::string& value) const;
};

}  // namespace tessel::dualos
