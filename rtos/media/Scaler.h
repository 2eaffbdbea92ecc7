// Converts pictures to the asked size, memory layout and colour coding.
#pragma once

#include <memory>

#include "ColourMatrix.h"
#include "PixelFormats.h"

struct AVFrame;
struct SwsContext;

namespace tessel::rtos {

// Below this width, and with lines that are no multiple of it, the scaler writes past the end of a
// line: it writes whole vectors of 32 chroma samples.
inline constexpr int kScalerWidth = 64;

// One thread at a time.
class Scaler {
 public:
  // Results have this format and these colours; `format` has to outlive it. Gray has only luma.
  Scaler(const PixelFormat& format, Colours colours);
  ~Scaler();

  // Scales a decoded picture to fill `into`. False when it cannot be converted.
  // REQUIRES: the lines of `into` have room for a width rounded up to kScalerWidth.
  [[nodiscard]] bool Scale(const AVFrame& from, const Picture& into);
  // The same with a drawn picture in Colours::kVideo.
  [[nodiscard]] bool Scale(const Picture& from, const Picture& into);

 private:
  struct Free {
    void operator()(SwsContext* context) const;
  };
  // What the context was made for.
  struct Conversion {
    int format = -1;  // AVPixelFormat of the source
    int width = 0;
    int height = 0;
    int space = 0;  // AVColorSpace of the source
    bool is_full_range = false;
    int to_width = 0;
    int to_height = 0;
    friend bool operator==(const Conversion&, const Conversion&) = default;
  };
  bool Prepare(const Conversion& conversion);
  bool Run(const std::uint8_t* const* planes, const int* strides, const Picture& into);

  const PixelFormat& _format;
  const Colours _colours;
  Conversion _prepared;
  std::unique_ptr<SwsContext, Free> _context;
  ColourMatrix _matrix;  // for the colours that the context does not convert
};

}  // namespace tessel::rtos
