// The audio devices of the real-time side as the objects of this process know them. They outlive
// it: the handles that were given out, and the settings that were made, hold for the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "quill/AttrSet.h"

namespace quill::stream {

// Any thread.
class DeviceSettings {
 public:
  static DeviceSettings& Globle();

  // Serve "ProbeAudioDriver" and "SetAudioDriver", whose answer comes in the same set. A setting is
  // for a device that was probed: where that is gone, nothing is started for it, and the setting
  // holds for the next one. False with `error`.
  bool Probe(base::AttrSet& request, std::string& error);
  bool Set(base::AttrSet& request, std::string& error);
  // Runs one command; false when it is refused, which "error" in the set tells, or not heard.
  using Command = std::function<bool(base::AttrSet&)>;
  // On a new connection, whose number this is: probes the devices known, and sends their settings
  // anew to those that have come into being since. `run` is called under the connection's lock.
  void Restore(std::uint64_t connection, const Command& run);

 private:
  struct Device {
    std::uint64_t connection = 0;   // that the handle is known from
    std::uint64_t handle = 0;       // as it is now
    std::set<std::uint64_t> given;  // all that it ever had
    base::AttrSet settings;         // the last of each control, in the order of their making
  };
  using Devices = std::map<std::string, Device>;
  Device* Find(const base::AttrSet& request);  // REQUIRES: _mutex is held
  // A device has told its handle. Sends the settings where it is a new one, and keeps it when all
  // were heard. True when there were any.
  bool Renew(const std::string& kind, std::uint64_t handle, std::uint64_t connection,
             const Command& run);
  // Puts the handle in that the device has now.
  void PutHandle(base::AttrSet& request);
  void Note(const base::AttrSet& request);

  std::mutex _mutex;
  Devices _devices;  // guarded by _mutex; by kind
};

}  // namespace quill::stream
