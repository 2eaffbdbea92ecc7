#include "Scaler.h"

#include <utility>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "Libraries.h"

namespace tessel::rtos {
namespace {

// The coefficients that a picture was made with; where it does not say, the convention by size.
int SpaceOf(const AVFrame& frame) {
  if (frame.colorspace != AVCOL_SPC_UNSPECIFIED) return frame.colorspace;
  return frame.height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

bool IsFullRange(const AVFrame& frame) {
  return frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P ||
         frame.format == AV_PIX_FMT_YUVJ422P || frame.format == AV_PIX_FMT_YUVJ444P;
}

Coding CodingOf(int space, bool is_full_range) {
  switch (space) {
    case AVCOL_SPC_BT709:
      return {kBt709Red, kBt709Blue, is_full_range};
    case AVCOL_SPC_FCC:
      return {0.30, 0.11, is_full_range};
    case AVCOL_SPC_SMPTE240M:
      return {0.212, 0.087, is_full_range};
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return {0.2627, 0.0593, is_full_range};
    default:
      return {kBt601Red, kBt601Blue, is_full_range};
  }
}

// RGB, directly or by a palette.
bool IsRgb(int format) {
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
  return description != nullptr &&
         (description->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

int CountPlanes(int format) { return av_pix_fmt_count_planes(static_cast<AVPixelFormat>(format)); }

}  // namespace

void Scaler::Free::operator()(SwsContext* context) const { sws_freeContext(context); }

Scaler::Scaler(const PixelFormat& format, Colours colours) : _format(format), _colours(colours) {
  SilenceLibraries();
}

Scaler::~Scaler() = default;

bool Scaler::Scale(const AVFrame& from, const Picture& into) {
  return Prepare({.format = from.format,
                  .width = from.width,
                  .height = from.height,
                  .space = SpaceOf(from),
                  .is_full_range = IsFullRange(from),
                  .to_width = into.width,
                  .to_height = into.height}) &&
         Run(from.data, from.linesize, into);
}

bool Scaler::Scale(const Picture& from, const Picture& into) {
  const std::uint8_t* const planes[4] = {from.planes[0], from.planes[1], from.planes[2]};
  const int strides[4] = {from.strides[0], from.strides[1], from.strides[2]};
  return Prepare({.format = Planar420().library_format,
                  .width = from.width,
                  .height = from.height,
                  .space = AVCOL_SPC_BT709,
                  .is_full_range = false,
                  .to_width = into.width,
                  .to_height = into.height}) &&
         Run(planes, strides, into);
}

// Anew only when something about the source has changed: the tables for RGB take their time.
bool Scaler::Prepare(const Conversion& conversion) {
  if (_context != nullptr && conversion == _prepared) return true;
  _prepared = conversion;
  _context.reset(sws_alloc_context());
  SwsContext* context = _context.get();
  if (context == nullptr) return false;
  // Where the colours differ the library goes by way of RGB, at several times the cost.
  const bool keeps_colours = IsPlanar420(_format) && !IsRgb(conversion.format);
  const Coding source = CodingOf(conversion.space, conversion.is_full_range);
  const Coding target = CodingOf(_colours);
  _matrix = keeps_colours ? ColourMatrix(source, target) : ColourMatrix();
  const int wanted_space = _colours == Colours::kJpeg ? SWS_CS_ITU601 : SWS_CS_ITU709;
  const int to_space = keeps_colours ? conversion.space : wanted_space;
  const bool to_full_range = (keeps_colours ? source : target).is_full_range;
  // The ranges have to be known before: where nothing else differs the library copies. Its copy
  // leaves out the chroma where neither side has a third plane; if the ranges seem to differ at
  // first, it converts. One plane may be gray, which the library takes for full range.
  const int planes = CountPlanes(conversion.format);
  const bool copy_is_whole = planes > 2 || CountPlanes(_format.library_format) != 2;
  const bool other_range = !(conversion.is_full_range || planes == 1);
  const std::pair<const char*, int> options[] = {
      {"srcw", conversion.width},
      {"srch", conversion.height},
      {"src_format", conversion.format},
      {"src_range", conversion.is_full_range ? 1 : 0},
      {"dstw", conversion.to_width},
      {"dsth", conversion.to_height},
      {"dst_format", _format.library_format},
      {"dst_range", (copy_is_whole ? to_full_range : other_range) ? 1 : 0},
      {"sws_flags", SWS_BILINEAR}};
  for (const auto& [name, value] : options) av_opt_set_int(context, name, value, 0);
  if (sws_init_context(context, nullptr, nullptr) >= 0) {
    constexpr int kUnchanged = 1 << 16;  // contrast and saturation, 16.16 fixed point
    sws_setColorspaceDetails(context, sws_getCoefficients(conversion.space),
                             conversion.is_full_range ? 1 : 0, sws_getCoefficients(to_space),
                             to_full_range ? 1 : 0, 0, kUnchanged, kUnchanged);
    return true;
  }
  _context.reset();
  return false;
}

bool Scaler::Run(const std::uint8_t* const* planes, const int* strides, const Picture& into) {
  std::uint8_t* const to_planes[4] = {into.planes[0], into.planes[1], into.planes[2]};
  const int to_strides[4] = {into.strides[0], into.strides[1], into.strides[2]};
  if (sws_scale(_context.get(), planes, strides, 0, _prepared.height, to_planes, to_strides) !=
      into.height) {
    return false;
  }
  _matrix.Convert(into);
  return true;
}

}  // namespace tessel::rtos
