// Measures the cost of one frame inside the plug-in: nanoseconds and heap allocations of the push
// and of the pull operation, with packets that cost nothing themselves.
#include <atomic>
#include <cstdlib>
#include <new>

#include <benchmark/benchmark.h>

#include "StreamAppOutput.h"

namespace {

std::atomic<std::size_t> g_allocations{0};

}  // namespace

// Not inlined: otherwise the compiler sees malloc() and delete paired, and warns of a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size_bytes) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size_bytes)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using tessel::dualos::StreamAppOutput;
using frame_t = StreamAppOutput::frame_t;

// Survives the release by its last holder, as a packet in a slot does.
class ResidentPacket : public quill::stream::Packet {
 public:
  ResidentPacket* Fresh() {
    StartHold();
    return this;
  }

 protected:
  void LastReleased() override {}
};

class Output : public StreamAppOutput {
 public:
  Output(bool pull_mode, ResidentPacket& packet) : StreamAppOutput(pull_mode) {
    _funcPull = [&packet](bool) { return packet.Fresh(); };
  }
  std::string AppStringCreate0() override { return ""; }
};

void Report(benchmark::State& state, std::size_t allocations_before) {
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(g_allocations.load() - allocations_before),
                         benchmark::Counter::kAvgIterations);
}

void CbOutput(benchmark::State& state) {
  ResidentPacket packet;
  Output output(false, packet);
  output.RegisterOutputCallback([](std::shared_ptr<frame_t>& frame) {
    benchmark::DoNotOptimize(frame->data);
    return true;
  });
  const std::size_t before = g_allocations.load();
  for ([[maybe_unused]] auto _ : state) {
    packet.Fresh();
    output.CbOutput(&packet);
    packet.Release();
  }
  Report(state, before);
}
BENCHMARK(CbOutput);

void PullFrame(benchmark::State& state) {
  ResidentPacket packet;
  Output output(true, packet);
  std::shared_ptr<frame_t> frame;
  const std::size_t before = g_allocations.load();
  for ([[maybe_unused]] auto _ : state) {
    output.PullFrame(frame, true);
    benchmark::DoNotOptimize(frame->data);
    frame.reset();
  }
  Report(state, before);
}
BENCHMARK(PullFrame);

}  // namespace

BENCHMARK_MAIN();
