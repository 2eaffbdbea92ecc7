#include "H264Encoder.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <x264.h>

#include "ElementParams.h"

namespace tessel::rtos {
namespace {

// Full-range white noise, the worst there is, was measured at 1.55 times the raw picture.
constexpr std::size_t kWorstNumerator = 2;
constexpr std::size_t kHeaderBytes = 4096;
constexpr std::size_t kStartCodeBytes = 4;

bool CheckGopType(const std::string& text, std::string& error) {
  error = "goptype=" + text;
  if (text.find('B') != std::string::npos) {
    error += ": B pictures are coded out of order, which would delay frames";
  } else if (text.empty() || text.front() != 'I') {
    error += " does not begin with I";
  } else if (text.find_first_not_of("IP") != std::string::npos) {
    error += " has letters other than I and P";
  } else {
    error.clear();
  }
  return error.empty();
}

std::span<const std::uint8_t> BytesOf(const x264_nal_t& unit) {
  return {unit.p_payload, static_cast<std::size_t>(unit.i_payload)};
}

}  // namespace

void H264Encoder::Close::operator()(x264_t* encoder) const { x264_encoder_close(encoder); }

bool H264Encoder::Open(const Context& context, const AttrSet& params, Media& media,
                       std::string& error) {
  if (!ReadParams(context, params, error)) return false;
  if (media.width <= 0 || media.height <= 0) {  // the library would keep memory of the attempt
    error = "no pictures come in";
    return false;
  }
  if (!OpenLibrary(media, error)) return false;
  const bool all_intra = _gop_type.find_first_not_of('I') == std::string::npos;
  _own_policy = std::make_unique<ConstantRate>(_gop, all_intra);
  _policy = _own_policy.get();
  _report.Open(_params.block, _params.counts_frames);
  media.frames_per_second = _params.frames_per_second;
  const auto blocks_across = static_cast<std::size_t>(media.width + 15) / 16;
  const auto blocks_down = static_cast<std::size_t>(media.height + 15) / 16;
  media.unit_bytes = blocks_across * blocks_down * 384 * kWorstNumerator + kHeaderBytes;
  return Describe(media, error);
}

bool H264Encoder::ReadParams(const Context& context, const AttrSet& params, std::string& error) {
  if (!_params.Read(context, params, {"goptype", "gop"}, error) ||
      !ReadInt(params, "gop", 1, 65535, _gop, error)) {
    return false;
  }
  params.Get("goptype", _gop_type);
  return CheckGopType(_gop_type, error);
}

bool H264Encoder::OpenLibrary(const Media& media, std::string& error) {
  x264_param_t param;
  // A picture at 1080 lines has to be done in well under 33 ms on one core.
  x264_param_default_preset(&param, "superfast", "zerolatency");
  param.i_log_level = X264_LOG_NONE;
  param.i_threads = 1;  // the chain's
  param.b_sliced_threads = 0;
  param.i_width = media.width;
  param.i_height = media.height;
  param.i_csp = X264_CSP_I420;
  param.b_annexb = 1;
  param.b_repeat_headers = 1;

  // The type of each picture is set when it is encoded. An intra picture further than the least
  // interval from the last IDR picture would be made one, hence "infinite" for that too.
  param.i_keyint_max = X264_KEYINT_MAX_INFINITE;
  param.i_keyint_min = X264_KEYINT_MAX_INFINITE;
  param.i_scenecut_threshold = 0;
  param.i_bframe = 0;

  // So is its QP. In this mode the library takes any of them, and with what
  // would vary it inside a picture switched off, all blocks have it.
  param.rc.i_rc_method = X264_RC_CRF;
  param.rc.i_qp_min = 0;
  param.rc.i_qp_max = kMostQp;
  param.rc.i_aq_mode = X264_AQ_NONE;
  param.rc.b_mb_tree = 0;

  // The stream states the nominal rate, also after live changes. The library can mark a rate as
  // variable, but then holds each picture back until it knows the next one's time.
  param.b_vfr_input = 0;
  param.i_fps_num = static_cast<std::uint32_t>(_params.frames_per_second);
  param.i_fps_den = 1;
  constexpr int kBt709 = 1;
  param.vui.b_fullrange = 0;
  param.vui.i_colorprim = kBt709;
  param.vui.i_transfer = kBt709;
  param.vui.i_colmatrix = kBt709;

  _encoder.reset(x264_encoder_open(&param));
  if (_encoder != nullptr) return true;
  error = "no encoder for " + std::to_string(media.width) + "x" + std::to_string(media.height);
  return false;
}

// The parameter sets go to Linux before the first picture; they are the same throughout.
bool H264Encoder::Describe(Media& media, std::string& error) const {
  x264_nal_t* units = nullptr;
  int count = 0;
  std::string sps;
  std::string pps;
  if (x264_encoder_headers(_encoder.get(), &units, &count) < 0) count = 0;
  for (int i = 0; i < count; ++i) {
    if (units[i].i_type == NAL_SPS) sps = Hex(BytesOf(units[i]).subspan(kStartCodeBytes));
    if (units[i].i_type == NAL_PPS) pps = Hex(BytesOf(units[i]).subspan(kStartCodeBytes));
  }
  if (sps.empty() || pps.empty()) {
    error = "no stream headers";
    return false;
  }
  constexpr char kStartCode[] = "00000001";
  const std::size_t sps_bytes = sps.size() / 2;
  AttrSet description;
  description.Add(media_key::kCodec, "h264");
  description.Add(media_key::kWidth, media.width);
  description.Add(media_key::kHeight, media.height);
  description.Add(media_key::kFrameRate, _params.frames_per_second);
  description.Add(media_key::kGop, _gop);
  description.Add(media_key::kGopType, _gop_type);
  description.Add(media_key::kPacking, "byte-stream");
  description.Add(media_key::kHeader, kStartCode + sps + kStartCode + pps);
  description.Add(media_key::kSpsOffset, kStartCodeBytes);
  description.Add(media_key::kSpsBytes, sps_bytes);
  description.Add(media_key::kPpsOffset, kStartCodeBytes + sps_bytes + kStartCodeBytes);
  description.Add(media_key::kPpsBytes, pps.size() / 2);
  media.description = std::move(description);
  return true;
}

void H264Encoder::Start() {
  _wants_idr = true;
  _report.Start();
  _policy->ResetDebt();
}

Verdict H264Encoder::Process(Unit& unit) {
  const Kind kind = NextKind(unit.control);
  const Picture& in = unit.picture;
  const PictureToCode picture = {
      .control = unit.control,
      .time_ns = unit.time_ns,
      .frames_per_second = unit.frames_per_second,
      .is_intra = kind != Kind::kInter,
      .complexity = _complexity.Measure(in.planes[0], in.strides[0], in.width, in.height)};
  unit.qp = ChooseQp(unit, picture);
  const Verdict verdict = Encode(unit, kind);
  if (verdict != Verdict::kPass) return verdict;
  _policy->Account(picture, unit.qp, unit.size_bytes);
  _report.Add(unit.time_ns, unit.size_bytes, unit.qp);
  return Verdict::kPass;
}

H264Encoder::Kind H264Encoder::NextKind(const RateControl& control) {
  const bool is_asked = std::exchange(_requests, control.keyframe_req) != control.keyframe_req;
  const bool was_known = std::exchange(_knows_requests, true);
  const bool is_forced = std::exchange(_wants_idr, false) || (is_asked && was_known);
  if (is_forced || _since_idr >= _gop) _since_idr = 0;
  const int place = _since_idr++;
  if (place == 0) return Kind::kIdr;
  const std::size_t letter = std::min(static_cast<std::size_t>(place), _gop_type.size() - 1);
  return _gop_type[letter] == 'I' ? Kind::kIntra : Kind::kInter;
}

int H264Encoder::ChooseQp(const Unit& unit, const PictureToCode& picture) {
  const int chosen = _policy->ChooseQp(picture);
  const int asked = _params.QpOf(unit);
  if (asked == 0) return chosen;
  _policy->ResetDebt();  // a fixed QP accumulates no debt
  return asked;
}

Verdict H264Encoder::Encode(Unit& unit, Kind kind) {
  x264_picture_t in;
  x264_picture_t out;
  x264_picture_init(&in);
  in.i_type = kind == Kind::kIdr ? X264_TYPE_IDR : kind == Kind::kIntra ? X264_TYPE_I : X264_TYPE_P;
  in.i_qpplus1 = unit.qp + 1;
  in.i_pts = _pictures++;
  in.img.i_csp = X264_CSP_I420;
  in.img.i_plane = 3;
  for (int plane = 0; plane < 3; ++plane) {
    in.img.plane[plane] = unit.picture.planes[plane];
    in.img.i_stride[plane] = unit.picture.strides[plane];
  }
  x264_nal_t* units = nullptr;
  int count = 0;
  if (x264_encoder_encode(_encoder.get(), &units, &count, &in, &out) <= 0) {
    return FailWith("a picture was not encoded");
  }
  unit.size_bytes = 0;
  for (int i = 0; i < count; ++i) {
    if (units[i].i_type == NAL_SEI) continue;  // the library's settings, of no use to a decoder
    const auto bytes = BytesOf(units[i]);
    if (bytes.size() > unit.room.size() - unit.size_bytes) {
      return FailWith("a picture does not fit into " + std::to_string(unit.room.size()) + " bytes");
    }
    std::memcpy(unit.room.data() + unit.size_bytes, bytes.data(), bytes.size());
    unit.size_bytes += bytes.size();
  }
  unit.is_key = out.b_keyframe != 0;
  unit.qp = out.i_qpplus1 - 1;
  return Verdict::kPass;
}

}  // namespace tessel::rtos
