// The media of one stream, as the real-time side describes it.
#pragma once

#include <string>
#include <vector>

#include "quill/AttrSet.h"
#include "quill/Packet.h"
#include "quill/Properties.h"

namespace quill::stream {

// Constant after construction, so any thread may read it. Owns the bytes that its addresses point
// to.
class StreamMedia : public virtual base::Object, public IMedia {
 public:
  // Every pair of `description` becomes a parameter; a row of the table in the .cpp gives its type.
  // "header" becomes "sps" and "pps", if the offsets and sizes given beside it lie inside it.
  explicit StreamMedia(const base::AttrSet& description);

  bool IsCodec(const char* name) const override;
  std::string ToString() const override { return _text; }

  using IMedia::Get;
  using Object::Get;

 private:
  void AddHeader(const base::AttrSet& description);

  std::string _text;
  std::string _codec;
  std::vector<std::string> _texts;    // the values of const char* parameters
  std::vector<std::uint8_t> _header;  // the values of void* parameters
};

}  // namespace quill::stream
