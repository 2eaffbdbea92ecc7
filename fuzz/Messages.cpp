// The text of a message, read as every record of the wire. What a record has read it writes, and
// reads again to the same.
#include "Input.h"
#include "messages/All.h"

namespace tessel::fuzz {
namespace {

using link::AttrSet;

template <typename Record>
void ReadAndWrite(const AttrSet& untrusted) {
  Record record;
  std::string error;
  if (!Read(untrusted, record, error)) return Require(!error.empty(), "a refusal has a reason");
  AttrSet written;
  Require(Write(record, written, error), "what was read can be written");
  AttrSet untrusted_copy;
  Require(untrusted_copy.Parse(written.ToString(false).c_str()), "a record writes attribute sets");
  Record copy;
  Require(Read(untrusted_copy, copy, error), "what was written can be read");
  AttrSet again;
  Require(Write(copy, again, error) && again == written, "a record survives the wire");
}

template <typename... Records>
void ReadAsEach(const AttrSet& untrusted, const std::tuple<Records...>*) {
  (ReadAndWrite<Records>(untrusted), ...);
}

}  // namespace

int FuzzMessages(const std::uint8_t* data, std::size_t size_bytes) {
  AttrSet untrusted;
  if (!untrusted.Parse(Input(data, size_bytes).Rest().c_str())) return 0;
  ReadAsEach(untrusted, static_cast<const link::AllRecords*>(nullptr));
  return 0;
}

}  // namespace tessel::fuzz
