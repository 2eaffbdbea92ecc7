// The audio devices of the real-time side as the objects of this process know them. They outlive
// it: the handles that were given out, and the settings that were made, hold for the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "quill/AttrSet.h"

namespace quill::stream {

// Any thread.
class DeviceSettings {
 public:
  static DeviceSettings& Globle();

  // The device that `probe` asked for has answered, in the same set.
  void Learn(const base::AttrSet& probe);
  // Notes the setting that `request` makes, whether it will succeed or not, and puts the handle in
  // that the device has now.
  void Note(base::AttrSet& request);
  // On a new real-time side: probes the devices known and sends their settings anew. `run` runs one
  // command there.
  void Restore(const std::function<bool(base::AttrSet&)>& run);

 private:
  struct Device {
    std::uint64_t handle = 0;  // as it is now
    base::AttrSet settings;    // the last of each control, in the order of their making
  };
  bool RestoreOne(const std::string& kind, Device& device,
                  const std::function<bool(base::AttrSet&)>& run);

  std::mutex _mutex;
  std::map<std::string, Device> _devices;       // guarded by _mutex; by kind
  std::map<std::uint64_t, std::string> _kinds;  // guarded by _mutex; of all handles given out
};

}  // namespace quill::stream
