// The file that describes the board's audio devices, and behind a line "%" requests to these
// devices, one a line.
#include <sstream>

#include "AudioDevices.h"
#include "Input.h"

namespace tessel::fuzz {

int FuzzBoard(const std::uint8_t* data, std::size_t size_bytes) {
  using namespace rtos;
  const std::string text = Input(data, size_bytes).Rest();
  const std::size_t end = std::min(text.find("\n%\n"), text.size());
  std::istringstream file(text.substr(0, end));
  std::string error;
  auto devices = AudioDevices::Read(file, error);
  Require(devices.has_value() == error.empty(), "a refused board has a reason");
  Require(!AudioDevices::Load("/dev/zero", error), "a device is no board file");
  if (!devices) return 0;
  std::istringstream requests(end == text.size() ? "" : text.substr(end + 3));
  for (std::string line; std::getline(requests, line);) {
    const AttrSet untrusted(line.c_str());
    link::ProbeAudio probe;
    link::ProbeAnswer answer;
    std::string refusal;
    const bool is_known =
        Read(untrusted, probe, refusal) && devices->Execute(probe, answer, refusal);
    Require(is_known == refusal.empty(), "a refused probe has a reason");
    link::SetAudio set;
    link::Done done;
    refusal.clear();
    if (!Read(untrusted, set, refusal)) continue;
    if (is_known) set.object_base = answer.object_base;
    Require(devices->Execute(set, done, refusal) == refusal.empty(),
            "a refused setting has a reason");
    const AudioDevice* device = is_known ? devices->Find(probe.device) : nullptr;
    if (device == nullptr) continue;
    Require(device->Gain() >= 0 && device->Gain() <= 1, "a gain is a factor from 0 to 1");
    Require(device->Rate() > 0 && device->Channels() > 0, "a device has samples");
    device->HasAutomaticGain();
  }
  return 0;
}

}  // namespace tessel::fuzz
