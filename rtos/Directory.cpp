#include "Directory.h"

#include <unistd.h>

namespace tessel::rtos {
namespace {

// The lower bits of a handle are the number of its stream, as people type it; the upper ones are
// the process.
constexpr int kNumberBits = 24;

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
  const std::lock_guard lock(_mutex);
  _entries[handle] = {&application, client};
  return std::make_unique<Listing>(*this, handle);
}

void Directory::Remove(std::uint64_t handle) {
  const std::lock_guard lock(_mutex);
  _entries.erase(handle);
}

AttrSet Directory::List() const {
  const std::lock_guard lock(_mutex);
  AttrSet list;
  for (const auto& [handle, entry] : _entries) {
    AttrSet overview = entry.application->Overview();
    overview.Add("client", static_cast<int>(entry.client));
    list.Add(std::to_string(NumberOf(handle)).c_str(), overview.ToString(false));
  }
  return list;
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
