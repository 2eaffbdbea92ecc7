// Still pictures of a chain that stands ready: each snapshot triggers one frame of it, which is
// written to the URL that stands in the rate-control block.
#pragma once

#include <cstdint>
#include <string>

#include "common/SnapOutcome.h"
#include "common/StreamApp.h"
#include "common/StreamVbrc.h"
#include "tessel/IPhotography.h"

namespace tessel::dualos {

// Threads as of the interfaces. The order of declaration is the order of the slots.
class JpegSnap : public StreamApp, public StreamVbrc, public api::streaming::IPhotography {
 public:
  JpegSnap();
  ~JpegSnap() override;

  // It has no way for messages to its client.
  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;
  bool SendMessage(const char* msg) override;

  std::string AppStringCreate0() override;
  std::string AppStringCreate1(void* apphd) override;

  void SelectSensor(int index) override;  // stored only: the board has one sensor
  void SetWidth(int pixels) override;
  void SetHeight(int pixels) override;
  void SetQP(int qp) override;  // acts from the next picture on
  int GetQP() const override;   // of the last picture, as the encoder says; not what was set
  void SetURL(const char* url) override;
  bool Snap(bool blocking) override;
  void Snap(const char* url, bool blocking) override;
  virtual void ForceKeyFrame();  // nothing to do: every picture stands alone

  bool Open() override;
  bool Close() override;
  bool Start() override { return StreamApp::Start(); }
  bool Stop() override { return StreamApp::Stop(); }

  // What the sink of the pictures tells. Message thread.
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
