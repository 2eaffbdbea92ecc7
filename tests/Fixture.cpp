#include "Fixture.h"

#include <regex>
#include <thread>

#include <signal.h>

#include "tessel/IYuvSource.h"

namespace tessel::tests {

using quill::stream::DebugLevel;

namespace {

// Keeps lines, as a terminal gets them, instead of printing them.
class LogStream : public quill::stream::DebugStream {
 public:
  void Write(std::string_view text) override {
    const std::lock_guard lock(_mutex);
    _lines.emplace_back(text);
  }
  bool IsEnabled() const override { return true; }
  bool WantsColour() const override { return true; }
  Lines Take() {
    const std::lock_guard lock(_mutex);
    return std::exchange(_lines, {});
  }

 private:
  std::mutex _mutex;
  Lines _lines;  // guarded by _mutex
};

// Never destroyed: other threads may log at exit.
LogStream* g_logs[quill::stream::kDebugLevels];
quill::stream::DebugStream* g_replaced[quill::stream::kDebugLevels];

}  // namespace

void KeepLogs() {
  for (int level = 0; level < quill::stream::kDebugLevels; ++level) {
    g_logs[level] = new LogStream;
    g_replaced[level] = std::exchange(quill::stream::__dbg_couts[level], g_logs[level]);
  }
}

Lines ColouredLines(DebugLevel level) {
  Lines lines = g_logs[level]->Take();
  for (std::string& line : lines) {
    // path "/" number "/" function ":\t": the number stands before the last "/" of the place.
    const auto end = line.rfind('/', line.find(":\t"));
    const auto begin = line.rfind('/', end - 1);
    line = line.substr(0, begin) + "/#" + line.substr(end);
  }
  return lines;
}

Lines LogLines(DebugLevel level) {
  Lines lines = ColouredLines(level);
  for (std::string& line : lines) {
    const auto begin = line.find('m') + 1;  // of "\033[31m"
    line = line.substr(begin, line.rfind("\n\033") - begin);
    // Where the host's files stand is its own affair; of the plug-in's the paths are given.
    if (line.starts_with("host/")) line.erase(0, line.rfind('/', line.find(":\t")) + 1);
  }
  return lines;
}

bool IsLogged(const std::string& text) {
  bool is_there = false;
  for (const std::string& line : LogLines()) is_there |= line.find(text) != line.npos;
  return is_there;
}

std::string Fill(std::string text, char mark, const std::string& value) {
  for (auto at = text.find(mark); at != text.npos; at = text.find(mark, at + value.size())) {
    text.replace(at, 1, value);
  }
  return text;
}

Lines Match(const std::string& text, const char* expression) {
  std::smatch match;
  std::regex_match(text, match, std::regex(expression));
  return {match.begin(), match.end()};
}

std::string Masked(const std::string& text, const char* expression, const char* value) {
  return std::regex_replace(text, std::regex(expression), value);
}

bool Eventually(const std::function<bool()>& is_so) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!is_so()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

StreamTest::StreamTest() {
  EXPECT_TRUE(quill::host::LoadPlugin(TESSEL_PLUGIN));
  _used_bytes = quill::host::GetWindowUse().used_bytes;
  quill::host::Options options;
  options.session_bytes = std::size_t{4} << 20;
  options.command_timeout = kDeadline;
  quill::host::SetOptions(options);
  for (int level = 0; level < quill::stream::kDebugLevels; ++level) {
    LogLines(static_cast<DebugLevel>(level));
  }
}

StreamTest::~StreamTest() {
  for (const auto& [name, real] : _replaced) Factory::Globle().ReplaceCommand(name.c_str(), real);
  KillRtos();
  EXPECT_TRUE(Eventually([this] { return quill::host::GetWindowUse().used_bytes == _used_bytes; }))
      << "the test leaves memory of the window behind";
  if (!HasFailure()) return;
  for (const std::string& line : LogLines())
    std::fprintf(stderr, "not looked at: %s\n", line.c_str());
}

void StreamTest::Use(const std::function<void(quill::host::Options&)>& edit) {
  quill::host::Options options = quill::host::GetOptions();
  edit(options);
  quill::host::SetOptions(options);
}

void StreamTest::UseOddRtos(const std::string& behaviour) {
  Use([&behaviour](auto& options) {
    options.rtos_program = "/proc/self/exe";
    options.rtos_arguments = {"--behaviour=" + behaviour};
  });
}

void StreamTest::Replace(const char* name,
                         const std::function<bool(AttrSet&, const Command& real)>& command) {
  const Command real = Factory::Globle().ReplaceCommand(name, nullptr);
  _replaced.try_emplace(name, real);
  Factory::Globle().ReplaceCommand(name,
                                   [command, real](AttrSet& args) { return command(args, real); });
}

void StreamTest::Listen(IStreamControl& source) {
  _told.clear();
  source.RegisterMessageCallback([this](const char* text) {
    const std::lock_guard lock(_mutex);
    _told.push_back(text);
    return true;
  });
}

Lines StreamTest::Told() {
  Lines told;
  EXPECT_TRUE(Eventually([&] {
    const std::lock_guard lock(_mutex);
    return told = _told, !told.empty();
  }));
  return told;
}

void StreamTest::WatchBlock() {
  Replace("shm_alloc", [this](AttrSet& args, const Command& real) {
    const bool done = real(args);
    const char* ptr = done ? args.Get("ptr") : "0";
    _block = reinterpret_cast<quill::stream::VbrcBlock*>(std::strtoull(ptr, nullptr, 16));
    return done;
  });
}

void StreamTest::SetSize(IStreamOutput& source, int width, int height) {
  if (auto* video = dynamic_cast<api::streaming::common::IVideoSource*>(&source)) {
    video->SetWidth(width);
    video->SetHeight(height);
  } else if (auto* yuv = dynamic_cast<api::streaming::IYuvSource*>(&source)) {
    yuv->SetWidth(width);
    yuv->SetHeight(height);
  }
}

Camera StreamTest::Make(const char* name) {
  auto camera = quill::host::Create<api::streaming::IH264Source>(name);
  SetSize(*camera, 160, 120);
  return camera;
}

Camera StreamTest::OpenPull() {
  Camera camera = Make(kPull);
  EXPECT_TRUE(camera->Open());
  EXPECT_TRUE(camera->Start());
  return camera;
}

Camera StreamTest::OpenPush(const std::function<bool(Frame&)>& callback) {
  Camera camera = Make(kPush);
  EXPECT_TRUE(camera->RegisterOutputCallback(callback));
  EXPECT_TRUE(camera->Open());
  EXPECT_TRUE(camera->Start());
  return camera;
}

Frame StreamTest::NextFrame(const Camera& camera) {
  Frame frame;
  camera->PullFrame(frame, true);
  return frame;
}

std::vector<Frame> StreamTest::HoldAllSlots(const Camera& camera) {
  std::vector<Frame> frames(static_cast<std::size_t>(quill::host::GetOptions().session_slots));
  for (Frame& frame : frames) frame = NextFrame(camera);
  return frames;
}

quill::host::StreamCounters StreamTest::Counters() {
  const auto streams = quill::host::Streams();
  EXPECT_EQ(streams.size(), 1U);
  return streams.empty() ? quill::host::StreamCounters() : streams.front();
}

bool StreamTest::RunRtos(const char* command, AttrSet& args) {
  args.Add("cmd", command);
  return Factory::Globle().Run("shm0_cmd", args);
}

void StreamTest::KillRtos() {
  const pid_t process = quill::host::RtosProcessId();
  if (process == 0) return;
  kill(process, SIGKILL);
  EXPECT_TRUE(Eventually([=] { return quill::host::RtosProcessId() != process; }));
}

}  // namespace tessel::tests
