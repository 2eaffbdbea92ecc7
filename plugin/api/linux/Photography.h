// Still pictures from an application with one description for both halves: the Linux half creates
// the real-time half itself, and gets the URL of each picture from this object.
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

// Declaration order is vtable order.
class Photography : public api::streaming::common::StreamControl,
                    public api::streaming::IPhotography,
                    public quill::stream::VBRC {
 public:
  Photography();
  ~Photography() override;

  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;
  bool SendMessage(const char* text) override;
  // Called by the host with the application that it has created under this object.
  bool addChild(quill::base::object* child) override;
  void SelectSensor(int index) override;  // stored only: the board has one sensor
  void SetQP(int qp) override;            // takes effect at the next Open()
  int GetQP() const override;             // what was set
  void SetURL(const char* url) override;  // of the next picture, even if requested already
  bool Snap(bool blocking) override;
  void Snap(const char* url, bool blocking) override;
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  bool Open() override;
  bool Close() override;
  bool Start() override;
  bool Stop() override;  // destroys the application: Open() again before the next Start()

  // Receives the messages of the sink that writes the pictures. Message thread.
  bool processMessage(quill::base::Message& message) override;
  // Forwarded to the application, because it is not in the host's list of children.
  bool Pause() override;
  bool Resume() override;

  std::string AppStringCreate();
  // A copy of the URL. Stream thread, or client's thread while no stream thread runs.
  std::string CreateUrl();
  // Counts a picture whose file is complete. Message thread. Exported for hosts that call it.
  TESSEL_PUBLIC bool processMessageNewFrame(quill::base::Message& message);
  // The URL of the next picture; `hd` is the Photography object. Stream thread.
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
