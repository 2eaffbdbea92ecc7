// Measures raw pictures at 1080p: the client's cost to receive a picture, compared with the cost to
// copy it; the pictures per second through the plug-in, divided by those of the test pattern alone;
// and the lateness of the synthetic source.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include <time.h>

#include "quill/Host.h"
#include "tessel/IYuvSource.h"
#include "TestPattern.h"

#include <CLI/CLI.hpp>

namespace {

using tessel::api::streaming::IYuvSource;
using tessel::api::streaming::common::frame_t;
using Clock = std::chrono::steady_clock;
using Source = quill::host::Handle<IYuvSource>;
using Frame = std::shared_ptr<frame_t>;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr std::size_t kPictureBytes = std::size_t{kWidth} * kHeight * 3 / 2;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// CPU time of all threads of this process: the client, the plug-in and the host library.
double ProcessCpuUs() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

Source Play(bool paced) {
  quill::host::Options options;
  options.paced = paced;
  quill::host::SetOptions(options);
  auto source = quill::host::Create<IYuvSource>("ApiYuvSource-dualos-pull");
  if (!source || !source->Open() || !source->Start()) std::exit(EXIT_FAILURE);
  return source;
}

Frame Next(const Source& source) {
  Frame frame;
  if (!source->PullFrame(frame, true) || frame->size != kPictureBytes) std::exit(EXIT_FAILURE);
  return frame;
}

// CPU time per frame at 30 pictures a second: to receive each frame, then to copy it.
void MeasureClient(int frames) {
  const Source source = Play(true);
  std::vector<std::uint8_t> copy(kPictureBytes);
  for (int i = 0; i < 30; ++i) std::memcpy(copy.data(), Next(source)->data, kPictureBytes);
  double receive_us = 0;
  double copy_us = 0;
  for (int i = 0; i < frames; ++i) {
    const double start_us = ProcessCpuUs();
    const Frame frame = Next(source);
    const double received_us = ProcessCpuUs();
    std::memcpy(copy.data(), frame->data, kPictureBytes);
    receive_us += received_us - start_us;
    copy_us += ProcessCpuUs() - received_us;
  }
  std::printf(
      "{\"bench\":\"raw_client\",\"frames\":%d,\"receive_cpu_us\":%.1f,\"memcpy_cpu_us\":%.1f,"
      "\"ratio\":%.3f}\n",
      frames, receive_us / frames, copy_us / frames, receive_us / copy_us);
}

double PatternRate(int frames) {
  const tessel::rtos::TestPattern pattern(kWidth, kHeight, tessel::rtos::Colours::kVideo);
  std::vector<std::uint8_t> memory(kPictureBytes);
  constexpr std::size_t kLuma = std::size_t{kWidth} * kHeight;
  const tessel::rtos::Picture picture = {
      .width = kWidth,
      .height = kHeight,
      .planes = {memory.data(), memory.data() + kLuma, memory.data() + kLuma + kLuma / 4},
      .strides = {kWidth, kWidth / 2, kWidth / 2}};
  const auto draw = [&](int count) {
    for (int i = 0; i < count; ++i) pattern.Draw(static_cast<std::uint32_t>(i), picture, false);
  };
  draw(frames / 10);
  const auto start = Clock::now();
  draw(frames);
  return frames / SecondsSince(start);
}

double PluginRate(int frames) {
  const Source source = Play(false);
  for (int i = 0; i < frames / 10; ++i) Next(source);
  const auto start = Clock::now();
  for (int i = 0; i < frames; ++i) Next(source);
  return frames / SecondsSince(start);
}

void MeasureThroughput(int frames, int rounds) {
  std::vector<double> ratios;
  std::vector<double> plugin;
  std::vector<double> pattern;
  for (int i = 0; i < rounds; ++i) {
    pattern.push_back(PatternRate(frames));
    plugin.push_back(PluginRate(frames));
    ratios.push_back(plugin.back() / pattern.back());
  }
  const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
  std::printf(
      "{\"bench\":\"raw_unpaced\",\"frames\":%d,\"rounds\":%d,\"plugin_fps\":%.0f,"
      "\"pattern_fps\":%.0f,\"ratio\":%.3f,\"ratio_min\":%.3f,\"ratio_max\":%.3f}\n",
      frames, rounds, Median(plugin), Median(pattern), Median(ratios), *least, *most);
}

// By how much frames are delivered later than scheduled.
void MeasureSchedule(int rate, std::size_t frames) {
  auto source = quill::host::Create<IYuvSource>("ApiYuvSource-dualos-push-fake");
  std::vector<double> late_us;
  late_us.reserve(frames);
  std::mutex mutex;
  std::condition_variable done;
  source->SetFrameRate(rate);
  source->RegisterOutputCallback([&](Frame& frame) {
    const auto now_ns = Clock::now().time_since_epoch().count();
    const std::lock_guard lock(mutex);
    if (late_us.size() < frames) {
      late_us.push_back(static_cast<double>(now_ns - frame->timestamp) / 1e3);
    }
    if (late_us.size() == frames) done.notify_one();
    return true;
  });
  source->Start();
  {
    std::unique_lock lock(mutex);
    done.wait(lock, [&] { return late_us.size() == frames; });
  }
  source->Stop();
  double sum_us = 0;
  for (const double late : late_us) sum_us += late;
  std::sort(late_us.begin(), late_us.end());
  std::printf(
      "{\"bench\":\"synthetic\",\"rate\":%d,\"frames\":%zu,\"late_mean_us\":%.0f,"
      "\"late_p99_us\":%.0f}\n",
      rate, frames, sum_us / static_cast<double>(frames), late_us[frames * 99 / 100]);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures raw pictures and the synthetic source.");
  int frames = 600;
  int rounds = 7;
  app.add_option("--frames", frames, "Pictures a measurement")->capture_default_str();
  app.add_option("--rounds", rounds, "Paired rounds of the throughput")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  if (!quill::host::LoadPlugin()) return EXIT_FAILURE;
  MeasureClient(std::min(frames, 300));
  MeasureThroughput(frames, rounds);
  MeasureSchedule(30, 300);
  MeasureSchedule(1000, 5000);
  return EXIT_SUCCESS;
}
