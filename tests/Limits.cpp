// Resources that run out or are missing from the start: the size of files, descriptors, memory.
#include <cstdlib>
#include <new>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "Doorbell.h"
#include "OddRtos.h"
#include "SharedWindow.h"
#include "ToolTest.h"
#include "Wire.h"

namespace {

// So many allocations of threads other than the test's own succeed; all where it is negative.
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
};

TEST_F(Limits, AreNamedUnlessASmallerWindowWillDo) {
  const char* small = "capture h264 --width 160 --height 120 --frames 10 -o a.mp4 ";
  for (const auto& [limit, words, exit_code, said] :
       {std::tuple("ulimit -f 1200000", small, 0, "a.mp4: 10 frames"),
        {"ulimit -f 1000", small, 1, "limit on file sizes (ulimit -f), 512000 bytes, is below"},
        {"ulimit -f 600000", "capture h264 pcm -o b.mkv", 1, "no room for 268435456 bytes; the"},
        {"ulimit -f 540000", "capture yuv --unpaced -q -o a.yuv", 1, "a.yuv: File too large"},
        {"exec >&-", "capture h264 --frames 3 -o -", 1, "standard output"},
        {"exec >&-", "list", 1, "standard output"}}) {
    EXPECT_EQ(RunAfter(limit, words), exit_code) << words;
    EXPECT_NE(Text("err").find(said), std::string::npos) << Text("err");
  }
}

TEST_F(Limits, ProgramsOpenNullForClosedStandardDescriptors) {
  for (const std::string program :
       {TESSEL_TOOL " capture h264 -o made.mkv", TESSEL_RTOS " --listen made.mkv"}) {
    Begin("sh -c 'exec <&- >&- 2>&-; exec " + program + "'");
    WaitForFile("made.mkv");
    const std::string pid = std::to_string(std::stoi(Text("pid")));
    for (const char* fd : {"0", "1", "2"}) {
      EXPECT_EQ(std::filesystem::read_symlink("/proc/" + pid + "/fd/" + fd), "/dev/null");
    }
    kill(std::stoi(pid), SIGTERM);
    EXPECT_EQ(End(), 0) << program;
    std::filesystem::remove(_folder + "made.mkv");
  }
}

// The real-time side holds the pipe to `cat` open for as long as it lives.
TEST_F(Limits, TheRealTimeSideEndsWithItsClientThoughItsCardIsStuck) {
  MakeStuckCard();
  Begin("timeout -s KILL 20 sh -c 'ALSA_CONFIG_PATH=card.conf " TESSEL_TOOL
        " capture pcm --mic alsa:fed -o a.wav 2>&1 | cat'");
  EXPECT_EQ(End(), 0);
  EXPECT_NE(Text("out").find("no answer within"), std::string::npos) << Text("out");
}

TEST_F(Limits, AStuckConnectionDelaysNeitherOtherClientsNorTheEnd) {
  MakeStuckCard();
  Begin("timeout -s KILL 20 env ALSA_CONFIG_PATH=card.conf " TESSEL_RTOS " --listen board");
  WaitForFile("board");
  EXPECT_EQ(Run("capture pcm --mic alsa:fed --rtos board -o a.wav"), 1);
  EXPECT_EQ(Run("devices --rtos board"), 0);
  kill(std::stoi(Text("pid")), SIGTERM);
  EXPECT_EQ(End(), 0);
}

TEST_F(Limits, PlaylistsThatNameAPipeAreRefused) {
  ASSERT_EQ(mkfifo((_folder + "pipe.ts").c_str(), 0600), 0);
  const std::string head = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n";
  std::ofstream(_folder + "list.m3u8") << head << "pipe.ts\n#EXT-X-ENDLIST\n";
  std::ofstream(_folder + "list.txt") << "ffconcat version 1.0\nfile pipe.ts\n";
  Expect({{"capture h264 --sensor list.m3u8", 1, "/pipe.ts, which is no regular file"},
          {"capture pcm --mic list.m3u8 -o a.wav", 1, "/pipe.ts, which is no regular file"},
          {"capture h264 --sensor list.txt", 1, "a list of files of a kind that is not read"}});
}

TEST_F(Limits, WildTimeStampsAreReplacedAndDoNotFillTheFile) {
  Begin(std::string(std::filesystem::read_symlink("/proc/self/exe")) + " --listen=board");
  WaitForFile("board");
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small = {std::size_t{300} << 20, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);  // ends a capture that fills its file without end
  EXPECT_EQ(Run("capture pcm --rtos board --frames 30 -o a.wav"), 0);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_NE(Text("err").find(": 9600 samples, 0.60 s,"), std::string::npos) << Text("err");
  EXPECT_NE(Text("err").find(" with untrue time stamps"), std::string::npos) << Text("err");
}

// The answer to a request to a real-time side, without the host.
std::string Ask(const UniqueFd& socket, const std::string& text, std::vector<int> fds = {}) {
  link::SendMessage(socket.Get(), {link::WireMessage::kRequest, 1, text}, fds);
  link::WireMessage answer{link::WireMessage::kEvent, 0, ""};
  std::vector<UniqueFd> none;
  while (answer.kind == link::WireMessage::kEvent) {
    if (!link::ReceiveMessage(socket.Get(), answer, none)) return "hung up";
  }
  return answer.text;
}

// A connection asks for a stream and for the list of streams while memory runs out at each
// allocation in turn.
// What a real-time side answers whose allocations fail after the next `left`; with `is_enough` all
// of them were served.
Lines AnswersShortOfMemory(int left, bool& is_enough) {
  std::string error;
  const auto window = link::SharedWindow::Create(1 << 20, error);
  const link::Doorbell bell = link::Doorbell::Create();
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  const UniqueFd near(ends[0]);
  std::thread real_time_side([&] { RunOddRtos("ends", UniqueFd(ends[1])); });
  EXPECT_NE(Ask(near, "cmd=hello,version=1,base=0x100000", {window->Fd()}), "hung up");
  const std::string create =
      "cmd=tesselCreate,blocks=,sessions={s={offset=4096,size=65536}},"
      "status=play,layout={type=pipeline,layout={pv-yuv-src-adv+h264-"
      "encoder-dma+ShmSink:session_name=s}}";
  g_left = left;
  Lines answers = {Ask(near, create, {bell.Fd(), bell.Fd()}), Ask(near, "cmd=tesselList")};
  is_enough = g_left.exchange(-1) > 0;
  shutdown(near.Get(), SHUT_RDWR);
  real_time_side.join();
  return answers;
}

TEST(Memory, ThatRunsOutCostsAtMostTheConnection) {
  t_is_spared = true;
  int refused = 0;
  int hung_up = 0;
  for (const bool once : {true, false}) {
    g_fails_once = once;
    bool is_enough = false;
    for (int left = 0; !is_enough; ++left) {
      for (const std::string& answer : AnswersShortOfMemory(left, is_enough)) {
        const bool is_refused = answer.starts_with("error=");
        EXPECT_FALSE(is_enough && (is_refused || answer == "hung up")) << answer;
        refused += is_refused ? 1 : 0;
        hung_up += answer == "hung up" ? 1 : 0;
      }
    }
  }
  t_is_spared = false;
  EXPECT_TRUE(refused > 10 && hung_up > 10) << refused << ", " << hung_up;
}

}  // namespace
}  // namespace tessel::tests
