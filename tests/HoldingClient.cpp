#include "HoldingClient.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "Fixture.h"

namespace tessel::tests {

std::string HoldingClientOption(int frames, int slots) {
  return "--hold=" + std::to_string(frames) + "," + std::to_string(slots);
}

int RunHoldingClient(const std::string& option) {
  int frames = 0;
  quill::host::Options options;
  if (std::sscanf(option.c_str(), "--hold=%d,%d", &frames, &options.session_slots) != 2) return 2;
  quill::host::SetOptions(options);
  if (!quill::host::LoadPlugin(TESSEL_PLUGIN)) return 1;
  const Camera camera = quill::host::Create<api::streaming::IH264Source>(kPull);
  camera->SetWidth(160);
  camera->SetHeight(120);
  camera->SetFrameRateMaximum(200);
  if (!camera->Open() || !camera->Start()) return 1;
  std::vector<Frame> kept(static_cast<std::size_t>(frames));
  for (Frame& frame : kept) {
    if (!camera->PullFrame(frame, true)) return 1;
  }
  if (write(STDOUT_FILENO, "h", 1) != 1) return 1;
  for (;;) pause();
}

}  // namespace tessel::tests
