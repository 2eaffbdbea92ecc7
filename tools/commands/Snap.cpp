// `tessel snap`: still pictures.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

#include "quill/Host.h"
#include "tessel/IPhotography.h"

#include "Arguments.h"
#include "Commands.h"
#include "Console.h"
#include "ErrorLog.h"
#include "Interrupts.h"

namespace tessel::tool {
namespace {

using api::streaming::IPhotography;
using Taker = quill::host::Handle<IPhotography>;
using Clock = std::chrono::steady_clock;

struct SnapOptions {
  std::vector<std::string>
      urls;                   // "file://…", or paths; "%d" and "%03d" become the picture's number
  int count = 1;              // pictures of each URL
  int interval_ms = 0;        // from request to request; 0: each once the one before is written
  std::optional<int> width;   // pixels
  std::optional<int> height;  // pixels
  std::optional<int> qp;
  bool photography = false;  // by the photography class
  InputOptions inputs;
};

// The digits that the pattern at the front of `text` asks for, "%d" or "%01d" to "%09d"; 0: none.
int PatternDigits(std::string_view text) {
  if (text.starts_with("%d")) return 1;
  const bool is_padded = text.size() > 3 && text.starts_with("%0") && text[3] == 'd';
  return is_padded && text[2] >= '1' && text[2] <= '9' ? text[2] - '0' : 0;
}

// The first pattern stands for `number`.
std::string Numbered(const std::string& text, int number) {
  for (std::size_t i = text.find('%'); i != std::string::npos; i = text.find('%', i + 1)) {
    const int digits = PatternDigits(std::string_view(text).substr(i));
    if (digits == 0) continue;
    const std::size_t length = text[i + 1] == 'd' ? 2 : 4;
    return text.substr(0, i) + Format("%0*d", digits, number) + text.substr(i + length);
  }
  return text;
}

// A text without a scheme is a path.
std::string UrlOf(const std::string& text) {
  return text.find("://") != std::string::npos ? text : quill::host::FileUrlOf(text);
}

// Whether no picture can come any more: the real-time side is gone, or the chain of this process,
// which has only one, has ended.
bool IsOver() {
  if (quill::host::RtosProcessId() == 0) return true;
  std::vector<quill::host::RtosStream> streams;
  std::string error;
  return quill::host::ListRtosStreams(streams, error) &&
         std::any_of(streams.begin(), streams.end(), [](const auto& stream) {
           return stream.client == getpid() &&
                  (stream.state == "ended" || stream.state == "failed");
         });
}

// Takes the pictures one after the other and prints a line for each. A picture that fails does not
// end the others, unless no further one can come. Client's thread, except End().
class SnapRun {
 public:
  explicit SnapRun(const SnapOptions& options) : _options(options) {}
  int Run();
  void End();  // any thread

 private:
  bool Open();
  int TakeAll();
  bool Take(const std::string& url);
  bool WaitUntil(Clock::time_point due);
  void Exchange(Taker& taker);
  bool HasEnded() const { return _has_ended; }

  const SnapOptions& _options;
  Taker _taker;  // changes under _mutex
  std::atomic<bool> _has_ended{false};
  std::mutex _mutex;
  std::condition_variable _ended;
};

bool SnapRun::Open() {
  SetInputs(_options.inputs);
  const char* name = _options.photography ? "ApiPhotography-dualos" : "ApiJpegSnap-dualos";
  ErrorLog::Forget();
  Taker made = quill::host::Create<IPhotography>(name);
  Exchange(made);
  if (_taker && _options.width) _taker->SetWidth(*_options.width);
  if (_taker && _options.height) _taker->SetHeight(*_options.height);
  if (_taker && _options.qp) _taker->SetQP(*_options.qp);
  if (_taker && _taker->Open() && _taker->Start()) return true;
  Say(std::string("cannot open ") + name + ": " + ErrorLog::LastReason());
  return false;
}

bool SnapRun::Take(const std::string& url) {
  ErrorLog::Forget();
  const auto asked = Clock::now();
  _taker->SetURL(url.c_str());
  const bool is_done = _taker->Snap(true);
  const std::chrono::duration<double, std::milli> took = Clock::now() - asked;
  if (HasEnded()) return true;
  std::string path;
  std::string error;
  std::error_code failure;
  if (is_done && quill::host::ReadFileUrl(url, path, error)) {
    const auto bytes = std::filesystem::file_size(path, failure);
    std::printf("%s %ju bytes %.1f ms\n", url.c_str(), failure ? 0 : bytes, took.count());
    std::fflush(stdout);
    return true;
  }
  const std::string reason = ErrorLog::LastReason();
  Say("cannot write " + (reason.starts_with(url) ? "" : url + ": ") + reason);
  if (IsOver()) End();  // all others would fail alike
  return false;
}

// False when the run has been ended.
bool SnapRun::WaitUntil(Clock::time_point due) {
  std::unique_lock lock(_mutex);
  return !_ended.wait_until(lock, due, [this] { return HasEnded(); });
}

void SnapRun::End() {
  const std::lock_guard lock(_mutex);
  _has_ended = true;
  _ended.notify_all();
  if (_taker) _taker.Object()->Enable(false);  // ends the wait for a picture
}

void SnapRun::Exchange(Taker& taker) {
  const std::lock_guard lock(_mutex);
  std::swap(_taker, taker);
}

int SnapRun::Run() {
  const int exit_code = Open() ? TakeAll() : static_cast<int>(kFailed);
  Taker gone;
  Exchange(gone);  // End() no longer reaches it, and it closes outside the lock
  return exit_code;
}

int SnapRun::TakeAll() {
  bool is_whole = true;
  Clock::time_point due = Clock::now();
  for (int round = 1; round <= _options.count; ++round) {
    for (const std::string& url : _options.urls) {
      if (!WaitUntil(due)) return is_whole ? kDone : kFailed;
      due = std::max(due + std::chrono::milliseconds(_options.interval_ms), Clock::now());
      is_whole = Take(UrlOf(Numbered(url, round))) && is_whole;
    }
  }
  return is_whole ? kDone : kFailed;
}

void ReadSize(const std::string& text, SnapOptions& options) {
  const auto cross = text.find('x');
  const auto side = [&text](std::size_t from, std::size_t count, std::optional<int>& into) {
    int pixels = 0;
    std::string error;
    if (!ParseWhole(text.substr(from, count), 2, kMostPixels, pixels, error)) {
      Refuse("--size", Quoted(text) + " is no size such as 1280x720: " + error);
    }
    into = pixels;
  };
  if (cross == text.npos) Refuse("--size", Quoted(text) + " is no size such as 1280x720");
  side(0, cross, options.width);
  side(cross + 1, text.npos, options.height);
}

class SnapCommand : public Command {
 public:
  explicit SnapCommand(CLI::App& tool);
  bool WatchesInterrupts() const override { return true; }
  int Run() override;

 private:
  SnapOptions _options;
};

SnapCommand::SnapCommand(CLI::App& tool)
    : Command(tool, "snap", "Take still pictures",
              "A line a picture: URL, size, milliseconds from the request to the file. One that "
              "cannot be\nwritten does not end the others; the exit code is 1 then.\n\n"
              "Examples:\n  tessel snap door.jpeg --size 1280x720\n"
              "  tessel snap file:///tmp/shot-%03d.jpeg --count 10 --interval 500\n") {
  _app.add_option("URL", _options.urls,
                  "file:// URL or path; %d or %03d in it becomes the picture's number")
      ->required();
  AddWhole(_app, "--count", 1, kMostCount, _options.count, "Pictures of each URL");
  AddWhole(_app, "--interval", 0, kMostCount, _options.interval_ms,
           "Milliseconds from request to request; else as fast as they come");
  AddText(_app, "--size", "WxH", "Picture size, pixels [1920x1080]",
          [this](const std::string& text) { ReadSize(text, _options); });
  AddWhole(_app, "--qp", 0, 51, _options.qp, "Quantiser; 0 leaves it to the encoder");
  _app.add_flag("--photography", _options.photography, "By the photography class");
  AddInputs(_app, _options.inputs, "Without waiting for the sensor's next picture");
  AddRtos();
}

int SnapCommand::Run() {
  const auto run = std::make_shared<SnapRun>(_options);
  // The thread that waits for interrupts holds the run as long as the process lives.
  if (!WatchInterrupts([run] { run->End(); })) return kFailed;
  return run->Run();
}

}  // namespace

std::unique_ptr<Command> AddSnap(CLI::App& tool) { return std::make_unique<SnapCommand>(tool); }

}  // namespace tessel::tool
