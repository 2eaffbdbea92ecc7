#include "StreamApp.h"

#include <chrono>
#include <cstdlib>
#include <typeinfo>

#include "quill/Debug.h"
#include "quill/Factory.h"
#include "quill/Hash.h"

#include "StatusChange.h"

namespace tessel::dualos {

using quill::base::AttrSet;
using quill::base::Factory;
using quill::base::Hash;
using quill::stream::Failed;
using quill::stream::Trace;

namespace {

constexpr std::chrono::nanoseconds kCreateTimeout(1000000000);

std::string Application(const std::string& layout) {
  return "type=Application,layout={" + layout + "},status=ready";
}

}  // namespace

StreamApp::StreamApp() { Trace("StreamApp"); }

StreamApp::~StreamApp() {
  if (_app != nullptr) StreamApp::Close();  // the overrides of derived classes are gone already
}

bool StreamApp::configure(AttrSet&) {
  const char* type = typeid(*this).name();
  if (*type == '*') ++type;  // marks a type whose name is not shared between libraries
  _session_name = quill::base::UniqueString(type, 0);
  Trace("_session_name=", _session_name);
  return true;
}

// The real-time half comes first: the Linux half attaches to it by its handle.
bool StreamApp::AppCreate() {
  const std::string appstr0 = Application(AppStringCreate0());
  Trace("", appstr0);
  AttrSet ap;
  if (Failed(!ap.Parse(appstr0.c_str()), "!ap.Parse(appstr0.c_str())")) return false;
  ap.Add("cmd", "tesselCreate");
  ap.Add("timeout", kCreateTimeout);
  if (Failed(!Factory::Globle().Run("shm0_cmd", ap), "!Factory::Globle().Run(\"shm0_cmd\",ap)")) {
    return false;
  }
  const char* handle = ap.Get("object_base");
  void* app0 =
      handle == nullptr ? nullptr : reinterpret_cast<void*>(std::strtoul(handle, nullptr, 16));
  Trace("app0=", app0);
  if (Failed(!app0, "!app0")) return false;

  const std::string appstr1 = Application(AppStringCreate1(app0));
  Trace("", appstr1);
  AttrSet description(appstr1.c_str());
  _app = create(description);
  return !Failed(!_app, "!_app");
}

bool StreamApp::AppStatusUp(const char* sts) {
  return !Failed(_app == nullptr || !_app->SetStr("statusup", sts), "!_app->Set(\"statusup\",sts)");
}

bool StreamApp::AppStatusDown(const char* sts) {
  return !Failed(_app == nullptr || !_app->SetStr("statusdown", sts),
                 "!_app->Set(\"statusdown\",sts)");
}

bool StreamApp::AppDestroy() {
  Children().Delete(_app, true);
  return true;
}

bool StreamApp::Open() {
  Trace("");
  const auto change = StatusChange::Up(*this, Status::kReady);
  if (!change) return false;
  if (Failed(_app == nullptr && !AppCreate(), "!AppCreate()")) return false;
  if (Failed(!AppStatusUp("ready"), "!AppStatusUp(\"ready\")")) return false;
  return Service::Open();
}

bool StreamApp::Start() {
  Trace("");
  const auto change = StatusChange::Up(*this, Status::kPlay);
  if (!change) return false;
  if (Failed(!AppStatusUp("play"), "!AppStatusUp(\"play\")")) return false;
  return Service::Start();
}

bool StreamApp::Stop() {
  Trace("");
  const auto change = StatusChange::Down(*this, Status::kReady);
  if (!change) return true;
  // Without an application nothing runs: stopping succeeds.
  if (Failed(!_app, "!_app")) return Service::Stop();
  const bool done = AppStatusDown("ready");
  // The Linux half may have stopped without an answer from the real-time side. The application then
  // plays no longer.
  const bool is_stopped = IsStart() || Service::Stop();
  return !Failed(!done, "!AppStatusDown(\"ready\")") && is_stopped;
}

bool StreamApp::Close() {
  Trace("");
  const auto change = StatusChange::Down(*this, Status::kNull);
  if (!change) return true;
  const bool done = AppStatusDown("null");
  if (_app != nullptr && !IsStart()) Service::Stop();  // it has stopped, even if it did not close
  // A callback has closed the stream already: waits until that callback returns.
  if (_app == nullptr) Service::Close();
  if (Failed(!done, "!AppStatusDown(\"null\")")) return false;
  // Goes on: the stream is closed, even if its application cannot be destroyed.
  static_cast<void>(Failed(_app != nullptr && !AppDestroy(), "!AppDestroy()"));
  return Service::Close();
}

bool StreamApp::IsStart() const {
  const char* status = nullptr;
  return _app != nullptr && _app->GetStr("status", status) && Hash(status) == Hash("play");
}

}  // namespace tessel::dualos
