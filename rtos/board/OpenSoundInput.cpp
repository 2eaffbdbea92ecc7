#include "OpenSoundInput.h"

#include <charconv>
#include <optional>

#include "InputNames.h"
#include "SoundCard.h"
#include "SoundFile.h"
#include "Tone.h"

namespace tessel::rtos {
namespace {

// What `name` says after `kind` and a colon, `otherwise` where it is `kind` alone; null when it
// is neither.
std::optional<std::string> After(const std::string& name, const std::string& kind,
                                 const std::string& otherwise) {
  if (name == kind) return otherwise;
  if (!name.starts_with(kind + ":")) return std::nullopt;
  return name.substr(kind.size() + 1);
}

std::unique_ptr<SoundInput> OpenTone(const std::string& name, const std::string& frequency,
                                     bool has_beeps, const SoundFormat& format,
                                     std::string& error) {
  int hz = 0;
  const char* end = frequency.data() + frequency.size();
  const auto [rest, failure] = std::from_chars(frequency.data(), end, hz);
  const int highest = has_beeps ? Tone::kBeepHz : hz;
  // From half the sample rate on, a frequency looks like a lower one.
  const int limit = (format.rate - 1) / 2;
  if (failure == std::errc() && rest == end && hz > 0 && highest <= limit) {
    return std::make_unique<Tone>(hz, has_beeps, format);
  }
  error = "microphone \"" + name + "\": " + (has_beeps ? std::to_string(highest) : frequency) +
          " is not a whole number of Hz in 1.." + std::to_string(limit) + ", below half of " +
          std::to_string(format.rate) + " samples/s";
  return nullptr;
}

}  // namespace

std::unique_ptr<SoundInput> OpenSoundInput(const std::string& name, bool loop,
                                           const SoundFormat& format, std::string& error) {
  const std::string default_hz = std::to_string(Tone::kDefaultHz);
  if (name == kTestInput) return OpenTone(name, default_hz, true, format, error);
  if (const auto hz = After(name, kToneInput, default_hz)) {
    return OpenTone(name, *hz, false, format, error);
  }
  if (const auto device = After(name, kSoundCardInput, "default")) {
    return SoundCard::Open(*device, name, format, error);
  }
  return SoundFile::Open(name, loop, format, error);
}

}  // namespace tessel::rtos
