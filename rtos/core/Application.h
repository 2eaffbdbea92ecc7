// One application on the real-time side: the chain that one layout string asks for, with what runs
// it and what steers it.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "ChainRunner.h"
#include "Grants.h"
#include "messages/Applications.h"
#include "messages/Streams.h"
#include "Steering.h"

namespace tessel::rtos {

// Connection thread, but where it says any thread.
class Application {
 public:
  // Builds the chain of `layout` ("type=pipeline,layout={…}"), at "ready". Null with `error` naming
  // element, parameter and value. `elements` and the window of `granted` have to outlive it.
  static std::unique_ptr<Application> Create(const std::string& layout,
                                             std::span<const ElementRow> elements,
                                             GrantedMemory& granted, const ChainSettings& settings,
                                             ChainRunner::Report report, std::string& error);

  // False with `error`. When it returns from going down to "ready", no unit moves any more.
  bool SetStatus(link::Status status, std::string& error);
  // The media that the chain delivers.
  const AttrSet& Description() const { return _chain.media.description; }
  // What is listed of it, but for its client. Any thread.
  link::StreamReport Report() const;
  // Steers it on behalf of any client. Any thread.
  const Steering& Steer() const { return _steering; }

 private:
  Application(Chain chain, ChainRunner::Report report)
      : _chain(std::move(chain)), _runner(_chain, std::move(report)) {}

  Chain _chain;
  const Steering _steering{_chain};
  ChainRunner _runner;  // destroyed first: it ends the chain thread
};

}  // namespace tessel::rtos
