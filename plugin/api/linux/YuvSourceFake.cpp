#include "YuvSourceFake.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "quill/Debug.h"

namespace tessel::dualos {

using quill::stream::Fail;
using quill::stream::Failed;
using quill::stream::kMagenta;
using quill::stream::TraceIn;
using std::chrono::nanoseconds;

namespace {

constexpr nanoseconds kSecond = std::chrono::seconds(1);
// PullFrame() does not wait for a frame that is due sooner than this.
constexpr nanoseconds kTolerance = std::chrono::milliseconds(10);
constexpr nanoseconds kNap = std::chrono::milliseconds(100);

// Not cleared: the buffer never holds a picture.
std::unique_ptr<std::uint32_t[]> MakeBuffer(int size_bytes) {
  return std::unique_ptr<std::uint32_t[]>(new std::uint32_t[static_cast<unsigned>(size_bytes) / 4]);
}

const std::uint8_t* BytesOf(const std::uint32_t* words) {
  return reinterpret_cast<const std::uint8_t*>(words);
}

}  // namespace

YuvSourceFake::YuvSourceFake(bool pullMode) : _pullmode(pullMode) {}

YuvSourceFake::~YuvSourceFake() {
  if (_worker == nullptr) return;
  YuvSourceFake::Stop();
  DropWorker();
}

void YuvSourceFake::RegisterMessageCallback(const std::function<bool(const char*)>&) {}

bool YuvSourceFake::SendMessage(const char*) { return true; }

bool YuvSourceFake::IsSupportedPullFrame() const { return _pullmode; }

bool YuvSourceFake::IsSupportedOutputFrameCallback() const { return !_pullmode; }

bool YuvSourceFake::RegisterOutputCallback(const OutputCallback& cb) {
  _output.Set(cb ? std::make_unique<const OutputCallback>(cb) : nullptr);
  return !_pullmode;
}

std::string YuvSourceFake::GetMediaInfo() const { return _media_info; }

void YuvSourceFake::SelectSensor(int index) { _sensor = index; }

void YuvSourceFake::SetFrameRate(int frames_per_second) {
  _frame_rate.store(frames_per_second, std::memory_order_relaxed);
}

bool YuvSourceFake::Open() {
  TraceIn(kMagenta, "_yuv.width=", _yuv.width);
  TraceIn(kMagenta, "_yuv.height=", _yuv.height);
  TraceIn(kMagenta, "_yuv.format=", _yuv.format);
  return true;
}

bool YuvSourceFake::Close() { return true; }

bool YuvSourceFake::IsWorker() const { return _loop_thread.load() == std::this_thread::get_id(); }

void YuvSourceFake::JoinWorker() {
  _worker->join();
  _worker.reset();
  _output.FreeReplaced();
}

void YuvSourceFake::DropWorker() {
  // The worker itself must not read _worker here: Start() may not have stored the pointer yet.
  if (IsWorker() || (_worker != nullptr && _running.load())) {
    Fail("_worker", "the worker still runs");
    std::terminate();
  }
  // Its own callback has stopped it, but could not join it.
  if (_worker != nullptr) JoinWorker();
}

bool YuvSourceFake::Start() {
  if (_pullmode) return true;
  DropWorker();
  _running.store(true);
  _worker = std::make_unique<std::thread>([this] { Loop(); });
  return true;
}

bool YuvSourceFake::Stop() {
  if (!_output.IsSet()) return true;
  if (IsWorker()) {
    _running.store(false);  // the next call joins it
    return true;
  }
  if (_worker == nullptr) return true;
  _running.store(false);
  JoinWorker();
  return true;
}

nanoseconds YuvSourceFake::DueAfter(std::int64_t frames, int rate) {
  return nanoseconds(rate == 0 ? 0 : frames * kSecond.count() / rate);
}

int YuvSourceFake::AwaitFrameRate() const {
  for (;;) {
    const int rate = _frame_rate.load(std::memory_order_relaxed);
    if (rate != 0 || !_running.load()) return rate;
    std::this_thread::sleep_for(kNap);
  }
}

// Sleeps for short times only, so that Stop() does not wait long at a low rate.
void YuvSourceFake::SleepUntil(Clock::time_point due) const {
  for (Clock::time_point now = Clock::now(); now < due && _running.load(); now = Clock::now()) {
    std::this_thread::sleep_until(std::min(due, now + kNap));
  }
}

void YuvSourceFake::Loop() {
  _loop_thread.store(std::this_thread::get_id());
  const Clock::time_point start = Clock::now();
  const int size_bytes = _yuv.bufferSize;
  const std::unique_ptr<std::uint32_t[]> buffer = MakeBuffer(size_bytes);
  Clock::time_point due = start;
  for (std::int64_t n = 0; _running.load();) {
    if (const OutputCallback* output = _output.Claim()) {
      auto frame = std::make_shared<frame_t>();
      frame->seq = static_cast<std::uint32_t>(n);
      frame->data = BytesOf(buffer.get());
      frame->size = static_cast<std::uint32_t>(size_bytes);
      frame->isKey = true;
      frame->timestamp = due.time_since_epoch().count();
      try {
        (*output)(frame);
      } catch (const std::exception& error) {
        Fail("!output", "a callback has thrown: ", error.what());
      } catch (...) {
        Fail("!output", "a callback has thrown");
      }
      _output.Unclaim();
    }
    ++n;
    due = start + DueAfter(n, AwaitFrameRate());
    SleepUntil(due);
  }
  _loop_thread.store(std::thread::id());
}

bool YuvSourceFake::PullFrame(std::shared_ptr<frame_t>& frame, bool) {
  if (Failed(!_pullmode, "!_pullmode")) return false;
  if (_pull_base == Clock::time_point::min()) _pull_base = Clock::now();
  const int count = _pull_count.load(std::memory_order_relaxed);
  const Clock::time_point due =
      _pull_base + DueAfter(count, _frame_rate.load(std::memory_order_relaxed));
  if (due - Clock::now() > kTolerance) std::this_thread::sleep_until(due);
  auto pulled = std::make_shared<frame_t>();
  std::uint32_t* words = MakeBuffer(_yuv.bufferSize).release();
  pulled->seq = static_cast<std::uint32_t>(count);
  pulled->data = BytesOf(words);
  pulled->size = static_cast<std::uint32_t>(_yuv.bufferSize);
  pulled->isKey = true;
  pulled->timestamp = due.time_since_epoch().count();
  pulled->release = [words] { delete[] words; };
  frame = std::move(pulled);
  _pull_count.fetch_add(1, std::memory_order_relaxed);
  return true;
}

}  // namespace tessel::dualos
