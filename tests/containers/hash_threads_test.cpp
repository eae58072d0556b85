// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Several threads on one hash table. The contents are checked here; data races are found by the thread sanitizer.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <thread>
#include <vector>

#include "containers/fixture.h"

using namespace tarn_test;

namespace {

constexpr int kThreads = 4;
constexpr int kEach = 400;  // elements of one thread
constexpr int kAll = kThreads * kEach;
constexpr uint32_t kBuckets = 16;

// A table, and elements for it: the first kAll of the threads, one thread's after the other's, and kEach more.
class HashThreads : public testing::Test {
 protected:
  HashThreads() {
    for (int i = 0; i < kAll + kEach; i++) elements_[i] = {{}, static_cast<uint32_t>(i * 7 + i / kEach) % kBuckets, i};
  }
  ~HashThreads() override { mu_hash_destroy(table_); }

  mu_lst_node *node(int i) { return &elements_[i].links; }

  // Runs `body(i)` for each element of each thread, in threads, and `meanwhile()` here repeatedly until all of them
  // have ended. Stuck threads cannot be joined: they end the test program.
  template <typename Body, typename Meanwhile>
  static void run_in_threads(const Body &body, const Meanwhile &meanwhile) {
    std::atomic<int> ended{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; thread++) {
      threads.emplace_back([&, thread] {
        for (int i = thread * kEach; i < (thread + 1) * kEach; i++) body(i);
        ended++;
      });
    }
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    do {
      meanwhile();
      if (std::chrono::steady_clock::now() > limit) abort();
      std::this_thread::yield();
    } while (ended < kThreads);
    for (std::thread &thread : threads) thread.join();
  }

  // Walks. Buckets must come in their order and, in a bucket, each thread's elements in the order of their adds.
  Numbers checked_walk() {
    std::vector<uint32_t> buckets;
    Numbers met = walk(table_, &buckets);
    EXPECT_TRUE(std::is_sorted(buckets.begin(), buckets.end()));
    std::array<int, kThreads + 1> latest{};
    uint32_t bucket = kBuckets;
    for (size_t i = 0; i < met.size(); i++) {
      if (buckets[i] != bucket) latest.fill(-1);
      bucket = buckets[i];
      EXPECT_EQ(elements_[met[i]].bucket, bucket);
      int &before = latest[static_cast<size_t>(met[i] / kEach)];
      EXPECT_LT(before, met[i]);
      before = met[i];
    }
    return met;
  }

  mu_hash *const table_ = mu_hash_create(kBuckets, bucket_of, compare);
  Element elements_[kAll + kEach];
};

}  // namespace

TEST_F(HashThreads, LoseNoAddAndAWalkMeetsAllThatWasThereOnceAndInOrder) {
  for (int i = kAll; i < kAll + kEach; i++) ASSERT_EQ(mu_hash_add(table_, node(i)), 0);
  run_in_threads([this](int i) { EXPECT_EQ(mu_hash_add(table_, node(i)), 0); },
                 [this] {
                   Numbers met = checked_walk();
                   std::sort(met.begin(), met.end());
                   EXPECT_EQ(std::adjacent_find(met.begin(), met.end()), met.end()) << "met twice";
                   EXPECT_EQ(met.end() - std::lower_bound(met.begin(), met.end(), kAll), kEach);
                 });
  Numbers all = checked_walk();
  std::sort(all.begin(), all.end());
  EXPECT_EQ(all, numbers_up_to(kAll + kEach));
  EXPECT_EQ(mu_hash_count(table_), size_t{kAll + kEach});
}

TEST_F(HashThreads, TakeEachElementOnce) {
  std::atomic<int> taken[kAll] = {};
  std::atomic<int> left{kAll};
  const auto take = [&] {
    const mu_lst_node *const got = mu_hash_get(table_);
    if (got == nullptr) return false;
    taken[number_of(got)]++;
    left--;
    return true;
  };
  run_in_threads(
      [&](int i) {
        EXPECT_EQ(mu_hash_add(table_, node(i)), 0);
        if (i % 3 != 0) take();  // the table fills
      },
      [] {});
  EXPECT_EQ(mu_hash_count(table_), static_cast<uint32_t>(left));
  run_in_threads([&](int) { take(); }, [] {});
  EXPECT_FALSE(take());
  for (const std::atomic<int> &times : taken) EXPECT_EQ(times.load(), 1);
  EXPECT_EQ(mu_hash_count(table_), 0u);
}

TEST_F(HashThreads, FindAndDeleteTheirOwn) {
  run_in_threads(
      [this](int i) {
        EXPECT_EQ(mu_hash_add(table_, node(i)), 0);
        EXPECT_EQ(mu_hash_find(table_, &elements_[i].number), node(i));
        if (i % 2 == 1) {
          EXPECT_EQ(mu_hash_del(table_, node(i)), 0);
        }
      },
      [] {});
  Numbers met = checked_walk();
  std::sort(met.begin(), met.end());
  Numbers even;
  for (int i = 0; i < kAll; i += 2) even.push_back(i);
  EXPECT_EQ(met, even);
  EXPECT_EQ(mu_hash_count(table_), even.size());
}

TEST_F(HashThreads, ReadACountThatNeverFallsWhileOthersAdd) {
  uint32_t before = 0;
  run_in_threads([this](int i) { EXPECT_EQ(mu_hash_add(table_, node(i)), 0); },
                 [this, &before] {
                   const uint32_t now = mu_hash_count(table_);
                   EXPECT_GE(now, before);
                   EXPECT_LE(now, size_t{kAll});
                   before = now;
                 });
  EXPECT_EQ(mu_hash_count(table_), size_t{kAll});
}
