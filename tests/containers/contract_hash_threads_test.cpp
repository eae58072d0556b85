// The hash table under several threads, and against plain sequences.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <numeric>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "containers/contract_hash.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/containers.h"

using namespace tarn_test;
using namespace tarn_test::hash_contract;

// ---- Threads --------------------------------------------------------------------------------------------------------

namespace {

constexpr uint32_t kBuckets = 7;
constexpr int kThreads = 4;
constexpr int kEach = 300;  // elements of each thread
constexpr int kAll = kThreads * kEach;

uint32_t bucket_for(int number) { return static_cast<uint32_t>(number) % kBuckets; }

class HashThreadsContract : public testing::Test {
 protected:
  HashThreadsContract() : table_(mu_hash_create(kBuckets, bucket_of, compare)) {
    for (int i = 0; i < kAll; i++) elements_[i] = {{nullptr, nullptr}, bucket_for(i), i};
  }
  ~HashThreadsContract() override { mu_hash_destroy(table_); }

  mu_lst_node *node(int i) { return &elements_[i].links; }

  // Runs `body` for each thread's elements, on threads.
  template <typename Body>
  static std::vector<std::thread> each_thread(Body body) {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; t++) threads.emplace_back(body, t * kEach, (t + 1) * kEach);
    return threads;
  }

  static void join(std::vector<std::thread> threads) {
    for (std::thread &thread : threads) thread.join();
  }

  void add(int from, int to) {
    for (int i = from; i < to; i++) EXPECT_EQ(mu_hash_add(table_, node(i)), 0);
  }

  mu_hash *const table_;
  Element elements_[kAll];
};

}  // namespace

TEST_F(HashThreadsContract, LoseNoAdd) {
  join(each_thread([this](int from, int to) { add(from, to); }));
  EXPECT_EQ(mu_hash_count(table_), size_t{kAll});
  Numbers met = walk(table_);
  // In a bucket each thread's elements are in the order of its adds.
  std::map<std::pair<uint32_t, int>, int> last;
  for (const int number : met) {
    int &before = last.try_emplace({bucket_for(number), number / kEach}, -1).first->second;
    EXPECT_LT(before, number);
    before = number;
  }
  std::sort(met.begin(), met.end());
  Numbers all(kAll);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(met, all);
}

TEST_F(HashThreadsContract, TakeEachElementOnce) {
  std::atomic<int> taken[kAll] = {};
  add(0, kAll / 2);  // the rest comes while they take
  std::thread adder([this] { add(kAll / 2, kAll); });
  std::atomic<int> left(kAll);
  join(each_thread([this, &taken, &left](int, int) {
    while (left.load() > 0) {
      const mu_lst_node *const got = mu_hash_get(table_);
      if (got == nullptr) {
        std::this_thread::yield();
        continue;
      }
      taken[number_of(got)]++;
      left--;
    }
  }));
  adder.join();
  for (const std::atomic<int> &times : taken) EXPECT_EQ(times.load(), 1);
  EXPECT_EQ(mu_hash_count(table_), 0u);
}

TEST_F(HashThreadsContract, DeleteAndFindTheirOwn) {
  join(each_thread([this](int from, int to) {
    for (int i = from; i < to; i++) {
      EXPECT_EQ(mu_hash_add(table_, node(i)), 0);
      if (i % 10 == 0) {
        EXPECT_EQ(mu_hash_find(table_, &elements_[i].number), node(i));
      }
      if (i % 2 == 1) {
        EXPECT_EQ(mu_hash_del(table_, node(i)), 0);
      }
    }
  }));
  Numbers met = walk(table_);
  std::sort(met.begin(), met.end());
  Numbers even;
  for (int i = 0; i < kAll; i += 2) even.push_back(i);
  EXPECT_EQ(met, even);
  EXPECT_EQ(mu_hash_count(table_), even.size());
}

TEST_F(HashThreadsContract, WalkOverAllThatWasThereWhileOthersAdd) {
  add(0, kEach);
  std::vector<std::thread> adders;
  for (int t = 1; t < kThreads; t++) adders.emplace_back([this, t] { add(t * kEach, (t + 1) * kEach); });
  for (int round = 0; round < 5; round++) {
    std::vector<uint32_t> buckets;
    const Numbers met = walk(table_, &buckets);
    EXPECT_TRUE(std::is_sorted(buckets.begin(), buckets.end()));
    int times[kAll] = {};
    for (const int number : met) times[number]++;
    for (int i = 0; i < kAll; i++) {
      ASSERT_GE(times[i], i < kEach ? 1 : 0) << i;
      ASSERT_LE(times[i], 1) << i;
    }
  }
  join(std::move(adders));
  EXPECT_EQ(walk(table_).size(), size_t{kAll});
}

TEST_F(HashThreadsContract, ReadACountThatGrowsWhileOthersAdd) {
  std::atomic<bool> done(false);
  std::thread reader([this, &done] {
    uint32_t before = 0;
    while (!done.load()) {
      const uint32_t now = mu_hash_count(table_);
      EXPECT_GE(now, before);
      EXPECT_LE(now, size_t{kAll});
      before = now;
      std::this_thread::yield();
    }
  });
  join(each_thread([this](int from, int to) { add(from, to); }));
  done = true;
  reader.join();
  EXPECT_EQ(mu_hash_count(table_), size_t{kAll});
}

// ---- The whole ------------------------------------------------------------------------------------------------------

TEST(HashModelContract, AgreesWithPlainSequencesOverRandomCalls) {
  constexpr int kElements = 24;
  for (const uint32_t size : {1u, 2u, 5u}) {
    SCOPED_TRACE(testing::Message() << size << " buckets");
    std::mt19937 random(size);
    mu_hash *const table = mu_hash_create(size, bucket_of, compare);
    Element elements[kElements] = {};
    bool in[kElements] = {};
    std::vector<Numbers> model(size);  // a sequence for each bucket
    const auto take = [&](uint32_t bucket, int number) {
      std::erase(model[bucket], number);
      in[number] = false;
    };
    for (int step = 0; step < 1500; step++) {
      SCOPED_TRACE(testing::Message() << "step " << step);
      const auto number = static_cast<int>(random() % kElements);
      Element &element = elements[number];
      const auto choice = random() % 8;
      if (choice == 0) {
        int expected = -1;
        for (const Numbers &bucket : model) {
          if (expected == -1 && !bucket.empty()) expected = bucket.front();
        }
        const mu_lst_node *const got = mu_hash_get(table);
        ASSERT_EQ(got, expected == -1 ? nullptr : &elements[expected].links);
        if (got != nullptr) take(elements[expected].bucket, expected);
      } else if (choice == 1) {
        ASSERT_EQ(mu_hash_find(table, &number), in[number] ? &element.links : nullptr);
      } else if (in[number]) {
        ASSERT_EQ(mu_hash_del(table, &element.links), 0);
        take(element.bucket, number);
      } else {
        element = {{nullptr, nullptr}, static_cast<uint32_t>(random() % (size + 1)), number};
        ASSERT_EQ(mu_hash_add(table, &element.links), element.bucket < size ? 0 : -1);
        if (element.bucket == size) continue;
        in[number] = true;
        model[element.bucket].push_back(number);
      }
      Numbers all;
      std::vector<uint32_t> of;
      for (uint32_t bucket = 0; bucket < size; bucket++) {
        all.insert(all.end(), model[bucket].begin(), model[bucket].end());
        of.insert(of.end(), model[bucket].size(), bucket);
      }
      std::vector<uint32_t> buckets;
      ASSERT_EQ(walk(table, &buckets), all);
      ASSERT_EQ(buckets, of);
      ASSERT_EQ(mu_hash_count(table), all.size());
    }
    mu_hash_destroy(table);
  }
}

TEST(HashQuietContract, PrintsNothingAndAllocatesNothingAfterCreation) {
  Console console;
  mu_hash *const table = mu_hash_create(2, bucket_of, compare);
  Element elements[2] = {{{}, 0, 1}, {{}, 9, 2}};
  {
    const FailingMalloc no_memory(1, 1000);
    EXPECT_EQ(mu_hash_add(table, &elements[0].links), 0);
    EXPECT_EQ(mu_hash_add(table, &elements[1].links), -1);
    EXPECT_EQ(walk(table), Numbers{1});
    const int key = 1;
    EXPECT_EQ(mu_hash_find(table, &key), &elements[0].links);
    EXPECT_EQ(mu_hash_del(table, &elements[0].links), 0);
    EXPECT_EQ(mu_hash_get(table), nullptr);
    EXPECT_EQ(no_memory.seen(), 0);
    EXPECT_EQ(mu_hash_create(1, bucket_of, compare), nullptr);
    EXPECT_EQ(mu_hash_destroy(nullptr), 1);
  }
  mu_hash_destroy(table);
  EXPECT_EQ(console.take(), "");
}
