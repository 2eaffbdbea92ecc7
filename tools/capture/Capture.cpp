#include "Capture.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include <signal.h>

#include "quill/Host.h"

#include "CapturePlan.h"
#include "CaptureRun.h"
#include "Classes.h"
#include "Console.h"
#include "Containers.h"
#include "Interrupts.h"

namespace tessel::tool {
namespace {

void WireBoard(const CaptureOptions& options) {
  quill::host::Options board = quill::host::GetOptions();
  board.sensor = options.sensor;
  board.mic = options.mic;
  board.loop = !options.once;
  board.paced = !options.unpaced;
  quill::host::SetOptions(board);
}

// Video first. False when one cannot be made, and said why.
bool CreateSources(const CaptureOptions& options, std::vector<Source>& sources) {
  std::string error;
  for (const std::string& name : options.names) {
    const IClass* record = FindCreatable(name, error);
    Source source;
    if (record == nullptr || !source.Create(record->Name(), name, error)) {
      Say(error);
      return false;
    }
    sources.push_back(std::move(source));
  }
  std::stable_sort(sources.begin(), sources.end(),
                   [](const Source& a, const Source& b) { return !a.IsSound() && b.IsSound(); });
  return true;
}

}  // namespace

int Capture(const CaptureOptions& options) {
  signal(SIGPIPE, SIG_IGN);  // a reader that goes away is a write error like any other
  auto inbox = std::make_shared<FrameInbox>(options.names.size());
  if (!WatchInterrupts([inbox] { inbox->Interrupt(); })) {
    Say("no thread to wait for Ctrl-C");
    return kFailed;
  }
  WireBoard(options);
  std::vector<Source> sources;
  if (!CreateSources(options, sources)) return kFailed;
  std::string error;
  if (!CheckFor(sources, options, error)) {
    Say(error);
    return kWrongUsage;
  }
  unsigned kinds = 0;
  for (const Source& source : sources) {
    kinds |= source.kind->kind;
    if (source.kind->kind == kSynthetic && !options.quiet) {
      Say("the frames of " + source.name + " carry no picture; what their bytes are is undefined");
    }
  }
  Configure(sources, options);
  const Container& container = *FindContainer(options.output, kinds);
  CaptureRun run(options, container, std::move(sources), std::move(inbox));
  return run.Run();
}

}  // namespace tessel::tool
