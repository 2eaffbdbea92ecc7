#include "Directory.h"

#include <unistd.h>

#include "quill/ostream_string.h"
#include "Wire.h"

namespace tessel::rtos {
namespace {

// The lower bits of a handle are the number of its stream, as people type it; the upper ones are
// the process.
constexpr int kNumberBits = 24;
// Of the texts in a page, so that all of it fits into a message.
constexpr std::size_t kMostPageBytes = link::kMaxMessageBytes * 3 / 4;
constexpr std::size_t kFrameBytes = 16;  // around each: its number and signs

int NumberOf(std::uint64_t handle) {
  return static_cast<int>(handle & ((std::uint64_t{1} << kNumberBits) - 1));
}

}  // namespace

Directory::Directory() : _last_handle(static_cast<std::uint64_t>(getpid()) << kNumberBits) {}

std::uint64_t Directory::NewHandle() {
  const std::lock_guard lock(_mutex);
  return ++_last_handle;
}

std::unique_ptr<Directory::Listing> Directory::Add(std::uint64_t handle, Application& application,
                                                   pid_t client) {
  auto listing = std::make_unique<Listing>(*this, handle);  // takes the entry back if it throws
  const std::lock_guard lock(_mutex);
  _entries[handle] = {&application, client};
  return listing;
}

void Directory::Remove(std::uint64_t handle) {
  const std::lock_guard lock(_mutex);
  _entries.erase(handle);
}

AttrSet Directory::List(std::uint64_t from) const {
  const std::lock_guard lock(_mutex);
  AttrSet page;
  AttrSet streams;
  std::size_t page_bytes = 0;
  for (auto place = _entries.lower_bound(from); place != _entries.end(); ++place) {
    const auto& [handle, entry] = *place;
    AttrSet overview = entry.application->Overview();
    overview.Add("client", static_cast<int>(entry.client));
    std::string text = overview.ToString(false);
    if (text.size() > kMostPageBytes) {  // what a client asked for at too great a length
      overview.Remove("chain");
      overview.Remove("media");
      text = overview.ToString(false);
    }
    page_bytes += text.size() + kFrameBytes;
    if (page_bytes > kMostPageBytes && !streams.Pairs().empty()) {
      page.Add("next", quill::base::HandleText(handle));
      break;
    }
    streams.Add(std::to_string(NumberOf(handle)).c_str(), text);
  }
  page.Add("streams", streams.ToString(false));
  return page;
}

Application* Directory::Find(int number, std::string& error) const {
  for (const auto& [handle, entry] : _entries) {
    if (NumberOf(handle) == number) return entry.application;
  }
  error = "no stream " + std::to_string(number);
  return nullptr;
}

bool Directory::SetWord(int number, const std::string& word, int value, std::string& error) {
  const std::lock_guard lock(_mutex);
  Application* application = Find(number, error);
  return application != nullptr && application->SetWord(word, value, error);
}

bool Directory::CountRequest(int number, const std::string& word, std::string& error) {
  const std::lock_guard lock(_mutex);
  Application* application = Find(number, error);
  return application != nullptr && application->CountRequest(word, error);
}

}  // namespace tessel::rtos
