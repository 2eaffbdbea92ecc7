#include "StreamFunc.h"

#include "quill/Debug.h"
#include "quill/IClass.h"

namespace tessel::dualos {

using quill::base::IClass;
using quill::base::Message;
using quill::base::object;
using quill::stream::IMedia;
using quill::stream::Packet;

StreamFunc::StreamFunc(const char* base) : name(quill::base::UniqueString(base, 0)) {
  // Goes on: without this class the stream fails to open, which is logged then.
  static_cast<void>(quill::stream::Failed(!Register(base), "!Register(str)"));
}

StreamFunc::~StreamFunc() { Unregister(); }

bool StreamFunc::Register(const char* base) {
  const std::function<bool(object*, IMedia*&)> on_open = [this](object* sink, IMedia*& media) {
    return open && open(sink, media);
  };
  const std::function<bool()> on_close = [this] { return close && close(); };
  const std::function<bool(Packet*&)> on_output = [this](Packet*& packet) {
    return output && output(packet);
  };
  const std::function<bool(Message&)> on_message = [this](Message& text) {
    return message && message(text);
  };
  return quill::base::TClass<>::Register(name.c_str(), base, on_open, on_close, on_output,
                                         on_message) != nullptr;
}

bool StreamFunc::Unregister() {
  IClass::UnRegister(name.c_str());
  return true;
}

}  // namespace tessel::dualos
