// Prints the first frames of an H.264 stream, pulled from the plug-in.
#include <cstdio>

#include "quill/Host.h"
#include "tessel/IH264Source.h"

using tessel::api::streaming::IH264Source;
using tessel::api::streaming::common::frame_t;

int main() {
  if (!quill::host::LoadPlugin()) return 1;
  auto camera = quill::host::Create<IH264Source>("ApiH264Source-dualos-cbrc-pull");
  if (!camera || !camera->Open() || !camera->Start()) return 1;
  std::shared_ptr<frame_t> frame;
  for (int i = 0; i < 5 && camera->PullFrame(frame, true); ++i) {
    std::printf("frame %u: %u bytes at %lld ns%s\n", frame->seq, frame->size,
                static_cast<long long>(frame->timestamp), frame->isKey ? ", key" : "");
  }
  return frame ? 0 : 1;
}
