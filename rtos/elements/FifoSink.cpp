#include "FifoSink.h"

#include "ElementParams.h"
#include "SessionLayout.h"

namespace tessel::rtos {

bool FifoSink::Open(const Context& context, const AttrSet& params, Media& media,
                    std::string& error) {
  int most = 2;
  if (!ReadInt(params, "max", 2, link::kMostSlots, most, error)) return false;
  AttrSet rest = params;
  rest.Remove("max");
  return OpenSession(context, rest, media, most, error);
}

}  // namespace tessel::rtos
