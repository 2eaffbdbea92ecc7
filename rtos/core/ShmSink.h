// The end of a chain: hands units to Linux through a session of the shared window.
#pragma once

#include "Element.h"
#include "SessionProducer.h"

namespace tessel::rtos {

// "ShmSink": session_name (required), name, init. Chain's thread, but for Open(), Interrupt() and
// Resume().
class ShmSink : public Element {
 public:
  bool Open(const Context& context, const AttrSet& params, Media& media,
            std::string& error) override;
  // Publishes what the last writing element left in the reserved slot.
  Verdict Process(Unit& unit) override;

  // As of SessionProducer.
  std::span<std::uint8_t> Reserve() { return _producer->Reserve(); }
  bool WaitForRoom() { return _producer->WaitForRoom(); }
  void CountDropped() { _producer->CountDropped(); }
  void CountPassedOver(Verdict reason) {
    reason == Verdict::kThin ? _producer->CountThinned() : _producer->CountUntriggered();
  }
  link::SessionCounters Counters() const { return _producer->Counters(); }  // any thread
  void Interrupt() { _producer->Interrupt(); }
  void Resume() { _producer->Resume(); }

 protected:
  // With at most `most_slots` units under way.
  bool OpenSession(const Context& context, const AttrSet& params, const Media& media,
                   int most_slots, std::string& error);

 private:
  std::unique_ptr<link::SessionProducer> _producer;
};

}  // namespace tessel::rtos
