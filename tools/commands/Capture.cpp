// `tessel capture`: sources into a playable file.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>

#include "CaptureArguments.h"
#include "CaptureChecks.h"
#include "CaptureRun.h"
#include "Classes.h"
#include "Commands.h"
#include "Console.h"
#include "Containers.h"
#include "Interrupts.h"
#include "SourceKinds.h"
#include "VideoPlan.h"

namespace tessel::tool {
namespace {

constexpr char kCaptureExamples[] =
    R"(Frames are counted from 0 as they are written. A request for frame N is made when frame N-1 has come,
so a live source serves it with frame N; an --unpaced one is ahead and serves it a few frames later.
A triggered capture without --frames or --seconds ends with standard input, or with Ctrl-C.
Two classes, one of video and one of sound, go into one file, in step by their time stamps; both end
together. An option goes to the one that has a use for it, --bitrate to the video first.

Examples:
  tessel capture h264 -o clip.mp4 --seconds 10 --bitrate 2M --fps 25
  tessel capture h264 -o copy.mkv --sensor holiday.mov --once --unpaced
  tessel capture h264 -o - | ffplay -
  tessel capture h264 -o steps.mp4 --frames 300 --set bitrate=500k@100 --set bitrate=4M@200
  tessel capture h264-vbrc -o thin.mp4 --seconds 60 --capture-fps 30 --fps 5 --bitrate 500k
  tessel capture jpeg -o shot-%03d.jpg --frames 12 --qp 20
  tessel capture jpeg-trigger -o lapse.mkv --trigger-every 5000 --frames 720
  tessel capture h264 aac -o both.mp4 --seconds 10 --bitrate 2M --sound-bitrate 96k
  tessel capture pcm -o speech.wav --seconds 5 --mic alsa --rate 48000 --channels 2
  tessel capture yuv -o - --format 420V50 | ffplay -f rawvideo -video_size 1920x1080 -
)";

// Captures until the frames or seconds asked for are written, the input (also that of triggers)
// ends, or the user interrupts.
class CaptureCommand : public Command {
 public:
  explicit CaptureCommand(CLI::App& tool)
      : Command(tool, "capture", "Capture sources into a playable file", kCaptureExamples) {
    AddCaptureArguments(_app, _options);
    AddRtos();
    AddBoard();
    _app.add_flag("-q,--quiet", _options.quiet, "Only errors: no progress, no summary");
  }
  bool Check(std::string& error) const override {
    return Command::Check(error) && tool::Check(_options, error);
  }
  bool WatchesInterrupts() const override { return true; }
  int Run() override;

 private:
  bool CreateSources(std::vector<CaptureSource>& sources) const;

  CaptureOptions _options;
};

// Video comes first. False, after an error message, when a source cannot be created.
bool CaptureCommand::CreateSources(std::vector<CaptureSource>& sources) const {
  for (const std::string& name : _options.names) {
    std::string error;
    const IClass* record = FindCreatable(name, error);
    std::optional<CaptureSource> source;
    if (record != nullptr) source = CreateSource(record->Name(), name, error);
    if (!source) {
      Say(error);
      return false;
    }
    sources.push_back(std::move(*source));
  }
  std::stable_partition(sources.begin(), sources.end(),
                        [](const auto& source) { return !source.IsSound(); });
  return true;
}

int CaptureCommand::Run() {
  signal(SIGPIPE, SIG_IGN);  // a reader that goes away is a write error like any other
  auto inbox = std::make_shared<FrameInbox>(_options.names.size());
  if (!WatchInterrupts([inbox] { inbox->Interrupt(); })) {
    Say("no thread to wait for Ctrl-C");
    return kFailed;
  }
  SetInputs(_options.inputs);
  std::vector<CaptureSource> sources;
  if (!CreateSources(sources)) return kFailed;
  std::string error;
  if (!CheckFor(sources, _options, error)) {
    Say(error);
    return kWrongUsage;
  }
  std::vector<MediaKind> kinds;
  for (const CaptureSource& source : sources) {
    kinds.push_back(source.kind->media);
    if (kinds.back() == MediaKind::kBytes && !_options.quiet) {
      Say("the frames of " + source.name + " carry no picture; what their bytes are is undefined");
    }
  }
  Configure(sources, _options);
  const Container& container = *FindContainer(_options.output, kinds);
  CaptureRun run(_options, container, std::move(sources), std::move(inbox));
  return run.Run();
}

}  // namespace

std::unique_ptr<Command> AddCapture(CLI::App& tool) {
  return std::make_unique<CaptureCommand>(tool);
}

}  // namespace tessel::tool
