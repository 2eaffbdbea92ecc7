#include "StreamRegistry.h"

#include <unistd.h>

#include "Wire.h"

namespace tessel::rtos {
namespace {

// A handle: the process's number above, the stream's number below.
constexpr int kNumberBits = 24;
constexpr std::size_t kMostPageBytes = link::kMaxMessageBytes * 3 / 4;  // leaves room for braces
constexpr std::size_t kFrameBytes = 16;  // around each report: its number and signs

int NumberOf(std::uint64_t handle) {
  return static_cast<int>(handle & ((std::uint64_t{1} << kNumberBits) - 1));
}

std::size_t TextBytes(const link::StreamReport& report) {
  std::string text;
  std::string error;
  return link::ToText(report, text, error) ? text.size() : 0;
}

}  // namespace

StreamRegistry::StreamRegistry()
    : _last_handle(static_cast<std::uint64_t>(getpid()) << kNumberBits) {}

std::uint64_t StreamRegistry::NewHandle() {
  const std::lock_guard lock(_mutex);
  return ++_last_handle;
}

std::unique_ptr<StreamRegistry::Listing> StreamRegistry::Add(std::uint64_t handle,
                                                             Application& application,
                                                             pid_t client) {
  auto listing = std::make_unique<Listing>(*this, handle);  // before anything that may throw
  const std::lock_guard lock(_mutex);
  _entries[handle] = {&application, client};
  return listing;
}

void StreamRegistry::Remove(std::uint64_t handle) {
  const std::lock_guard lock(_mutex);
  _entries.erase(handle);
}

bool StreamRegistry::Execute(const link::ListStreams& request, link::ListAnswer& page,
                             std::string&) const {
  const std::uint64_t from = request.from ? request.from->number : 0;
  const std::lock_guard lock(_mutex);
  std::size_t page_bytes = 0;
  for (auto place = _entries.lower_bound(from); place != _entries.end(); ++place) {
    const auto& [handle, entry] = *place;
    link::StreamReport report = entry.application->Report();
    report.client = entry.client;
    std::size_t report_bytes = TextBytes(report);
    if (report_bytes > kMostPageBytes) {  // its client chose texts of such a length
      report.chain.clear();
      report.media = AttrSet();
      report_bytes = TextBytes(report);
    }
    page_bytes += report_bytes + kFrameBytes;
    if (page_bytes > kMostPageBytes && !page.streams.empty()) {
      page.next = link::Handle{handle};
      break;
    }
    page.streams.emplace_back(NumberOf(handle), std::move(report));
  }
  return true;
}

Application* StreamRegistry::Find(int number, std::string& error) const {
  for (const auto& [handle, entry] : _entries) {
    if (NumberOf(handle) == number) return entry.application;
  }
  error = "no stream " + std::to_string(number);
  return nullptr;
}

bool StreamRegistry::Execute(const link::SetWord& request, link::Done&, std::string& error) {
  const std::lock_guard lock(_mutex);
  Application* application = Find(request.stream, error);
  return application != nullptr && application->Steer().SetWord(request.word, request.value, error);
}

bool StreamRegistry::Execute(const link::CountRequest& request, link::Done&, std::string& error) {
  const std::lock_guard lock(_mutex);
  Application* application = Find(request.stream, error);
  return application != nullptr && application->Steer().CountRequest(request.word, error);
}

}  // namespace tessel::rtos
