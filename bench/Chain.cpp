// Measures the whole unpaced chain, 1080p test pattern to H.264: the frames per second through the
// plug-in divided by those of the same sensor and encoder called directly in this process. The two
// alternate. Then measures the time from Create() to the first frame, with a real-time side that
// has to be started and with one that runs already.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <signal.h>

#include <CLI/CLI.hpp>

#include "CameraSource.h"
#include "H264Encoder.h"
#include "quill/Host.h"
#include "quill/VbrcBlock.h"
#include "SessionProducer.h"
#include "tessel/IH264Source.h"

namespace {

using tessel::api::streaming::IH264Source;
using tessel::api::streaming::common::frame_t;
using namespace tessel::rtos;
using Clock = std::chrono::steady_clock;

constexpr char kPull[] = "ApiH264Source-dualos-cbrc-pull";

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// Sensor and encoder alone, called in a loop.
class DirectChain : private Context, private StopSignal {
 public:
  bool Open() {
    quill::stream::InitVbrcBlock(_block, 0);
    _settings.paced = false;
    Media media;
    std::string error;
    if (!_camera.Open(*this, AttrSet("w=1920,h=1080"), media, error) ||
        !_encoder.Open(*this, AttrSet("goptype=IPPP,gop=15,qp=0,vbrc=1,fr=30,clk=400000"), media,
                       error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return false;
    }
    _slot.resize(media.unit_bytes);
    return true;
  }

  double FramesPerSecond(int frames) {
    _camera.Start();
    _encoder.Start();
    Unit unit;
    const auto start = Clock::now();
    for (int i = 0; i < frames; ++i) {
      unit.control = ReadRateControl(_block);
      unit.room = _slot;
      if (_camera.Await(unit, *this) != Verdict::kPass || _camera.Process(unit) != Verdict::kPass ||
          _encoder.Process(unit) != Verdict::kPass) {
        std::abort();
      }
    }
    return frames / SecondsSince(start);
  }

 private:
  const ChainSettings& Settings() const override { return _settings; }
  VbrcBlock* Block(const char*, std::string&) const override { return &_block; }
  std::unique_ptr<tessel::link::SessionProducer> Session(const char*, std::string&) const override {
    return nullptr;
  }
  int FramesPerSecond() const override { return 30; }
  const ElementRow* Encoder() const override { return &_row; }
  bool SleepUntil(std::int64_t) override { return true; }

  const ElementRow _row = {"", nullptr, true, Colours::kVideo};
  mutable VbrcBlock _block;
  ChainSettings _settings;
  CameraSource _camera;
  H264Encoder _encoder;
  std::vector<std::uint8_t> _slot;
};

// 0 when the stream fails.
double ThroughPlugin(int frames) {
  auto source = quill::host::Create<IH264Source>(kPull);
  if (!source || !source->Open() || !source->Start()) return 0;
  std::shared_ptr<frame_t> frame;
  const auto start = Clock::now();
  for (int i = 0; i < frames; ++i) {
    if (!source->PullFrame(frame, true)) return 0;
  }
  return frames / SecondsSince(start);
}

bool MeasureChain(int frames, int rounds) {
  quill::host::Options options;
  options.paced = false;
  quill::host::SetOptions(options);
  std::vector<double> ratios;
  std::vector<double> plugin;
  std::vector<double> direct;
  for (int i = 0; i < rounds; ++i) {
    DirectChain chain;
    if (!chain.Open()) return false;
    direct.push_back(chain.FramesPerSecond(frames));
    plugin.push_back(ThroughPlugin(frames));
    ratios.push_back(plugin.back() / direct.back());
  }
  std::printf(
      "{\"bench\":\"chain\",\"frames\":%d,\"rounds\":%d,\"plugin_fps\":%.1f,"
      "\"direct_fps\":%.1f,\"ratio\":%.3f,\"ratio_min\":%.3f,\"ratio_max\":%.3f}\n",
      frames, rounds, Median(plugin), Median(direct), Median(ratios),
      *std::min_element(ratios.begin(), ratios.end()),
      *std::max_element(ratios.begin(), ratios.end()));
  return Median(plugin) > 0;
}

// Milliseconds of each step up to the first frame.
struct Steps {
  double create = 0;
  double open = 0;
  double start = 0;
  double frame = 0;
};

Steps ToFirstFrame() {
  const auto ms = [begin = Clock::now()]() mutable {
    const double taken = SecondsSince(begin) * 1e3;
    begin = Clock::now();
    return taken;
  };
  Steps steps;
  auto step = ms;
  auto source = quill::host::Create<IH264Source>(kPull);
  steps.create = step();
  const bool is_open = source && source->Open();
  steps.open = step();
  const bool is_playing = is_open && source->Start();
  steps.start = step();
  std::shared_ptr<frame_t> frame;
  if (!is_playing || !source->PullFrame(frame, true)) std::abort();
  steps.frame = step();
  return steps;
}

void PrintSteps(const char* when, const std::vector<Steps>& all) {
  const auto median = [&](double Steps::*step) {
    std::vector<double> values;
    values.reserve(all.size());
    for (const Steps& steps : all) values.push_back(steps.*step);
    return Median(values);
  };
  std::printf(
      "{\"bench\":\"first_frame\",\"real_time_side\":\"%s\",\"rounds\":%zu,"
      "\"create_ms\":%.3f,\"open_ms\":%.3f,\"start_ms\":%.3f,\"frame_ms\":%.3f}\n",
      when, all.size(), median(&Steps::create), median(&Steps::open), median(&Steps::start),
      median(&Steps::frame));
}

void MeasureFirstFrame(int rounds) {
  quill::host::SetOptions({});
  std::vector<Steps> cold;
  std::vector<Steps> warm;
  for (int i = 0; i < rounds; ++i) {
    if (const pid_t running = quill::host::RtosProcessId()) kill(running, SIGKILL);
    while (quill::host::RtosProcessId() != 0) usleep(1000);  // another thread notices its death
    cold.push_back(ToFirstFrame());
    warm.push_back(ToFirstFrame());
  }
  PrintSteps("to be started", cold);
  PrintSteps("running", warm);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Whole chain against the encoder alone, and the time to the first frame");
  int frames = 300;
  int rounds = 7;
  app.add_option("--frames", frames, "frames of one run")->check(CLI::PositiveNumber);
  app.add_option("--rounds", rounds, "runs of each")->check(CLI::PositiveNumber);
  CLI11_PARSE(app, argc, argv);
  if (!quill::host::LoadPlugin()) return EXIT_FAILURE;
  if (!MeasureChain(frames, rounds)) return EXIT_FAILURE;
  MeasureFirstFrame(rounds);
  return EXIT_SUCCESS;
}
