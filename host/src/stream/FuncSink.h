// The end of a pipeline that hands packets to functions.
#pragma once

#include <functional>
#include <memory>

#include "SessionSink.h"
#include "StreamMedia.h"

namespace quill::stream {

// "FuncSink": made of four functions. Parameters: pullMode. In push mode it has a thread that calls
// the output function; in pull mode it offers the parameter "funcPullBlocking", a
// std::function<Packet*(bool)> that may be kept beyond the sink's life.
class FuncSink : public SessionSink {
 public:
  // Any may be empty. Open, close: client's thread. Output: stream thread. Message: message
  // thread.
  using OpenFunction = std::function<bool(base::object*, IMedia*&)>;
  using CloseFunction = std::function<bool()>;
  using OutputFunction = std::function<bool(Packet*&)>;
  using MessageFunction = std::function<bool(base::Message&)>;

  FuncSink(OpenFunction open, CloseFunction close, OutputFunction output, MessageFunction message);

  bool configure(base::AttrSet& set) override;
  bool Open() override;
  bool Close() override;
  bool processMessage(base::Message& message) override;

 protected:
  ~FuncSink() override;

 private:
  struct Port;
  bool HasThread() const override { return !_pull_mode; }
  void OnPacket(Packet& packet) override;
  void OnMessage(const std::string& text) override;

  const OpenFunction _open;
  const CloseFunction _close;
  const OutputFunction _output;
  const MessageFunction _message;
  bool _pull_mode = false;  // constant after configure
  std::shared_ptr<StreamMedia> _media;
  const std::shared_ptr<Port> _port;
};

}  // namespace quill::stream
