// Where a sink that writes a file for each frame gets the URL of the next one.
#pragma once

#include <memory>
#include <string>

#include "quill/AttrSet.h"
#include "Window.h"

namespace quill::stream {

// One thread at a time.
class UrlLayout {
 public:
  // From `type=UrlSimple,vbrc=ADDRESS` or `type=UrlCallback,cb=ADDRESS,hd=ADDRESS`. Null with
  // `error`.
  static std::unique_ptr<UrlLayout> Create(const base::AttrSet& description, std::string& error);
  virtual ~UrlLayout() = default;

  // The URL for the next frame. False with `error` when there is none.
  virtual bool Next(std::string& url, std::string& error) = 0;
};

}  // namespace quill::stream
