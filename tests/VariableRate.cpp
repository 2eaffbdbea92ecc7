// The variable bit rate of the real encoder on a clip that stands still, then shows new noise in
// each picture.
#include <filesystem>
#include <numeric>

#include "ConstantRate.h"
#include "Fixture.h"

namespace tessel::tests {
namespace {

constexpr int kFramesPerSecond = 30;
constexpr int kStill = 240;  // frames
constexpr int kBusy = 300;
constexpr int kWindow = 2 * kFramesPerSecond + 1;  // two seconds with both of their ends

using VariableRate = StreamTest;

TEST_F(VariableRate, FollowsTheSceneBelowItsMaximum) {
  const std::string file = ::testing::TempDir() + std::to_string(getpid()) + ".y4m";
  const std::string make =
      "ffmpeg -v error -f lavfi -i \"smptebars=s=320x240:r=30:d=18,"
      "noise=alls=30:allf=t:enable='gte(t,8)'\" -pix_fmt yuv420p ";
  ASSERT_EQ(std::system((make + file).c_str()), 0);
  Use([&file](auto& options) { options.sensor = file, options.paced = false; });
  for (const int most_bps : {600'000, 450'000}) {
    Camera camera = Make("ApiH264Source-vbrc-dualos-pull");
    camera->SetWidth(320);
    camera->SetHeight(240);
    camera->SetGop(120);
    camera->SetBitRateMaximum(most_bps);
    camera->SetBitRate(most_bps / 2);
    ASSERT_TRUE(camera->Open() && camera->Start());
    std::vector<double> bits(kWindow);
    while (bits.size() < kWindow + kStill + kBusy) {
      const Frame frame = NextFrame(camera);
      ASSERT_NE(frame, nullptr);
      bits.push_back(static_cast<double>(frame->size) * 8);
      EXPECT_LT(std::accumulate(bits.end() - kWindow, bits.end(), 0.0), 2 * most_bps);
    }
    const auto busy = bits.end() - kBusy;
    const double busy_bps = std::accumulate(busy, bits.end(), 0.0) / kBusy * kFramesPerSecond;
    EXPECT_LT(std::accumulate(busy - 180, busy, 0.0) / 180 * kFramesPerSecond, 0.5 * busy_bps);
    EXPECT_GT(busy_bps, 0.5 * most_bps) << "a busy scene takes what it is allowed";
  }
  std::filesystem::remove(file);
}

TEST_F(VariableRate, IsBoundByTheMaximumWhereTheBoundsCross) {
  rtos::RateControl control = {};
  control.bitrate_target = 500'000;
  control.bitrate_min = 3'000'000;
  control.bitrate_max = 2'000'000;
  EXPECT_EQ(rtos::LimitsOf(control).target_bps, 2'000'000);
}

}  // namespace
}  // namespace tessel::tests
