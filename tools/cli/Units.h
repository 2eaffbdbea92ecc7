// Numbers as they are typed and shown.
#pragma once

#include <string>
#include <string_view>

namespace tessel::tool {

// A whole number in `least`..`most`, the whole text. False with `error` saying what is wrong with
// it.
[[nodiscard]] bool ParseWhole(std::string_view text, int least, int most, int& value,
                              std::string& error);

// The same, but a decimal factor may follow, and then a fraction is allowed: "500k", "2.5M", "1G".
[[nodiscard]] bool ParseScaled(std::string_view text, int least, int most, int& value,
                               std::string& error);

// Seconds above 0, with a fraction or not.
[[nodiscard]] bool ParseSeconds(std::string_view text, double& seconds, std::string& error);

// "48000 Hz, 2 channels".
std::string SoundText(int rate, int channels);

// "2M", "500k", "1234567": the shortest text that ParseScaled() reads back.
std::string ScaledText(int value);

}  // namespace tessel::tool
