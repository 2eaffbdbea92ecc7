#include "ShmSink.h"

#include "ElementParams.h"

namespace tessel::rtos {

bool ShmSink::Open(const Context& context, const AttrSet& params, Media& media,
                   std::string& error) {
  return OpenSession(context, params, media, context.Settings().slots, error);
}

bool ShmSink::OpenSession(const Context& context, const AttrSet& params, const Media& media,
                          int most_slots, std::string& error) {
  if (!CheckKnown(params, {"name", "session_name", "init"}, error)) return false;
  const char* name = params.Get("session_name");
  if (name == nullptr) {
    error = "no session_name=";
    return false;
  }
  _producer = context.Session(name, error);
  if (_producer == nullptr) return false;
  if (media.description.Pairs().empty()) {
    error = "no element in front makes what Linux could take";
    return false;
  }
  if (_producer->PartitionSlots(media.unit_bytes, most_slots)) return true;
  error = std::string("session_name=") + name + " has no room for two units of " +
          std::to_string(media.unit_bytes) + " bytes";
  return false;
}

Verdict ShmSink::Process(Unit& unit) {
  if (unit.room.empty()) {
    CountDropped();
    return Verdict::kPass;
  }
  _producer->Publish(unit.size_bytes, unit.sequence, unit.time_ns, unit.is_key);
  return Verdict::kPass;
}

}  // namespace tessel::rtos
