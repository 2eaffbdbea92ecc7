// A source of video or sound that is captured, and the kind that it is of.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "quill/Host.h"
#include "tessel/IBitRateControl.h"
#include "tessel/IStreamOutput.h"
#include "tessel/IVideo.h"

#include "MediaFormat.h"

namespace tessel::tool {

inline constexpr std::int64_t kSecondNs = 1'000'000'000;

struct CaptureSource;

// The value of an option: a number or a text, as the option takes it. Borrows the text.
struct SettingValue {
  int number = 0;
  const char* text = "";
};

// An option of `tessel capture` that a kind of source takes.
struct SourceSetting {
  const char* option;  // its name without "--"
  // Passes the value on to the source. Null: the option concerns its input or the capture itself.
  void (*set)(CaptureSource& source, const SettingValue& value) = nullptr;
};

struct SourceKind {
  const char* text;  // in a list
  const char* noun;  // as the subject of a sentence
  MediaKind media;
  // Whether `made`, an object of that class, is of this kind.
  bool (*is)(quill::base::object& made, const std::string& class_name);
  // What it delivers, except for the frame rate. REQUIRES: it is open where `header` matters.
  MediaFormat (*read)(const CaptureSource& source);
  int (*bit_rate)(const CaptureSource& source);  // bits/s, as measured or announced; 0 without one
  std::array<std::span<const SourceSetting>, 4> settings;

  // The setting for an option, or null when this kind does not take it.
  const SourceSetting* Find(std::string_view option) const {
    for (const auto& group : settings) {
      for (const SourceSetting& setting : group) {
        if (option == setting.option) return &setting;
      }
    }
    return nullptr;
  }
};

// Holds the source. Client's thread.
struct CaptureSource {
  // One of its interfaces. REQUIRES: its kind has it.
  template <typename Interface>
  Interface& As() const {
    return dynamic_cast<Interface&>(*stream.Object());
  }

  bool IsSound() const { return tool::IsSound(kind->media); }
  // Whether its frame rate is lower than the rate that it captures at.
  bool IsThinned() const { return Takes("capture-fps"); }
  bool Takes(std::string_view option) const { return kind->Find(option) != nullptr; }
  // Passes the value of an option on. Options that it does not take change nothing.
  void Set(std::string_view option, const SettingValue& value);
  int FramesPerSecond() const;  // of video
  int BitRate() const { return kind->bit_rate(*this); }
  MediaFormat Format() const;  // REQUIRES: it is open

  std::string name;  // as the user typed it
  const SourceKind* kind = nullptr;
  quill::host::Handle<api::streaming::common::IStreamOutput> stream;
  api::streaming::common::IBitRateControl* control = nullptr;  // null without rate control
  api::streaming::common::ITrigger* trigger = nullptr;         // null where it has no effect
  int raw_rate = 0;  // frames/s of video without rate control
};

}  // namespace tessel::tool
