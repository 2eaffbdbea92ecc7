// The variable bit rate, seen from a client: what the real encoder makes of a clip that stands
// still, then shows a new picture each time.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>

#include "Clock.h"
#include "ConstantRate.h"
#include "Fixture.h"
#include "VariableRate.h"

namespace tessel::tests {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kFramesPerSecond = 30;
constexpr int kStill = 240;  // frames
constexpr int kBusy = 300;
constexpr int kWindowS = 2;  // both of its ends count in

// Raw video in the simplest of containers: squares of random brightness, all of them new in each
// busy frame, and the noise of a camera over them.
void WriteClip(const std::string& file) {
  constexpr int kSquare = 8;
  std::mt19937 random(7);
  std::string squares(std::size_t{kWidth} * kHeight, '\0');
  std::string picture(std::size_t{kWidth} * kHeight * 3 / 2, '\x80');
  std::ofstream out(file, std::ios::binary);
  out << "YUV4MPEG2 W" << kWidth << " H" << kHeight << " F" << kFramesPerSecond << ":1 C420jpeg\n";
  for (int frame = 0; frame < kStill + kBusy; ++frame) {
    for (std::size_t at = 0; at < squares.size(); ++at) {
      const bool is_first_line = at / kWidth % kSquare == 0;
      const bool is_new = is_first_line && at % kSquare == 0 && (frame == 0 || frame >= kStill);
      if (is_new) squares[at] = static_cast<char>(random() % 160 + 40);
      if (!is_new)
        squares[at] = squares[at % kSquare != 0 ? at - 1 : is_first_line ? at : at - kWidth];
      picture[at] = static_cast<char>(squares[at] + static_cast<int>(random() % 2));
    }
    out << "FRAME\n" << picture;
  }
}

TEST_F(StreamTest, AVariableRateFollowsTheSceneAndStaysBelowItsMaximum) {
  const std::string file = ::testing::TempDir() + std::to_string(getpid()) + ".y4m";
  WriteClip(file);
  Use([&file](auto& options) { options.sensor = file, options.paced = false; });
  for (const int most_bps : {600'000, 450'000}) {
    Camera camera = Make("ApiH264Source-vbrc-dualos-pull");
    camera->SetWidth(kWidth);
    camera->SetHeight(kHeight);
    camera->SetGop(120);
    camera->SetBitRateMaximum(most_bps);
    camera->SetBitRate(most_bps / 2);
    ASSERT_TRUE(camera->Open() && camera->Start());
    std::vector<double> bits;
    double worst_bps = 0;
    for (int i = 0; i < kStill + kBusy; ++i) {
      const Frame frame = NextFrame(camera);
      ASSERT_NE(frame, nullptr);
      bits.push_back(static_cast<double>(frame->size) * 8);
      const auto begin = bits.end() - std::min(i + 1, kWindowS * kFramesPerSecond + 1);
      worst_bps = std::max(worst_bps, std::accumulate(begin, bits.end(), 0.0) / kWindowS);
    }
    const auto mean_bps = [&](int begin, int end) {
      return std::accumulate(bits.begin() + begin, bits.begin() + end, 0.0) * kFramesPerSecond /
             (end - begin);
    };
    const double still_bps = mean_bps(60, kStill);
    const double busy_bps = mean_bps(kStill, kStill + kBusy);
    EXPECT_LT(worst_bps, most_bps);
    EXPECT_LT(still_bps, 0.5 * busy_bps);
    EXPECT_GT(busy_bps, 0.5 * most_bps) << "a busy scene takes what it is allowed";
  }
  std::filesystem::remove(file);
}

// By itself, with an encoder of which a picture costs what its changes cost, at 2^(-qp/6), more or
// less by chance; scenes stand still for three seconds, then move.
TEST(VariableRate, OfCrossedBoundsTheCeilingWins) {
  rtos::RateControl control = {};
  control.bitrate_target = 500'000;
  control.bitrate_min = 3'000'000;
  control.bitrate_max = 2'000'000;
  EXPECT_EQ(rtos::LimitsOf(control).target_bps, 2'000'000);
}

TEST(VariableRate, KeepsEveryWindowBelowTheMaximum) {
  constexpr double kDetail = 300'000;
  for (const int gop : {60, 120}) {
    for (const unsigned seed : {1, 2, 3, 4}) {
      rtos::VariableRate rate(gop, false);
      std::mt19937 random(seed);
      std::vector<double> bits;
      rtos::Unit unit;
      unit.frames_per_second = kFramesPerSecond;
      unit.control.bitrate_target = unit.control.bitrate_max = 600'000;
      unit.control.qp_max = 51;
      for (int i = 0; i < 900; ++i) {
        const bool is_intra = i % gop == 0;
        const bool moves = i >= kStill && i / 90 % 2 == 1;
        const double change = moves ? kDetail : kDetail / 20;
        unit.time_ns = (1000 + i) * (kSecondNs / kFramesPerSecond);
        unit.qp = rate.ChooseQp(unit, is_intra, {kDetail, change});
        const double cost = is_intra ? 4.5 * kDetail : moves ? 8 * change : change;
        const double share = std::uniform_real_distribution(0.7, 1.4)(random);
        unit.size_bytes = static_cast<std::size_t>(cost * share * std::exp2(-unit.qp / 6.0) / 8);
        rate.Account(unit);
        bits.push_back(8.0 * static_cast<double>(unit.size_bytes));
        const auto begin = bits.end() - std::min(i + 1, kWindowS * kFramesPerSecond + 1);
        ASSERT_LT(std::accumulate(begin, bits.end(), 0.0), kWindowS * 600'000) << gop << ", " << i;
      }
    }
  }
}

}  // namespace
}  // namespace tessel::tests
