// The end of a pipeline that writes a file for each frame.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SessionSink.h"
#include "UrlLayout.h"

namespace quill::stream {

// "IOSinkPerFrame". Parameters:
//
//   urlLayout  where the URLs come from, see UrlLayout; required
//   sendmsg    messages to post: name={oper=AfterOpen|AfterClose,send={upward}},…; AfterOpen when a
//              frame's file is open, AfterClose when it has its final name
//   newFrame   true: also a message "newframe", AfterClose, unless sendmsg has one
//   vbrc       block whose frame_count counts the files; vbrcidx selects the count, only 0
//   dbg        true: a line in the trace for each file
//
// Every message goes to all owners. Its text is `name:url={…}`, AfterClose with `,size=BYTES`; its
// note ("extra") is the name. If a frame cannot be written, the sink logs
// why, posts `failed:url={…},reason={…},request=N` and continues; N counts the requests of a chain
// of single frames. `ended:reason={…}` follows the last frame when the stream has ended. The
// callbacks of these messages run on the message thread; the stream thread waits for their answers.
class IOSinkPerFrame : public SessionSink {
 public:
  bool configure(base::AttrSet& set) override;
  bool Open() override;
  bool Start() override;
  bool Stop() override;

 protected:
  ~IOSinkPerFrame() override { IOSinkPerFrame::Close(); }

 private:
  struct Notice {
    std::string name;
    bool after_close;
  };
  bool ReadNotices(const base::AttrSet& notices);
  void OnPacket(Packet& packet) override;
  void OnDrained() override;
  void OnMessage(const std::string& reason) override;
  void EndWriting();
  void PostEnd();
  bool Write(const std::string& url, const Packet& packet, std::string& error);
  void Post(bool after_close, const std::string& url, const Packet& packet);
  void PostFailure(const std::string& url, const std::string& reason, const Packet& packet);
  void CountFile() const;

  // Constant after configure.
  std::unique_ptr<UrlLayout> _urls;
  std::vector<Notice> _notices;
  std::shared_ptr<const Window::Block> _counted;  // with a record; null: no count advances
  bool _is_chatty = false;

  std::uint32_t _requests_before = 0;  // set by Open(); those served before the session

  std::mutex _end_mutex;
  bool _is_writing = false;  // guarded by _end_mutex; frames may still be written
  std::optional<std::string>
      _end_reason;  // guarded by _end_mutex; set by OnMessage(), not posted yet
};

}  // namespace quill::stream
