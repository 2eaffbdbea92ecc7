// The audio devices of the board as the objects of this process know them. Their handles and their
// settings outlive the real-time side: they hold for the next one.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "quill/AttrSet.h"

namespace quill::stream {

class RtosConnection;

// Any thread.
class DeviceSettings {
 public:
  static DeviceSettings& Globle();

  // Serve "ProbeAudioDriver" and "SetAudioDriver", whose answer comes in the same set. False with
  // `error`. A setting is for a device that was probed. When the real-time side of that device is
  // gone, no new one is started: the setting is kept for the next one.
  bool Probe(base::AttrSet& request, std::string& error);
  bool Set(base::AttrSet& request, std::string& error);

 private:
  // Runs one command; false when it is refused, which "error" in the set tells, or not answered.
  using Command = std::function<bool(base::AttrSet&)>;

  DeviceSettings();  // enters Restore() as a hook of new connections
  struct Device {
    std::uint64_t connection = 0;     // number of the one that told the handle
    std::uint64_t handle = 0;         // the device's current one
    std::set<std::uint64_t> handles;  // all that the device has ever had
    base::AttrSet settings;           // the last of each control, in the order of their making
  };
  using Devices = std::map<std::string, Device>;
  Device* Find(const base::AttrSet& request);  // REQUIRES: _mutex is held
  // Stores the handle that the device of `kind` has told. When the handle is a new one, all
  // settings are sent first, and it is stored only when each was answered. True when settings were
  // sent.
  bool Renew(const std::string& kind, std::uint64_t handle, std::uint64_t connection,
             const Command& run);
  // Replaces a handle of `request` that the device had before by its current one.
  void PutHandle(base::AttrSet& request);
  // Keeps the settings in `request` as the real-time side stores them.
  void Note(const base::AttrSet& request);
  // Probes the devices known, and sends their settings to those that were made anew.
  void Restore(RtosConnection& rtos);

  std::mutex _mutex;
  Devices _devices;  // guarded by _mutex; by kind
};

}  // namespace quill::stream
