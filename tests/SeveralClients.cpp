// One real-time side that serves several clients: one client's faults do not reach the others, and
// any client may watch and steer all streams.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Fixture.h"
#include "HoldingClient.h"

#include <nlohmann/json.hpp>

extern char** environ;

namespace tessel::tests {
namespace {

using quill::host::RtosStream;

pid_t Spawn(std::vector<std::string> words, int output = -1) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  if (output >= 0) posix_spawn_file_actions_adddup2(&files, output, 1);
  pid_t process = 0;
  EXPECT_EQ(posix_spawn(&process, words[0].c_str(), &files, nullptr, arguments.data(), environ), 0);
  posix_spawn_file_actions_destroy(&files);
  return process;
}

// The exit code, or minus the signal that ended it.
int Join(pid_t process) {
  int status = 0;
  EXPECT_EQ(waitpid(process, &status, 0), process);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class SeveralClients : public StreamTest {
 protected:
  SeveralClients() {
    std::filesystem::remove(_path);
    _process = Spawn({TESSEL_RTOS, "--listen", _path});
    Use([this](auto& options) { options.rtos_socket = _path; });
    EXPECT_TRUE(Eventually([this] { return std::filesystem::exists(_path); }));
    setenv("TESSEL_RTOS_SOCKET", _path.c_str(), 1);  // for the tool
  }
  ~SeveralClients() override {
    unsetenv("TESSEL_RTOS_SOCKET");
    kill(_process, SIGTERM);
    EXPECT_EQ(Join(_process), 0);
    EXPECT_FALSE(std::filesystem::exists(_path)) << "it leaves its socket behind";
    EXPECT_TRUE(Eventually([] { return quill::host::RtosProcessId() == 0; }));
  }
  static std::vector<RtosStream> Board() {
    std::vector<RtosStream> streams;
    std::string error;
    EXPECT_TRUE(quill::host::ListRtosStreams(streams, error)) << error;
    return streams;
  }
  // What the tool writes, to either stream; "!" in front when it fails.
  static std::string Tool(const std::string& arguments) {
    const std::string command = std::string(TESSEL_TOOL) + " " + arguments + " 2>&1";
    std::FILE* pipe = popen(command.c_str(), "r");
    std::string text;
    for (int letter = std::fgetc(pipe); letter != EOF; letter = std::fgetc(pipe)) {
      text += static_cast<char>(letter);
    }
    return (pclose(pipe) == 0 ? "" : "!") + text;
  }

  std::string Proc(const std::string& name) const {
    return "/proc/" + std::to_string(_process) + "/" + name;
  }
  // How many descriptors and threads the real-time side has.
  std::pair<std::ptrdiff_t, std::ptrdiff_t> Held() const {
    using std::filesystem::directory_iterator;
    return {std::distance(directory_iterator(Proc("fd")), {}),
            std::distance(directory_iterator(Proc("task")), {})};
  }
  double CpuSeconds() const {
    clockid_t clock = 0;
    timespec used = {};
    clock_getcpuclockid(_process, &clock);
    clock_gettime(clock, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
  }
  // The soft limit: only that can be raised again.
  void LimitDescriptors(const char* most) const {
    const std::string command = "prlimit --pid " + std::to_string(_process) + " --nofile=" + most;
    ASSERT_EQ(std::system((command + ":").c_str()), 0);
  }
  // Starts a client that holds frames, and waits until it does.
  static pid_t SpawnHolder(const std::vector<std::string>& words) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t client = Spawn(words, ends[1]);
    close(ends[1]);
    char letter = 0;
    EXPECT_EQ(read(ends[0], &letter, 1), 1);
    close(ends[0]);
    return client;
  }
  static void Kill(pid_t process) {
    kill(process, SIGKILL);
    EXPECT_EQ(Join(process), -SIGKILL);
  }

  const std::string _path = ::testing::TempDir() + "board" + std::to_string(getpid());
  pid_t _process = 0;
};

TEST_F(SeveralClients, AClientKilledWithFramesInHandCostsTheOtherNone) {
  constexpr int kSlots = 20;
  std::atomic<std::uint32_t> next{0};
  std::atomic<bool> has_gap{false};
  Camera camera = Make(kPush);
  camera->SetFrameRateMaximum(10);  // only 0.3 s of lateness is a gap then
  camera->RegisterOutputCallback([&](Frame& frame) {
    if (frame->seq != next++) has_gap = true;
    return true;
  });
  ASSERT_TRUE(camera->Open() && camera->Start());
  EXPECT_EQ(quill::host::RtosProcessId(), _process);
  for (const int held : {1, kSlots - 1, kSlots}) {
    const pid_t other = SpawnHolder({"/proc/self/exe", HoldingClientOption(held, kSlots)});
    const auto streams = Board();
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_EQ(streams[1].client, other);
    EXPECT_EQ(streams[1].counters.held, static_cast<unsigned>(held));
    const std::uint32_t before = next;
    Kill(other);
    ASSERT_TRUE(Eventually([&] { return Board().size() == 1 && next > before + 3; }));
    ASSERT_FALSE(has_gap) << held << " held";
  }
  camera.reset();
}

// The streams of this process, steered by the tool.
class Steered : public SeveralClients {
 protected:
  Steered() {
    EXPECT_TRUE(_triggered->Open() && _triggered->Start());
    _streams = Board();
    EXPECT_EQ(_streams.size(), 2U);
  }

  Camera _camera = OpenPull();
  Camera _triggered = Make("ApiH264SourceTrigger-dualos-trigger-pull");
  std::vector<RtosStream> _streams;
};

TEST_F(Steered, StreamsFollowSettingsAndRequests) {
  EXPECT_EQ(_streams[0].chain, "pv-yuv-src-adv+h264-encoder-dma+ShmSink");
  EXPECT_EQ(_streams[0].media.at("w"), "160");
  EXPECT_EQ(Tool("set h264 qp=41 fps=50 bitrate=2M"), "");
  EXPECT_EQ(std::pair(_camera->GetCurrentQP(), _camera->GetCurrentFrameRate()), std::pair(41, 50));
  EXPECT_EQ(Board()[0].control.at("bitrate_target"), 2'000'000);
  for (int i = 0; i < 40 && Board()[0].control.at("qp_reported") != 41; ++i) NextFrame(_camera);
  EXPECT_EQ(Board()[0].control.at("qp_reported"), 41);
  EXPECT_EQ(Tool("key " + std::to_string(_streams[0].id)), "");
  Frame frame = NextFrame(_camera);
  for (int i = 0; i < 40 && !frame->isKey; ++i) frame = NextFrame(_camera);
  EXPECT_TRUE(frame->isKey);
  EXPECT_EQ(Tool("trigger h264-trigger"), "");
  EXPECT_EQ(NextFrame(_triggered)->seq, 0U);
  EXPECT_EQ(Tool("trigger " + std::to_string(_streams[1].id)), "");
  EXPECT_EQ(NextFrame(_triggered)->seq, 1U);
}

TEST_F(Steered, StreamsKeepTheirSettingsWhenOneIsRefused) {
  const std::string its_own = "--board: the real-time side at " + _path + " has its own devices";
  for (const auto& [arguments, reason] :
       {std::pair("trigger h264", "the stream is not one of single frames"),
        {"set h264 qp=52", "qp: "},
        {"set h264 qp=1 qp-min=9 qp-max=8", "qp-min 9 is above qp-max 8"},
        {"set h264 bitrate-min=5M", "bitrate-min 5000000 is above bitrate-max 2000000"},
        {"set h264 bitrate=1M bitrate-min=3M bitrate-max=2M", "bitrate-min 3000000 is above"},
        {"set h264 bitrate=4M bitrate-max=9k", "bitrate-min 200000 is above bitrate-max 9000"},
        {"devices --board none", its_own.c_str()},
        {"set h264 speed=3", "no key \"speed\""},
        {"set h264 qp=1 bitrate", "is not of the form key=value"},
        {"key 4711", "no stream \"4711\"; there are 1 (h264 of process "}}) {
    const std::string said = Tool(arguments);
    EXPECT_TRUE(said.starts_with("!tessel: ") && said.find(reason) != said.npos) << said;
  }
  EXPECT_EQ(_camera->GetCurrentQP(), 0);
}

TEST_F(Steered, StreamsAreShownByTopWithTheirRates) {
  std::istringstream lines(Tool("top --json --count 2 --interval 0.2"));
  std::string line;
  int looks = 0;
  std::map<int, nlohmann::json> before;  // by stream
  while (std::getline(lines, line)) {
    const auto look = nlohmann::json::parse(line);
    const auto last = std::exchange(before[look["id"]], look);
    if (!last.is_null()) {
      const double seconds = look["time"].get<double>() - last["time"].get<double>();
      const double made = look["made"].get<double>() - last["made"].get<double>();
      EXPECT_NEAR(look["frames_per_second"], made / seconds, 1 + 0.1 * made / seconds);
    }
    EXPECT_EQ(look["client"], getpid());
    EXPECT_FALSE(look["own"]);
    const bool is_first = look["id"] == _streams[0].id;
    EXPECT_EQ(look["kind"], is_first ? "h264" : "h264-trigger");
    EXPECT_EQ(look["frames_per_second"].is_null(), looks++ < 2) << "nothing to compare with yet";
    EXPECT_TRUE(is_first || look["untriggered"] > 0);
  }
  EXPECT_EQ(looks, 4);
  const std::string screen = Tool("top --count 1 pcm");  // with one of its own
  const char* h264 = "[^]* h264 +play +160x120 +-/30 +\\d+/1000 +\\d+/auto [^]*";
  EXPECT_FALSE(Match(screen, h264).empty()) << screen;
  EXPECT_FALSE(Tool("top --count 1 yuv-fake").starts_with('!')) << "the source ends with top";
}

TEST_F(SeveralClients, TheSocketIsTheUsersOwnAndNoOtherFileIsReplaced) {
  struct stat file = {};
  ASSERT_EQ(stat(_path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600U);
  const std::string text = _path + ".txt";
  std::ofstream(text) << "precious";
  for (const std::string& path : {_path, text, std::string(200, 'x')}) {
    EXPECT_EQ(Join(Spawn({TESSEL_RTOS, "--listen", path})), 1) << path;
  }
  EXPECT_EQ(std::filesystem::file_size(text), 8U);
  std::filesystem::remove(text);
  Kill(_process);
  EXPECT_FALSE(Make()->Open());
  EXPECT_NE(LogLines().front().find(_path + ": Connection refused"), std::string::npos);
  _process = Spawn({TESSEL_RTOS, "--listen", _path});  // replaces the socket of the killed one
  ASSERT_TRUE(Eventually([] { return Make()->Open(); }));
}

TEST_F(SeveralClients, AClientThatWaitsIsServedOnceThereAreDescriptorsAgain) {
  ASSERT_FALSE(Tool("devices").starts_with('!'));
  for (const bool has_other : {false, true}) {
    const Camera other = has_other ? OpenPull() : Camera();
    LimitDescriptors("3");  // the standard ones, which the server always has
    const double before_s = CpuSeconds();
    EXPECT_TRUE(Tool("devices").starts_with('!')) << "no answer within a second";
    EXPECT_LT(CpuSeconds() - before_s, 0.2) << "it spins meanwhile";
    LimitDescriptors("1000");
    EXPECT_FALSE(Tool("devices").starts_with('!')) << has_other;
  }
}

TEST_F(SeveralClients, AClientThatHasGoneLeavesNeitherThreadNorDescriptor) {
  const auto visit = [this] { return !Tool("devices").starts_with('!'); };
  ASSERT_TRUE(visit());  // by now the server has all that it needs itself
  const auto [fds, threads] = Held();
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(visit());
  EXPECT_TRUE(Eventually([&, most_fds = fds, most_threads = threads] {
    return Held().first <= most_fds && Held().second <= most_threads;
  }));
}

TEST_F(SeveralClients, AServerThatEndsLeavesTheSocketOfAnother) {
  std::filesystem::remove(_path);
  const pid_t other = Spawn({TESSEL_RTOS, "--listen", _path});
  ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(_path); }));
  const pid_t first = std::exchange(_process, other);
  kill(first, SIGTERM);
  EXPECT_EQ(Join(first), 0);
  EXPECT_TRUE(Make()->Open());
  EXPECT_EQ(quill::host::RtosProcessId(), other);
}

// The library opens no file there; the programs open /dev/null.
TEST_F(SeveralClients, AClientsStandardDescriptorsStayClosed) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  const std::string words = " " + program + " " + HoldingClientOption(1, 4);
  for (const auto& [real_time_side, closing, has_input] :
       {std::tuple("TESSEL_RTOS_SOCKET=" + _path, " <&- 2>&-", false),
        {"-u TESSEL_RTOS_SOCKET", " <&- 2>&-", false},
        {"-u TESSEL_RTOS_SOCKET", " 2>&-", true}}) {
    const pid_t client =
        SpawnHolder({"/bin/sh", "-c", "exec env " + real_time_side + words + closing});
    const std::string folder = "/proc/" + std::to_string(client) + "/fd/";
    EXPECT_EQ(std::filesystem::is_symlink(folder + "0"), has_input) << closing;
    EXPECT_FALSE(std::filesystem::is_symlink(folder + "2")) << closing;
    Kill(client);
  }
}

}  // namespace
}  // namespace tessel::tests
