// What is typed for the tool, one a line: numbers, settings, names of files and of pixel layouts.
#include <vector>

#include "Containers.h"
#include "ControlText.h"
#include "Input.h"
#include "Units.h"

namespace tessel::fuzz {
namespace {

using namespace tool;

void ReadNumbers(const std::string& text) {
  std::string error;
  int value = 0;
  double seconds = 0;
  const bool is_whole = ParseWhole(text, -1000, 1'000'000'000, value, error);
  Require(is_whole == error.empty(), "a refused number has a reason");
  Require(!is_whole || (value >= -1000 && value <= 1'000'000'000), "in the range");
  if (is_whole) Touch(SoundText(value, value));
  error.clear();
  if (ParseScaled(text, 0, 2'000'000'000, value, error)) {
    int again = -1;
    Require(ParseScaled(ScaledText(value), 0, 2'000'000'000, again, error) && again == value,
            "a number is read as it is shown");
  }
  if (ParseSeconds(text, seconds, error)) Require(seconds > 0 && seconds < 2e9, "seconds");
}

void ReadSettings(const std::string& text) {
  std::string error;
  const ControlRow* row = nullptr;
  int value = 0;
  if (ParseSetting(text, row, value, error)) {
    Require(value >= row->least && value <= row->most, "in the range of its row");
  }
  error.clear();
  ControlChange change = {};
  if (ParseChange(text, change, error)) {
    Require(change.frame >= 0 && change.value <= change.row->most, "in the range of its row");
  } else {
    Require(!error.empty(), "a refused setting has a reason");
  }
}

void FindFiles(const std::string& text) {
  using enum MediaKind;
  const std::vector<MediaKind> pairs[] = {{}, {kRaw}, {kH264, kAac}, {kBytes, kPcm}};
  for (const auto& kinds : pairs) {
    const Container* container = FindContainer(text, kinds);
    Touch(ContainersOf(kinds));
    if (container == nullptr) continue;
    std::string error;
    Require(TakesFormat(*container, text, error) || !error.empty(), "a refusal has a reason");
    IsPictures(*container);
  }
  std::string error;
  Require(TakesFormat(*FindContainer("a.y4m"), text, error) == error.empty(), "or a reason");
  PixelFormat(text);
  IsPattern(text);
}

}  // namespace

int FuzzTool(const std::uint8_t* data, std::size_t size_bytes) {
  Input input(data, size_bytes);
  while (!input.IsEmpty()) {
    const std::string line = input.Line();
    const std::string text = line.substr(0, line.find('\0'));  // an argument ends there
    ReadNumbers(text);
    ReadSettings(text);
    FindFiles(text);
  }
  return 0;
}

}  // namespace tessel::fuzz
