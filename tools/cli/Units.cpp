#include "Units.h"

#include <charconv>
#include <cmath>

#include "Console.h"

namespace tessel::tool {
namespace {

struct Factor {
  char letter;
  int value;
};
constexpr Factor kFactors[] = {{'k', 1'000}, {'K', 1'000}, {'M', 1'000'000}, {'G', 1'000'000'000}};

constexpr double kMostSeconds = 1e9;  // so that nanoseconds fit into 64 bits

// The whole text as a decimal number without an exponent, a sign or a name such as "inf".
bool ReadDecimal(std::string_view text, double& value) {
  if (text.empty() || text.find_first_not_of("0123456789.") != text.npos) return false;
  const auto [end, failure] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  return failure == std::errc() && end == text.data() + text.size();
}

bool IsInside(double number, int least, int most) { return number >= least && number <= most; }

std::string Outside(std::string_view text, const std::string& least, const std::string& most) {
  return std::string(text) + " is outside " + least + ".." + most;
}

}  // namespace

bool ParseWhole(std::string_view text, int least, int most, int& value, std::string& error) {
  double number = 0;
  const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
  if (!ReadDecimal(digits, number) || digits.find('.') != digits.npos) {
    error = Quoted(text) + " is no whole number";
    return false;
  }
  if (text.starts_with('-')) number = -number;
  if (!IsInside(number, least, most)) {
    error = Outside(text, std::to_string(least), std::to_string(most));
    return false;
  }
  value = static_cast<int>(number);
  return true;
}

bool ParseScaled(std::string_view text, int least, int most, int& value, std::string& error) {
  int factor = 1;
  std::string_view digits = text;
  for (const Factor& row : kFactors) {
    if (!text.ends_with(row.letter)) continue;
    factor = row.value;
    digits.remove_suffix(1);
  }
  double number = 0;
  if (!ReadDecimal(digits, number)) {
    error = Quoted(text) + " is no number such as 2M, 500k or 1500000";
    return false;
  }
  // A tenth of a million is no exact binary number.
  const double whole = std::round(number * factor);
  if (std::abs(whole - number * factor) > 1e-3) {
    error = Quoted(text) + " is no whole number";
    return false;
  }
  if (!IsInside(whole, least, most)) {
    error = Outside(text, ScaledText(least), ScaledText(most));
    return false;
  }
  value = static_cast<int>(whole);
  return true;
}

bool ParseSeconds(std::string_view text, double& seconds, std::string& error) {
  double number = 0;
  if (ReadDecimal(text, number) && number > 0 && number <= kMostSeconds) {
    seconds = number;
    return true;
  }
  error = Quoted(text) + " is no number of seconds above 0, such as 10 or 2.5";
  return false;
}

std::string SoundText(int rate, int channels) {
  return Format("%d Hz, %d channel%s", rate, channels, channels == 1 ? "" : "s");
}

std::string ScaledText(int value) {
  if (value == 0) return "0";
  if (value % 1'000'000'000 == 0) return std::to_string(value / 1'000'000'000) + "G";
  if (value % 1'000'000 == 0) return std::to_string(value / 1'000'000) + "M";
  if (value % 1'000 == 0) return std::to_string(value / 1'000) + "k";
  return std::to_string(value);
}

}  // namespace tessel::tool
