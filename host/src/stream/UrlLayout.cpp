#include "UrlLayout.h"

#include "quill/ostream_string.h"
#include "UrlArea.h"

namespace quill::stream {
namespace {

using base::AttrSet;

// The URL that stands in the extra area of a rate-control block.
class UrlSimple : public UrlLayout {
 public:
  explicit UrlSimple(std::shared_ptr<const Window::Block> block) : _block(std::move(block)) {}

  bool Next(std::string& url, std::string& error) override {
    return ReadUrlArea(_block->area.Bytes().first(_block->asked_bytes), url, error);
  }

 private:
  const std::shared_ptr<const Window::Block> _block;
};

// The URL that a function of this process returns.
class UrlCallback : public UrlLayout {
 public:
  using Function = std::string (*)(void* handle);
  UrlCallback(Function function, void* handle) : _function(function), _handle(handle) {}

  bool Next(std::string& url, std::string& error) override {
    url = _function(_handle);
    if (url.empty()) error = "the callback gives no URL";
    return !url.empty();
  }

 private:
  const Function _function;
  void* const _handle;
};

}  // namespace

std::unique_ptr<UrlLayout> UrlLayout::Create(const AttrSet& description, std::string& error) {
  const char* text = description.Get("type");
  const std::string type = text == nullptr ? "" : text;
  if (type == "UrlSimple") {
    auto block = Window::BlockAt(description.Get("vbrc"));
    if (block != nullptr && block->Vbrc() != nullptr)
      return std::make_unique<UrlSimple>(std::move(block));
    error = "UrlSimple: vbrc= names no rate-control block";
  } else if (type == "UrlCallback") {
    const auto function =
        reinterpret_cast<UrlCallback::Function>(base::ReadHandle(description.Get("cb")));
    auto* handle = reinterpret_cast<void*>(base::ReadHandle(description.Get("hd")));
    if (function != nullptr) return std::make_unique<UrlCallback>(function, handle);
    error = "UrlCallback: cb= names no function";
  } else {
    error = "type=" + type + " is neither UrlSimple nor UrlCallback";
  }
  return nullptr;
}

}  // namespace quill::stream
