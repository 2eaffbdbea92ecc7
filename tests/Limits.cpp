// What runs out, or is missing from the start: the size of files, descriptors, memory.
#include <cstdlib>
#include <new>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "Decoder.h"
#include "Doorbell.h"
#include "OddFarSide.h"
#include "SharedWindow.h"
#include "ToolTest.h"
#include "Wire.h"

namespace {

// Allocations of other threads than the test's own that succeed; all do where it is negative.
std::atomic<int> g_left{-1};
std::atomic<bool> g_fails_once{false};
thread_local bool t_is_spared = false;

bool HasRunOut() {
  if (t_is_spared) return false;
  int left = g_left.load();
  while (left > 0 && !g_left.compare_exchange_weak(left, left - 1)) {
  }
  if (left == 0 && g_fails_once) g_left = -1;
  return left == 0;
}

}  // namespace

void* operator new(std::size_t size_bytes) {
  void* memory = HasRunOut() ? nullptr : std::malloc(std::max<std::size_t>(size_bytes, 1));
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size_bytes, const std::nothrow_t&) noexcept {
  return HasRunOut() ? nullptr : std::malloc(std::max<std::size_t>(size_bytes, 1));
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace tessel::tests {
namespace {

class Limits : public ToolTest {
 protected:
  // Runs the tool with `words` in a shell that has done `limit` before.
  int RunAfter(const std::string& limit, const std::string& words) {
    Begin("sh -c '" + limit + "; exec " TESSEL_TOOL " " + words + "'");
    return End();
  }
  // A sound card, "alsa:fed", that blocks in the kernel when it is opened.
  void MakeStuckCard() const {
    ASSERT_EQ(mkfifo((_folder + "pipe").c_str(), 0600), 0);
    std::ofstream(_folder + "card.conf")
        << "pcm.fed { type file format raw file \"/dev/null\" infile \"" << _folder
        << "pipe\" slave.pcm { type null } }";
  }
  // Begins the real-time side with that card; it is killed when it does not end.
  void BeginRealTimeSide(const std::string& words) {
    Begin("timeout -s KILL 20 env ALSA_CONFIG_PATH=card.conf " TESSEL_RTOS " " + words);
  }
};

constexpr char kHello[] = "cmd=hello,version=1,base=0x100000";
const std::string kCreate = "cmd=tesselCreate,blocks=,sessions={s={offset=4096,size=65536}},";
constexpr char kTenFrames[] = "capture h264 --width 160 --height 120 --frames 10 -o a.mp4 ";

TEST_F(Limits, OfFileSizesAreToldAndLeaveASmallerWindowWhereOneIsOfUse) {
  const struct {
    const char* blocks;  // of 512 bytes
    const char* words;
    int exit_code;
    const char* said;
  } rows[] = {
      {"1200000", kTenFrames, 0, "a.mp4: 10 frames"},
      {"1000", kTenFrames, 1, "limit on file sizes (ulimit -f), 512000 bytes, is below"},
      {"600000", "capture h264 pcm --frames 10 -o b.mkv", 1, "no room for 268435456 bytes; the"},
      {"540000", "capture yuv --unpaced --frames 999 -q -o a.yuv", 1, "a.yuv: File too large"},
  };
  for (const auto& [blocks, words, exit_code, said] : rows) {
    EXPECT_EQ(RunAfter(std::string("ulimit -f ") + blocks, words), exit_code) << words;
    EXPECT_NE(Text("err").find(said), std::string::npos) << Text("err");
  }
}

TEST_F(Limits, AClosedStandardDescriptorIsNoPlaceForFrames) {
  for (const std::string closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
    EXPECT_EQ(RunAfter("exec " + closed, kTenFrames), 0) << closed;
    std::uint32_t count = 0;
    PlayFile(_folder + "a.mp4", [&count](const AVFrame&, double) { ++count; });
    EXPECT_EQ(count, 10U) << closed;
  }
  for (const std::string program :
       {TESSEL_TOOL " capture h264 -o made.mkv", TESSEL_RTOS " --listen made.mkv"}) {
    Begin("sh -c 'exec <&- >&- 2>&-; exec " + program + "'");
    EXPECT_TRUE(Eventually([this] { return std::filesystem::exists(_folder + "made.mkv"); }));
    const std::string pid = std::to_string(std::stoi(Text("pid")));
    for (const char* fd : {"0", "1", "2"}) {
      EXPECT_EQ(std::filesystem::read_symlink("/proc/" + pid + "/fd/" + fd), "/dev/null");
    }
    kill(std::stoi(pid), SIGTERM);
    EXPECT_EQ(End(), 0) << program;
    std::filesystem::remove(_folder + "made.mkv");
  }
  for (const std::string words : {"capture h264 --frames 3 -o -", "list"}) {
    EXPECT_EQ(RunAfter("exec >&-", words), 1);
    EXPECT_NE(Text("err").find("standard output"), std::string::npos) << Text("err");
  }
}

TEST_F(Limits, TheRealTimeSideEndsWithItsConnectionWhateverItWaitsFor) {
  MakeStuckCard();
  std::string error;
  const auto window = link::SharedWindow::Create(1 << 20, error);
  const link::Doorbell bell = link::Doorbell::Create();
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  link::SendMessage(ends[0], {link::WireMessage::kRequest, 1, kHello}, {window->Fd()});
  link::SendMessage(ends[0],
                    {link::WireMessage::kRequest, 2,
                     kCreate + "board={mic=alsa:fed},layout={type=pipeline,layout={pv-pcm-src+"
                               "PcmFilter:rate=16000,ch=1+ShmSink:session_name=s}}"},
                    {bell.Fd(), bell.Fd()});
  close(ends[0]);
  BeginRealTimeSide("--connection " + std::to_string(ends[1]));
  close(ends[1]);
  EXPECT_EQ(End(), 0);
}

TEST_F(Limits, AStuckConnectionHoldsUpNeitherTheOthersNorTheEnd) {
  MakeStuckCard();
  BeginRealTimeSide("--listen board");
  ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(_folder + "board"); }));
  EXPECT_EQ(Run("capture pcm --mic alsa:fed --rtos board -o a.wav"), 1);
  EXPECT_EQ(Run("devices --rtos board"), 0);
  kill(std::stoi(Text("pid")), SIGTERM);
  EXPECT_EQ(End(), 0);
}

TEST_F(Limits, APlaylistThatNamesAPipeIsRefused) {
  ASSERT_EQ(mkfifo((_folder + "pipe.ts").c_str(), 0600), 0);
  const std::string head = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n";
  std::ofstream(_folder + "list.m3u8") << head << "pipe.ts\n#EXT-X-ENDLIST\n";
  std::ofstream(_folder + "list.txt") << "ffconcat version 1.0\nfile pipe.ts\n";
  Expect({{"capture h264 --sensor list.m3u8", 1, "/pipe.ts, which is no regular file"},
          {"capture pcm --mic list.m3u8 -o a.wav", 1, "/pipe.ts, which is no regular file"},
          {"capture h264 --sensor list.txt", 1, "a list of files of a kind that is not read"}});
}

TEST_F(Limits, StampsFromAnotherCenturyAreToldAndDoNotFillTheFile) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  Begin(program + " --listen=board");
  ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(_folder + "board"); }));
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small = {std::size_t{300} << 20, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);  // a file that is filled without end ends there
  EXPECT_EQ(Run("capture pcm --rtos board --frames 30 -o a.wav"), 0);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_NE(Text("err").find(": 9600 samples, 0.60 s,"), std::string::npos) << Text("err");
  EXPECT_NE(Text("err").find(" with untrue time stamps"), std::string::npos) << Text("err");
}

// One connection asks for a stream while memory runs out at each of its allocations in turn.
TEST(Memory, ThatRunsOutCostsAtMostTheConnection) {
  using link::WireMessage;
  std::string error;
  const auto window = link::SharedWindow::Create(1 << 20, error);
  const link::Doorbell bell = link::Doorbell::Create();
  const std::string create = kCreate +
                             "status=play,layout={type=pipeline,layout={pv-yuv-src-adv+h264-"
                             "encoder-dma+ShmSink:session_name=s}}";
  t_is_spared = true;
  int refused = 0;
  int hung_up = 0;
  for (const bool once : {true, false}) {
    g_fails_once = once;
    int answered = 0;
    for (int left = 0; answered < 3; ++left) {
      int ends[2];
      ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
      const UniqueFd near(ends[0]);
      std::thread far_side([&] { RunOddFarSide("ends", UniqueFd(ends[1])); });
      const auto ask = [&](const std::string& text, const std::vector<int>& fds) {
        link::SendMessage(near.Get(), {WireMessage::kRequest, 1, text}, fds);
        WireMessage answer{WireMessage::kEvent, 0, ""};
        std::vector<UniqueFd> none;
        while (answer.kind == WireMessage::kEvent) {
          if (!link::ReceiveMessage(near.Get(), answer, none)) return false;
        }
        refused += answer.text.starts_with("error=") ? 1 : 0;
        return !answer.text.starts_with("error=");
      };
      ASSERT_TRUE(ask(kHello, {window->Fd()}));
      g_left = left;
      answered =
          (ask(create, {bell.Fd(), bell.Fd()}) ? 1 : 0) + (ask("cmd=tesselList", {}) ? 1 : 0);
      const bool is_left = g_left.exchange(-1) > 0;
      hung_up += answered < 2 ? 1 : 0;
      answered += is_left ? 1 : 0;
      shutdown(near.Get(), SHUT_RDWR);
      far_side.join();
    }
  }
  t_is_spared = false;
  EXPECT_GT(refused, 10);
  EXPECT_GT(hung_up, 10);
}

}  // namespace
}  // namespace tessel::tests
