// The programs as a user runs them: exit codes, what they say, and the files they leave.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include <signal.h>

#include "Decoder.h"
#include "ToolTest.h"

namespace tessel::tests {
namespace {

class CaptureTool : public ToolTest {
 protected:
  long LogLength() const {
    const std::string text = Text("log");
    return std::count(text.begin(), text.end(), '\n');
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

TEST_F(CaptureTool, TellsTheCulpritAndExitsAccordingly) {
  Expect({
      {"--help", 0, "Exit codes: 0 done, 1 failed, 2 wrong usage"},
      {"list", 0, "ApiH264Source-dualos-cbrc-push\tpush\tH.264 video\th264-push\n"},
      {"list", 0,
       "SourceTrigger-dualos-trigger-pull\tpull\tJPEG pictures, triggered\tjpeg-trigger\n"},
      {"list", 0,
       "-vbrc-trigger-push\tpush\tH.264 video, variable rate, triggered\th264-vbrc-trigger-push\n"},
      {"list", 0, "-pull-fake\tpull\traw video, synthetic\tyuv-fake\n"},
      {"inspect h264", 0, "pv-yuv-src-adv:w=1920,h=1080"},
      {"inspect h266", 1, "no class \"h266\""},
      {"capture h264 --sensor b.mov", 1, "b.mov\": No such file or directory"},
      {"capture h264 --sensor err", 1, "element \"pv-yuv-src-adv\": sensor \"/"},
      {"capture h264 --sensor err", 1, "/err\": no video"},
      {"capture h264 --width 65", 1, "element \"pv-yuv-src-adv\": w=65 is not an even number"},
      {"capture h264 --goptype IB", 1, "element \"h264-encoder-dma\": goptype=IB: B pictures"},
      {"capture h264 -o b/a.mp4", 1, "cannot write b/a.mp4: No such file"},
      {"", 2, "a command is missing"},
      {"capture h264 --qp 52", 2, "--qp: 52 is outside 0..51"},
      {"capture h264 --bitrate 1.5x", 2, "--bitrate: \"1.5x\" is no number such as"},
      {"capture h264 --set gop=4@9", 2,
       "--set: no key \"gop\"; there are fps, capture-fps, bitrate"},
      {"capture h264 --qp-min 9 --qp-max 8", 2, "--qp-min 9 is above --qp-max 8"},
      {"capture h264 -o a.avi", 2, "\"a.avi\" ends in none of .mp4, .mkv, .h264"},
      {"capture yuv", 2, "the raw source goes into .y4m or .yuv"},
      {"capture jpeg -o a.y4m", 2, "goes into .mp4, .mkv, .mjpeg or numbered .jpg"},
      {"capture yuv-fake -o a.y4m", 2, "the synthetic source goes into .yuv"},
      {"capture jpeg -o a.jpg", 2, "or number them by a pattern, as a-%03d.jpg"},
      {"capture yuv -o a.y4m --format nv12", 2,
       "--format: nv12 does not go into .y4m, which takes"},
      {"capture yuv -o a.yuv --format x", 1, "fmt=x is none of 420V50, "},
      {"capture jpeg --gop 4", 2, "--gop: a JPEG source has no GOP"},
      {"capture jpeg --set bitrate=2M@4", 2, "--bitrate: a JPEG source has no bit rate"},
      {"capture yuv -o a.yuv --fps 5", 2, "--fps: the raw source captures at 30 frames/s"},
      {"capture h264 --capture-fps 5", 2, "an H.264 source of constant rate has one frame rate"},
      {"capture h264-trigger", 2, "delivers nothing untriggered; add --trigger-every MS or"},
      {"capture h264 --trigger-every 5", 2, "--trigger-every: h264 takes no triggers"},
  });
}

TEST_F(CaptureTool, WritesEveryFrameIntoEachContainer) {
  const std::string size = " --width 160 --height 120 --frames 40 --unpaced --frame-log log -o ";
  const std::pair<const char*, const char*> rows[] = {
      {"h264", "a.mp4"},      {"h264-push", "a.mkv"},
      {"h264-vbrc", "a.mkv"}, {"h264-vbrc", "a.h264"},
      {"jpeg-push", "j.mp4"}, {"jpeg", "j.mkv"},
      {"jpeg", "a.mjpeg"},    {"jpeg-push", "%02d.jpg"},
      {"yuv", "a.y4m"},       {"yuv-push --format gray", "g.y4m"},
      {"jpeg", "-"},          {"h264-pull", "-"},
  };
  for (const auto& [source, name] : rows) {
    EXPECT_EQ(Run(std::string("capture ") + source + size + name), 0);
    EXPECT_EQ(Decode(*name == '-' ? "out" : name), 40U) << source << name;
    const char* summary = ".*: 40 frames, 1\\.3. s, .* (3|40) key frames, 0 dropped\n";
    EXPECT_FALSE(Match(Text("err"), summary).empty()) << Text("err");
  }
  std::ifstream log(_folder + "log");
  const char* form =
      "\\{\"seq\":(\\d+),\"timestamp\":\\d{9,},\"size\":(\\d+),\"key\":(\\w+),\"bit_rate\":\\d+\\}";
  std::size_t bytes = 0;
  int lines = 0;
  for (std::string line; std::getline(log, line); ++lines) {
    const Lines fields = Match(line, form);
    ASSERT_EQ(fields.size(), 4U) << line;
    EXPECT_EQ(fields[1], std::to_string(lines));
    EXPECT_EQ(fields[3], lines % 15 == 0 ? "true" : "false");
    bytes += std::stoul(fields[2]);
  }
  EXPECT_EQ(std::pair(lines, bytes), std::pair(40, Text("out").size()));
}

TEST_F(CaptureTool, WritesBareFramesOfEachSizeAndFormat) {
  const struct {
    const char* words;
    std::size_t bytes;
  } rows[] = {
      {"yuv --width 64 --height 48 --unpaced", 64 * 48 * 3 / 2},
      {"yuv-push --width 64 --height 48 --format yuyv --unpaced", std::size_t{64} * 48 * 2},
      {"yuv-fake", 2764800},
      {"yuv-fake-push --fps 200", 2764800},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Run(std::string("capture ") + row.words + " --frames 4 -o a.yuv"), 0);
    EXPECT_EQ(std::filesystem::file_size(_folder + "a.yuv"), 4 * row.bytes) << row.words;
    EXPECT_EQ(Text("err").find("carry no picture") != std::string::npos, row.bytes == 2764800);
  }
}

TEST_F(CaptureTool, ThinsAStreamOfVariableRate) {
  EXPECT_EQ(Run("capture h264-vbrc --width 160 --height 120 --unpaced --capture-fps 60 --fps 20 "
                "--frames 20 -o a.mp4"),
            0);
  EXPECT_EQ(Decode("a.mp4", 3), 20U);
  EXPECT_NE(Text("err").find(": 20 frames, 1.00 s, "), std::string::npos) << Text("err");
}

TEST_F(CaptureTool, WritesAFrameForEachTrigger) {
  const std::string size = " --width 160 --height 120 -o a.mkv ";
  std::ofstream(_folder + "lines") << std::string(29, '\n') << "the last line may lack its end";
  for (const std::string source :
       {"h264-trigger --fps 200", "h264-vbrc-trigger-push --fps 200 --capture-fps 200",
        "jpeg-trigger --fps 200", "jpeg-trigger-push --unpaced"}) {
    EXPECT_EQ(
        Run(std::string("capture ").append(source).append(size) + "--trigger-on-stdin <lines"), 0)
        << Text("err");
    EXPECT_EQ(Decode("a.mkv", 0), 30U) << source;
  }
  EXPECT_EQ(Run("capture jpeg-trigger" + size + "--trigger-on-stdin --frames 4 <lines"), 0);
  EXPECT_EQ(Decode("a.mkv", 0), 4U);
  EXPECT_EQ(Run("capture jpeg-trigger-push" + size + "--trigger-every 200 --seconds 1"), 0);
  EXPECT_EQ(Decode("a.mkv", 0), 5U);
}

TEST_F(CaptureTool, LeavesAWholeFileWhenInterruptedOrCutOff) {
  for (const std::string kind : {"h264", "h264-push", "jpeg-push"}) {
    for (const bool is_cut_off : {false, true}) {
      Begin(TESSEL_TOOL " capture " + kind + " --width 160 --height 120 --frame-log log -o a.mp4");
      ASSERT_TRUE(Eventually([this] { return LogLength() > 5; }));
      const std::string pid = Text("pid").substr(0, Text("pid").find('\n'));
      pid_t victim = std::stoi(pid);
      for (const auto& task : std::filesystem::directory_iterator("/proc/" + pid + "/task")) {
        pid_t child = 0;
        if (is_cut_off && std::ifstream(task.path() / "children") >> child) victim = child;
      }
      ASSERT_EQ(kill(victim, is_cut_off ? SIGKILL : SIGINT), 0);
      EXPECT_EQ(End(), is_cut_off ? 1 : 0) << kind;
      EXPECT_EQ(Decode("a.mp4"), LogLength());
      const std::string loss = is_cut_off ? "tessel: the real-time side is gone\n" : "";
      const std::string summary = "tessel: a.mp4: " + std::to_string(LogLength()) + " frames, ";
      EXPECT_TRUE(Text("err").starts_with(loss + summary)) << Text("err");
      std::filesystem::remove(_folder + "log");
    }
  }
}

TEST_F(CaptureTool, LeavesEveryFrameOfMatroskaWhenItIsKilled) {
  Begin(TESSEL_TOOL " capture h264 --width 160 --height 120 --gop 1000 --frame-log log -o a.mkv");
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
