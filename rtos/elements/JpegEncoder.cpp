#include "JpegEncoder.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <jpeglib.h>

namespace tessel::rtos {
namespace {

constexpr int kOwnQp = 20;
constexpr int kBlock = 16;       // luma samples across and down of what is coded together
constexpr int kBaseDcStep = 16;  // of the luma table that the standard gives as an example

// For jpeg_set_linear_quality(): per cent of the example tables.
int ScalePercent(int qp) {
  const double step = 0.625 * std::exp2(qp / 6.0);  // of H.264
  return std::max(1, static_cast<int>(std::lround(100 * step / kBaseDcStep)));
}

int RoundUp(int samples, int step) { return (samples + step - 1) / step * step; }

// Repeats the last sample of each line until whole blocks are full.
void PadLines(std::uint8_t* plane, int stride, int width, int height, int padded_width) {
  if (width == padded_width) return;
  for (int y = 0; y < height; ++y) {
    std::uint8_t* end = plane + std::ptrdiff_t{y} * stride + width;
    std::memset(end, end[-1], static_cast<std::size_t>(padded_width - width));
  }
}

}  // namespace

// The library with what it calls back. It reports a failure by not returning: no object with a
// destructor may live in a function that it is called from.
struct JpegEncoder::Codec {
  Codec();
  ~Codec() { jpeg_destroy_compress(&library); }
  Codec(const Codec&) = delete;
  Codec& operator=(const Codec&) = delete;

  // False with `reason` set.
  bool Prepare(int width, int height);
  bool Compress(const Picture& picture, int qp, std::uint8_t* room, std::size_t room_bytes);
  std::size_t FreeBytes() const { return destination.free_in_buffer; }

  static Codec& Of(j_common_ptr library) { return *static_cast<Codec*>(library->client_data); }
  [[noreturn]] static void Fail(j_common_ptr library) {
    Codec& codec = Of(library);
    library->err->format_message(library, codec.reason);
    std::longjmp(codec.failed, 1);
  }
  [[noreturn]] static boolean FailForRoom(j_compress_ptr library) {
    Codec& codec = Of(reinterpret_cast<j_common_ptr>(library));
    std::snprintf(codec.reason, sizeof codec.reason, "a picture does not fit into %zu bytes",
                  codec.room_bytes);
    std::longjmp(codec.failed, 1);
  }

  jpeg_compress_struct library{};
  jpeg_error_mgr errors{};
  jpeg_destination_mgr destination{};
  std::jmp_buf failed{};
  char reason[JMSG_LENGTH_MAX] = {};
  std::size_t room_bytes = 0;
};

JpegEncoder::Codec::Codec() {
  library.err = jpeg_std_error(&errors);
  errors.error_exit = &Fail;
  errors.output_message = [](j_common_ptr) {};  // warnings would go to the user's terminal
  library.client_data = this;
  destination.init_destination = [](j_compress_ptr) {};
  destination.empty_output_buffer = &FailForRoom;
  destination.term_destination = [](j_compress_ptr) {};
}

bool JpegEncoder::Codec::Prepare(int width, int height) {
  if (setjmp(failed) != 0) return false;
  jpeg_create_compress(&library);
  library.dest = &destination;
  library.image_width = static_cast<JDIMENSION>(width);
  library.image_height = static_cast<JDIMENSION>(height);
  library.input_components = 3;
  library.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&library);  // 4:2:0, JFIF, no restart markers
  library.raw_data_in = TRUE;
  library.optimize_coding = FALSE;
  library.dct_method = JDCT_ISLOW;
  return true;
}

bool JpegEncoder::Codec::Compress(const Picture& picture, int qp, std::uint8_t* room,
                                  std::size_t bytes) {
  if (setjmp(failed) != 0) {
    jpeg_abort_compress(&library);
    return false;
  }
  room_bytes = bytes;
  destination.next_output_byte = room;
  destination.free_in_buffer = bytes;
  jpeg_set_linear_quality(&library, ScalePercent(qp), TRUE);
  jpeg_start_compress(&library, TRUE);
  JSAMPROW rows[3][kBlock];
  JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
  while (library.next_scanline < library.image_height) {
    for (int plane = 0; plane < 3; ++plane) {
      const int shift = plane == 0 ? 0 : 1;
      const int top = static_cast<int>(library.next_scanline) >> shift;
      const int last = (picture.height >> shift) - 1;
      for (int line = 0; line < kBlock >> shift; ++line) {
        rows[plane][line] = picture.planes[plane] +
                            std::ptrdiff_t{std::min(top + line, last)} * picture.strides[plane];
      }
    }
    jpeg_write_raw_data(&library, planes, kBlock);
  }
  jpeg_finish_compress(&library);
  return true;
}

JpegEncoder::JpegEncoder() = default;
JpegEncoder::~JpegEncoder() = default;

bool JpegEncoder::Open(const Context& context, const AttrSet& params, Media& media,
                       std::string& error) {
  if (!_params.Read(context, params, {}, error)) return false;
  if (media.width <= 0 || media.height <= 0) {
    error = "no pictures come in";
    return false;
  }
  _codec = std::make_unique<Codec>();
  if (!_codec->Prepare(media.width, media.height)) {
    error = _codec->reason;
    return false;
  }
  _report.Open(_params.block, _params.counts_frames);
  media.frames_per_second = _params.frames_per_second;
  // The bound that libjpeg-turbo itself gives for 4:2:0 (tjBufSize): 3 bytes for each luma sample
  // of the whole blocks, and the headers.
  constexpr std::size_t kHeaderBytes = 2048;
  media.unit_bytes = static_cast<std::size_t>(RoundUp(media.width, kBlock)) *
                         static_cast<std::size_t>(RoundUp(media.height, kBlock)) * 3 +
                     kHeaderBytes;
  media.description = AttrSet();
  media.description.Add(media_key::kCodec, "jpeg");
  media.description.Add(media_key::kWidth, media.width);
  media.description.Add(media_key::kHeight, media.height);
  media.description.Add(media_key::kFrameRate, _params.frames_per_second);
  return true;
}

Verdict JpegEncoder::Process(Unit& unit) {
  const Picture& picture = unit.picture;
  for (int plane = 0; plane < 3; ++plane) {
    const int shift = plane == 0 ? 0 : 1;
    PadLines(picture.planes[plane], picture.strides[plane], picture.width >> shift,
             picture.height >> shift, RoundUp(picture.width, kBlock) >> shift);
  }
  const int asked = _params.QpOf(unit);
  unit.qp = asked == 0 ? kOwnQp : asked;
  if (!_codec->Compress(picture, unit.qp, unit.room.data(), unit.room.size())) {
    return FailWith(_codec->reason);
  }
  unit.size_bytes = unit.room.size() - _codec->FreeBytes();
  unit.is_key = true;  // every picture stands alone
  _report.Add(unit.time_ns, unit.size_bytes, unit.qp);
  return Verdict::kPass;
}

}  // namespace tessel::rtos
