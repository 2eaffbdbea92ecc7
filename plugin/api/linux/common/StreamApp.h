// A stream in two halves: an application on the real-time side, created from a layout string, and
// its counterpart on Linux.
#pragma once

#include <string>

#include "StreamControl.h"

namespace tessel::dualos {

// Runs on the thread that changes the state, see quill/Service.h. Declaration order is vtable
// order.
class StreamApp : public virtual api::streaming::common::StreamControl {
 public:
  StreamApp();
  ~StreamApp() override;

  // Chooses the name of the session that connects the two halves; ignores `set`.
  bool configure(quill::base::AttrSet& set) override;

  // The layout string of the chain on the real-time side, without the text that makes it an
  // application.
  virtual std::string AppStringCreate0() = 0;
  // The description of the Linux side for the application whose handle is `app0`.
  virtual std::string AppStringCreate1(void* app0) = 0;

  bool Open() override;
  bool Close() override;
  bool Start() override;
  bool Stop() override;
  // Whether the application reports the status "play".
  virtual bool IsStart() const;

 protected:
  bool AppCreate();
  bool AppStatusUp(const char* sts);
  bool AppStatusDown(const char* sts);
  bool AppDestroy();

  std::string _session_name;            // set by configure()
  quill::base::object* _app = nullptr;  // owned by the list of children; null before it is created
};

}  // namespace tessel::dualos
