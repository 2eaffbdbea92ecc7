// What the tests share: the real plug-in in the real host, with a real-time side in a process of
// its own, and verbs for what a client does with them.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "quill/Debug.h"
#include "quill/Factory.h"
#include "quill/Host.h"
#include "quill/VbrcBlock.h"
#include "tessel/IH264Source.h"

namespace tessel::tests {

using api::streaming::common::frame_t;
using api::streaming::common::IStreamControl;
using api::streaming::common::IStreamOutput;
using api::streaming::common::State;
using quill::base::AttrSet;
using quill::base::Factory;

using Camera = quill::host::Handle<api::streaming::IH264Source>;
using Frame = std::shared_ptr<frame_t>;
using Lines = std::vector<std::string>;

inline constexpr char kPush[] = "ApiH264Source-dualos-cbrc-push";
inline constexpr char kPull[] = "ApiH264Source-dualos-cbrc-pull";
inline constexpr std::chrono::seconds kDeadline(20);  // far above what any event here takes

// All levels are kept from here on; called once, before anything logs.
void KeepLogs();
// The lines of a level since the last call, the number of the source line as "#".
Lines LogLines(quill::stream::DebugLevel level = quill::stream::kError);
// The same as a terminal gets them, with their colours.
Lines ColouredLines(quill::stream::DebugLevel level);

// Whether one of the red lines since the last call has that text.
bool IsLogged(const std::string& text);

// `text` with `value` for each `mark`.
std::string Fill(std::string text, char mark, const std::string& value);

// <regex> compiles slowly, so that it is used in one file only. The text that matches `expression`
// as a whole, and its groups; nothing when it does not match.
Lines Match(const std::string& text, const char* expression);
// `text` with `value` for whatever matches `expression`.
std::string Masked(const std::string& text, const char* expression, const char* value);

// Happens once; waited for with the deadline.
class Event {
 public:
  void Set() {
    if (!_is_set.exchange(true)) _promise.set_value();
  }
  [[nodiscard]] bool Wait() { return WaitFor(kDeadline); }
  // For what is not to happen.
  [[nodiscard]] bool WaitFor(std::chrono::milliseconds time) {
    return _future.wait_for(time) == std::future_status::ready;
  }

 private:
  std::atomic<bool> _is_set{false};
  std::promise<void> _promise;
  std::future<void> _future = _promise.get_future();
};

// Looks until `is_so` is true, for what tells nobody. False at the deadline.
[[nodiscard]] bool Eventually(const std::function<bool()>& is_so);

// Each test begins with no real-time side running and ends with all memory given back.
class StreamTest : public ::testing::Test {
 protected:
  StreamTest();
  ~StreamTest() override;

  // Changes the host's options until the test ends.
  static void Use(const std::function<void(quill::host::Options&)>& edit);
  // The next connection is to this program, which then behaves as told; see OddRtos.h.
  static void UseOddRtos(const std::string& behaviour);
  // Replaces a command until the test ends; `command` may call the one that stood there.
  using Command = Factory::Command;
  void Replace(const char* name, const std::function<bool(AttrSet&, const Command& real)>& command);
  // Keeps what the message callback of `source` is told; Told() returns it once something came.
  void Listen(IStreamControl& source);
  Lines Told();

  // From here on `_block` is the rate-control block of the object made last.
  void WatchBlock();

  // In pixels, of any source of pictures.
  static void SetSize(IStreamOutput& source, int width, int height);
  static Camera Make(const char* name = kPull);  // of 160 x 120 pixels
  static Camera OpenPull();                      // playing
  static Camera OpenPush(const std::function<bool(Frame&)>& callback);
  static Frame NextFrame(const Camera& camera);                  // null when none comes any more
  static std::vector<Frame> HoldAllSlots(const Camera& camera);  // so that no frame comes any more
  static quill::host::StreamCounters Counters();                 // of the only stream
  static bool RunRtos(const char* command, AttrSet& args);
  static void KillRtos();  // and waits until the host knows

  quill::stream::VbrcBlock* _block = nullptr;  // null unless watched

 private:
  std::mutex _mutex;
  Lines _told;  // guarded by _mutex
  std::size_t _used_bytes = 0;
  std::map<std::string, Command> _replaced;
};

}  // namespace tessel::tests
