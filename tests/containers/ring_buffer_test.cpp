// The ring buffer of 64-bit values, against a queue.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <vector>

#include "support/heap.h"
#include "support/libc.h"
#include "support/thinning.h"
#include "tarn/containers.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

struct Freed {
  void operator()(mu_rbuf *rb) const {
    mu_free(rb->slots);
    mu_free(rb);
  }
};
using OwnedRing = std::unique_ptr<mu_rbuf, Freed>;

OwnedRing ring_of(int size) { return OwnedRing(mu_rbuf_create(size)); }

std::vector<uint64_t> slots_of(const OwnedRing &rb) { return {rb->slots, rb->slots + rb->size}; }

uint64_t read(const OwnedRing &rb) {
  uint64_t value = 0xDEAD;
  EXPECT_EQ(mu_rbuf_read(rb.get(), &value), 0);
  return value;
}

// A ring and a queue, given the same calls.
class Pair {
 public:
  explicit Pair(int size) : size_(static_cast<size_t>(size)), rb_(ring_of(size)) {}

  void write(uint64_t value) {
    const bool fits = queue_.size() < size_;
    ASSERT_EQ(mu_rbuf_write(rb_.get(), value), fits ? 0 : 1);
    if (!fits) return;
    queue_.push_back(value);
    written_++;
  }

  void read() {
    uint64_t value = 0xDEAD;
    ASSERT_EQ(mu_rbuf_read(rb_.get(), &value), queue_.empty() ? 1 : 0);
    ASSERT_EQ(value, queue_.empty() ? 0 : queue_.front());
    if (queue_.empty()) return;
    queue_.pop_front();
    read_++;
  }

  // The indices by the number of calls that succeeded, and every slot that holds no value is 0.
  void expect_fields() const {
    ASSERT_EQ(rb_->rd, read_ % size_);
    ASSERT_EQ(rb_->wr, written_ % size_);
    if (rb_->rd == rb_->wr) {
      ASSERT_EQ(rb_->full, queue_.empty() ? 0u : 1u);
    }
    for (size_t i = 0; i < size_; i++) {
      const size_t slot = (read_ + i) % size_;
      ASSERT_EQ(rb_->slots[slot], i < queue_.size() ? queue_[i] : 0);
    }
  }

 private:
  size_t size_;
  OwnedRing rb_;
  std::deque<uint64_t> queue_;
  size_t written_ = 0;
  size_t read_ = 0;
};

}  // namespace

TEST(RingBufferCreate, MakesAnEmptyBuffer) {
  // Memory that is not zero by chance.
  const Replace malloc(libc::malloc, [](size_t bytes) {
    void *block = libc::malloc.real(bytes);
    return block == nullptr ? block : memset(block, 0xA5, bytes);
  });
  for (const int size : {1, 2, 3, 64, 1000}) {
    SCOPED_TRACE(size);
    const OwnedRing rb = ring_of(size);
    ASSERT_NE(rb, nullptr);
    EXPECT_EQ(rb->rd, 0u);
    EXPECT_EQ(rb->wr, 0u);
    EXPECT_EQ(rb->size, static_cast<uint32_t>(size));
    EXPECT_EQ(rb->full, 0u);
    ASSERT_NE(rb->slots, nullptr);
    EXPECT_EQ(slots_of(rb), std::vector<uint64_t>(static_cast<size_t>(size), 0));
  }
}

TEST(RingBufferCreate, AsksForTheBufferThenForEightBytesASlot) {
  std::vector<size_t> sizes;
  const Replace malloc(libc::malloc, [&](size_t bytes) {
    sizes.push_back(bytes);
    return libc::malloc.real(bytes);
  });
  const OwnedRing rb = ring_of(7);
  EXPECT_EQ(sizes, (std::vector<size_t>{32, 56}));
}

TEST(RingBufferCreate, RefusesASizeOfZeroOrLessWithoutAllocating) {
  const FailingMalloc memory(INT_MAX);  // fails nothing, counts
  for (const int size : {0, -1, -8, INT_MIN}) {
    SCOPED_TRACE(size);
    EXPECT_EQ(mu_rbuf_create(size), nullptr);
  }
  EXPECT_EQ(memory.seen(), 0);
}

TEST(RingBufferCreate, GivesNullWhenThereIsNoMemoryForTheBuffer) {
  const HeapWatch heap;
  const FailingMalloc memory(1);
  EXPECT_EQ(mu_rbuf_create(4), nullptr);
  EXPECT_EQ(memory.seen(), 1);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(RingBufferCreate, FreesTheBufferWhenThereIsNoMemoryForTheSlots) {
  const HeapWatch heap;
  const FailingMalloc memory(2);
  EXPECT_EQ(mu_rbuf_create(4), nullptr);
  EXPECT_EQ(memory.seen(), 2);
  EXPECT_EQ(heap.freed().size(), 1u);
  EXPECT_EQ(heap.live(), 0u);
}

// 268435455 slots of 8 bytes are the most whose size fits an int. From 0x20000000 on the product would wrap to a small
// number.
TEST(RingBufferCreate, RefusesSlotsWhoseSizePassesAnInt) {
  const struct {
    int size;
    bool asks_for_slots;
  } rows[] = {{268435455, true}, {268435456, false}, {0x20000000, false}, {0x20000001, false}, {INT_MAX, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.size);
    const HeapWatch heap;
    const FailingMalloc memory(2, INT_MAX - 2);
    EXPECT_EQ(mu_rbuf_create(row.size), nullptr);
    EXPECT_EQ(memory.seen(), row.asks_for_slots ? 2 : 1);
    EXPECT_EQ(heap.freed().size(), 1u);
    EXPECT_EQ(heap.live(), 0u);
  }
}

TEST(RingBuffer, GivesBackWhatWasWrittenInOrder) {
  const OwnedRing rb = ring_of(3);
  for (const uint64_t value : {uint64_t{0}, UINT64_MAX, UINT64_C(0x0123456789ABCDEF)}) {
    EXPECT_EQ(mu_rbuf_write(rb.get(), value), 0);
  }
  EXPECT_EQ(read(rb), 0u);
  EXPECT_EQ(read(rb), UINT64_MAX);
  EXPECT_EQ(read(rb), UINT64_C(0x0123456789ABCDEF));
}

TEST(RingBuffer, OfOneSlotIsFullAfterOneWriteAndEmptyAfterOneRead) {
  const OwnedRing rb = ring_of(1);
  uint64_t value = 0xDEAD;
  EXPECT_EQ(mu_rbuf_write(rb.get(), 7), 0);
  EXPECT_EQ(mu_rbuf_write(rb.get(), 8), 1);
  EXPECT_EQ(read(rb), 7u);
  EXPECT_EQ(mu_rbuf_read(rb.get(), &value), 1);
  EXPECT_EQ(mu_rbuf_write(rb.get(), 9), 0);
  EXPECT_EQ(read(rb), 9u);
}

TEST(RingBuffer, RefusesAWriteWhenFullAndChangesNothing) {
  const OwnedRing rb = ring_of(3);
  for (const uint64_t value : {1u, 2u, 3u}) mu_rbuf_write(rb.get(), value);
  const mu_rbuf before = *rb;
  const auto slots = slots_of(rb);
  EXPECT_EQ(mu_rbuf_write(rb.get(), 4), 1);
  EXPECT_EQ(memcmp(rb.get(), &before, sizeof before), 0);
  EXPECT_EQ(slots_of(rb), slots);
}

TEST(RingBuffer, StoresZeroForAReadWhenEmpty) {
  const OwnedRing rb = ring_of(3);
  const mu_rbuf before = *rb;
  uint64_t value = 0xDEAD;
  EXPECT_EQ(mu_rbuf_read(rb.get(), &value), 1);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(memcmp(rb.get(), &before, sizeof before), 0);
}

TEST(RingBuffer, AnswersANullBuffer) {
  uint64_t value = 0xDEAD;
  EXPECT_EQ(mu_rbuf_write(nullptr, 1), 1);
  EXPECT_EQ(mu_rbuf_read(nullptr, &value), 1);
  EXPECT_EQ(value, 0u);
}

TEST(RingBuffer, ZeroesTheSlotThatItReads) {
  const OwnedRing rb = ring_of(3);
  for (const uint64_t value : {1u, 2u, 3u}) mu_rbuf_write(rb.get(), value);
  read(rb);
  EXPECT_EQ(slots_of(rb), (std::vector<uint64_t>{0, 2, 3}));
}

TEST(RingBuffer, IsEmptyWithItsIndicesAtTheirStartAfterARound) {
  const OwnedRing rb = ring_of(5);
  for (uint64_t value = 0; value < 5; value++) EXPECT_EQ(mu_rbuf_write(rb.get(), value), 0);
  EXPECT_EQ(rb->full, 1u);
  EXPECT_EQ(rb->wr, 0u);
  for (uint64_t value = 0; value < 5; value++) EXPECT_EQ(read(rb), value);
  EXPECT_EQ(rb->rd, 0u);
  EXPECT_EQ(rb->wr, 0u);
  EXPECT_EQ(rb->full, 0u);
}

TEST(RingBuffer, KeepsTheFullFlagUntilTheIndicesMeetAgain) {
  const OwnedRing rb = ring_of(3);
  for (const uint64_t value : {1u, 2u, 3u}) mu_rbuf_write(rb.get(), value);
  read(rb);
  EXPECT_EQ(rb->full, 1u);  // not full any more
  read(rb);
  EXPECT_EQ(rb->full, 1u);
  EXPECT_EQ(mu_rbuf_write(rb.get(), 4), 0);
  read(rb);
  EXPECT_EQ(rb->full, 1u);
  read(rb);
  EXPECT_EQ(rb->full, 0u);  // they met: empty
}

TEST(RingBuffer, LooksAtTheFullFlagOnlyWhenTheIndicesMeet) {
  const OwnedRing rb = ring_of(2);
  mu_rbuf_write(rb.get(), 1);
  rb->full = 1;
  EXPECT_EQ(mu_rbuf_write(rb.get(), 2), 0);
  EXPECT_EQ(read(rb), 1u);
  rb->full = 0;
  EXPECT_EQ(read(rb), 2u);
  EXPECT_EQ(rb->full, 0u);
}

TEST(RingBuffer, NeedsNoMemoryOnceItStands) {
  const OwnedRing rb = ring_of(2);
  const FailingMalloc memory(INT_MAX);  // fails nothing, counts
  mu_rbuf_write(rb.get(), 1);
  read(rb);
  EXPECT_EQ(memory.seen(), 0);
}

TEST(RingBufferModel, AgreesWithAQueueOverEverySeriesOfTwelveCalls) {
  for (int size = 1; size <= 5; size++) {
    for (unsigned calls = 0; calls < 1u << 12; calls++) {
      SCOPED_TRACE(testing::Message() << size << " slots, calls " << calls);
      Pair pair(size);
      for (unsigned i = 0; i < 12; i++) {
        (calls >> i) % 2 == 0 ? pair.write(i + 1) : pair.read();
        if (testing::Test::HasFatalFailure()) return;
      }
      pair.expect_fields();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

// Phases in which writes or reads prevail: the ring gets full and empty, and turns over many times.
TEST(RingBufferModel, AgreesWithAQueueForCapacitiesFrom1To70) {
  for (int size = 1; size <= 70; size += kThinning) {
    std::mt19937_64 random(static_cast<uint64_t>(size));
    Pair pair(size);
    for (int step = 0; step < 1000; step++) {
      SCOPED_TRACE(testing::Message() << size << " slots, step " << step);
      const bool mostly_writes = step / 100 % 2 == 0;
      const bool writes = (random() % 8 == 0) != mostly_writes;
      writes ? pair.write(random()) : pair.read();
      if (step % 16 == 0) pair.expect_fields();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}
