// Measures the hand-over of a frame from the real-time side to the client's callback: the real
// plug-in in the real host, the real link, and a second process with the real chain. Only the
// elements named in the layout strings are replaced: the "sensor" writes a stamp, not a picture.
//
// The program is both processes: the host starts it again as the real-time side. A frame is a
// 64-byte header and `--size` payload bytes; each is checked on arrival. The latency is from the
// stamp, which is written last before the frame is published, to the time that is read first in the
// client's callback (or after PullFrame). Prints one JSON line.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "Connection.h"
#include "quill/Host.h"
#include "ShmSink.h"
#include "tessel/IH264Source.h"

namespace {

using namespace tessel::rtos;
using tessel::api::streaming::IH264Source;
using tessel::api::streaming::common::frame_t;

struct Work {
  std::string mode = "paced";
  std::string touch = "edges";
  std::string variant = "push";
  double fps = 200;
  std::size_t size = 8192;
  std::uint64_t frames = 600;
  std::uint64_t warmup = 0;
  int depth = 8;
  bool pin = false;
  int stats_fd = -1;  // in the real-time side: memory shared with the client, a Meeting

  bool IsPaced() const { return mode == "paced"; }
  std::uint64_t Total() const { return warmup + frames; }
};

struct FrameHeader {
  std::uint64_t sequence;
  std::int64_t stamp_ns;
  std::uint64_t size;
  std::uint64_t reserved[5];
};
static_assert(sizeof(FrameHeader) == 64, "one cache line");

// CPU time of this process, all threads.
struct Usage {
  double cpu_us = 0;
  double switches = 0;
};

Usage UsageNow() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  const auto us = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
  };
  return {us(usage.ru_utime) + us(usage.ru_stime),
          static_cast<double>(usage.ru_nvcsw + usage.ru_nivcsw)};
}

std::int64_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

// What the two processes exchange outside of the measured path.
struct Meeting {
  std::atomic<std::uint32_t> consumer_done{0};
  std::atomic<std::uint32_t> producer_done{0};
  double producer_cpu_us = 0;    // of the measured frames
  double producer_switches = 0;  // context switches during these
};

void Futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value) {
  syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}
void Raise(std::atomic<std::uint32_t>& flag) {
  flag.store(1);
  Futex(flag, FUTEX_WAKE, 1);
}
void Await(std::atomic<std::uint32_t>& flag) {
  while (flag.load() == 0) Futex(flag, FUTEX_WAIT, 0);
}

Meeting* MapMeeting(int fd) {
  void* memory = mmap(nullptr, sizeof(Meeting), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<Meeting*>(memory);
}

void PinTo(std::size_t cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  sched_setaffinity(0, sizeof set, &set);
}

Work g_work;  // constant after the command line is read
Meeting* g_meeting = nullptr;

// --- the real-time side ---

// Writes the stamped frame into the slot. It is not live, so nothing is dropped.
class StampSource : public Source {
 public:
  bool Open(const Context&, const AttrSet&, Media& media, std::string&) override {
    media.width = 64;
    media.height = 64;
    media.unit_bytes = sizeof(FrameHeader) + g_work.size;
    return true;
  }

  Verdict Await(Unit& unit, StopSignal&) override {
    if (_next == g_work.Total()) return Finish();
    if (_next == g_work.warmup) _start = UsageNow();
    if (g_work.IsPaced()) {
      if (_next == 0) _anchor_ns = Now() + 20'000'000;
      const auto due_ns =
          _anchor_ns + static_cast<std::int64_t>(static_cast<double>(_next) * 1e9 / g_work.fps);
      const timespec due = {due_ns / 1'000'000'000, due_ns % 1'000'000'000};
      while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr) != 0) {
      }
    }
    unit.capture = static_cast<std::uint32_t>(_next);
    unit.frames_per_second = 1;
    return Verdict::kPass;
  }

  Verdict Process(Unit& unit) override {
    std::uint8_t* payload = unit.room.data() + sizeof(FrameHeader);
    const int fill = static_cast<int>(_next & 0xff);
    if (g_work.touch == "all") {
      std::memset(payload, fill, g_work.size);
    } else {
      const std::size_t edge = std::min<std::size_t>(64, g_work.size);
      std::memset(payload, fill, edge);
      std::memset(payload + g_work.size - edge, fill, edge);
    }
    unit.size_bytes = sizeof(FrameHeader) + g_work.size;
    auto* header = reinterpret_cast<FrameHeader*>(unit.room.data());
    header->size = g_work.size;
    header->sequence = _next++;
    header->stamp_ns = unit.time_ns = Now();
    return Verdict::kPass;
  }

  Verdict Skip(Unit&) override { return Verdict::kPass; }
  bool IsLive() const override { return false; }

 private:
  Verdict Finish() {
    ::Await(g_meeting->consumer_done);
    const Usage end = UsageNow();
    g_meeting->producer_cpu_us = end.cpu_us - _start.cpu_us;
    g_meeting->producer_switches = end.switches - _start.switches;
    Raise(g_meeting->producer_done);
    return Verdict::kEnd;
  }

  std::uint64_t _next = 0;
  std::int64_t _anchor_ns = 0;
  Usage _start;
};

// Only adds the media description, so that the H.264 source opens.
class DescribingEncoder : public Element {
 public:
  bool Open(const Context&, const AttrSet&, Media& media, std::string&) override {
    AttrSet& about = media.description;
    for (const auto& [key, value] : {std::pair{"codec", "h264"},
                                     {"w", "64"},
                                     {"h", "64"},
                                     {"header", "0000000167000000000168"},
                                     {"spsoffset", "4"},
                                     {"isps", "1"},
                                     {"ppsoffset", "10"},
                                     {"ipps", "1"},
                                     {"pack", "byte-stream"}}) {
      about.Add(key, value);
    }
    return true;
  }
  Verdict Process(Unit&) override { return Verdict::kPass; }
};

constexpr ElementRow kElements[] = {{"pv-yuv-src-adv", &MakeElement<StampSource>},
                                    {"h264-encoder-dma", &MakeElement<DescribingEncoder>},
                                    {"ShmSink", &MakeElement<ShmSink>}};

int RunRtos(int connection) {
  if (g_work.pin) PinTo(0);
  g_meeting = MapMeeting(g_work.stats_fd);
  if (g_meeting == nullptr) return EXIT_FAILURE;
  AudioService no_audio;
  RealTimeSide side{kElements, no_audio};
  Connection(tessel::UniqueFd(connection), side).Serve();
  return EXIT_SUCCESS;
}

// --- the client ---

class Receiver {
 public:
  Receiver() { _latencies_ns.assign(g_work.Total(), 0); }

  // True while more frames are to come.
  bool Take(const frame_t& frame) {
    const std::int64_t now_ns = Now();
    FrameHeader header;
    std::memcpy(&header, frame.data, sizeof header);
    const std::uint8_t* payload = frame.data + sizeof header;
    const auto fill = static_cast<std::uint8_t>(_next & 0xff);
    if (frame.size != sizeof header + g_work.size || header.sequence != _next ||
        payload[0] != fill || payload[g_work.size - 1] != fill) {
      std::fprintf(stderr, "frame %llu is lost, torn or out of order\n",
                   static_cast<unsigned long long>(_next));
      std::_Exit(3);
    }
    _latencies_ns[_next] = now_ns - header.stamp_ns;
    if (_next + 1 == g_work.warmup) {
      _start_ns = now_ns;
      _start = UsageNow();
    }
    _end_ns = now_ns;
    return ++_next < g_work.Total();
  }

  // The last frame is released.
  void Finish() {
    _end = UsageNow();
    Raise(g_meeting->consumer_done);
  }

  void Print() {
    Await(g_meeting->producer_done);
    std::vector<std::int64_t> sorted(
        _latencies_ns.begin() + static_cast<std::ptrdiff_t>(g_work.warmup), _latencies_ns.end());
    std::sort(sorted.begin(), sorted.end());
    const auto percentile_us = [&](double part) {
      const double place = std::ceil(part * static_cast<double>(sorted.size()));
      return static_cast<double>(sorted[static_cast<std::size_t>(std::max(place, 1.0)) - 1]) / 1e3;
    };
    const auto frames = static_cast<double>(g_work.frames);
    const double sender_us = g_meeting->producer_cpu_us / frames;
    const double receiver_us = (_end.cpu_us - _start.cpu_us) / frames;
    const double switches =
        (g_meeting->producer_switches + _end.switches - _start.switches) / frames;
    const double rate = frames * 1e9 / static_cast<double>(_end_ns - _start_ns);
    std::printf(
        "{\"transport\":\"tessel-%s\",\"mode\":\"%s\",\"size\":%zu,\"fps\":%.0f,\"frames\":%llu,"
        "\"p50_us\":%.2f,\"p99_us\":%.2f,\"max_us\":%.2f,\"cpu_us_per_frame\":%.2f,"
        "\"fps_out\":%.1f,\"gb_s\":%.3f,\"touch\":\"%s\",\"depth\":%d,\"pin\":%d,"
        "\"cpu_tx_us\":%.2f,\"cpu_rx_us\":%.2f,\"csw_per_frame\":%.2f,\"cpu_daemon_us\":0.00}\n",
        g_work.variant.c_str(), g_work.mode.c_str(), g_work.size,
        g_work.IsPaced() ? g_work.fps : 0.0, static_cast<unsigned long long>(g_work.frames),
        percentile_us(0.5), percentile_us(0.99), percentile_us(1), sender_us + receiver_us, rate,
        rate * static_cast<double>(g_work.size) / 1e9, g_work.touch.c_str(), g_work.depth,
        g_work.pin ? 1 : 0, sender_us, receiver_us, switches);
  }

 private:
  std::vector<std::int64_t> _latencies_ns;
  std::uint64_t _next = 0;
  std::int64_t _start_ns = 0;
  std::int64_t _end_ns = 0;
  Usage _start;
  Usage _end;
};

int RunClient(const std::vector<std::string>& arguments) {
  if (g_work.pin) PinTo(1);
  // The real-time side inherits it. The number is above those that the host gives to the process.
  const int fd = fcntl(memfd_create("bench-meeting", MFD_CLOEXEC), F_DUPFD, 100);
  if (fd < 0 || ftruncate(fd, sizeof(Meeting)) != 0) return EXIT_FAILURE;
  g_meeting = MapMeeting(fd);
  if (g_meeting == nullptr) return EXIT_FAILURE;

  quill::host::Options options;
  options.rtos_program = "/proc/self/exe";
  options.rtos_arguments = arguments;
  options.rtos_arguments.push_back("--stats-fd=" + std::to_string(fd));
  options.session_slots = g_work.depth;
  quill::host::SetOptions(options);
  const std::string name = "ApiH264Source-dualos-cbrc-" + g_work.variant;
  if (!quill::host::LoadPlugin()) return EXIT_FAILURE;
  auto source = quill::host::Create<IH264Source>(name.c_str());
  if (!source) return EXIT_FAILURE;

  Receiver receiver;
  std::atomic<std::uint32_t> received{0};
  source->RegisterOutputCallback([&](std::shared_ptr<frame_t>& frame) {
    if (receiver.Take(*frame)) return true;
    frame.reset();
    receiver.Finish();
    Raise(received);
    return true;
  });
  if (!source->Open() || !source->Start()) return EXIT_FAILURE;
  if (g_work.variant == "pull") {
    std::shared_ptr<frame_t> frame;
    while (source->PullFrame(frame, true) && receiver.Take(*frame)) frame.reset();
    frame.reset();
    receiver.Finish();
  } else {
    Await(received);
  }
  receiver.Print();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Hand-over of frames from the real-time side to the client");
  int connection = -1;
  app.add_option("--connection", connection, "real-time side: the command wire");
  app.add_option("--stats-fd", g_work.stats_fd, "real-time side: memory for the results");
  app.add_option("--mode", g_work.mode, "paced, or flood: as fast as it goes")
      ->check(CLI::IsMember({"paced", "flood"}));
  app.add_option("--fps", g_work.fps, "frames/s when paced")->check(CLI::PositiveNumber);
  app.add_option("--size", g_work.size, "payload bytes")->check(CLI::PositiveNumber);
  app.add_option("--frames", g_work.frames, "measured frames")->check(CLI::PositiveNumber);
  app.add_option("--warmup", g_work.warmup, "frames before these");
  app.add_option("--touch", g_work.touch, "which payload bytes are written")
      ->check(CLI::IsMember({"all", "edges"}));
  app.add_option("--depth", g_work.depth, "frames in flight")->check(CLI::Range(2, 63));
  app.add_option("--variant", g_work.variant, "delivery")->check(CLI::IsMember({"push", "pull"}));
  app.add_flag("--pin", g_work.pin, "real-time side on CPU 0, client on CPU 1");
  CLI11_PARSE(app, argc, argv);
  if (g_work.warmup == 0) {
    g_work.warmup = g_work.IsPaced() ? 20 : std::max<std::uint64_t>(50, g_work.frames / 20);
  }
  if (connection >= 0) return RunRtos(connection);
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.emplace_back(argv[i]);
  return RunClient(arguments);
}
