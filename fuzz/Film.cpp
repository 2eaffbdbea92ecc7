// Media files: the first byte says how one is played, the rest is the file.
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
#include <libavutil/mem.h>
}

#include "Clock.h"
#include "Input.h"
#include "MediaInput.h"
#include "PixelFormats.h"
#include "Scaler.h"
#include "SoundCard.h"
#include "SoundFile.h"
#include "UniqueFd.h"

namespace tessel::fuzz {
namespace {

using namespace rtos;

constexpr int kSteps = 40;

void PlayPictures(const std::string& path, bool loop, bool keeps_lead) {
  std::string error;
  const auto film = MediaInput::OpenFile(path, loop, error);
  Require((film == nullptr) != error.empty(), "a refused film has a reason");
  if (film == nullptr) return;
  if (keeps_lead) film->KeepLead();
  Scaler scaler(Planar420(), Colours::kVideo);
  const PictureBuffer into(Planar420(), 64, 32);
  for (int i = 0; i < kSteps; ++i) {
    const auto step = film->AdvanceTo(i * kSecondNs / 25);
    Require(step != MediaInput::Step::kFailed || !film->Error().empty(), "failed for a reason");
    if (step == MediaInput::Step::kFailed || step == MediaInput::Step::kEnd) return;
    if (!film->Render(scaler, into.Get())) return;
  }
}

void PlaySound(const std::string& path, bool loop, bool keeps_lead) {
  std::string error;
  const auto film = SoundFile::Open(path, loop, {48000, 2}, error);
  Require((film == nullptr) != error.empty(), "a refused film has a reason");
  if (film == nullptr) return;
  if (keeps_lead) film->KeepLead();
  std::vector<std::int16_t> block(9600);
  for (int i = 0; i < kSteps; ++i) {
    std::int64_t time_ns = 0;
    const auto step = film->Read(block, time_ns);
    Require(step != SoundInput::Step::kFailed || !film->Error().empty(), "failed for a reason");
    if (step != SoundInput::Step::kSamples) return;
    Touch(std::as_bytes(std::span(block)));
  }
}

// What is no camera, and a sound card that is silent where there is one.
void OpenDevices(const std::string& path) {
  std::string error;
  Require(MediaInput::OpenCamera(path, 64, 32, 30, error) == nullptr, "a file is no camera");
  const auto card = SoundCard::Open("null", "alsa:null", {8000, 1}, error);
  if (card == nullptr) return;
  card->Start();
  std::vector<std::int16_t> block(160);
  std::int64_t time_ns = 0;
  for (int i = 0; i < kSteps; ++i) card->Read(block, time_ns);
}

}  // namespace

int FuzzFilm(const std::uint8_t* data, std::size_t size_bytes) {
  av_max_alloc(std::size_t{64} << 20);  // a header may claim pictures that take gigabytes
  Input input(data, size_bytes);
  const auto how = input.Take<std::uint8_t>();
  const UniqueFd file(memfd_create("film", MFD_CLOEXEC));
  const auto bytes = input.Bytes(input.Size());
  Require(write(file.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
          "there is a file");
  const std::string path = "/proc/self/fd/" + std::to_string(file.Get());
  if (how == 4) OpenDevices(path);
  PlayPictures(path, (how & 1) != 0, (how & 2) != 0);
  PlaySound(path, (how & 1) != 0, (how & 2) != 0);
  return 0;
}

}  // namespace tessel::fuzz
