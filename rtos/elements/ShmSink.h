// The end of a chain: hands units to Linux through a session of the shared window.
//
//   ShmSink   session_name   the session; required
//             name           any text; only for people
//             init           ignored
#pragma once

#include "Element.h"
#include "SessionProducer.h"

namespace tessel::rtos {

class ShmSink : public Sink {
 public:
  bool Open(const Context& context, const AttrSet& params, Media& media,
            std::string& error) override;
  Verdict Process(Unit& unit) override;
  std::span<std::uint8_t> Reserve() override { return _producer->Reserve(); }
  bool WaitForRoom() override { return _producer->WaitForRoom(); }
  void CountDropped() override { _producer->CountDropped(); }
  void CountSkipped(Verdict reason) override {
    reason == Verdict::kRateLimited ? _producer->CountThinned() : _producer->CountUntriggered();
  }
  link::SessionCounters Counters() const override { return _producer->Counters(); }
  void Interrupt() override { _producer->Interrupt(); }
  void Resume() override { _producer->Resume(); }

 protected:
  // The client may hold at most `most_slots` units.
  bool OpenSession(const Context& context, const AttrSet& params, const Media& media,
                   int most_slots, std::string& error);

 private:
  std::unique_ptr<link::SessionProducer> _producer;
};

}  // namespace tessel::rtos
