#include "InputOptions.h"

namespace tessel::tool {

void SetInputs(const InputOptions& inputs) {
  quill::host::Options options = quill::host::GetOptions();
  options.sensor = inputs.sensor;
  options.mic = inputs.mic;
  options.loop = !inputs.once;
  options.paced = !inputs.unpaced;
  quill::host::SetOptions(options);
}

}  // namespace tessel::tool
