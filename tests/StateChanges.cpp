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

// What a change does when nothing else runs: whether it is done, and where it leads from `state`.
struct Outcome {
  bool done;
  State state;
};
struct Change {
  const char* name;
  bool may_go_up;
  bool may_go_down;
  bool (*run)(IH264Source&);
  Outcome (*model)(State);
};

template <State target>
bool Up(IH264Source& camera) {
  return camera.ChangeUp(target);
}
template <State target>
bool Down(IH264Source& camera) {
  return camera.ChangeDown(target);
}
template <State target>
Outcome AtLeast(State state) {
  return {target >= state, std::max(state, target)};
}
template <State target>
Outcome AtMost(State state) {
  return {target <= state, std::min(state, target)};
}

constexpr State kNull = State::kNull, kReady = State::kReady, kPlay = State::kPlay,
                kPause = State::kPause;

const Change kChanges[] = {
    {"Open", true, false, [](IH264Source& camera) { return camera.Open(); },
     [](State state) {
       return Outcome{true, std::max(state, kReady)};
     }},
    {"Start", true, false, [](IH264Source& camera) { return camera.Start(); },
     [](State state) {
       return Outcome{state > kNull, state > kNull ? std::max(state, kPlay) : kNull};
     }},
    {"Stop", false, true, [](IH264Source& camera) { return camera.Stop(); },
     [](State state) {
       return Outcome{true, std::min(state, kReady)};
     }},
    {"Close", false, true, [](IH264Source& camera) { return camera.Close(); },
     [](State state) {
       return Outcome{state > kNull, kNull};
     }},
    {"ChangeUp(ready)", true, false, &Up<kReady>, &AtLeast<kReady>},
    {"ChangeUp(play)", true, false, &Up<kPlay>, &AtLeast<kPlay>},
    {"ChangeUp(pause)", true, false, &Up<kPause>, &AtLeast<kPause>},
    {"ChangeDown(play)", false, true, &Down<kPlay>, &AtMost<kPlay>},
    {"ChangeDown(ready)", false, true, &Down<kReady>, &AtMost<kReady>},
    {"ChangeDown(null)", false, true, &Down<kNull>, &AtMost<kNull>},
    {"ChangeState(ready)", true, true,
     [](IH264Source& camera) { return camera.ChangeState(kReady); },
     [](State) {
       return Outcome{true, kReady};
     }},
    {"ChangeState(play)", true, true, [](IH264Source& camera) { return camera.ChangeState(kPlay); },
     [](State) {
       return Outcome{true, kPlay};
     }},
};

enum class Actor { kClient, kSecondClient, kOutput, kMessage };
constexpr const char* kActors[] = {"client", "second client", "output callback",
                                   "message callback"};

// One change by one actor.
struct Part {
  Actor actor = Actor::kClient;
  const Change* change = nullptr;
  std::chrono::nanoseconds delay{0};  // from the common start
  Event arrived;
  Event ended;
  bool done = false;
  bool IsCallback() const { return actor == Actor::kOutput || actor == Actor::kMessage; }
};
using Parts = std::vector<std::unique_ptr<Part>>;

// Whether the changes in this order, from `state` on, give the answers that came and lead to `end`.
// A callback does not wait for the change under way: its upward change may be refused, its downward
// one is done by the other and answers true.
bool Explains(Parts::const_iterator next, Parts::const_iterator last, State state, State end) {
  if (next == last) return state == end;
  const Part& part = **next++;
  const Outcome outcome = part.change->model(state);
  if (part.done == outcome.done && Explains(next, last, outcome.state, end)) return true;
  if (!part.IsCallback()) return false;
  return part.done ? part.change->may_go_down && Explains(next, last, outcome.state, end)
                   : part.change->may_go_up && Explains(next, last, state, end);
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
    part->done = part->change->run(*_camera);
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

  // All changes of `parts` at once, from `start`.
  void Run(State start, Parts& parts, std::string round) {
    for (const auto& part : parts) {
      round +=
          std::string(", ") + kActors[static_cast<int>(part->actor)] + " " + part->change->name;
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

  // A part whose change begins up to 1 ms behind the others'.
  std::unique_ptr<Part> MakePart(Actor actor, const Change& change) {
    auto part = std::make_unique<Part>();
    part->actor = actor;
    part->change = &change;
    part->delay = std::chrono::nanoseconds(_random() % 4 == 0 ? 0 : _random() % 1000000);
    return part;
  }
  // Frames come only while it plays.
  State StartOf(const Parts& parts) {
    const bool has_output = std::any_of(
        parts.begin(), parts.end(), [](const auto& part) { return part->actor == Actor::kOutput; });
    return has_output ? kPlay : static_cast<State>(_random() % 4);
  }

  Camera _camera;
  std::shared_future<void> _go;
  std::atomic<Part*> _for_output{nullptr};
  std::atomic<Part*> _for_message{nullptr};
  std::mt19937 _random{kSeed};
  static constexpr unsigned kSeed = 20;
};

TEST_F(StateChanges, EachLeadsWhereItShould) {
  for (const State start : {kNull, kReady, kPlay, kPause}) {
    for (const Change& change : kChanges) {
      ASSERT_TRUE(_camera->ChangeState(start));
      const Outcome outcome = change.model(start);
      EXPECT_EQ(change.run(*_camera), outcome.done) << change.name;
      EXPECT_EQ(_camera->CurrentState(), outcome.state) << change.name;
    }
  }
}

// TESSEL_ROUNDS multiplies the rounds.
TEST_F(StateChanges, ThatMeetEndWhereSomeOrderOfThemLeads) {
  const char* asked = std::getenv("TESSEL_ROUNDS");
  const int times = asked == nullptr ? 1 : std::atoi(asked);
  constexpr std::pair<Actor, Actor> kPairs[] = {{Actor::kClient, Actor::kSecondClient},
                                                {Actor::kClient, Actor::kOutput},
                                                {Actor::kClient, Actor::kMessage},
                                                {Actor::kOutput, Actor::kMessage}};
  int rounds = 0;
  for (int pass = 0; pass < times; ++pass) {
    for (const auto& [first, second] : kPairs) {
      for (const Change& one : kChanges) {
        for (const Change& other : kChanges) {
          Parts parts;
          parts.push_back(MakePart(first, one));
          parts.push_back(MakePart(second, other));
          const bool is_triple = _random() % 3 == 0;
          const Actor third = second == Actor::kSecondClient ? Actor::kOutput
                              : second == Actor::kMessage    ? Actor::kSecondClient
                                                             : Actor::kMessage;
          if (is_triple)
            parts.push_back(MakePart(third, kChanges[_random() % std::size(kChanges)]));
          Run(StartOf(parts), parts, "seed " + std::to_string(kSeed));
          ++rounds;
          if (HasFailure()) return;
        }
      }
    }
  }
  RecordProperty("rounds", rounds);
}

// Each of two callbacks stops the other one's stream.
TEST_F(StateChanges, TwoCallbacksMayStopEachOthersStreams) {
  Camera other = Make(kPush);
  std::atomic<int> inside{0};
  std::promise<void> stopped[2];
  const auto stop = [&](IH264Source* target, std::promise<void>& done) {
    if (++inside > 2) return true;
    while (inside < 2) std::this_thread::yield();
    EXPECT_TRUE(target->Stop());
    done.set_value();
    return true;
  };
  Camera one = Make(kPush);
  one->RegisterOutputCallback([&](Frame&) { return stop(other.get(), stopped[0]); });
  other->RegisterOutputCallback([&](Frame&) { return stop(one.get(), stopped[1]); });
  ASSERT_TRUE(one->ChangeUp(kPlay) && other->ChangeUp(kPlay));
  for (auto& each : stopped)
    Expect(each.get_future().wait_for(kDeadline) == std::future_status::ready, "Stop");
  EXPECT_TRUE(one->Stop() && other->Stop());
  EXPECT_EQ(one->CurrentState(), kReady);
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
      EXPECT_TRUE(camera->Stop() && camera->Start());
      const std::uint64_t made = Counters().made;
      EXPECT_TRUE(Eventually([made] { return Counters().made > made + 2; }));
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
TEST_F(StateChanges, TheSyntheticSourceMayBeTakenDownByItsCallbackToo) {
  Use([](auto& options) { options.command_timeout = std::chrono::milliseconds(50); });
  auto fake = quill::host::Create<api::streaming::IYuvSource>("ApiYuvSource-dualos-push-fake");
  for (int round = 0; round < 10; ++round) {
    std::promise<void> go;
    Event inside;
    std::atomic<bool> done{false};
    fake->RegisterOutputCallback([&](Frame&) {
      if (done) return true;
      inside.Set();
      go.get_future().wait();
      done = fake->ChangeDown(kNull);
      return true;
    });
    ASSERT_TRUE(fake->ChangeUp(kPlay) && inside.Wait());
    auto down = std::async(std::launch::async, [&] { return fake->ChangeDown(kNull); });
    go.set_value();
    Expect(down.wait_for(kDeadline) == std::future_status::ready, "ChangeDown");
    EXPECT_TRUE(down.get() && done);
    EXPECT_EQ(fake->CurrentState(), kNull);
  }
}

TEST_F(StateChanges, DownwardEndWithFalseWhileAMessageCallbackIsStuck) {
  const Camera camera = Make();
  Event inside;
  std::promise<void> go;
  camera->RegisterMessageCallback([&, go_on = go.get_future().share()](const char*) {
    inside.Set();
    go_on.wait();
    return true;
  });
  ASSERT_TRUE(camera->Open() && camera->Start());
  Use([](auto& options) { options.command_timeout = std::chrono::milliseconds(50); });
  KillFarSide();
  ASSERT_TRUE(inside.Wait());
  EXPECT_FALSE(camera->Close() || camera->ChangeDown(kNull));
  go.set_value();
  EXPECT_TRUE(Eventually([&] { return camera->ChangeDown(kNull); }));
  EXPECT_TRUE(camera->ChangeUp(kPlay)) << "it can be opened again";
}

TEST_F(StateChanges, AreRefusedWhereTheTargetIsNoState) {
  ASSERT_TRUE(_camera->ChangeUp(kReady));
  for (const int number : {-1, 4, 7}) {
    const auto target = static_cast<State>(number);
    EXPECT_FALSE(_camera->ChangeUp(target) || _camera->ChangeDown(target) ||
                 _camera->ChangeState(target));
    EXPECT_EQ(_camera->CurrentState(), kReady);
  }
}

TEST_F(StateChanges, UpwardAreRefusedFromTheLossUntilTheClose) {
  const Camera camera = OpenPull();
  KillFarSide();
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
