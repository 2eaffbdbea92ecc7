// The window and the ring of a session, without host and plug-in: both ends on one mapping, on two
// mappings of one process, and in two processes.
#include "SharedWindow.h"

#include <deque>
#include <random>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "SessionConsumer.h"
#include "SessionProducer.h"

namespace tessel::link {
namespace {

constexpr std::size_t kWindowBytes = std::size_t{1} << 20;
constexpr std::uint32_t kUnits = 20000;

enum class Sides { kOneMapping, kTwoMappings, kTwoProcesses };

class Ring : public ::testing::TestWithParam<Sides> {
 protected:
  Ring() {
    window = SharedWindow::Create(kWindowBytes, error);
    if (GetParam() != Sides::kOneMapping) {
      other = SharedWindow::Attach(UniqueFd(fcntl(window->Fd(), F_DUPFD_CLOEXEC, 0)), error);
    }
    consumer = SessionConsumer::Create(window->Area(0, kWindowBytes), Copy(frames), Copy(room));
    producer = SessionProducer::Create((other ? *other : *window).Area(0, kWindowBytes),
                                       Copy(frames), Copy(room));
  }
  static Doorbell Copy(const Doorbell& bell) { return Doorbell(bell.Duplicate()); }

  // Unpaced: waits for room, loses nothing.
  void Produce() const {
    for (std::uint32_t i = 0; i < kUnits; ++i) {
      auto slot = producer->Reserve();
      while (slot.empty() && producer->WaitForRoom()) slot = producer->Reserve();
      if (slot.empty()) return;
      const std::size_t size = 1 + i % 4096;
      slot[0] = slot[size - 1] = static_cast<std::uint8_t>(i);
      producer->Publish(size, i, std::int64_t{i} << 32, i % 3 == 0);
    }
  }

  std::string error;
  const Doorbell frames = Doorbell::Create();
  const Doorbell room = Doorbell::Create();
  std::unique_ptr<SharedWindow> window;
  std::unique_ptr<SharedWindow> other;  // the producer's, unless it uses the same
  std::unique_ptr<SessionConsumer> consumer;
  std::unique_ptr<SessionProducer> producer;
};

INSTANTIATE_TEST_SUITE_P(
    Over, Ring, ::testing::Values(Sides::kOneMapping, Sides::kTwoMappings, Sides::kTwoProcesses),
    [](const auto& instance) {
      return std::string(instance.param == Sides::kOneMapping    ? "OneMapping"
                         : instance.param == Sides::kTwoMappings ? "TwoMappings"
                                                                 : "TwoProcesses");
    });

// The consumer holds up to five frames, so that slots come back in another order than they went.
TEST_P(Ring, AnUnpacedProducerLosesAndReordersNothing) {
  ASSERT_TRUE(producer->Divide(4096, 7));
  std::thread thread;
  pid_t child = 0;
  if (GetParam() == Sides::kTwoProcesses) {
    child = fork();
    if (child == 0) {
      Produce();
      _exit(0);
    }
  } else {
    thread = std::thread([this] { Produce(); });
  }
  std::mt19937 random(5);
  std::deque<std::uint16_t> held;
  for (std::uint32_t i = 0; i < kUnits; ++i) {
    FrameDescriptor frame = {};
    while (!consumer->Next(frame)) ASSERT_TRUE(consumer->Wait());
    const auto* bytes = consumer->Base() + frame.offset;
    ASSERT_EQ(frame.sequence, i);
    ASSERT_EQ(frame.size, 1 + i % 4096);
    ASSERT_EQ(frame.time_ns, std::int64_t{i} << 32);
    ASSERT_EQ(frame.is_key, i % 3 == 0 ? 1 : 0);
    ASSERT_EQ(bytes[0], static_cast<std::byte>(i));
    ASSERT_EQ(bytes[frame.size - 1], static_cast<std::byte>(i));
    held.insert(held.begin() + static_cast<std::ptrdiff_t>(random() % (held.size() + 1)),
                frame.slot);
    while (held.size() > random() % 6) {
      consumer->GiveBack(held.back());
      held.pop_back();
    }
  }
  if (thread.joinable()) thread.join();
  if (child != 0) waitpid(child, nullptr, 0);
  const SessionCounters counters = consumer->Counters();
  EXPECT_EQ(counters.made, kUnits);
  EXPECT_EQ(counters.delivered, kUnits);
  EXPECT_EQ(counters.held, held.size());
  EXPECT_EQ(counters.dropped + counters.refused, 0U);
}

TEST_P(Ring, WithAllSlotsHeldNoneIsFreeUntilAnyThreadGivesOneBack) {
  ASSERT_TRUE(producer->Divide(100, 99));  // 63 are the most
  for (int round = 0; round < 50; ++round) {
    std::vector<std::uint16_t> slots;
    while (!producer->Reserve().empty()) {
      FrameDescriptor frame = {};
      producer->Publish(1, 0, 0, false);
      ASSERT_TRUE(consumer->Next(frame));
      slots.push_back(frame.slot);
    }
    EXPECT_EQ(std::set(slots.begin(), slots.end()).size(), std::size_t{kMostSlots});
    EXPECT_EQ(consumer->Counters().held, std::uint64_t{kMostSlots});
    producer->CountDropped();
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 3; ++i) {
      threads.emplace_back([&, i] {
        for (std::size_t k = i; k < slots.size(); k += 3) consumer->GiveBack(slots[k]);
      });
    }
    ASSERT_TRUE(producer->WaitForRoom());
    EXPECT_FALSE(producer->Reserve().empty());
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(consumer->Counters().held, 0U);
    EXPECT_EQ(consumer->Counters().dropped, static_cast<std::uint64_t>(round) + 1);
  }
}

TEST_P(Ring, InterruptEndsTheWaitOfEitherSideUntilItResumes) {
  ASSERT_TRUE(producer->Divide(4096, 2));
  while (!producer->Reserve().empty()) producer->Publish(1, 0, 0, false);
  const auto* header = reinterpret_cast<const SessionHeader*>(window->Base());
  std::thread waiting([this] { EXPECT_FALSE(producer->WaitForRoom()); });
  while ((header->given_back & kProducerSleeps) == 0) std::this_thread::yield();
  producer->Interrupt();
  waiting.join();
  FrameDescriptor frame = {};
  while (consumer->Next(frame)) consumer->GiveBack(frame.slot);
  waiting = std::thread([this] { EXPECT_FALSE(consumer->Wait()); });
  while ((header->head & kConsumerSleeps) == 0) std::this_thread::yield();
  consumer->Interrupt();
  waiting.join();
  EXPECT_FALSE(consumer->Wait()) << "until Resume()";
  producer->Resume();
  consumer->Resume();
  EXPECT_TRUE(producer->WaitForRoom());
  ASSERT_FALSE(producer->Reserve().empty());
  producer->Publish(1, 9, 0, false);
  EXPECT_TRUE(consumer->Wait());
  EXPECT_TRUE(consumer->Next(frame) && frame.sequence == 9);
}

TEST_P(Ring, SlotsAreCutToFit) {
  const struct {
    std::size_t slot_bytes;
    int most;
    bool ok;
    std::size_t slots;
  } rows[] = {{0, 8, false, 0},
              {1, 8, true, 8},
              {4097, 8, true, 8},
              {100000, 63, true, 10},  // of 25 pages each, in 255
              {kWindowBytes / 2 - 4096, 63, true, 2},
              {kWindowBytes / 2, 63, false, 0},
              {kWindowBytes, 63, false, 0},
              {SIZE_MAX, 63, false, 0},
              {1, 1, false, 0},
              {1, -1, false, 0}};
  for (const auto& row : rows) {
    auto cutting = SessionProducer::Create(window->Area(0, kWindowBytes), Copy(frames), Copy(room));
    ASSERT_EQ(cutting->Divide(row.slot_bytes, row.most), row.ok) << row.slot_bytes;
    std::size_t slots = 0;
    for (auto slot = cutting->Reserve(); !slot.empty(); slot = cutting->Reserve(), ++slots) {
      EXPECT_GE(slot.size(), row.slot_bytes);
      const auto begin = reinterpret_cast<std::byte*>(slot.data()) - window->Base();
      EXPECT_GE(begin, std::ptrdiff_t{kSessionHeaderBytes});
      EXPECT_LE(static_cast<std::size_t>(begin) + slot.size(), kWindowBytes);
      cutting->Publish(0, 0, 0, false);
    }
    EXPECT_EQ(slots, row.slots) << row.slot_bytes;
  }
}

// Whatever stands in the ring: each descriptor is counted as delivered or refused, and what is
// delivered can be read and is held once.
TEST(UntrustedRing, HandsOutNothingOutsideTheArea) {
  constexpr unsigned kSeed = 31;
  constexpr std::uint64_t kEnd = std::uint64_t{4} * 4096, kMost = UINT64_MAX;
  std::mt19937_64 random(kSeed);
  std::string error;
  const auto window = SharedWindow::Create(std::size_t{8} * 4096, error);
  const std::span<std::byte> area = window->Area(4096, kEnd);
  const auto consumer = SessionConsumer::Create(area, Doorbell::Create(), Doorbell::Create());
  auto* header = reinterpret_cast<SessionHeader*>(area.data());
  const std::uint64_t odd[] = {0,        1,    100,      4095,       4096,  8192,
                               kEnd - 1, kEnd, kEnd + 1, UINT32_MAX, kMost, kMost - 4095};
  const auto any = [&] { return random() % 4 == 0 ? random() : odd[random() % std::size(odd)]; };
  std::uint32_t head = 0;
  std::uint64_t published = 0;
  std::uint64_t sum = 0;
  std::set<std::uint16_t> held;
  for (int round = 0; round < 20000; ++round) {
    for (FrameDescriptor& descriptor : header->ring) {
      descriptor = {any(),
                    static_cast<std::int64_t>(any()),
                    static_cast<std::uint32_t>(any()),
                    static_cast<std::uint32_t>(any()),
                    static_cast<std::uint16_t>(random() % 70),
                    static_cast<std::uint16_t>(any()),
                    0};
    }
    const std::uint32_t step = random() % 100 == 0 ? static_cast<std::uint32_t>(random()) : 7;
    published += (step & kHeadMask) > kRingDescriptors ? 1 : step & kHeadMask;
    head = (head + step) & kHeadMask;
    header->head.store(head | (random() % 2 == 0 ? kConsumerSleeps : 0));
    FrameDescriptor frame = {};
    while (consumer->Next(frame)) {
      ASSERT_GE(frame.offset, kSessionHeaderBytes) << "seed " << kSeed;
      ASSERT_TRUE(frame.time_ns >= 0 && frame.time_ns <= kMostTimeNs) << "seed " << kSeed;
      ASSERT_LE(frame.offset, area.size()) << "seed " << kSeed;
      ASSERT_LE(frame.size, area.size() - frame.offset) << "seed " << kSeed;
      for (std::uint32_t i = 0; i < frame.size; ++i) {
        sum += static_cast<std::uint64_t>(consumer->Base()[frame.offset + i]);
      }
      ASSERT_TRUE(frame.slot < kMostSlots && held.insert(frame.slot).second) << "seed " << kSeed;
    }
    while (!held.empty() && random() % 8 != 0) {
      consumer->GiveBack(*held.begin());
      held.erase(held.begin());
    }
  }
  const SessionCounters counters = consumer->Counters();
  EXPECT_EQ(counters.delivered + counters.refused, published);
  EXPECT_GT(counters.delivered, 1000U);
  EXPECT_GT(counters.refused, 1000U);
  EXPECT_EQ(counters.held, held.size());
  EXPECT_EQ(sum, 0U) << "the payload is untouched";
}

TEST(UntrustedRing, AnAreaTooSmallOrWithoutBellsIsNone) {
  alignas(64) static std::byte memory[kSessionHeaderBytes];
  const std::span<std::byte> area(memory);
  EXPECT_EQ(SessionConsumer::Create(area.first(4095), Doorbell::Create(), Doorbell::Create()),
            nullptr);
  EXPECT_EQ(SessionConsumer::Create(area, Doorbell(), Doorbell::Create()), nullptr);
  EXPECT_EQ(SessionProducer::Create(area.first(4095), Doorbell::Create(), Doorbell::Create()),
            nullptr);
  EXPECT_EQ(SessionProducer::Create(area, Doorbell::Create(), Doorbell()), nullptr);
  const auto producer = SessionProducer::Create(area, Doorbell::Create(), Doorbell::Create());
  ASSERT_NE(producer, nullptr);
  EXPECT_FALSE(producer->Divide(1, 8)) << "no payload area at all";
}

TEST(Window, AttachesOnlyToWhatCannotChangeItsSize) {
  const auto make = [](std::size_t size_bytes, int seals) {
    UniqueFd fd(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(ftruncate(fd.Get(), static_cast<off_t>(size_bytes)), 0);
    EXPECT_EQ(fcntl(fd.Get(), F_ADD_SEALS, seals), 0);
    return fd;
  };
  constexpr int kAll = F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;
  std::string error;
  for (const int missing : {kAll, F_SEAL_GROW, F_SEAL_SHRINK, F_SEAL_SEAL}) {
    EXPECT_EQ(SharedWindow::Attach(make(4096, kAll & ~missing), error), nullptr) << missing;
    EXPECT_EQ(error, "the shared window is not sealed: its size could change while it is mapped");
  }
  EXPECT_EQ(SharedWindow::Attach(UniqueFd(eventfd(0, EFD_CLOEXEC)), error), nullptr);
  EXPECT_EQ(SharedWindow::Attach(UniqueFd(), error), nullptr);
  EXPECT_EQ(SharedWindow::Attach(make(0, kAll), error), nullptr) << "nothing to map";
  EXPECT_EQ(SharedWindow::Attach(make(4096, kAll | F_SEAL_WRITE), error), nullptr);
  EXPECT_EQ(error.find("cannot map the shared window: "), 0U) << error;
  EXPECT_NE(SharedWindow::Attach(make(4096, kAll), error), nullptr);
  UniqueFd huge(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING | MFD_HUGETLB));
  if (!huge.IsOpen()) GTEST_SKIP() << "no huge pages in this kernel";
  ASSERT_EQ(ftruncate(huge.Get(), off_t{1} << 30), 0);
  ASSERT_EQ(fcntl(huge.Get(), F_ADD_SEALS, kAll), 0);
  EXPECT_EQ(SharedWindow::Attach(std::move(huge), error), nullptr);
  EXPECT_NE(error.find("huge pages"), std::string::npos) << error;
}

TEST(Window, AreasLieInsideAndAreClearedAlone) {
  std::string error;
  const auto window = SharedWindow::Create(std::size_t{3} * 4096, error);
  constexpr std::uint64_t kMost = UINT64_MAX;
  const struct {
    std::uint64_t offset, size, got;
  } rows[] = {{0, 12288, 12288}, {0, 12289, 0},     {12287, 1, 1}, {12287, 2, 0},
              {12288, 0, 0},     {12289, 0, 0},     {kMost, 1, 0}, {1, kMost, 0},
              {kMost, kMost, 0}, {4096, 8192, 8192}};
  for (const auto& row : rows) {
    EXPECT_EQ(window->Area(row.offset, row.size).size(), row.got) << row.offset << "+" << row.size;
  }
  std::fill_n(window->Base(), window->Size(), std::byte{1});
  window->Clear(window->Area(4096, 4096));
  for (std::size_t i = 0; i < window->Size(); ++i) {
    ASSERT_EQ(window->Base()[i], i / 4096 == 1 ? std::byte{0} : std::byte{1}) << i;
  }
}

}  // namespace
}  // namespace tessel::link
