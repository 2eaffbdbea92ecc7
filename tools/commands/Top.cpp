// `tessel top`: the streams of the real-time side, live.
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "quill/Host.h"

#include "Arguments.h"
#include "CaptureStream.h"
#include "Classes.h"
#include "Commands.h"
#include "Console.h"
#include "ErrorLog.h"
#include "FrameInbox.h"
#include "Interrupts.h"
#include "SourceKinds.h"
#include "StreamTable.h"

namespace tessel::tool {
namespace {

using quill::host::RtosStream;
using Clock = FrameInbox::Clock;

// Shows every stream of the real-time side, those of other clients too, and plays sources of its
// own meanwhile.
class TopCommand : public Command {
 public:
  explicit TopCommand(CLI::App& tool);
  bool WatchesInterrupts() const override { return true; }
  int Run() override;

 private:
  bool Play(const std::string& name);
  int Look();
  bool Show(FrameRates& rates, bool is_watched) const;
  bool WaitUntil(Clock::time_point due);

  std::vector<std::string> _names;  // sources to play, as FindCreatable() takes them
  bool _json = false;               // a line a stream, else a screen
  double _interval_s = 1;
  int _count = 0;  // looks; 0: until interrupted

  std::shared_ptr<FrameInbox> _inbox;  // reports Ctrl-C; a lane for each source
  std::vector<std::unique_ptr<CaptureStream>> _streams;
};

TopCommand::TopCommand(CLI::App& tool)
    : Command(tool, "top",
              "Show how the streams of the real-time side are going, those of other clients too",
              "Examples:\n  tessel top --rtos /tmp/board\n"
              "  tessel top h264-vbrc --json --count 10\n") {
  _app.add_option("NAME", _names, "Sources to play here meanwhile");
  _app.add_flag("--json", _json, "One JSON line for each stream at each look");
  AddText(_app, "--interval", "S", "Seconds from look to look [1]",
          [this](const std::string& text) {
            std::string error;
            if (!ParseSeconds(text, _interval_s, error)) Refuse("--interval", error);
          });
  AddWhole(_app, "--count", 1, kMostCount, _count, "End after N looks");
  AddRtos();
  AddBoard();
}

int TopCommand::Run() {
  _inbox = std::make_shared<FrameInbox>(_names.size());
  if (!WatchInterrupts([inbox = _inbox] { inbox->Interrupt(); })) {
    Say("no thread to wait for Ctrl-C");
    return kFailed;
  }
  for (const std::string& name : _names) {
    if (!Play(name)) return kFailed;
  }
  const int exit_code = Look();
  _streams.clear();
  return exit_code;
}

// Plays a source and releases its frames as they come.
bool TopCommand::Play(const std::string& name) {
  std::string error;
  const IClass* record = FindCreatable(name, error);
  if (record == nullptr) {
    Say(error);
    return false;
  }
  std::optional<CaptureSource> source = CreateSource(record->Name(), name, error);
  if (!source) {
    Say(record->Name() + " delivers no frames");
    return false;
  }
  const std::size_t lane = _streams.size();
  _inbox->Discard(lane);
  _streams.push_back(std::make_unique<CaptureStream>(std::move(*source), lane, _inbox));
  if (_streams.back()->Open(error) && _streams.back()->Start(error)) return true;
  Say("cannot play " + record->Name() + ": " + ErrorLog::LastReason());
  return false;
}

int TopCommand::Look() {
  const bool is_watched = !_json && _count == 0 && IsTerminal(STDOUT_FILENO);
  FrameRates rates;
  Clock::time_point due = Clock::now();
  for (int looks = 0; _count == 0 || looks < _count; ++looks) {
    if (!Show(rates, is_watched)) return kFailed;
    due += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(_interval_s));
    if (!WaitUntil(due)) break;
  }
  return kDone;
}

// False when the command ends. A user who watches goes on without a real-time side, which may come
// back.
bool TopCommand::Show(FrameRates& rates, bool is_watched) const {
  std::vector<RtosStream> streams;
  std::string error;
  const bool is_listed = quill::host::ListRtosStreams(streams, error);
  if (!is_listed && !is_watched) {
    Say(error);
    return false;
  }
  const auto rows = rates.Add(std::move(streams), Clock::now());
  _json ? PrintJson(rows) : PrintScreen(rows);
  if (!is_listed) std::printf("%s\n", error.c_str());
  return std::fflush(stdout) == 0;
}

// False when the user interrupts.
bool TopCommand::WaitUntil(Clock::time_point due) {
  FrameInbox::Item item;
  auto news = FrameInbox::News::kNothing;
  do {
    news = _inbox->Wait(item, due);
  } while (news != FrameInbox::News::kInterrupt && Clock::now() < due);
  return news != FrameInbox::News::kInterrupt;
}

}  // namespace

std::unique_ptr<Command> AddTop(CLI::App& tool) { return std::make_unique<TopCommand>(tool); }

}  // namespace tessel::tool
