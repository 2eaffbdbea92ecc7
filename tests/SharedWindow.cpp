// The window and the ring of a session, without host and plug-in. What a hostile end writes into a
// ring is the matter of the fuzz targets.
#include "SharedWindow.h"

#include <deque>
#include <random>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "SessionConsumer.h"
#include "SessionProducer.h"

namespace tessel::link {
namespace {

constexpr std::size_t kWindowBytes = std::size_t{1} << 20;
constexpr std::uint32_t kUnits = 20000;

class Ring : public ::testing::Test {
 protected:
  // Waits for slots, so that it loses nothing.
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
  const std::unique_ptr<SharedWindow> window = SharedWindow::Create(kWindowBytes, error);
  const std::span<std::byte> area = window->Area(0, kWindowBytes);
  const std::unique_ptr<SessionConsumer> consumer =
      SessionConsumer::Create(area, Doorbell(frames.Duplicate()), Doorbell(room.Duplicate()));
  const std::unique_ptr<SessionProducer> producer =
      SessionProducer::Create(area, Doorbell(frames.Duplicate()), Doorbell(room.Duplicate()));
};

// The consumer holds up to five frames, so that slots come back in another order than they went.
TEST_F(Ring, LosesAndReordersNothingOfAnUnpacedProducer) {
  ASSERT_TRUE(producer->PartitionSlots(4096, 7));
  std::deque<std::uint16_t> held;
  const auto consume = [&] {
    std::mt19937 random(5);
    for (std::uint32_t i = 0; i < kUnits; ++i) {
      FrameDescriptor frame = {};
      while (!consumer->Next(frame)) ASSERT_TRUE(consumer->Wait());
      ASSERT_EQ(std::tuple(frame.sequence, frame.size, frame.time_ns, frame.is_key),
                std::tuple(i, 1 + i % 4096, std::int64_t{i} << 32, i % 3 == 0 ? 1 : 0));
      const auto* bytes = consumer->Base() + frame.offset;
      ASSERT_EQ(bytes[0], static_cast<std::byte>(i));
      ASSERT_EQ(bytes[frame.size - 1], static_cast<std::byte>(i));
      held.insert(held.begin() + static_cast<std::ptrdiff_t>(random() % (held.size() + 1)),
                  frame.slot);
      for (; held.size() > random() % 6; held.pop_back()) consumer->ReleaseSlot(held.back());
    }
  };
  std::thread thread([this] { Produce(); });
  consume();
  producer->Interrupt();
  thread.join();
  const SessionCounters counters = consumer->Counters();
  EXPECT_EQ(counters.published, kUnits);
  EXPECT_EQ(counters.delivered, kUnits);
  EXPECT_EQ(counters.held, held.size());
  EXPECT_EQ(counters.dropped + counters.refused, 0U);
}

TEST_F(Ring, TakesSlotsBackFromAnyThread) {
  ASSERT_TRUE(producer->PartitionSlots(1, kMostSlots));
  for (int round = 0; round < 50; ++round) {
    std::vector<std::uint16_t> slots;
    FrameDescriptor frame = {};
    while (!producer->Reserve().empty()) {
      producer->Publish(1, 0, 0, false);
      ASSERT_TRUE(consumer->Next(frame));
      slots.push_back(frame.slot);
    }
    ASSERT_EQ(slots.size(), std::size_t{kMostSlots}) << "one was lost in round " << round;
    EXPECT_EQ(consumer->Counters().held, slots.size());
    const auto give_back = [&](std::size_t first) {
      for (std::size_t i = first; i < slots.size(); i += 2) consumer->ReleaseSlot(slots[i]);
    };
    std::thread other(give_back, 0);
    give_back(1);
    other.join();
    EXPECT_EQ(consumer->Counters().held, 0U);
  }
}

TEST(Slots, AreCutToFitTheArea) {
  std::string error;
  const auto window = SharedWindow::Create(kWindowBytes, error);
  const struct {
    std::size_t area_bytes, slot_bytes;
    int most;
    std::size_t slots;  // 0: refused
  } rows[] = {{kWindowBytes, 0, 8, 0},
              {kWindowBytes, 1, 99, 63},
              {kWindowBytes, 4097, 8, 8},
              {kWindowBytes, 100000, 63, 10},  // of 25 pages each, in 255
              {kWindowBytes, kWindowBytes / 2 - 4096, 63, 2},
              {kWindowBytes, kWindowBytes / 2, 63, 0},
              {kWindowBytes, SIZE_MAX, 63, 0},
              {kWindowBytes, 1, 1, 0},
              {kWindowBytes, 1, -1, 0},
              {kSessionHeaderBytes, 1, 8, 0}};
  for (const auto& [area_bytes, slot_bytes, most, slots] : rows) {
    const auto producer = SessionProducer::Create(window->Area(0, area_bytes), Doorbell::Create(),
                                                  Doorbell::Create());
    ASSERT_EQ(producer->PartitionSlots(slot_bytes, most), slots > 0) << slot_bytes;
    std::size_t count = 0;
    for (auto slot = producer->Reserve(); !slot.empty(); slot = producer->Reserve(), ++count) {
      EXPECT_GE(slot.size(), slot_bytes);
      const auto begin = reinterpret_cast<std::byte*>(slot.data()) - window->Base();
      EXPECT_LE(static_cast<std::size_t>(begin) + slot.size(), kWindowBytes);
      producer->Publish(0, 0, 0, false);
    }
    EXPECT_EQ(count, slots) << slot_bytes;
  }
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
  EXPECT_EQ(window->Area(4096, 8192).size(), 8192U);
  const std::pair<std::uint64_t, std::uint64_t> outside[] = {
      {0, 12289}, {12287, 2}, {12289, 0}, {UINT64_MAX, 1}, {1, UINT64_MAX}};
  for (const auto& [offset, size] : outside) {
    EXPECT_TRUE(window->Area(offset, size).empty()) << offset << "+" << size;
  }
  std::fill_n(window->Base(), window->Size(), std::byte{1});
  window->Clear(window->Area(4096, 4096));
  for (std::size_t i = 0; i < window->Size(); ++i) {
    ASSERT_EQ(window->Base()[i], i / 4096 == 1 ? std::byte{0} : std::byte{1}) << i;
  }
}

}  // namespace
}  // namespace tessel::link
