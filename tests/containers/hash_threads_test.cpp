// Several threads on one hash table. What must hold of the contents is checked here; that the calls do not race is for
// the thread sanitizer to see.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "containers/hash_element.h"
#include "tarn/containers.h"

using namespace tarn_test;

namespace {

constexpr size_t kThreads = 4;
constexpr size_t kEach = 400;  // elements of one thread
constexpr uint32_t kBuckets = 16;

// The elements of a thread; their keys tell the thread and the order.
std::vector<Element> elements_of(size_t thread) {
  std::vector<Element> elements(kEach);
  for (size_t i = 0; i < kEach; i++) {
    elements[i].bucket = static_cast<uint32_t>(i * 7 + thread) % kBuckets;
    elements[i].key = static_cast<int>(thread * kEach + i);
  }
  return elements;
}

std::vector<std::vector<Element>> elements_of_all() {
  std::vector<std::vector<Element>> all;
  for (size_t thread = 0; thread < kThreads; thread++) all.push_back(elements_of(thread));
  return all;
}

// Runs `body(thread)` in some threads, and `meanwhile()` here again and again until all of them have ended.
template <typename Body, typename Meanwhile>
void run_in_threads(const Body &body, const Meanwhile &meanwhile) {
  std::atomic<size_t> ended{0};
  std::vector<std::thread> threads;
  for (size_t thread = 0; thread < kThreads; thread++) {
    threads.emplace_back([&, thread] {
      body(thread);
      ended++;
    });
  }
  do {
    meanwhile();
  } while (ended < kThreads);
  for (std::thread &thread : threads) thread.join();
}

// Buckets in their order and, in a bucket, each thread's elements in the order of their adding.
void expect_order(const std::vector<const Element *> &met) {
  std::array<int, kThreads + 1> latest{};  // one more for elements that were there before
  uint32_t bucket = 0;
  for (const Element *element : met) {
    ASSERT_GE(element->bucket, bucket);
    if (element->bucket != bucket) latest.fill(-1);
    bucket = element->bucket;
    int &before = latest[static_cast<size_t>(element->key) / kEach];
    ASSERT_GE(element->key, before);
    before = element->key + 1;
  }
}

}  // namespace

TEST(HashThreads, AWalkMeetsAllThatWasThereOnceAndInOrderWhileOthersAdd) {
  const OwnedHash table = table_of(kBuckets);
  std::vector<Element> there = elements_of(kThreads);
  for (Element &element : there) mu_hash_add(table.get(), &element.node);
  std::vector<std::vector<Element>> added = elements_of_all();
  const auto is_there = [&](const Element *element) { return element->key >= static_cast<int>(kThreads * kEach); };
  run_in_threads(
      [&](size_t thread) {
        for (Element &element : added[thread]) ASSERT_EQ(mu_hash_add(table.get(), &element.node), 0);
      },
      [&] {
        const std::vector<const Element *> met = walk(table);
        expect_order(met);
        EXPECT_EQ(std::count_if(met.begin(), met.end(), is_there), std::ptrdiff_t{kEach});
      });
  const std::vector<const Element *> all = walk(table);
  EXPECT_EQ(all.size(), (kThreads + 1) * kEach);
  EXPECT_EQ(mu_hash_count(table.get()), (kThreads + 1) * kEach);
  expect_order(all);
}

TEST(HashThreads, EachElementIsTakenByOneThreadAlone) {
  const OwnedHash table = table_of(kBuckets);
  std::vector<std::vector<Element>> added = elements_of_all();
  std::array<std::vector<int>, kThreads> taken;
  std::atomic<size_t> left{kThreads * kEach};
  run_in_threads(
      [&](size_t thread) {
        for (Element &element : added[thread]) {
          ASSERT_EQ(mu_hash_add(table.get(), &element.node), 0);
          if (element.key % 3 == 0) continue;  // the table fills
          const mu_lst_node *node = mu_hash_get(table.get());
          if (node == nullptr) continue;
          taken[thread].push_back(element_of(node).key);
          left--;
        }
      },
      [] {});
  EXPECT_EQ(mu_hash_count(table.get()), left);
  std::vector<int> keys;
  for (const std::vector<int> &some : taken) keys.insert(keys.end(), some.begin(), some.end());
  for (const mu_lst_node *node = mu_hash_get(table.get()); node != nullptr; node = mu_hash_get(table.get())) {
    keys.push_back(element_of(node).key);
  }
  std::sort(keys.begin(), keys.end());
  ASSERT_EQ(keys.size(), kThreads * kEach);
  for (size_t i = 0; i < keys.size(); i++) ASSERT_EQ(keys[i], static_cast<int>(i));
}

TEST(HashThreads, DeletesLeaveTheElementsOfOthers) {
  const OwnedHash table = table_of(kBuckets);
  std::vector<std::vector<Element>> added = elements_of_all();
  run_in_threads(
      [&](size_t thread) {
        for (Element &element : added[thread]) {
          ASSERT_EQ(mu_hash_add(table.get(), &element.node), 0);
          ASSERT_EQ(mu_hash_find(table.get(), &element.key), &element.node);
          if (element.key % 2 != 0) {
            ASSERT_EQ(mu_hash_del(table.get(), &element.node), 0);
          }
        }
      },
      [] {});
  const std::vector<const Element *> left = walk(table);
  EXPECT_EQ(left.size(), kThreads * kEach / 2);
  EXPECT_EQ(mu_hash_count(table.get()), kThreads * kEach / 2);
  EXPECT_TRUE(std::all_of(left.begin(), left.end(), [](const Element *element) { return element->key % 2 == 0; }));
  expect_order(left);
}

TEST(HashThreads, TheCountNeverFallsWhileOthersAdd) {
  const OwnedHash table = table_of(kBuckets);
  std::vector<std::vector<Element>> added = elements_of_all();
  uint32_t latest = 0;
  run_in_threads(
      [&](size_t thread) {
        for (Element &element : added[thread]) ASSERT_EQ(mu_hash_add(table.get(), &element.node), 0);
      },
      [&] {
        const uint32_t count = mu_hash_count(table.get());
        EXPECT_GE(count, latest);
        latest = count;
      });
  EXPECT_EQ(mu_hash_count(table.get()), kThreads * kEach);
}
