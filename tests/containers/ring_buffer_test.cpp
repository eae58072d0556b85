// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The ring buffer of 64-bit values: each field after each call, the state after a failure, and a comparison with a
// queue.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
#include <vector>

#include "containers/fixture.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/random.h"
#include "support/thinning.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

using Values = std::vector<uint64_t>;

constexpr uint64_t kMarks = 0xa5a5a5a5a5a5a5a5;

// No call releases a ring buffer; its two blocks come from mu_malloc.
void release(mu_rbuf *rb) {
  mu_free(rb->slots);
  mu_free(rb);
}

class RingBuffer : public testing::Test {
 protected:
  ~RingBuffer() override { create(0); }

  // Replaces the buffer; 0 makes none.
  void create(int size) {
    if (rb_ != nullptr) release(rb_);
    rb_ = mu_rbuf_create(size);
    ASSERT_EQ(rb_ != nullptr, size > 0);
  }

  mu_status_t write(uint64_t value) { return mu_rbuf_write(rb_, value); }
  uint64_t read() {
    uint64_t value = kMarks;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    return value;
  }
  void expect_no_value() {
    uint64_t value = kMarks;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 1);
    EXPECT_EQ(value, 0u);
  }

  void expect_fields(uint64_t rd, uint32_t wr, uint32_t full) const {
    EXPECT_EQ(rb_->rd, rd);
    EXPECT_EQ(rb_->wr, wr);
    EXPECT_EQ(rb_->full, full);
  }

  Values slots() const { return {rb_->slots, rb_->slots + rb_->size}; }

  // The bytes of the record and of the slots.
  std::vector<uint8_t> image() const {
    const auto *const record = reinterpret_cast<const uint8_t *>(rb_);
    const auto *const values = reinterpret_cast<const uint8_t *>(rb_->slots);
    std::vector<uint8_t> bytes(record, record + sizeof *rb_);
    bytes.insert(bytes.end(), values, values + rb_->size * sizeof(uint64_t));
    return bytes;
  }

  mu_rbuf *rb_ = nullptr;
};

using RingBufferCreate = RingBuffer;
using RingBufferWrite = RingBuffer;
using RingBufferRead = RingBuffer;

}  // namespace

// ---- Creation -------------------------------------------------------------------------------------------------------

TEST_F(RingBufferCreate, MakesAnEmptyBuffer) {
  const MarkedMemory marked;
  for (const int size : {1, 2, 3, 5, 7, 64, 100, 1000}) {
    SCOPED_TRACE(size);
    create(size);
    expect_fields(0, 0, 0);
    EXPECT_EQ(rb_->size, static_cast<uint32_t>(size));
    ASSERT_NE(rb_->slots, nullptr);
    EXPECT_EQ(slots(), Values(static_cast<size_t>(size), 0));
  }
}

TEST_F(RingBufferCreate, AsksForTheRecordAndThenForEightBytesASlot) {
  const NotedSizes noted;
  create(7);
  EXPECT_EQ(noted.sizes, (std::vector<size_t>{32, 56}));
}

TEST_F(RingBufferCreate, GivesTwoBlocksThatTheOwnerFrees) {
  const HeapWatch heap;
  mu_rbuf *const rb = mu_rbuf_create(9);
  EXPECT_EQ(heap.live(), 2u);
  const std::vector<void *> blocks{rb->slots, rb};
  release(rb);
  EXPECT_EQ(heap.freed(), blocks);
  EXPECT_EQ(heap.live(), 0u);
}

TEST_F(RingBufferCreate, RefusesASizeOfZeroOrLessWithoutAllocating) {
  const FailingMalloc watched(INT_MAX);  // only counts, nothing fails
  for (const int size : {0, -1, -2, -8, -0x20000000, INT_MIN / 8, INT_MIN}) {
    EXPECT_EQ(mu_rbuf_create(size), nullptr) << size;
  }
  EXPECT_EQ(watched.seen(), 0);
}

TEST_F(RingBufferCreate, FreesWhatItHasWhenMemoryRunsOut) {
  for (const int nth : {1, 2}) {  // the record; the slots
    SCOPED_TRACE(nth);
    const HeapWatch heap;
    const FailingMalloc no_memory(nth, 1000);
    EXPECT_EQ(mu_rbuf_create(4), nullptr);
    EXPECT_EQ(no_memory.seen(), nth);
    EXPECT_EQ(heap.freed().size(), static_cast<size_t>(nth) - 1);
    EXPECT_EQ(heap.live(), 0u);
  }
}

// 268435455 slots of 8 bytes are the most whose size fits an int. With 0x20000001 it would wrap to 8 in 32 bits.
TEST_F(RingBufferCreate, RefusesSlotsWhoseSizePassesAnInt) {
  constexpr int kLargest = 268435455;
  for (const int size :
       {kLargest, kLargest + 1, kLargest + 2, 0x20000000, 0x20000001, 0x40000000, 0x40000001, INT_MAX}) {
    SCOPED_TRACE(size);
    const HeapWatch heap;
    const NotedSizes noted;
    EXPECT_EQ(mu_rbuf_create(size), nullptr);  // the largest only because there is no memory
    std::vector<size_t> expected{32};
    if (size == kLargest) expected.push_back(0x7ffffff8);
    EXPECT_EQ(noted.sizes, expected);
    EXPECT_EQ(heap.freed().size(), 1u);
    EXPECT_EQ(heap.live(), 0u);
  }
}

// ---- Writing --------------------------------------------------------------------------------------------------------

TEST_F(RingBufferWrite, FillsEverySlotAndTurnsFull) {
  for (uint32_t size = 1; size <= 9; size++) {
    SCOPED_TRACE(size);
    create(static_cast<int>(size));
    for (uint32_t i = 0; i < size; i++) {
      EXPECT_EQ(write(100 + i), 0);
      EXPECT_EQ(rb_->slots[i], 100 + i);
      expect_fields(0, (i + 1) % size, i + 1 == size ? 1 : 0);
    }
  }
}

TEST_F(RingBufferWrite, RefusesWhenFullAndChangesNothing) {
  for (int size = 1; size <= 9; size++) {
    for (int start = 0; start < size; start++) {
      SCOPED_TRACE(testing::Message() << size << " from " << start);
      create(size);
      for (int i = 0; i < start; i++) {
        write(1);
        read();
      }
      for (int i = 0; i < size; i++) EXPECT_EQ(write(200), 0);
      const std::vector<uint8_t> before = image();
      EXPECT_EQ(write(300), 1);
      EXPECT_EQ(image(), before);
    }
  }
}

TEST_F(RingBufferWrite, RefusesANullBuffer) { EXPECT_EQ(mu_rbuf_write(nullptr, 1), 1); }

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(RingBufferRead, GivesAll64BitsOfWhatWasWrittenInOrder) {
  create(4);
  const Values values{0, UINT64_MAX, 0x8000000000000000, 0x0123456789abcdef};
  for (const uint64_t value : values) EXPECT_EQ(write(value), 0);
  for (const uint64_t value : values) EXPECT_EQ(read(), value);
}

TEST_F(RingBufferRead, StoresZeroForAnEmptyBufferAndChangesNothing) {
  create(3);
  for (int round = 0; round < 4; round++) {
    SCOPED_TRACE(round);
    const std::vector<uint8_t> before = image();
    expect_no_value();
    EXPECT_EQ(image(), before);
    write(7);  // in the next round the indices meet one slot later
    read();
  }
}

TEST_F(RingBufferRead, StoresZeroForANullBuffer) {
  uint64_t value = kMarks;
  EXPECT_EQ(mu_rbuf_read(nullptr, &value), 1);
  EXPECT_EQ(value, 0u);
}

TEST_F(RingBufferRead, ZeroesTheSlotAndAdvancesUntilTheIndicesAreAtTheirStart) {
  for (uint64_t size = 1; size <= 9; size++) {
    SCOPED_TRACE(size);
    create(static_cast<int>(size));
    for (uint64_t i = 0; i < size; i++) write(10 + i);
    for (uint64_t i = 0; i < size; i++) {
      EXPECT_EQ(read(), 10 + i);
      expect_fields((i + 1) % size, 0, i + 1 == size ? 0 : 1);
      for (uint64_t slot = 0; slot < size; slot++) EXPECT_EQ(rb_->slots[slot], slot <= i ? 0 : 10 + slot);
    }
    expect_no_value();
  }
}

// ---- The flag -------------------------------------------------------------------------------------------------------

TEST_F(RingBuffer, KeepsTheFullFlagUntilTheIndicesMeetAgain) {
  create(3);
  for (const uint64_t value : {1u, 2u, 3u}) write(value);
  read();
  EXPECT_EQ(rb_->full, 1u) << "not full any more";
  read();
  EXPECT_EQ(rb_->full, 1u);
  EXPECT_EQ(write(4), 0);
  read();
  EXPECT_EQ(rb_->full, 1u);
  read();
  EXPECT_EQ(rb_->full, 0u) << "they met: empty";
}

TEST_F(RingBuffer, LooksAtTheFullFlagOnlyWhenTheIndicesMeet) {
  create(3);
  for (uint64_t i = 0; i < 3; i++) write(i);
  read();
  EXPECT_EQ(write(3), 0) << "one slot is free, whatever the flag";
  EXPECT_EQ(write(4), 1);
  for (uint64_t i = 1; i <= 3; i++) {
    rb_->full = i == 1 ? 1 : 0;  // the second and the third value are readable without it
    EXPECT_EQ(read(), i);
  }
  expect_no_value();
}

TEST_F(RingBuffer, OfOneSlotTurnsFullAndEmptyByEachCall) {
  create(1);
  for (uint64_t round = 1; round <= 3; round++) {
    SCOPED_TRACE(round);
    EXPECT_EQ(write(round), 0);
    expect_fields(0, 0, 1);
    EXPECT_EQ(write(99), 1);
    EXPECT_EQ(read(), round);
    expect_fields(0, 0, 0);
    expect_no_value();
  }
}

// ---- The whole ------------------------------------------------------------------------------------------------------

TEST_F(RingBuffer, StaysInItsSlotsAndItsRecord) {
  for (const Guarded::End end : kEnds) {
    for (uint32_t size = 1; size <= 5; size++) {
      const Guarded slots(size * sizeof(uint64_t), end);
      const Guarded record(sizeof(mu_rbuf), end);
      auto *const rb = reinterpret_cast<mu_rbuf *>(record.bytes());
      rb->size = size;
      rb->slots = reinterpret_cast<uint64_t *>(slots.bytes());
      uint64_t value = 0;
      for (uint32_t i = 0; i < 4 * size; i++) {
        for (uint32_t writes = 0; writes <= size; writes++) mu_rbuf_write(rb, i);
        EXPECT_EQ(mu_rbuf_read(rb, &value), 0);
      }
      for (uint32_t reads = 0; reads <= size; reads++) mu_rbuf_read(rb, &value);
      EXPECT_EQ(rb->size, size);
    }
  }
}

TEST_F(RingBuffer, PrintsNothingAndAllocatesNothingAfterCreation) {
  Console console;
  create(2);
  {
    const FailingMalloc no_memory(1, 1000);
    uint64_t value = 0;
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 1);
    for (int i = 0; i < 3; i++) write(1);
    EXPECT_EQ(mu_rbuf_read(rb_, &value), 0);
    EXPECT_EQ(mu_rbuf_write(nullptr, 1), 1);
    EXPECT_EQ(mu_rbuf_read(nullptr, &value), 1);
    EXPECT_EQ(mu_rbuf_create(0), nullptr);
    EXPECT_EQ(no_memory.seen(), 0);
    EXPECT_EQ(mu_rbuf_create(1), nullptr);
  }
  EXPECT_EQ(console.take(), "");
}

namespace {

// A ring and a queue that are given the same calls.
class RingBufferModel : public RingBuffer {
 protected:
  void start(int size) {
    create(size);
    size_ = static_cast<size_t>(size);
    queue_.clear();
    written_ = 0;
    read_ = 0;
  }

  void write_both(uint64_t value) {
    const bool fits = queue_.size() < size_;
    ASSERT_EQ(mu_rbuf_write(rb_, value), fits ? 0 : 1);
    if (!fits) return;
    queue_.push_back(value);
    written_++;
  }

  void read_both() {
    uint64_t value = kMarks;
    ASSERT_EQ(mu_rbuf_read(rb_, &value), queue_.empty() ? 1 : 0);
    ASSERT_EQ(value, queue_.empty() ? 0 : queue_.front());
    if (queue_.empty()) return;
    queue_.pop_front();
    read_++;
  }

  // The indices by the number of calls that succeeded.
  void expect_indices() const {
    ASSERT_EQ(rb_->rd, read_ % size_);
    ASSERT_EQ(rb_->wr, written_ % size_);
    ASSERT_EQ(rb_->size, size_);
    if (rb_->rd == rb_->wr) {
      ASSERT_EQ(rb_->full, queue_.empty() ? 0u : 1u);
    }
  }

  // Every slot that holds no value is 0.
  void expect_slots() const {
    for (size_t i = 0; i < size_; i++) {
      ASSERT_EQ(rb_->slots[(read_ + i) % size_], i < queue_.size() ? queue_[i] : 0);
    }
  }

 private:
  size_t size_ = 0;
  std::deque<uint64_t> queue_;
  size_t written_ = 0;
  size_t read_ = 0;
};

}  // namespace

TEST_F(RingBufferModel, AgreesWithAQueueOverEverySeriesOfTwelveCalls) {
  for (int size = 1; size <= 5; size++) {
    for (unsigned calls = 0; calls < 1u << 12; calls++) {
      SCOPED_TRACE(testing::Message() << size << " slots, calls " << calls);
      start(size);
      for (unsigned i = 0; i < 12; i++) {
        (calls >> i) % 2 == 0 ? write_both(i + 1) : read_both();
        if (HasFatalFailure()) return;
      }
      expect_indices();
      expect_slots();
      if (HasFatalFailure()) return;
    }
  }
}

// Phases in which writes or reads prevail: the ring becomes full and empty, and wraps many times.
TEST_F(RingBufferModel, AgreesWithAQueueForCapacitiesFrom1To70) {
  for (int size = 1; size <= 70; size += kThinning) {
    Random random(static_cast<uint64_t>(size));
    start(size);
    for (int step = 0; step < 1000; step++) {
      SCOPED_TRACE(testing::Message() << size << " slots, step " << step);
      const bool mostly_writes = step / 100 % 2 == 0;
      const bool writes = (random.below(8) == 0) != mostly_writes;
      writes ? write_both(random.number()) : read_both();
      expect_indices();
      if (step % 16 == 0) expect_slots();
      if (HasFatalFailure()) return;
    }
  }
}
