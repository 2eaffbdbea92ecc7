// The URL of a still picture: in the extra area of its rate-control block, and what it stands for.
#include <memory>
#include <new>

#include "Input.h"
#include "quill/Hash.h"
#include "quill/Host.h"
#include "quill/VbrcBlock.h"
#include "UrlArea.h"

namespace tessel::fuzz {
namespace {

using quill::stream::VbrcBlock;

// extra_max and extra_len, a byte that says whether the owner is another one and how much of the
// area belongs to the block, and the area's bytes. An empty area is waited for: only where the byte
// is 2.
bool ReadArea(Input& input, std::string& url, std::string& error) {
  const auto most = input.Take<std::int32_t>();
  const auto used = input.Take<std::int32_t>();
  const auto kind = input.Take<std::uint8_t>();
  const auto bytes = input.Bytes(input.Size());
  const std::size_t size_bytes = sizeof(VbrcBlock) + kind;
  // Memory of its own: what lies behind its end is watched.
  const std::unique_ptr<std::byte[]> memory(new std::byte[size_bytes]());
  auto& block = *new (memory.get()) VbrcBlock;
  quill::stream::InitVbrcBlock(block, most);
  block.extra_len.store(used == 0 && kind != 2 ? 1 : used);
  block.extra_user.store(kind == 1 ? 0 : quill::base::Hash(quill::stream::kUrlOwner));
  const std::size_t room = size_bytes - offsetof(VbrcBlock, extra);
  std::memcpy(quill::stream::ExtraArea(block), bytes.data(), std::min(bytes.size(), room));
  return quill::stream::ReadUrlArea({memory.get(), size_bytes}, url, error);
}

}  // namespace

int FuzzUrl(const std::uint8_t* data, std::size_t size_bytes) {
  using quill::host::ReadFileUrl;
  Input input(data, size_bytes);
  std::string url;
  std::string path;
  std::string error;
  if (!ReadArea(input, url, error)) {
    Require(!error.empty(), "a refused area has a reason");
    url = Input(data, size_bytes).Rest();  // a URL by itself, then
  }
  error.clear();
  if (!ReadFileUrl(url, path, error)) {
    Require(!error.empty() && path.empty(), "a refused URL has a reason");
    return 0;
  }
  Require(!path.empty() && path.find('\0') == path.npos && path.back() != '/', "a path of a file");
  std::string again;
  Require(ReadFileUrl(quill::host::FileUrlOf(path), again, error) && again == path,
          "the URL of a path is read as that path");
  return 0;
}

}  // namespace tessel::fuzz
