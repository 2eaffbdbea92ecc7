// Changes of one stream that meet: every pair of them, and triples by chance, from two threads of
// the client, from the output callback and from a message callback.
#include <algorithm>
#include <random>
#include <thread>

#include "Fixture.h"
#include "tessel/IYuvSource.h"

namespace tessel::tests {
namespace {

using api::streaming::IH264Source;
using quill::base::Message;
using quill::base::Orient;

// Whether a change is done when nothing else runs, and where it leads.
using Outcome = std::pair<bool, State>;

struct Operation {
  const char* name;
  bool may_go_up;
  bool may_go_down;
  bool (*run)(IH264Source& camera, State target);
  Outcome (*model)(State from, State target);
};
struct Change {
  const Operation& operation;
  State target;  // without effect on the first four
};

constexpr State kNull = State::kNull, kReady = State::kReady, kPlay = State::kPlay,
                kPause = State::kPause;

const Operation kOpen = {"Open", true, false,
                         [](IH264Source& camera, State) { return camera.Open(); },
                         [](State from, State) { return Outcome(true, std::max(from, kReady)); }};
const Operation kStart = {
    "Start", true, false, [](IH264Source& camera, State) { return camera.Start(); },
    [](State from, State) {
      return from == kNull ? Outcome(false, kNull) : Outcome(true, std::max(from, kPlay));
    }};
const Operation kStop = {"Stop", false, true,
                         [](IH264Source& camera, State) { return camera.Stop(); },
                         [](State from, State) { return Outcome(true, std::min(from, kReady)); }};
const Operation kClose = {"Close", false, true,
                          [](IH264Source& camera, State) { return camera.Close(); },
                          [](State from, State) { return Outcome(from > kNull, kNull); }};
const Operation kUp = {
    "ChangeUp", true, false,
    [](IH264Source& camera, State target) { return camera.ChangeUp(target); },
    [](State from, State target) { return Outcome(target >= from, std::max(from, target)); }};
const Operation kDown = {
    "ChangeDown", false, true,
    [](IH264Source& camera, State target) { return camera.ChangeDown(target); },
    [](State from, State target) { return Outcome(target <= from, std::min(from, target)); }};
const Operation kTo = {"ChangeState", true, true,
                       [](IH264Source& camera, State target) { return camera.ChangeState(target); },
                       [](State, State target) { return Outcome(true, target); }};

const Change kChanges[] = {{kOpen, kReady}, {kStart, kPlay}, {kStop, kReady}, {kClose, kNull},
                           {kUp, kReady},   {kUp, kPlay},    {kUp, kPause},   {kDown, kPlay},
                           {kDown, kReady}, {kDown, kNull},  {kTo, kReady},   {kTo, kPlay}};

enum class Actor { kClient, kSecondClient, kOutput, kMessage };
constexpr const char* kActors[] = {"client", "second client", "output callback",
                                   "message callback"};

// One change by one actor.
struct Part {
  Actor actor;
  const Change& change;
  std::chrono::nanoseconds delay;  // from the common start
  Event arrived{};
  Event ended{};
  bool done = false;
};
using Parts = std::vector<std::unique_ptr<Part>>;

// Whether the changes in this order, from `state` on, give the answers that came and lead to `end`.
// A callback does not wait for the change under way: its upward change may be refused, its downward
// one is done by the other and answers true.
bool Explains(Parts::const_iterator next, Parts::const_iterator last, State state, State end) {
  if (next == last) return state == end;
  const Part& part = **next++;
  const auto& [operation, target] = part.change;
  const auto [done, reached] = operation.model(state, target);
  if (part.done == done && Explains(next, last, reached, end)) return true;
  if (part.actor < Actor::kOutput) return false;
  return part.done ? operation.may_go_down && Explains(next, last, reached, end)
                   : operation.may_go_up && Explains(next, last, state, end);
}

class StateChanges : public StreamTest {
 protected:
  StateChanges() {
    Use([](auto& options) { options.paced = false; });
    _camera = Make(kPush);
    _camera->RegisterOutputCallback([this](Frame&) { return Play(_for_output.exchange(nullptr)); });
    _camera.Object()->RegisterMessageProcessCallback(
        [this](Message&) { return Play(_for_message.exchange(nullptr)); });
  }

  bool Play(Part* part) {
    if (part == nullptr) return true;
    part->arrived.Set();
    _go.wait();
    const auto begin = std::chrono::steady_clock::now() + part->delay;
    while (std::chrono::steady_clock::now() < begin) std::this_thread::yield();
    part->done = part->change.operation.run(*_camera, part->change.target);
    part->ended.Set();
    return true;
  }

  // A call that hangs cannot be taken back: the test program ends with it.
  static void Expect(bool in_time, const std::string& round) {
    if (in_time) return;
    std::fprintf(stderr, "hangs: %s\n", round.c_str());
    std::quick_exit(1);
  }

  void Begin(Part& part, std::vector<std::thread>& threads) {
    if (part.actor == Actor::kOutput) {
      _for_output = &part;
    } else if (part.actor == Actor::kMessage) {
      _for_message = &part;
      threads.emplace_back([this] {
        _camera.Object()->IMessageProcesser::SendMessage("go", Orient::kSink, nullptr);
      });
    } else {
      threads.emplace_back([this, &part] { Play(&part); });
    }
  }

  // The changes begin at once, or up to 1 ms later; from any state, but for the output callback,
  // which comes only while the stream plays.
  void Run(const std::vector<std::pair<Actor, const Change&>>& acting, std::string round) {
    Parts parts;
    auto start = static_cast<State>(_random() % 4);
    for (const auto& [actor, change] : acting) {
      const std::chrono::nanoseconds delay(_random() % 4 == 0 ? 0 : _random() % 1000000);
      parts.emplace_back(new Part{actor, change, delay});
      if (actor == Actor::kOutput) start = kPlay;
      round += std::string(", ") + kActors[static_cast<int>(actor)] + " " + change.operation.name +
               std::to_string(static_cast<int>(change.target));
    }
    ASSERT_TRUE(_camera->ChangeState(start)) << round;
    std::promise<void> go;
    _go = go.get_future().share();
    std::vector<std::thread> threads;
    for (const auto& part : parts) Begin(*part, threads);
    for (const auto& part : parts) Expect(part->arrived.Wait(), round + ": no callback comes");
    go.set_value();
    for (const auto& part : parts) Expect(part->ended.Wait(), round);
    for (std::thread& thread : threads) thread.join();
    const State end = _camera->CurrentState();
    for (const auto& part : parts) round += part->done ? " true" : " false";
    std::sort(parts.begin(), parts.end());
    bool is_explained = false;
    do {
      is_explained |= Explains(parts.begin(), parts.end(), start, end);
    } while (std::next_permutation(parts.begin(), parts.end()));
    EXPECT_TRUE(is_explained) << round << ", from " << static_cast<int>(start) << " to "
                              << static_cast<int>(end);
  }

  Camera _camera;
  std::shared_future<void> _go;
  std::atomic<Part*> _for_output{nullptr};
  std::atomic<Part*> _for_message{nullptr};
  std::mt19937 _random;
};

TEST_F(StateChanges, EachAloneEndsWhereTheModelSays) {
  for (const State start : {kNull, kReady, kPlay, kPause}) {
    for (const auto& [operation, target] : kChanges) {
      ASSERT_TRUE(_camera->ChangeState(start));
      const auto [done, reached] = operation.model(start, target);
      EXPECT_EQ(operation.run(*_camera, target), done) << operation.name;
      EXPECT_EQ(_camera->CurrentState(), reached) << operation.name;
    }
  }
  for (const State target : {State(-1), State(4), State(7)}) {
    ASSERT_TRUE(_camera->ChangeState(kReady));
    EXPECT_FALSE(_camera->ChangeUp(target) || _camera->ChangeDown(target) ||
                 _camera->ChangeState(target));
    EXPECT_EQ(_camera->CurrentState(), kReady);
  }
}

// Of each pair, and by chance of three.
TEST_F(StateChanges, ConcurrentOnesEndWhereSomeSerialOrderLeads) {
  constexpr Actor kActing[][3] = {{Actor::kClient, Actor::kSecondClient, Actor::kOutput},
                                  {Actor::kClient, Actor::kOutput, Actor::kMessage},
                                  {Actor::kClient, Actor::kMessage, Actor::kSecondClient},
                                  {Actor::kOutput, Actor::kMessage, Actor::kSecondClient}};
  static unsigned seed = 19;
  _random.seed(++seed);  // another one in each round of --gtest_repeat
  for (const auto& [first, second, third] : kActing) {
    for (const Change& one : kChanges) {
      for (const Change& other : kChanges) {
        std::vector<std::pair<Actor, const Change&>> acting = {{first, one}, {second, other}};
        if (_random() % 3 == 0) {
          acting.emplace_back(third, kChanges[_random() % std::size(kChanges)]);
        }
        Run(acting, "seed " + std::to_string(seed));
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(StateChanges, TwoCallbacksMayStopEachOthersStreams) {
  Camera cameras[] = {Make(kPush), Make(kPush)};
  std::atomic<int> inside{0};
  Event stopped[2];
  for (const int i : {0, 1}) {
    cameras[i]->RegisterOutputCallback([&, i](Frame&) {
      if (++inside > 2) return true;
      while (inside < 2) std::this_thread::yield();
      EXPECT_TRUE(cameras[1 - i]->Stop());
      stopped[i].Set();
      return true;
    });
  }
  ASSERT_TRUE(cameras[0]->ChangeUp(kPlay) && cameras[1]->ChangeUp(kPlay));
  for (Event& each : stopped) Expect(each.Wait(), "Stop");
  for (const Camera& camera : cameras) {
    EXPECT_TRUE(camera->Stop());
    EXPECT_EQ(camera->CurrentState(), kReady);
  }
}

// Also where the stream has been started anew by its callback, and has a second thread.
TEST_F(StateChanges, OutputCallbacksOfOneStreamNeverOverlap) {
  std::atomic<int> inside{0};
  std::atomic<bool> overlaps{false};
  std::atomic<bool> is_first{true};
  Event done;
  const Camera camera = Make(kPush);
  camera->RegisterOutputCallback([&](Frame&) {
    if (++inside > 1) overlaps = true;
    if (is_first.exchange(false)) {
      const std::uint64_t made =
          Counters().published;  // after Start() the ring may be full at once
      EXPECT_TRUE(camera->Stop() && camera->Start());
      EXPECT_TRUE(Eventually([made] { return Counters().published > made + 2; }));
      static_cast<void>(Event().WaitFor(std::chrono::milliseconds(20)));  // for one that overlaps
      done.Set();
    }
    return --inside == 0;
  });
  ASSERT_TRUE(camera->ChangeUp(kPlay) && done.Wait());
  EXPECT_TRUE(camera->ChangeDown(kNull));
  EXPECT_FALSE(overlaps);
}

// The host does not know its worker, so the worker's call ends with the time-out of a command.
TEST_F(StateChanges, CallbackMayTakeTheSyntheticSourceDown) {
  Use([](auto& options) { options.command_timeout = std::chrono::milliseconds(50); });
  auto fake = quill::host::Create<api::streaming::IYuvSource>("ApiYuvSource-dualos-push-fake");
  for (int round = 0; round < 10; ++round) {
    Event inside;
    Event goes_on;
    std::atomic<bool> done{false};
    fake->RegisterOutputCallback([&](Frame&) {
      inside.Set();
      if (!done) done = goes_on.Wait() && fake->ChangeDown(kNull);
      return true;
    });
    ASSERT_TRUE(fake->ChangeUp(kPlay) && inside.Wait());
    auto down = std::async(std::launch::async, [&] { return fake->ChangeDown(kNull); });
    goes_on.Set();
    Expect(down.wait_for(kDeadline) == std::future_status::ready, "ChangeDown");
    EXPECT_TRUE(down.get() && done);
    EXPECT_EQ(fake->CurrentState(), kNull);
  }
}

TEST_F(StateChanges, DownwardOnesReturnFalseWhileAMessageCallbackIsStuck) {
  const Camera camera = Make();
  Event inside;
  Event goes_on;
  camera->RegisterMessageCallback([&](const char*) {
    inside.Set();
    return goes_on.Wait();
  });
  ASSERT_TRUE(camera->Open() && camera->Start());
  Use([](auto& options) { options.command_timeout = std::chrono::milliseconds(50); });
  KillRtos();
  ASSERT_TRUE(inside.Wait());
  EXPECT_FALSE(camera->Close() || camera->ChangeDown(kNull));
  goes_on.Set();
  EXPECT_TRUE(Eventually([&] { return camera->ChangeDown(kNull); }));
  EXPECT_TRUE(camera->ChangeUp(kPlay)) << "it can be opened again";
}

TEST_F(StateChanges, UpwardOnesAreRefusedFromTheLossUntilTheClose) {
  const Camera camera = OpenPull();
  KillRtos();
  EXPECT_EQ(camera->CurrentState(), kNull);
  EXPECT_FALSE(camera->Open() || camera->Start() || camera->ChangeUp(kPlay) ||
               camera->ChangeState(kPause));
  EXPECT_TRUE(camera->ChangeDown(kReady)) << "what is left is stopped";
  EXPECT_EQ(camera->CurrentState(), kNull);
  EXPECT_TRUE(camera->ChangeDown(kNull) && camera->ChangeUp(kPlay));
  EXPECT_NE(NextFrame(camera), nullptr);
}

}  // namespace
}  // namespace tessel::tests
