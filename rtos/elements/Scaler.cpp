#include "Scaler.h"

#include <mutex>
#include <utility>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

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

int CountPlanes(int format) { return av_pix_fmt_count_planes(static_cast<AVPixelFormat>(format)); }

}  // namespace

void SilenceLibraries() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

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
  const bool to_full_range = _colours == Colours::kJpeg;
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
    const int space = _colours == Colours::kJpeg ? SWS_CS_ITU601 : SWS_CS_ITU709;
    sws_setColorspaceDetails(context, sws_getCoefficients(conversion.space),
                             conversion.is_full_range ? 1 : 0, sws_getCoefficients(space),
                             to_full_range ? 1 : 0, 0, kUnchanged, kUnchanged);
    return true;
  }
  _context.reset();
  return false;
}

bool Scaler::Run(const std::uint8_t* const* planes, const int* strides, const Picture& into) {
  std::uint8_t* const to_planes[4] = {into.planes[0], into.planes[1], into.planes[2]};
  const int to_strides[4] = {into.strides[0], into.strides[1], into.strides[2]};
  return sws_scale(_context.get(), planes, strides, 0, _prepared.height, to_planes, to_strides) ==
         into.height;
}

}  // namespace tessel::rtos
