// The rate-control block: its layout, who writes what, and how it comes and goes.
#include <array>
#include <cstring>
#include <memory>

#include "common/StreamVbrc.h"
#include "Fixture.h"
#include "quill/Hash.h"
#include "quill/SharedMemory.h"

namespace tessel::tests {
namespace {

using api::streaming::common::IBitRateControl;
using api::streaming::common::ITrigger;
using dualos::StreamVbrc;

constexpr char kVbrcFile[] = "plugin/api/linux/common/StreamVbrc.cpp/#/";

constexpr std::size_t kBlockBytes = 744;
using Words = std::array<int, kBlockBytes / 4>;

// What encoders on the other operating system expect to begin with.
Words FreshBlock(int extra_max = 0) {
  Words words = {0, 0, 2000000, 50000, 0, 30, 30, 1, 0, 0, 50, 10, 0, 0, 0, 0, 1000000};
  words[152] = extra_max;
  return words;
}

Words In(const void* block) {
  Words words;
  std::memcpy(words.data(), block, kBlockBytes);
  return words;
}

// A source as clients may derive it, which may ask for other sizes.
class Block : public StreamVbrc {
 public:
  using StreamVbrc::CreateVbrc;
  using StreamVbrc::FreeVbrc;
  using StreamVbrc::StreamVbrc;
};

class RateControl : public StreamTest {
 protected:
  RateControl() { WatchBlock(); }
  // Answers "shm_alloc" with that "ptr", if there is one.
  void AnswerAlloc(bool succeeds, const std::string& ptr) {
    Replace("shm_alloc", [this, succeeds, ptr](AttrSet& args, const Command&) {
      _asked_size = args.Get("size");
      if (!ptr.empty()) args.Add("ptr", ptr);
      return succeeds;
    });
  }

  std::string _asked_size;
};

TEST_F(RateControl, BlocksBeginWithTheDefaults) {
  const Camera camera = Make();
  EXPECT_EQ(In(_block), FreshBlock());
  const auto vbrc = std::make_unique<quill::stream::VBRC>(nullptr);
  EXPECT_EQ(In(vbrc->Data()), FreshBlock()) << "as the host makes it";
  EXPECT_EQ(vbrc->Size(), kBlockBytes);
}

TEST_F(RateControl, SettersStoreOneWordUncheckedAndGettersReadTheEncodersWords) {
  const struct {
    void (IBitRateControl::*set)(int);
    std::size_t word;
  } rows[] = {
      {&IBitRateControl::SetBitRateMaximum, 2},   {&IBitRateControl::SetBitRateMinimum, 3},
      {&IBitRateControl::SetFrameRate, 5},        {&IBitRateControl::SetFrameRateMaximum, 6},
      {&IBitRateControl::SetFrameRateMinimum, 7}, {&IBitRateControl::SetQP, 9},
      {&IBitRateControl::SetQPMaximum, 10},       {&IBitRateControl::SetQPMinimum, 11},
  };
  const Camera camera = Make();
  Words expected = FreshBlock();
  int value = -77;
  camera->SetBitRate(value);
  expected[16] = value;
  for (const auto& [set, word] : rows) {
    (*camera.*set)(++value);
    expected[word] = value;
    EXPECT_EQ(In(_block), expected) << "word " << word;
  }
  _block->bitrate = 1111;
  _block->qp_reported = 44;  // in use, not asked for
  EXPECT_EQ((std::vector{camera->GetCurrentBitRate(), camera->GetCurrentFrameRate(),
                         camera->GetCurrentQP()}),
            (std::vector{1111, -74, -71}));
}

TEST_F(RateControl, SourcesListTheirModesInOrderAndCountTheirTriggers) {
  const struct {
    const char* name;
    std::vector<int> modes;
    int triggers;  // that one Trigger() counts
  } rows[] = {
      {kPull, {1, 6}, 0},
      {"ApiH264SourceTrigger-dualos-trigger-pull", {1, 6}, 1},
      {"ApiH264Source-vbrc-dualos-pull", {6, 1, 2, 3, 5}, 0},
      {"ApiH264Source-dualos-vbrc-trigger-pull", {6, 1, 2, 3, 5}, 1},
      {"ApiJpegSource-dualos-cbrc-pull", {1, 6}, 0},
      {"ApiJpegSourceTrigger-dualos-trigger-pull", {1, 6}, 1},
  };
  for (const auto& [name, modes, triggers] : rows) {
    const auto source = quill::host::Create<IBitRateControl>(name);
    const auto list = source->BitRateControlSupportedList();
    EXPECT_EQ(std::vector<int>(list.begin(), list.end()), modes) << name;
    dynamic_cast<ITrigger&>(*source).Trigger();
    EXPECT_EQ(_block->trigger_req, triggers) << name;
  }
}

TEST_F(RateControl, SelectingConstantClearsTheFixedQp) {
  const Camera camera = Make();
  camera->SetQP(30);
  EXPECT_TRUE(camera->SelectBitRateControl(IBitRateControl::kFixedQp));
  EXPECT_EQ(camera->GetCurrentQP(), 30);
  EXPECT_EQ(LogLines(), Lines());
  EXPECT_FALSE(camera->SelectBitRateControl(IBitRateControl::kVariable));
  EXPECT_EQ(camera->GetCurrentQP(), 30);
  EXPECT_EQ(LogLines(),
            (Lines{std::string(kVbrcFile) + "IsSupport:\t2",
                   std::string(kVbrcFile) + "SelectBitRateControl:\t!IsSupport(brc),2"}));
  LogLines(quill::stream::kTrace);
  EXPECT_TRUE(camera->SelectBitRateControl(IBitRateControl::kConstant));
  EXPECT_EQ(camera->GetCurrentQP(), 0);
  EXPECT_EQ(LogLines(quill::stream::kTrace), Lines{std::string(kVbrcFile) + "IsSupport:\t0x1,0x1"});
}

TEST_F(RateControl, AMissingBlockIsLoggedAndSurvived) {
  const std::string make = std::string(kVbrcFile) + "CreateVbrc:\t";
  const std::string made = std::string(kVbrcFile) + "StreamVbrc:\t!CreateVbrc(extra_size)";
  const std::string run = make + "!Factory::Globle().Run(\"shm_alloc\",ap)";
  for (const auto& [succeeds, ptr, lines] :
       {std::tuple(false, "", Lines{run, make + "!ap.Get(\"ptr\",_vbrc)", made}),
        {true, "xyz", {make + "!_vbrc", made}},
        {false, "0x0", {run, make + "!_vbrc", made}}}) {
    AnswerAlloc(succeeds, ptr);
    Block block(0);
    EXPECT_EQ(LogLines(), lines);
    EXPECT_TRUE(block.FreeVbrc()) << "without a block";
    EXPECT_EQ(LogLines(), Lines());
    EXPECT_FALSE(block.IsSupport(IBitRateControl::kConstant)) << "an empty list supports nothing";
    LogLines();
  }
}

TEST_F(RateControl, ABlockIsUsedThoughItsCommandFailed) {
  alignas(8) static char memory[kBlockBytes + 1024];
  std::memset(memory, 0x5a, sizeof memory);
  AnswerAlloc(false, quill::base::ToString<const void*>(memory).substr(2));  // no "0x" needed
  Block block(1024);
  EXPECT_EQ(_asked_size, "1768");
  EXPECT_EQ(In(memory), FreshBlock(1024));
  EXPECT_EQ(std::string(memory + kBlockBytes, 1024), std::string(1024, 0x5a)) << "not cleared";
  EXPECT_TRUE(IsLogged("CreateVbrc:\t!Factory::Globle().Run(\"shm_alloc\",ap)"));
  EXPECT_TRUE(block.CreateVbrc(5)) << "has one already";
  EXPECT_EQ(_asked_size, "1768");
  Block plain(0);
  EXPECT_EQ(_asked_size, "744");
}

TEST_F(RateControl, BlocksAreFreedOnceWhateverTheHostAnswers) {
  using Free = std::uintptr_t();
  Factory& factory = Factory::Globle();
  int calls = 0;
  const auto real = factory.ReplaceFunction<Free>("shm_free", [&] { return ++calls, 12345U; });
  Make().reset();
  EXPECT_EQ(calls, 1);
  factory.ReplaceFunction<Free>("shm_free", nullptr);
  LogLines();
  Make().reset();
  EXPECT_TRUE(LogLines().at(0).ends_with(":\t!obj,no func:shm_free"));
  factory.ReplaceFunction<Free>("shm_free", real);
}

TEST_F(RateControl, BlocksAreApartAndTheirRoomIsUsedAgain) {
  const auto before = quill::host::GetWindowUse();
  Camera cameras[3];
  for (Camera& camera : cameras) {
    camera = Make();
    EXPECT_EQ(In(_block), FreshBlock());
    camera->SetQP(static_cast<int>(&camera - cameras));
  }
  EXPECT_TRUE(cameras[0]->GetCurrentQP() == 0 && cameras[1]->GetCurrentQP() == 1);
  cameras[1].reset();
  EXPECT_EQ(quill::host::GetWindowUse().free_pieces, before.free_pieces + 1);
  cameras[1] = Make();
  EXPECT_EQ(quill::host::GetWindowUse().free_pieces, before.free_pieces) << "it fits exactly";
}

TEST_F(RateControl, NobodyGetsABlockOutsideAConstructor) {
  for (const char* text : {"size=744", "", "size=0", "size=-1", "size=x"}) {
    AttrSet args(text);
    EXPECT_FALSE(Factory::Globle().Run("shm_alloc", args)) << text;
    EXPECT_EQ(args.Get("ptr"), nullptr);
  }
}

TEST(Hash, IsFnv1aOfLowerCaseLetters) {
  using quill::base::Hash;
  EXPECT_EQ(Hash(nullptr), 0U);
  EXPECT_EQ(Hash(""), 0x811c9dc5U);
  EXPECT_EQ(Hash("FooBAR"), 0xbf9cf968U);  // published for "foobar"
  EXPECT_EQ(Hash("\xe4"), (0x811c9dc5U ^ 0xe4U) * 16777619U) << "bytes are unsigned";
  EXPECT_TRUE(Hash("[") != Hash("{") && Hash("@") != Hash("`")) << "only letters are folded";
}

}  // namespace
}  // namespace tessel::tests
