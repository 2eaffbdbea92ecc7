// The Linux half of a source's stream: delivers its packets to the client as frames.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "StreamApp.h"
#include "StreamFunc.h"
#include "tessel/IStreamOutput.h"

namespace tessel::dualos {

// A derived class composes AppStringCreate0(), whose chain must end in a shared-memory sink with
// `_session_name`. It may override CbOpen(); the override calls this version first or last.
// Declaration order is vtable order.
class StreamAppOutput : public StreamApp, public virtual api::streaming::common::IStreamOutput {
 public:
  using frame_t = api::streaming::common::frame_t;

  explicit StreamAppOutput(bool pullMode);
  ~StreamAppOutput() override;

  void RegisterMessageCallback(const std::function<bool(const char*)>& cb) override;
  bool SendMessage(const char* msg) override;

  std::string AppStringCreate1(void* app0) override;
  bool Open() override { return StreamApp::Open(); }
  bool Close() override { return StreamApp::Close(); }
  bool Start() override { return StreamApp::Start(); }
  bool Stop() override { return StreamApp::Stop(); }

  bool IsSupportedPullFrame() const override;
  bool IsSupportedOutputFrameCallback() const override;
  bool PullFrame(std::shared_ptr<frame_t>& frame, bool blocking) override;
  bool RegisterOutputCallback(const std::function<bool(std::shared_ptr<frame_t>&)>& cb) override;
  std::string GetMediaInfo() const override;

  // Called when the Linux pipeline opens and closes, on the thread that changes the state.
  virtual bool CbOpen(quill::base::object* sink, quill::stream::IMedia* media);
  virtual bool CbClose();
  // Delivers one packet, borrowed until return; returns the client's answer. Stream thread.
  virtual bool CbOutput(quill::stream::Packet* pkt);

 protected:
  quill::base::object* _sink = nullptr;  // the function sink, from CbOpen to CbClose
  std::string _mediaInfo;
  const bool _pullmode;
  StreamFunc _func;
  std::function<bool(std::shared_ptr<frame_t>&)> _funcOutput;  // set before Open
  std::function<quill::stream::Packet*(bool)> _funcPull;       // set by CbOpen
};

}  // namespace tessel::dualos
