// The programs as a user runs them: exit codes, what they say, and the files they leave.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "Decoder.h"
#include "ToolTest.h"

#include <nlohmann/json.hpp>

namespace tessel::tests {
namespace {

const std::string kCapture = "capture --width 160 --height 120 ";

class CaptureTool : public ToolTest {
 protected:
  int Capture(const std::string& words) { return Run(kCapture + words); }
  long LogLength() const {
    const std::string text = Text("log");
    return std::count(text.begin(), text.end(), '\n');
  }
  // The real-time side of the program that runs.
  pid_t Rtos() const {
    const std::string pid = std::to_string(std::stoi(Text("pid")));
    pid_t child = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + pid + "/task")) {
      if (std::ifstream(task.path() / "children") >> child) break;
    }
    return child;
  }
  // How many pictures are in the file, which are to be those from the first on, each `step`th; 0:
  // those that were triggered.
  std::uint32_t Decode(const std::string& name, std::uint32_t step = 1) const {
    std::uint32_t count = 0;
    std::uint32_t next = 0;
    PlayFile(_folder + name, [&](const AVFrame& picture, double) {
      std::uint32_t number = 0;
      rtos::ReadFrameNumber(picture.data[0], picture.linesize[0], 160, 120, number);
      EXPECT_TRUE(step == 0 ? number >= next : number == next) << number << " for " << next;
      next = number + std::max(step, 1U);
      ++count;
    });
    return count;
  }
};

TEST_F(CaptureTool, NamesWhatItRefusesAndWhy) {
  std::ofstream(_folder + "b.mkv") << "precious";
  std::filesystem::create_symlink("b.mkv", _folder + "link.mkv");
  Expect({
      {"--help", 0, "Exit codes: 0 done, 1 failed, 2 wrong usage"},
      {"list", 0,
       "-vbrc-trigger-push\tpush\tH.264 video, variable rate, triggered\th264-vbrc-trigger-push\n"},
      {"list", 0, "-pull-fake\tpull\traw video, synthetic\tyuv-fake\n"},
      {"inspect h264", 0, "pv-yuv-src-adv:w=1920,h=1080"},
      {"inspect h266", 1, "no class \"h266\""},
      {"capture h264 --sensor b.mov", 1, "b.mov\": No such file or directory"},
      {"capture h264 --sensor err", 1, "/err\": no video"},
      {"capture h264 --width 65", 1, "element \"pv-yuv-src-adv\": w=65 is not an even number"},
      {"capture h264 --goptype IB", 1, "element \"h264-encoder-dma\": goptype=IB: B pictures"},
      {"capture h264 --width 64 --height 48 -o b/a.mp4", 1, "cannot write b/a.mp4: No such file"},
      {"", 2, "a command is missing"},
      {"capture h264 --qp 52", 2, "--qp: 52 is outside 0..51"},
      {"capture h264 --bitrate 1.5x", 2, "--bitrate: \"1.5x\" is no number such as"},
      {"capture h264 --set gop=4@9", 2, "--set: no key \"gop\"; there are fps, capture-fps, bitr"},
      {"capture h264 --qp-min 9 --qp-max 8", 2, "--qp-min 9 is above --qp-max 8"},
      {"capture h264 -o a.avi", 2, "\"a.avi\" ends in none of .mp4, .mkv, .h264"},
      {"capture yuv", 2, "the raw source goes into .y4m or .yuv"},
      {"capture jpeg -o a.jpg", 2, "or number them by a pattern, as a-%03d.jpg"},
      {"capture yuv -o a.y4m --format nv12", 2, "--format: nv12 does not go into .y4m, which"},
      {"capture yuv -o a.yuv --format x", 1, "fmt=x is none of 420V50, "},
      {"capture jpeg --gop 4", 2, "--gop: a JPEG source has no GOP"},
      {"capture yuv -o a.yuv --fps 5", 2, "--fps: the raw source captures at 30 frames/s"},
      {"capture h264 --capture-fps 5", 2, "an H.264 source of constant rate has one frame rate"},
      {"capture h264-trigger", 2, "delivers nothing untriggered; add --trigger-every MS or"},
      {"capture h264 --trigger-every 5", 2, "--trigger-every: h264 takes no triggers"},
      {"capture jpeg --sensor link.mkv -o b.mkv", 2, "--output: b.mkv is what --sensor reads"},
      {"capture pcm --mic b.mkv -o link.mkv", 2, "--output: link.mkv is what --mic reads"},
      {"capture jpeg --sensor b-07.jpg -o b-%02d.jpg", 2, "b-%02d.jpg is what --sensor reads"},
  });
  EXPECT_EQ(Text("b.mkv"), "precious");
}

TEST_F(CaptureTool, EndsWhenItCannotWrite) {
  std::filesystem::create_symlink("/dev/full", _folder + "full.mjpeg");
  const std::string words = "capture jpeg --width 64 --height 48 --frames 9 -o ";
  Expect({{"full.mjpeg", 1, "cannot write full.mjpeg: No space left on device"},
          {"b.mkv --frame-log /dev/full", 1, "cannot write /dev/full: No space left on device"}},
         "", words);
  // All frames are there, and the rest of the file finds no room.
  ASSERT_EQ(mkfifo((_folder + "lines").c_str(), 0600), 0);
  Begin("sh -c \"trap '' XFSZ; exec " TESSEL_TOOL
        " capture jpeg-trigger --width 64 --height 48 --trigger-on-stdin --frame-log log -o b.mp4 "
        "<lines\"");
  std::ofstream lines(_folder + "lines");
  lines << "\n\n" << std::flush;
  ASSERT_TRUE(Eventually([this] { return LogLength() == 2; }));
  const rlimit most = {std::filesystem::file_size(_folder + "b.mp4"), RLIM_INFINITY};
  ASSERT_EQ(prlimit(std::stoi(Text("pid")), RLIMIT_FSIZE, &most, nullptr), 0);
  lines.close();
  EXPECT_EQ(End(), 1);
  EXPECT_TRUE(Text("err").starts_with("tessel: cannot finish b.mp4: File too large"))
      << Text("err");
}

TEST_F(CaptureTool, AppliesChangesAndKeyFramesAtTheirFrames) {
  ASSERT_EQ(
      Capture(
          "h264 --unpaced --frames 200 --gop 1000 --qp 10 "
          "--set qp=45@150 --set qp=10@60 --key-at 50 --key-every 100 --frame-log log -o a.mp4"),
      0);
  std::ifstream log(_folder + "log");
  std::vector<std::size_t> sizes;
  std::vector<int> keys;
  for (std::string line; std::getline(log, line);) {
    const auto frame = nlohmann::json::parse(line);
    if (frame["key"]) keys.push_back(static_cast<int>(sizes.size()));
    sizes.push_back(frame["key"] ? 0 : frame["size"].get<std::size_t>());
  }
  ASSERT_EQ(keys.size(), 3U);
  constexpr int kAhead = 35;  // frames that may be under way already
  for (const auto& [at, asked] : {std::pair(0U, 0), {1U, 50}, {2U, 100}}) {
    EXPECT_TRUE(keys[at] >= asked && keys[at] <= asked + kAhead) << keys[at] << " for " << asked;
  }
  ASSERT_EQ(sizes.size(), 200U);
  const auto before = std::max_element(sizes.begin() + 1, sizes.begin() + 150);
  EXPECT_LT(4 * *std::max_element(sizes.begin() + 150 + kAhead, sizes.end()), *before);
}

TEST_F(CaptureTool, HoldsTheBitRateAskedFor) {
  ASSERT_EQ(
      Run("capture h264 --width 320 --height 240 --unpaced --frames 300 --bitrate 400k -o a.mp4"),
      0);
  const Lines summary = Match(Text("err"), ".*: 300 frames, 10\\.00 s, (\\d+) kbit/s, .*\n");
  ASSERT_EQ(summary.size(), 2U) << Text("err");
  EXPECT_NEAR(std::stoi(summary[1]), 400, 60);
}

TEST_F(CaptureTool, ShowsItsProgressOnATerminal) {
  Begin("script -qec '" TESSEL_TOOL " " + kCapture +
        "h264 pcm --fps 100 --seconds 2.2 -o a.mkv' /dev/null");
  ASSERT_EQ(End(), 0);
  const std::string said = Text("out");
  const auto last = said.rfind(" frames/s  ");
  ASSERT_NE(last, said.npos) << said;
  const std::string line = said.substr(said.rfind("\033[K", last) + 3);
  // The peak in the end is that of a beep, which comes each second.
  const char* form =
      "(\\d+) frames  (\\d\\.\\d) s  (\\d+\\.\\d) frames/s  \\d+ kbit/s  QP auto  \\d+ dropped\r?\n"
      "sound  \\[=+\\|? *\\] -\\d\\d\\.\\d, +-\\d+\\.\\d dBFS[^]*, peak -[56]\\.\\d dBFS[^]*";
  const Lines fields = Match(line, form);
  ASSERT_EQ(fields.size(), 4U) << line;
  EXPECT_GE(std::stoi(fields[1]), 3);
  EXPECT_LE(std::stod(fields[3]), 130) << "100 are captured a second";
}

TEST_F(CaptureTool, EndsWhenTheSourceStalls) {
  for (const auto& [source, reason] :
       {std::pair("h264", "tessel: no frames come any more; the source has stalled\n"),
        {"jpeg-trigger --trigger-every 50",
         "triggered frames do not come; the source has stalled\n"}}) {
    Begin(TESSEL_TOOL " " + kCapture + source + " --seconds 1 --frame-log log -o a.mp4");
    ASSERT_TRUE(Eventually([this] { return LogLength() > 3; }));
    const pid_t real_time_side = Rtos();
    kill(real_time_side, SIGSTOP);
    const bool is_said = Eventually([&] { return Text("err").find(reason) != std::string::npos; });
    kill(real_time_side, SIGCONT);
    ASSERT_TRUE(is_said) << source;
    EXPECT_EQ(End(), 1);
    EXPECT_EQ(Decode("a.mp4", 0), LogLength()) << "what has come is kept";
    std::filesystem::remove(_folder + "log");
  }
}

TEST_F(CaptureTool, SnapsPicturesAtTheirTimesWithALineEach) {
  for (const std::string by : {"", " --photography"}) {
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Run("snap one.jpeg 'n-%02d.jpeg' --count 2 --interval 200 --size 64x48 --qp 9" + by),
              0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(600));
    std::string form;
    for (const std::string name : {"one", "n-01", "one", "n-02"}) {
      form += "file://" + (name + "\\.jpeg (\\d+) bytes \\d+\\.\\d ms\n");
      std::vector<std::pair<int, int>> sizes;
      PlayFile(_folder + name + ".jpeg", [&sizes](const AVFrame& picture, double) {
        sizes.emplace_back(picture.width, picture.height);
      });
      EXPECT_EQ(sizes, (std::vector<std::pair<int, int>>{{64, 48}})) << name;
    }
    const Lines lengths = Match(Text("out"), form.c_str());
    ASSERT_EQ(lengths.size(), 5U) << Text("out");
    EXPECT_EQ(lengths[4], std::to_string(std::filesystem::file_size(_folder + "n-02.jpeg")));
    Expect({{"snap nowhere/a.jpeg b.jpeg --size 64x48", 1,
             "cannot write file://nowhere/a.jpeg: No such file or directory\n"}},
           by);
    EXPECT_TRUE(std::filesystem::remove(_folder + "b.jpeg")) << "the others are taken";
    std::filesystem::remove(_folder + "n-01.jpeg");
  }
}

TEST_F(CaptureTool, WritesEveryFrameIntoEachContainer) {
  const struct {
    const char* source;
    const char* name;
    std::uint32_t step = 1;  // from one picture to the next
  } rows[] = {
      {"h264", "a.mp4"},      {"h264-push", "a.mkv"},
      {"h264-vbrc", "a.mkv"}, {"h264-vbrc --capture-fps 60 --fps 20", "a.h264", 3},
      {"jpeg-push", "j.mp4"}, {"jpeg", "j.mkv"},
      {"jpeg", "a.mjpeg"},    {"jpeg-push", "%02d.jpg"},
      {"yuv", "a.y4m"},       {"yuv-push --format gray", "g.y4m"},
      {"jpeg", "-"},          {"h264-pull", "-"},
  };
  for (const auto& [source, name, step] : rows) {
    EXPECT_EQ(Capture(std::string(source) + " --frames 40 --unpaced --frame-log log -o " + name),
              0);
    EXPECT_EQ(Decode(*name == '-' ? "out" : name, step), 40U) << source << name;
    const char* summary = ".*: 40 frames, (1\\.3.|2\\.00) s, .* (3|40) key frames, 0 dropped\n";
    EXPECT_FALSE(Match(Text("err"), summary).empty()) << Text("err");
  }
}

TEST_F(CaptureTool, LogsEveryFrameAsALineOfJson) {
  ASSERT_EQ(Capture("h264 --frames 40 --unpaced --frame-log log -o -"), 0);
  std::ifstream log(_folder + "log");
  std::size_t bytes = 0;
  int lines = 0;
  for (std::string line; std::getline(log, line); ++lines) {
    const auto frame = nlohmann::json::parse(line);
    EXPECT_TRUE(frame["seq"] == lines && frame["key"] == (lines % 15 == 0)) << line;
    EXPECT_TRUE(frame["timestamp"] > 0 && frame["bit_rate"] >= 0) << line;
    bytes += frame["size"].get<std::size_t>();
  }
  EXPECT_EQ(std::pair(lines, bytes), std::pair(40, Text("out").size()));
}

TEST_F(CaptureTool, WritesBareFramesOfEachSizeAndFormat) {
  constexpr std::size_t kPixels = std::size_t{160} * 120;
  constexpr std::size_t kSynthetic = 2764800;
  for (const auto& [words, bytes] : {std::pair("yuv --unpaced", kPixels * 3 / 2),
                                     {"yuv-push --format yuyv --unpaced", kPixels * 2},
                                     {"yuv-fake-push --fps 200", kSynthetic}}) {
    EXPECT_EQ(Capture(std::string(words) + " --frames 4 -o a.yuv"), 0);
    EXPECT_EQ(std::filesystem::file_size(_folder + "a.yuv"), 4 * bytes) << words;
    EXPECT_EQ(Text("err").find("carry no picture") != std::string::npos, bytes == kSynthetic);
  }
}

TEST_F(CaptureTool, WritesAFrameForEachTrigger) {
  std::ofstream(_folder + "lines") << std::string(29, '\n') << "the last line may lack its end";
  for (const auto& [words, count] :
       {std::pair("h264-trigger --fps 200 --trigger-on-stdin <lines", 30U),
        {"h264-vbrc-trigger-push --fps 200 --capture-fps 200 --trigger-on-stdin <lines", 30U},
        {"jpeg-trigger-push --unpaced --trigger-on-stdin <lines", 30U},
        {"jpeg-trigger --trigger-on-stdin --frames 4 <lines", 4U},
        {"jpeg-trigger-push --trigger-every 200 --seconds 1", 5U}}) {
    EXPECT_EQ(Capture(std::string("-o a.mkv ") + words), 0) << Text("err");
    EXPECT_EQ(Decode("a.mkv", 0), count) << words;
  }
}

TEST_F(CaptureTool, LeavesAWholeFileWhenInterruptedOrCutOff) {
  for (const auto& [kind, is_cut_off] :
       {std::pair("h264", false), {"h264-push", true}, {"jpeg-push", false}}) {
    Begin(TESSEL_TOOL " " + kCapture + kind + " --frame-log log -o a.mp4");
    ASSERT_TRUE(Eventually([this] { return LogLength() > 5; }));
    ASSERT_EQ(is_cut_off ? kill(Rtos(), SIGKILL) : kill(std::stoi(Text("pid")), SIGINT), 0);
    EXPECT_EQ(End(), is_cut_off ? 1 : 0) << kind;
    EXPECT_EQ(Decode("a.mp4"), LogLength());
    const std::string loss = is_cut_off ? "tessel: the real-time side is gone\n" : "";
    const std::string summary = "tessel: a.mp4: " + std::to_string(LogLength()) + " frames, ";
    EXPECT_TRUE(Text("err").starts_with(loss + summary)) << Text("err");
    std::filesystem::remove(_folder + "log");
  }
}

TEST_F(CaptureTool, LeavesEveryFrameInMatroskaWhenKilled) {
  Begin(TESSEL_TOOL " " + kCapture + "h264 --gop 1000 --frame-log log -o a.mkv");
  ASSERT_TRUE(Eventually([this] { return LogLength() > 5; }));
  ASSERT_EQ(kill(std::stoi(Text("pid")), SIGKILL), 0);
  End();
  EXPECT_GE(Decode("a.mkv", 0), LogLength());
}

TEST_F(CaptureTool, TheExamplePrintsFiveFrames) {
  Begin(TESSEL_EXAMPLE);
  EXPECT_EQ(End(), 0);
  const char* form =
      "frame 0: \\d+ bytes at \\d{9,} ns, key\n(frame [1-4]: \\d+ bytes at \\d{9,} ns\n){4}";
  EXPECT_FALSE(Match(Text("out"), form).empty()) << Text("out") << Text("err");
}

}  // namespace
}  // namespace tessel::tests
