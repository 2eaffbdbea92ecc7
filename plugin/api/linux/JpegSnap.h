// Still pictures from a chain that keeps playing: each snapshot triggers one frame, which is
// written to the URL in the rate-control block.
#pragma once

#include <cstdint>
#include <string>

#include "common/SnapOutcome.h"
#include "common/StreamApp.h"
#include "common/StreamVbrc.h"
#include "tessel/IPhotography.h"

namespace tessel::dualos {

// Declaration order is vtable order.
class JpegSnap : public StreamApp, public StreamVbrc, public api::streaming::IPhotography {
 public:
  JpegSnap();
  ~JpegSnap() override;

  // This class has no messages for its client: the callback is ignored, sending returns false.
  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;
  bool SendMessage(const char* msg) override;

  std::string AppStringCreate0() override;
  std::string AppStringCreate1(void* apphd) override;

  void SelectSensor(int index) override;  // stored only: the board has one sensor
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  void SetQP(int qp) override;  // takes effect with the next picture
  int GetQP() const override;   // reported by the encoder for the last picture; not what was set
  void SetURL(const char* url) override;
  bool Snap(bool blocking) override;
  void Snap(const char* url, bool blocking) override;
  virtual void ForceKeyFrame();  // no effect: every picture is coded on its own

  bool Open() override;
  bool Close() override;
  bool Start() override { return StreamApp::Start(); }
  bool Stop() override { return StreamApp::Stop(); }

  // Receives the messages of the sink that writes the pictures. Message thread.
  bool processMessage(quill::base::Message& message) override;

 protected:
  std::int32_t _sensor = 0;
  std::int32_t _width = 1920;   // pixels
  std::int32_t _height = 1080;  // pixels
  std::string _url = "file://snap.jpeg";

 private:
  void StoreUrl();
  std::string StoredUrl() const;
  bool HasFile(std::uint32_t target) const;

  SnapOutcome _outcome;
};

}  // namespace tessel::dualos
