// The hash table's mutex: its name, and what is called with it held.
//
// The library calls its exported functions by name, so a program that defines one of them gets the library's calls too.
// This one notes them and passes them on.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "containers/hash_element.h"
#include "tarn/containers.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

// What has happened, one word each; noted while `g_noting`.
bool g_noting;
std::vector<std::string> g_events;
std::vector<mu_mutex_t> g_mutexes;

// The 20 bytes at the name that a mutex was given.
using Name = std::array<char, 20>;
std::vector<Name> g_names;

void note(const char *event) {
  if (g_noting) g_events.emplace_back(event);
}

template <typename Function>
Function library(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int mu_mutex_init(mu_mutex_t *mutex, const char *name) {
  static const auto real = library<decltype(&mu_mutex_init)>("mu_mutex_init");
  if (g_noting) {
    Name &noted = g_names.emplace_back();
    for (size_t i = 0; i < noted.size(); i++) noted[i] = name[i];
  }
  return real(mutex, name);
}

int mu_mutex_lock(mu_mutex_t mutex) {
  static const auto real = library<decltype(&mu_mutex_lock)>("mu_mutex_lock");
  const int result = real(mutex);
  if (g_noting) g_mutexes.push_back(mutex);
  note("lock");
  return result;
}

int mu_mutex_unlock(mu_mutex_t mutex) {
  static const auto real = library<decltype(&mu_mutex_unlock)>("mu_mutex_unlock");
  note("unlock");
  if (g_noting) g_mutexes.push_back(mutex);
  return real(mutex);
}

}  // extern "C"

namespace {

using Events = std::vector<std::string>;

class HashLock : public testing::Test {
 protected:
  HashLock() {
    table_ = table_of(
        4,
        [](const mu_lst_node *node) {
          note("hash");
          return own_bucket(node);
        },
        [](const mu_lst_node *node, const void *key) {
          note("compare");
          return differs(node, key);
        });
    mu_hash_add(table_.get(), &a_.node);
    mu_hash_add(table_.get(), &b_.node);
    g_noting = true;
  }
  ~HashLock() override { g_noting = false; }

  // What has happened since the last call, all of it to the table's own mutex.
  Events events() {
    for (mu_mutex_t mutex : g_mutexes) EXPECT_EQ(mutex, table_->lock);
    g_mutexes.clear();
    return std::move(g_events);
  }

  OwnedHash table_;
  Element a_{{}, 1, 10};
  Element b_{{}, 2, 11};
  Element c_{{}, 3, 12};
  mu_lst_node *node_ = nullptr;
  uint32_t bucket_ = 0;
};

std::string name_of(const mu_hash *table) {
  std::ostringstream text;
  text << "H0x" << std::hex << reinterpret_cast<uintptr_t>(table);
  return text.str();
}

}  // namespace

TEST(HashLockName, IsHAndTheTablesAddressInTwentyZeroedBytes) {
  g_noting = true;
  const OwnedHash table = table_of(3);
  g_noting = false;
  ASSERT_NE(table, nullptr);
  Name expected{};
  name_of(table.get()).copy(expected.data(), expected.size());
  EXPECT_EQ(g_names, std::vector<Name>{expected});
}

TEST(HashLockName, DiffersFromTableToTable) {
  g_noting = true;
  const OwnedHash one = table_of(3);
  const OwnedHash other = table_of(3);
  g_noting = false;
  ASSERT_EQ(g_names.size(), 2u);
  EXPECT_NE(g_names[0], g_names[1]);
}

TEST_F(HashLock, IsTakenBehindTheBucketFunctionAndHeldForTheRestOfAdd) {
  mu_hash_add(table_.get(), &c_.node);
  EXPECT_EQ(events(), (Events{"hash", "lock", "unlock"}));
}

TEST_F(HashLock, IsTakenBehindTheBucketFunctionAndHeldForTheRestOfDel) {
  mu_hash_del(table_.get(), &a_.node);
  EXPECT_EQ(events(), (Events{"hash", "lock", "unlock"}));
}

TEST_F(HashLock, IsNotTakenForABucketThatTheTableDoesNotHave) {
  c_.bucket = 4;
  mu_hash_add(table_.get(), &c_.node);
  EXPECT_EQ(events(), Events{"hash"});
}

TEST_F(HashLock, IsHeldForEachStepOfAWalkAndReleasedBetween) {
  EXPECT_EQ(mu_hash_first(table_.get(), &node_, &bucket_), 0);
  EXPECT_EQ(events(), (Events{"lock", "unlock"}));
  EXPECT_EQ(mu_hash_next(table_.get(), node_, bucket_, &node_, &bucket_), 0);
  EXPECT_EQ(events(), (Events{"lock", "unlock"}));
  EXPECT_EQ(mu_hash_next(table_.get(), node_, bucket_, &node_, &bucket_), -1);
  EXPECT_EQ(events(), (Events{"lock", "unlock"}));
}

TEST_F(HashLock, IsHeldForAllComparisons) {
  EXPECT_EQ(mu_hash_find(table_.get(), &b_.key), &b_.node);
  EXPECT_EQ(events(), (Events{"lock", "compare", "compare", "unlock"}));
  EXPECT_EQ(mu_hash_find(table_.get(), &c_.key), nullptr);
  EXPECT_EQ(events(), (Events{"lock", "compare", "compare", "unlock"}));
}

TEST_F(HashLock, IsHeldForGetFoundOrNot) {
  EXPECT_EQ(mu_hash_get(table_.get()), &a_.node);
  EXPECT_EQ(events(), (Events{"lock", "unlock"}));
  EXPECT_EQ(mu_hash_get(table_.get()), &b_.node);
  EXPECT_EQ(mu_hash_get(table_.get()), nullptr);
  EXPECT_EQ(events(), (Events{"lock", "unlock", "lock", "unlock"}));
  EXPECT_EQ(mu_hash_first(table_.get(), &node_, &bucket_), -1);
  EXPECT_EQ(events(), (Events{"lock", "unlock"}));
}

TEST_F(HashLock, IsNotTakenForTheCount) {
  EXPECT_EQ(mu_hash_count(table_.get()), 2u);
  EXPECT_EQ(events(), Events{});
}

TEST_F(HashLock, IsFreeInTheBucketFunctionSoThatItMayUseTheTable) {
  static mu_hash *table;
  static uint32_t counted;
  table = table_.get();
  table_->hash_fn = [](const mu_lst_node *node) {
    mu_lst_node *first = nullptr;
    uint32_t bucket = 0;
    EXPECT_EQ(mu_hash_first(table, &first, &bucket), 0);
    counted = mu_hash_count(table);
    return own_bucket(node);
  };
  EXPECT_EQ(mu_hash_add(table_.get(), &c_.node), 0);
  EXPECT_EQ(counted, 2u);
  EXPECT_EQ(mu_hash_del(table_.get(), &c_.node), 0);
  EXPECT_EQ(counted, 3u);
}
