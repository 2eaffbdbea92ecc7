// What JPEG and raw pictures hold, sample by sample.
#include <array>
#include <cstdlib>
#include <filesystem>

#include "Decoder.h"
#include "Fixture.h"
#include "tessel/IJpegSource.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using Row = std::array<int, 3>;

// The first frame; null when the stream does not open.
Frame FirstRaw(const std::string& format, int width, int height) {
  const auto source = quill::host::Create<api::streaming::IYuvSource>("ApiYuvSource-dualos-pull");
  source->SetWidth(width);
  source->SetHeight(height);
  source->SetFormat(format.c_str());
  Frame frame;
  if (!source->Open() || !source->Start() || !source->PullFrame(frame, true)) return nullptr;
  EXPECT_EQ(source->GetYuvMediaInfo().format, format);
  return frame;
}

// Decodes a JPEG picture; false unless it is baseline 4:2:0 with that luma DC step and size, and
// shows `colours` (Y, U, V) along a line through the lower part of the bars.
bool IsJpeg(const frame_t& frame, int dc_step, int width, int height, std::vector<Row> colours) {
  const std::string bytes(reinterpret_cast<const char*>(frame.data), frame.size);
  const auto table = bytes.find(std::string("\xff\xdb\0\x43\0", 5));
  const auto head = bytes.find(std::string("\xff\xc0\0\x11\x8", 5));
  if (table == bytes.npos || head == bytes.npos || frame.data[table + 5] != dc_step) return false;
  if (bytes.substr(head + 9, 10) != std::string("\3\1\x22\0\2\x11\1\3\x11\1", 10)) return false;
  Decoder decoder(AV_CODEC_ID_MJPEG);
  bool is_right = decoder.Decode(frame);
  const AVFrame* picture = decoder.picture;
  is_right = is_right && picture->width == width && picture->height == height;
  for (unsigned i = 0; is_right && i < 3 * colours.size(); ++i) {
    const int shift = i % 3 == 0 ? 0 : 1;
    const int x = width * (2 * static_cast<int>(i / 3) + 1) / 16 >> shift;
    const int at = (height * 14 / 24 >> shift) * picture->linesize[i % 3] + x;
    is_right = std::abs(picture->data[i % 3][at] - colours[i / 3][i % 3]) <= 3;
  }
  return is_right;
}

class Pictures : public StreamTest {
 protected:
  // Unpaced and with room for two frames, so that it is known which one a change meets.
  static void SetSensor(const std::string& sensor) {
    Use([&](auto& board) { board.sensor = sensor, board.paced = false, board.session_slots = 2; });
  }
};

TEST_F(Pictures, OfJpegHaveTheQuantiserAskedForLastAndColoursAsInJfif) {
  WatchBlock();
  const std::vector<Row> bars = {{191, 128, 128}, {169, 33, 144}, {134, 160, 32}, {112, 64, 48},
                                 {79, 192, 208},  {57, 96, 223},  {22, 223, 112}, {0, 128, 128}};
  const std::string file = ::testing::TempDir() + std::to_string(getpid()) + ".mp4";
  const std::string make = TESSEL_TOOL " capture h264 -q --unpaced --frames 3 --qp 4 -o " + file;
  ASSERT_EQ(std::system((make + " --width 640 --height 480").c_str()), 0);
  for (const auto& [sensor, w, h] :
       {std::tuple(std::string("test"), 160, 120), {"test", 322, 242}, {file, 640, 480}}) {
    SetSensor(sensor);
    auto jpeg = quill::host::Create<api::streaming::IJpegSource>("ApiJpegSource-dualos-cbrc-pull");
    SetSize(*jpeg, w, h);
    Frame frame;
    ASSERT_TRUE(jpeg->Open() && jpeg->Start() && jpeg->PullFrame(frame, true));
    const auto is_settled = [&] { return Counters().published == frame->seq + 2; };
    for (const auto& [qp, used, step] : std::vector<Row>{
             {1, 1, 1}, {0, 20, 6}, {26, 26, 13}, {37, 37, 45}, {51, 51, 226}, {-5, 20, 6}}) {
      ASSERT_TRUE(Eventually(is_settled));
      jpeg->SetQP(qp);
      ASSERT_TRUE(jpeg->PullFrame(frame, true));  // was there already
      ASSERT_TRUE(Eventually(is_settled));
      EXPECT_EQ(_block->qp_reported, used);
      ASSERT_TRUE(jpeg->PullFrame(frame, true) && frame->isKey);
      EXPECT_TRUE(IsJpeg(*frame, step, w, h, qp == 1 ? bars : std::vector<Row>())) << w << qp;
    }
  }
  std::filesystem::remove(file);
}

// Bytes from a picture's start, from line to line and from sample to sample of a plane, and by how
// much a place in luma samples is shifted across and down.
struct Plane {
  int offset, stride, step, across, down;
  int At(const frame_t& frame, int x, int y) const {
    return frame.data[offset + (y >> down) * stride + (x >> across) * step];
  }
};

// The luma is that of 4:2:0 everywhere but at the lamp, which flashes by the clock, the chroma at
// least in the middle of each bar.
TEST_F(Pictures, OfRawVideoHaveTheLayoutAskedFor) {
  for (const auto& [w, h] :
       {std::pair(160, 120), {192, 96}}) {  // widths of whole 64s go by another way
    const int n = w * h;
    const Plane y = {0, w, 1, 0, 0}, u = {n, w / 2, 1, 1, 1}, v = {n * 5 / 4, w / 2, 1, 1, 1};
    const Frame planar = FirstRaw("420V50", w, h);
    for (const auto& [format, size, planes] :
         std::vector<std::tuple<const char*, int, std::array<Plane, 3>>>{
             {"YV12", n * 3 / 2, {{y, v, u}}},
             {"nv12", n * 3 / 2, {{y, {n, w, 2, 1, 1}, {n + 1, w, 2, 1, 1}}}},
             {"nv21", n * 3 / 2, {{y, {n + 1, w, 2, 1, 1}, {n, w, 2, 1, 1}}}},
             {"yuv422p", n * 2, {{y, {n, w / 2, 1, 1, 0}, {n * 3 / 2, w / 2, 1, 1, 0}}}},
             {"YUY2", n * 2, {{{0, 2 * w, 2, 0, 0}, {1, 2 * w, 4, 1, 0}, {3, 2 * w, 4, 1, 0}}}},
             {"uyvy", n * 2, {{{1, 2 * w, 2, 0, 0}, {0, 2 * w, 4, 1, 0}, {2, 2 * w, 4, 1, 0}}}},
             {"YVYU", n * 2, {{{0, 2 * w, 2, 0, 0}, {3, 2 * w, 4, 1, 0}, {1, 2 * w, 4, 1, 0}}}},
             {"yuv444p", n * 3, {{y, {n, w, 1, 0, 0}, {n * 2, w, 1, 0, 0}}}},
             {"gray", n, {{y, u, v}}}}) {
      const Frame frame = FirstRaw(format, w, h);
      ASSERT_TRUE(frame && frame->size == static_cast<unsigned>(size)) << format;
      int wrong = 0;
      for (int i = 0; i < n; ++i) {
        const bool is_lamp = i % w >= w * 7 / 8 && i / w >= h / 8 && i / w < h / 4;
        wrong += !is_lamp && planes[0].At(*frame, i % w, i / w) != y.At(*planar, i % w, i / w);
        if (size == n || i / w != h * 14 / 24 || i % w % (w / 8) != w / 16) continue;
        wrong += planes[1].At(*frame, i % w, i / w) != u.At(*planar, i % w, i / w);
        wrong += planes[2].At(*frame, i % w, i / w) != v.At(*planar, i % w, i / w);
      }
      EXPECT_EQ(wrong, 0) << format << " at " << w;
    }
    for (const auto& [format, red, bytes] :
         {std::tuple("rgb24", 0, 3), {"BGR24", 2, 3}, {"rgba", 0, 4}, {"bgra", 2, 4}}) {
      const Frame frame = FirstRaw(format, w, h);
      ASSERT_TRUE(frame && frame->size == static_cast<unsigned>(n * bytes)) << format;
      const std::ptrdiff_t at = h * 14 / 24 * w + w * 3 / 16;  // yellow
      const auto* bar = frame->data + at * bytes;
      EXPECT_TRUE(bar[red] > 186 && bar[1] > 186 && bar[2 - red] < 5) << format;
      EXPECT_TRUE(bytes == 3 || bar[3] == 255) << format;
    }
  }
}

TEST_F(Pictures, OfRawVideoHaveTheirOwnColoursWhateverThoseOfTheFile) {
  const std::string file = ::testing::TempDir() + std::to_string(getpid()) + ".mkv";
  const std::string make = TESSEL_TOOL " capture jpeg -q --width 640 --height 360 --frames 2 -o ";
  ASSERT_EQ(std::system((make + file).c_str()), 0);
  SetSensor(file);
  const Frame frame = FirstRaw("420V50", 160, 120);
  ASSERT_TRUE(std::filesystem::remove(file) && frame);
  for (const auto& [at, yellow] : {std::pair(11230, 168), {22015, 44}, {26815, 136}}) {
    EXPECT_NEAR(frame->data[at], yellow, 3) << at;
  }
}

TEST_F(Pictures, InNoKnownLayoutAreRefusedByName) {
  for (const std::string format : {"xyz", "", "nv1", "nv123"}) {
    EXPECT_EQ(FirstRaw(format, 160, 120), nullptr);
    const std::string reason = "fmt=" + format + " is none of 420V50, yuv420p, i420, yv12, nv12, ";
    EXPECT_NE(LogLines()[0].find("element \"pv-yuv-src-adv\": " + reason), std::string::npos);
  }
}

}  // namespace
}  // namespace tessel::tests
