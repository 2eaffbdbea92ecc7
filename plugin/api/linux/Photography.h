// Still pictures by an application that is described whole: its Linux half opens the connection to
// the real-time side itself, and asks this object where each picture goes.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "common/Replaceable.h"
#include "common/SnapOutcome.h"
#include "common/StreamControl.h"
#include "quill/Debug.h"
#include "quill/SharedMemory.h"
#include "tessel/IPhotography.h"

namespace tessel::dualos {

// Threads as of the interfaces. The order of declaration is the order of the slots.
class Photography : public api::streaming::common::StreamControl,
                    public api::streaming::IPhotography,
                    public quill::stream::VBRC {
 public:
  Photography();
  ~Photography() override;

  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;
  bool SendMessage(const char* text) override;
  // The application that the host creates under this object.
  bool addChild(quill::base::object* child) override;
  void SelectSensor(int index) override;  // stored only: the board has one sensor
  void SetQP(int qp) override;            // acts at the next Open()
  int GetQP() const override;             // what was set
  void SetURL(const char* url) override;  // acts on the next picture, also on one that is asked for
  bool Snap(bool blocking) override;
  void Snap(const char* url, bool blocking) override;
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  bool Open() override;
  bool Close() override;
  bool Start() override;
  bool Stop() override;  // the application goes: open again before the next Start()

  // What the sink of the pictures tells. Message thread.
  bool processMessage(quill::base::Message& message) override;
  // The application is no child in the host's list, so it is told from here.
  bool Pause() override;
  bool Resume() override;

  std::string AppStringCreate();
  // A copy of the URL. Stream thread, or the client's while no stream thread runs.
  std::string CreateUrl();
  // A picture is there. Message thread. Exported, for hosts that call it themselves.
  TESSEL_PUBLIC bool processMessageNewFrame(quill::base::Message& message);
  // Where the next picture goes; `hd` is the object. Stream thread.
  static std::string cbCreateUrl(void* hd);

 protected:
  std::int32_t _sensor = 0;
  std::int32_t _width = 1920;     // pixels
  std::int32_t _height = 1080;    // pixels
  std::int32_t _frame_rate = 30;  // frames/s; nothing reads it
  std::int32_t _qp = 32;
  quill::base::object* _obj = nullptr;  // owns; the application, from Open() on
  std::function<bool(quill::base::Message&)> _message_callback;
  Replaceable<std::string> _url;             // never null; used by the stream thread
  std::atomic<std::int32_t> _new_frames{0};  // since the last Start()

 private:
  bool StopAt(const char* status, const quill::stream::At& condition);

  SnapOutcome _outcome;
};

}  // namespace tessel::dualos
