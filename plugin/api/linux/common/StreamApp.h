// A stream as two halves: an application on the real-time side, made from a layout string, and its
// counterpart on Linux.
#pragma once

#include <string>

#include "StreamControl.h"

namespace tessel::dualos {

// The thread whose change runs, see quill/Service.h. The order of declaration is the order of the
// slots.
class StreamApp : public virtual api::streaming::common::StreamControl {
 public:
  StreamApp();
  ~StreamApp() override;

  // Names the session that pairs the two halves; `set` is not read.
  bool configure(quill::base::AttrSet& set) override;

  // The chain on the real-time side, without the wrapper that makes it an application.
  virtual std::string AppStringCreate0() = 0;
  // The description of the Linux side for the application whose handle is `app0`.
  virtual std::string AppStringCreate1(void* app0) = 0;

  bool Open() override;
  bool Close() override;
  bool Start() override;
  bool Stop() override;
  // Whether the application says that it plays.
  virtual bool IsStart() const;

 protected:
  bool AppCreate();
  bool AppStatusUp(const char* sts);
  bool AppStatusDown(const char* sts);
  bool AppDestroy();

  std::string _session_name;            // set by configure()
  quill::base::object* _app = nullptr;  // owned by the list of children; null when there is none
};

}  // namespace tessel::dualos
