// What the encoder delivers, judged by decoding it. Unpaced and with room for two frames, the
// real-time side is never more than one frame ahead: so the tests know which frame a change meets.
#include <array>
#include <filesystem>
#include <numeric>
#include <tuple>

#include "Decoder.h"
#include "Fixture.h"

extern "C" {
#include <libavutil/video_enc_params.h>
}

namespace tessel::tests {
namespace {

// Decodes a frame, and keeps what is known of its picture.
struct PictureDecoder : Decoder {
  PictureDecoder() : Decoder(AV_CODEC_ID_H264) {}

  bool Decode(const frame_t& frame) {
    if (!Decoder::Decode(frame)) return false;
    number = Number().value_or(UINT32_MAX);
    auto* side = av_frame_get_side_data(picture, AV_FRAME_DATA_VIDEO_ENC_PARAMS)->data;
    auto* params = reinterpret_cast<AVVideoEncParams*>(side);
    qp = params->qp + av_video_enc_params_block(params, 0)->delta_qp;
    for (unsigned i = 0; i < params->nb_blocks; ++i) {
      EXPECT_EQ(params->qp + av_video_enc_params_block(params, i)->delta_qp, qp) << "block " << i;
    }
    type = picture->key_frame != 0 ? 'K' : av_get_picture_type_char(picture->pict_type);
    return true;
  }

  std::uint32_t number = 0;  // that the sensor drew
  int qp = 0;                // of all its blocks
  char type = 0;             // K: IDR, I: intra, P: inter
};

class EncodedPictures : public StreamTest {
 protected:
  EncodedPictures() {
    Use([](auto& board) { board.paced = false, board.session_slots = 2; });
    WatchBlock();
  }
  void Create(int width = 160, int height = 120, int gop = 30, const char* pattern = "IP") {
    _frame.reset();
    avcodec_flush_buffers(_decoder.codec);
    _camera = Make();
    _camera->SetWidth(width);
    _camera->SetHeight(height);
    _camera->SetGop(gop);
    _camera->SetGopType(pattern);
  }
  void Play() { ASSERT_TRUE(_camera->ChangeState(State::kPlay)); }
  // Takes the next frame and decodes it; false at the end.
  bool Next() {
    const std::int64_t seq = _frame ? std::int64_t{_frame->seq} : -1;
    const std::int64_t time_ns = _frame ? _frame->timestamp : 0;
    if (!_camera->PullFrame(_frame, true)) return false;
    EXPECT_TRUE(_frame->seq > seq && _frame->timestamp > time_ns);
    const bool is_decoded = _decoder.Decode(*_frame);
    EXPECT_TRUE(is_decoded && _frame->isKey == (_decoder.type == 'K')) << _frame->seq;
    return is_decoded;
  }
  // Until the real-time side waits for room: a change now is for the frame after the next.
  void Settle() {
    ASSERT_TRUE(Eventually([this] { return Counters().published == _frame->seq + 2; }));
  }
  void RequestKeys() {
    for (int i = 0; i < 3; ++i) _camera->ForceKeyFrame();
  }
  std::string Types(std::size_t count) {
    std::string types;
    while (types.size() < count && Next()) types += _decoder.type;
    return types;
  }

  PictureDecoder _decoder;
  Camera _camera;
  Frame _frame;  // the last one
};

TEST_F(EncodedPictures, HaveTheSizeAndParameterSetsOfTheMediaInfo) {
  using Size = std::pair<int, int>;
  for (const auto& [width, height] : {Size(16, 16), {322, 242}, {640, 360}, {854, 480}}) {
    Create(width, height, 4);
    Play();
    const auto info = _camera->GetH264MediaInfo();
    const auto unit = [](const void* bytes, int size) {
      return std::string("\0\0\0\1", 4) + std::string(static_cast<const char*>(bytes), 0U + size);
    };
    const std::string header = unit(info.sps, info.spsSize) + unit(info.pps, info.ppsSize);
    const int size = static_cast<int>(header.size());
    EXPECT_EQ(
        (std::vector{info.width, info.height, info.gop, info.spsOffset, info.spsLength,
                     info.ppsOffset, info.ppsLength, info.headerSize}),
        (std::vector{width, height, 4, 4, info.spsSize, 8 + info.spsSize, info.ppsSize, size + 4}));
    for (std::uint32_t i = 0; i < 9; ++i) {
      ASSERT_TRUE(Next() && _frame->seq == i);
      EXPECT_EQ(Size(_decoder.picture->width, _decoder.picture->height), Size(width, height));
      EXPECT_EQ(_decoder.number, width == 16 ? UINT32_MAX : i) << "too small for it, or shown";
      const bool is_idr = i % 4 == 0;
      const std::string bytes = unit(_frame->data, static_cast<int>(_frame->size)).substr(4);
      ASSERT_EQ(bytes.starts_with(header), is_idr);
      for (const auto jump : {info.cbJumpToData, info.cbJumpToDataBs}) {
        std::uint32_t left = 0;
        const auto* slice = jump(_frame->data, _frame->size, &left);
        ASSERT_EQ(slice - _frame->data, is_idr ? size : 0);
        EXPECT_EQ(slice + left, _frame->data + _frame->size);
        EXPECT_EQ(slice[slice[2] == 1 ? 3 : 4] & 0x1f, is_idr ? 5 : 1);
      }
    }
  }
}

TEST_F(EncodedPictures, HaveTheQpAskedForInEveryBlock) {
  Create();
  _camera->SetBitRateMinimum(0);
  _camera->SetBitRateMaximum(100'000'000);
  Play();
  ASSERT_TRUE(Next());
  // Every QP lies in `least` to `most`; `last` is where rate control ends.
  for (const auto& [qp, qp_min, qp_max, target_bps, least, most, last] :
       std::vector<std::array<int, 7>>{{1, 10, 50, 1'000'000, 1, 1, 1},
                                       {51, 10, 50, 1'000'000, 51, 51, 51},
                                       {0, 24, 30, 90'000'000, 24, 30, 24},
                                       {0, 34, 40, 1'000, 34, 40, 40},
                                       {0, 30, 20, 90'000'000, 20, 30, 20}}) {
    Settle();
    _camera->SetQP(qp);
    _camera->SetQPMinimum(qp_min);
    _camera->SetQPMaximum(qp_max);
    _camera->SetBitRate(target_bps);
    ASSERT_TRUE(Next());  // was there already
    for (int i = 0; i < 25 && Next(); ++i) {
      ASSERT_TRUE(_decoder.qp >= least && _decoder.qp <= most) << _decoder.qp << ", " << last;
    }
    EXPECT_EQ(_decoder.qp, last);
  }
}

// Within a second, and without an IDR picture. The block describes the frame that comes next.
TEST_F(EncodedPictures, MeetAChangedBitRateAndTheBlockMeasuresIt) {
  Create(640, 360);
  _camera->SetBitRateMaximum(10'000'000);
  Play();
  ASSERT_TRUE(Next());
  std::vector<int> bits = {static_cast<int>(_frame->size * 8)};
  for (const int target_bps : {1'000'000, 3'000'000, 700'000}) {
    _camera->SetBitRate(target_bps);
    for (int i = 0; i < 91; ++i) {
      Settle();
      const int measured_bps = _block->bitrate, qp = _block->qp_reported;
      const int count = _block->frame_count;
      ASSERT_TRUE(Next());
      EXPECT_EQ(std::pair(count - 1, qp), std::pair(static_cast<int>(_frame->seq), _decoder.qp));
      EXPECT_EQ(_frame->isKey, _frame->seq % 30 == 0);
      bits.push_back(static_cast<int>(_frame->size * 8));
      EXPECT_EQ(measured_bps, count < 31 ? 0 : std::accumulate(bits.end() - 30, bits.end(), 0));
    }
    const double seen_bps = std::accumulate(bits.end() - 60, bits.end(), 0) / 2.0;
    EXPECT_NEAR(seen_bps, target_bps, 0.1 * target_bps);
  }
}

TEST_F(EncodedPictures, HaveABitRateOnlyWhileTheyCome) {
  Create();
  int first_bps = 0;
  for (int round = 0; round < 2; ++round) {
    Play();
    ASSERT_TRUE(Eventually([this] { return !Next() || _camera->GetCurrentBitRate() > 0; }));
    const int bps = _camera->GetCurrentBitRate();
    first_bps = round == 0 ? bps : first_bps;
    EXPECT_NEAR(bps, first_bps, 0.5 * first_bps) << "frames of the first round count in the second";
    EXPECT_TRUE(round == 1 || _camera->Stop());
    if (round == 1) KillRtos();
    EXPECT_TRUE(Eventually([this] { return _camera->GetCurrentBitRate() == 0; }));
  }
}

TEST_F(EncodedPictures, BeginAGopWithOneIdrAtEachKeyRequestAndStart) {
  Create(160, 120, 6);
  RequestKeys();  // the first picture is one anyway
  Play();
  EXPECT_EQ(Types(3), "KPP");
  Settle();
  RequestKeys();
  EXPECT_EQ(Types(9), "PKPPPPPKP") << "one frame was there already";
  for (const bool is_key_asked : {true, false}) {
    ASSERT_TRUE(Eventually([] { return Counters().published > Counters().delivered; }));
    ASSERT_TRUE(_camera->Stop());  // frames that were not taken yet are discarded
    if (is_key_asked) RequestKeys();
    Play();
    EXPECT_EQ(Types(8), "KPPPPPKP");
  }
}

TEST_F(EncodedPictures, CanBeDecodedAcrossDroppedOnes) {
  Use([](auto& board) { board.paced = true; });
  Create(160, 120, 1000);
  Play();
  for (const bool is_key_asked : {false, false, true}) {
    ASSERT_TRUE(Next());
    Frame kept = _frame;
    ASSERT_TRUE(Next());  // no room is left
    const std::uint64_t dropped = Counters().dropped;
    ASSERT_TRUE(Eventually([&] { return Counters().dropped > dropped + 1; }));
    if (is_key_asked) RequestKeys();
    ASSERT_TRUE(Eventually([&] { return Counters().dropped > dropped + 3; }));
    kept.reset();
    const std::uint32_t seq = std::exchange(_frame, nullptr)->seq;
    EXPECT_EQ(Types(3), is_key_asked ? "KPP" : "PPP") << "a dropped picture serves no request";
    EXPECT_GT(_frame->seq, seq + 6);
    EXPECT_EQ(_decoder.number, _frame->seq);
  }
}

TEST_F(EncodedPictures, FollowTheGopPattern) {
  using Row = std::tuple<int, const char*, std::string>;
  for (const auto& [gop, pattern, types] :
       {Row(1, "IPPP", "KKKK"), Row(3, "IPPP", "KPPKPPK"), Row(4, "I", "KIIIKIII"),
        Row(5, "IPI", "KPIIIKPIIIKP"), Row(2, "IPPPPP", "KPKPKPK")}) {
    Create(160, 120, gop, pattern);
    Play();
    EXPECT_EQ(Types(types.size()), types) << gop;
  }
}

TEST_F(EncodedPictures, AreSpacedByTheLastFrameRate) {
  Create();
  Play();
  ASSERT_TRUE(Next());
  for (const int rate : {10, 60, 25, 1}) {
    Settle();
    _camera->SetFrameRateMaximum(rate);
    EXPECT_EQ(Types(2).size(), 2U) << "one was there already, one waiting for room";
    for (int i = 0; i < 4; ++i) {
      const std::int64_t time_ns = _frame->timestamp;
      ASSERT_TRUE(Next());
      EXPECT_LE(std::abs(_frame->timestamp - time_ns - 1'000'000'000 / rate), 1) << rate;
    }
  }
}

TEST_F(EncodedPictures, OfAMediaFileComeOncePerPass) {
  const std::string film = ::testing::TempDir() + std::to_string(getpid());
  const struct {
    const char* extension;
    std::string make;     // the command
    std::uint32_t pause;  // captures by which the 12th picture stays longer
  } rows[] = {
      {".mkv",
       TESSEL_TOOL " capture h264 -q --unpaced --frames 25 --width 320 --height 240 --gop 10 -o ",
       0},
      {".h264", "ffmpeg -v error -i " + film + ".mkv -c copy ", 0},
      {".mpg", "ffmpeg -v error -i " + film + ".mkv ", 0},  // a rewind may end elsewhere in it
      {".late.mkv",
       "ffmpeg -v error -i " + film + ".mkv -vsync vfr -vf 'setpts=PTS+gte(N\\,12)/TB' ", 30}};
  for (const auto& [extension, make, pause] : rows) {
    const std::string file = film + extension;
    ASSERT_EQ(std::system((make + file).c_str()), 0);
    const std::uint32_t length = 25 + pause;
    for (const std::uint32_t passes : {1, 3}) {
      Use([&](auto& board) { board.sensor = file, board.loop = passes > 1; });
      Create(320, 240);
      Event end;
      _camera->RegisterMessageCallback([&](const char* text) {
        if (text == std::string("end of input")) end.Set();
        return true;
      });
      Play();
      std::uint32_t count = 0;
      for (; count < 3 * length && Next(); ++count) {
        const std::uint32_t place = count % length;
        const std::uint32_t since_pause = place < 12 + pause ? 11 : place - pause;
        EXPECT_EQ(_decoder.number, place < 12 ? place : since_pause) << file << count;
      }
      EXPECT_EQ(count, length * passes) << file;
      EXPECT_TRUE(passes > 1 || end.Wait());
      _camera.reset();  // the callback refers to `end`
    }
  }
  for (const auto& row : rows) std::filesystem::remove(film + row.extension);
}

}  // namespace
}  // namespace tessel::tests
