#include "Application.h"

#include <utility>

#include "ChainBuilder.h"

namespace tessel::rtos {

std::unique_ptr<Application> Application::Create(const std::string& layout,
                                                 std::span<const ElementRow> elements,
                                                 GrantedMemory& granted,
                                                 const ChainSettings& settings,
                                                 ChainRunner::Report report, std::string& error) {
  Chain chain;
  if (!ChainBuilder(elements, granted, settings).Build(layout, chain, error)) return nullptr;
  return std::unique_ptr<Application>(new Application(std::move(chain), std::move(report)));
}

bool Application::SetStatus(link::Status status, std::string& error) {
  if (status == link::Status::kPlay) return _runner.Start(error);
  _runner.Stop();
  return true;
}

link::StreamReport Application::Report() const {
  link::StreamReport report;
  static_cast<link::SessionCounters&>(report) = _chain.sink->Counters();
  for (const Chain::Stage& stage : _chain.stages) {
    report.chain.append(report.chain.empty() ? "" : "+").append(stage.row->name);
  }
  report.session = _chain.session_name;
  report.state = _runner.State();
  report.media = _chain.media.description;
  report.media.Remove(media_key::kHeader);  // only a decoder wants to see it
  report.control = _steering.Words();
  return report;
}

}  // namespace tessel::rtos
