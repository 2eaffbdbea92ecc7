// What the real-time side says unasked, and its loss, on the way to the streams concerned.
#pragma once

#include <string>

#include "RemoteApplications.h"

namespace quill::stream {

// Wire thread. Listeners of the sessions are told on the message thread.
class EventRouter {
 public:
  // Borrows `applications`.
  explicit EventRouter(RemoteApplications& applications) : _applications(applications) {}

  // Tells the sessions of the application that the event is about, and ends them when no frame will
  // follow. An event that cannot be read, or of an application that is gone, is ignored.
  void OnEvent(const std::string& text);
  // Ends and tells the sessions of all applications, and gives their memory back.
  void OnDisconnect();

 private:
  RemoteApplications& _applications;
};

}  // namespace quill::stream
