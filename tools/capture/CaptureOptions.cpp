#include "CaptureOptions.h"

#include <algorithm>

namespace tessel::tool {
namespace {

using Given = std::optional<SettingValue>;

Given Number(const std::optional<int>& option) {
  return option ? Given({.number = *option}) : std::nullopt;
}
Given Text(const std::string& option) {
  return option.empty() ? std::nullopt : Given({.text = option.c_str()});
}
Given Flag(bool is_given) { return is_given ? Given(SettingValue()) : std::nullopt; }

constexpr OptionRow kRows[] = {
    {"gop", "has no GOP", [](auto& all) { return Number(all.gop); }},
    {"goptype", "has no GOP", [](auto& all) { return Text(all.goptype); }},
    {"key-every", "has key frames only", [](auto& all) { return Flag(all.key_every > 0); }},
    {"key-at", "has key frames only", [](auto& all) { return Flag(!all.key_at.empty()); }},
    {"format", "has no choice of formats", [](auto& all) { return Text(all.format); }},
    {"width", "", [](auto& all) { return Number(all.width); }},
    {"height", "", [](auto& all) { return Number(all.height); }},
    {"sensor", "has no sensor", [](auto& all) { return Flag(all.inputs.HasSensor()); }},
    {"once", "has no sensor", [](auto& all) { return Flag(all.inputs.once); }},
    {"unpaced", "has no sensor", [](auto& all) { return Flag(all.inputs.unpaced); }},
    {"mic", "", [](auto& all) { return Flag(all.inputs.HasMic()); }},
    {"rate", "", [](auto& all) { return Number(all.rate); }},
    {"channels", "", [](auto& all) { return Number(all.channels); }},
    {"profile", "has no profile", [](auto& all) { return Text(all.profile); }},
    {"bandwidth", "has no encoder", [](auto& all) { return Number(all.bandwidth_hz); }},
    {"sound-bitrate", "has no encoder", [](auto& all) { return Number(all.sound_bit_rate_bps); }},
};

}  // namespace

std::span<const OptionRow> OptionRows() { return kRows; }

const ControlChange* CaptureOptions::FirstOf(const char* control) const {
  const ControlRow* row = FindControl(control);
  const auto found = std::find_if(changes.begin(), changes.end(),
                                  [row](const auto& change) { return change.row == row; });
  return found == changes.end() ? nullptr : &*found;
}

}  // namespace tessel::tool
