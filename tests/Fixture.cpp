#include "Fixture.h"

#include <algorithm>
#include <thread>

#include <signal.h>

namespace tessel::tests {

using quill::stream::DebugLevel;

namespace {

// Never destroyed: other threads may log at exit.
LogStream* g_logs[quill::stream::kDebugLevels];
quill::stream::DebugStream* g_replaced[quill::stream::kDebugLevels];

}  // namespace

void LogStream::Write(std::string_view text) {
  const std::lock_guard lock(_mutex);
  _lines.emplace_back(text);
}

Lines LogStream::Take() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_lines, {});
}

void KeepLogs() {
  for (int level = 0; level < quill::stream::kDebugLevels; ++level) {
    g_logs[level] = new LogStream;
    g_replaced[level] = std::exchange(quill::stream::__dbg_couts[level], g_logs[level]);
  }
}

Lines LogLines(DebugLevel level) {
  Lines lines = g_logs[level]->Take();
  for (std::string& line : lines) {
    // path "/" number "/" function ":\t": the number stands before the last "/" of the place.
    const auto end = line.rfind('/', line.find(":\t"));
    const auto begin = line.rfind('/', end - 1);
    const bool has_end = line.ends_with('\n');
    line = line.substr(0, begin) + "/#" + line.substr(end, line.size() - end - (has_end ? 1 : 0));
  }
  return lines;
}

bool IsLogged(const std::string& text) {
  const Lines lines = LogLines();
  return std::any_of(lines.begin(), lines.end(), [&text](const std::string& line) {
    return line.find(text) != std::string::npos;
  });
}

bool Eventually(const std::function<bool()>& is_so) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!is_so()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

StreamTest::StreamTest() {
  EXPECT_TRUE(quill::host::LoadPlugin(TESSEL_PLUGIN));
  _used_bytes = quill::host::GetWindowUse().used_bytes;
  quill::host::Options options;
  options.session_bytes = std::size_t{4} << 20;
  quill::host::SetOptions(options);
  for (int level = 0; level < quill::stream::kDebugLevels; ++level) {
    LogLines(static_cast<DebugLevel>(level));
  }
}

StreamTest::~StreamTest() {
  for (const auto& [name, real] : _replaced) Factory::Globle().ReplaceCommand(name.c_str(), real);
  KillFarSide();
  EXPECT_TRUE(Eventually([this] { return quill::host::GetWindowUse().used_bytes == _used_bytes; }))
      << "the test leaves memory of the window behind";
  if (!HasFailure()) return;
  for (const std::string& line : LogLines())
    std::fprintf(stderr, "not looked at: %s\n", line.c_str());
}

void StreamTest::UseOddFarSide(const std::string& behaviour) {
  quill::host::Options options = quill::host::GetOptions();
  options.far_side_program = "/proc/self/exe";
  options.far_side_arguments = {"--behaviour=" + behaviour};
  quill::host::SetOptions(options);
}

void StreamTest::Replace(const char* name,
                         const std::function<bool(AttrSet&, const Command& real)>& command) {
  const Command real = Factory::Globle().ReplaceCommand(name, nullptr);
  _replaced.try_emplace(name, real);
  Factory::Globle().ReplaceCommand(name,
                                   [command, real](AttrSet& args) { return command(args, real); });
}

void StreamTest::EditMedia(const std::function<void(AttrSet&)>& edit) {
  Replace("shm0_cmd", [edit](AttrSet& args, const Command& real) {
    const bool done = real(args);
    if (const char* text = args.Get("media")) {
      AttrSet media(text);
      edit(media);
      args.Add("media", media.ToString(false));
    }
    return done;
  });
}

Camera StreamTest::Make(const char* name) {
  auto camera = quill::host::Create<api::streaming::IH264Source>(name);
  camera->SetWidth(160);
  camera->SetHeight(120);
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

quill::host::StreamCounters StreamTest::Counters() {
  const auto streams = quill::host::Streams();
  EXPECT_EQ(streams.size(), 1U);
  return streams.empty() ? quill::host::StreamCounters() : streams.front();
}

bool StreamTest::RunFarSide(const char* command, AttrSet& args) {
  args.Add("cmd", command);
  return Factory::Globle().Run("shm0_cmd", args);
}

void StreamTest::KillFarSide() {
  const pid_t process = quill::host::FarSideProcess();
  if (process == 0) return;
  kill(process, SIGKILL);
  EXPECT_TRUE(Eventually([=] { return quill::host::FarSideProcess() != process; }));
}

}  // namespace tessel::tests
