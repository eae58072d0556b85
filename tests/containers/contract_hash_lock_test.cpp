// The mutex of a hash table: its name, and what it covers.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "containers/contract_hash.h"
#include "tarn/containers.h"
#include "tarn/os.h"
#include "tarn/platform.h"

using namespace tarn_test;
using namespace tarn_test::hash_contract;

// ---- The mutexes of the library, seen -------------------------------------------------------------------------------

namespace {

// What a test does when the library locks and before it unlocks. Set while no other thread runs.
std::function<void(mu_mutex_t)> g_on_lock;
std::function<void(mu_mutex_t)> g_on_unlock;
std::function<void(mu_mutex_t, const std::string &)> g_on_create;

// Takes a hook out for its own run, which may lock.
template <typename... Args>
void run_hook(std::function<void(Args...)> &hook, const std::type_identity_t<Args> &...args) {
  if (!hook) return;
  const std::function<void(Args...)> taken = std::exchange(hook, nullptr);
  taken(args...);
  hook = taken;
}

template <typename Function>
Function own(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

mu_mutex_t OS_MUTEX_CREATE(const char *name) {
  static const auto real = own<decltype(&OS_MUTEX_CREATE)>("OS_MUTEX_CREATE");
  mu_mutex_t mutex = real(name);
  run_hook(g_on_create, mutex, name == nullptr ? "" : name);
  return mutex;
}

void OS_MUTEX_LOCK(mu_mutex_t mutex) {
  static const auto real = own<decltype(&OS_MUTEX_LOCK)>("OS_MUTEX_LOCK");
  real(mutex);
  run_hook(g_on_lock, mutex);
}

void OS_MUTEX_UNLOCK(mu_mutex_t mutex) {
  static const auto real = own<decltype(&OS_MUTEX_UNLOCK)>("OS_MUTEX_UNLOCK");
  run_hook(g_on_unlock, mutex);
  real(mutex);
}

}  // extern "C"

// ---- The mutex ------------------------------------------------------------------------------------------------------

namespace {

class HashLockContract : public HashContract {
 protected:
  ~HashLockContract() override {
    g_on_lock = nullptr;
    g_on_unlock = nullptr;
  }
};

mu_hash *g_table;
int g_trylock;

// What an attempt to take the table's mutex gives.
int try_table() {
  const int result = mu_mutex_trylock(g_table->lock);
  if (result == 0) mu_mutex_unlock(g_table->lock);
  return result;
}

// A call to the table, by name.
struct Operation {
  const char *name;
  void (*run)(mu_hash *table, mu_lst_node *in, mu_lst_node *out);  // an element of the table and one that is in none
};

constexpr int kKey = 0;

const Operation kLocked[] = {
    {"add", [](mu_hash *table, mu_lst_node *, mu_lst_node *out) { mu_hash_add(table, out); }},
    {"del", [](mu_hash *table, mu_lst_node *in, mu_lst_node *) { mu_hash_del(table, in); }},
    {"find", [](mu_hash *table, mu_lst_node *, mu_lst_node *) { mu_hash_find(table, &kKey); }},
    {"get", [](mu_hash *table, mu_lst_node *, mu_lst_node *) { mu_hash_get(table); }},
    {"first",
     [](mu_hash *table, mu_lst_node *, mu_lst_node *) {
       mu_lst_node *found = nullptr;
       uint32_t bucket = 0;
       mu_hash_first(table, &found, &bucket);
     }},
    {"next",
     [](mu_hash *table, mu_lst_node *in, mu_lst_node *) {
       mu_lst_node *found = nullptr;
       uint32_t bucket = 0;
       mu_hash_next(table, in, 0, &found, &bucket);
     }},
};

}  // namespace

TEST_F(HashLockContract, IsTakenAndReleasedOnceByEachCallThatHoldsIt) {
  for (const Operation &operation : kLocked) {
    for (const bool is_filled : {true, false}) {
      if (!is_filled && (strcmp(operation.name, "del") == 0 || strcmp(operation.name, "next") == 0)) continue;
      SCOPED_TRACE(testing::Message() << operation.name << (is_filled ? "" : ", empty"));
      while (mu_hash_get(table_) != nullptr) {
      }
      if (is_filled) add(0, 0);
      std::vector<mu_mutex_t> locked;
      std::vector<mu_mutex_t> unlocked;
      g_on_lock = [&locked](mu_mutex_t mutex) { locked.push_back(mutex); };
      g_on_unlock = [&unlocked](mu_mutex_t mutex) { unlocked.push_back(mutex); };
      elements_[1].bucket = 0;
      operation.run(table_, node(0), node(1));
      g_on_lock = nullptr;
      g_on_unlock = nullptr;
      EXPECT_EQ(locked, std::vector<mu_mutex_t>{table_->lock});
      EXPECT_EQ(unlocked, std::vector<mu_mutex_t>{table_->lock});
      EXPECT_EQ(mu_mutex_trylock(table_->lock), 0) << "free again";
      mu_mutex_unlock(table_->lock);
    }
  }
}

TEST_F(HashLockContract, CoversEveryChange) {
  for (const Operation &operation : kLocked) {
    SCOPED_TRACE(operation.name);
    while (mu_hash_get(table_) != nullptr) {
    }
    for (int i = 0; i < 2; i++) add(i, 0);
    elements_[2].bucket = 0;
    const std::string before = image();
    std::string at_lock;
    std::string at_unlock;
    g_on_lock = [&](mu_mutex_t) { at_lock = image(); };
    g_on_unlock = [&](mu_mutex_t) { at_unlock = image(); };
    operation.run(table_, node(0), node(2));
    g_on_lock = nullptr;
    g_on_unlock = nullptr;
    EXPECT_EQ(at_lock, before) << "nothing changed before";
    EXPECT_EQ(at_unlock, image()) << "nor after";
  }
}

// Another thread's add that comes just before the lock is seen; one that comes at its end is not.
TEST_F(HashLockContract, CoversWhatFirstReads) {
  add(0, 2);
  elements_[1].bucket = 1;
  g_on_lock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[1], node(1)); };
  g_on_unlock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[0], node(2)); };
  EXPECT_EQ(mu_hash_first(table_, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(1));
  EXPECT_EQ(bucket_, 1u);
}

TEST_F(HashLockContract, CoversWhatNextReads) {
  add(0, 0);
  add(1, 3);
  g_on_lock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[2], node(2)); };
  g_on_unlock = [this](mu_mutex_t) {
    mu_lst_add(&table_->buckets[0], node(3));
    mu_lst_add(&table_->buckets[1], node(4));
  };
  EXPECT_EQ(mu_hash_next(table_, node(0), 0, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(2));
  EXPECT_EQ(bucket_, 2u);
  g_on_unlock = nullptr;
  g_on_lock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[3], node(5)); };
  EXPECT_EQ(mu_hash_next(table_, node(1), 3, &out_, &bucket_), 0) << "the link of the node too";
  EXPECT_EQ(out_, node(5));
}

TEST_F(HashLockContract, CoversWhatFindAndGetRead) {
  const int key = 1;
  add(0, 2);
  g_on_lock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[1], node(1)); };
  EXPECT_EQ(mu_hash_find(table_, &key), node(1));
  g_on_lock = [this](mu_mutex_t) {
    mu_lst_add(&table_->buckets[0], node(2));
    table_->count++;
  };
  EXPECT_EQ(mu_hash_get(table_), node(2));
  EXPECT_EQ(table_->count, 1u);
}

TEST_F(HashLockContract, IsHeldWhileTheCompareFunctionRuns) {
  g_table = mu_hash_create(1, bucket_of, [](const mu_lst_node *, const void *) {
    g_trylock = try_table();
    return 0;
  });
  elements_[0].bucket = 0;
  mu_hash_add(g_table, node(0));
  g_trylock = -1;
  EXPECT_EQ(mu_hash_find(g_table, nullptr), node(0));
  EXPECT_EQ(g_trylock, EBUSY);
  mu_hash_destroy(g_table);
}

TEST_F(HashLockContract, IsFreeWhileTheBucketFunctionRuns) {
  g_table = mu_hash_create(
      1,
      [](const mu_lst_node *) -> uint32_t {
        g_trylock = try_table();
        return 0;
      },
      compare);
  g_trylock = -1;
  EXPECT_EQ(mu_hash_add(g_table, node(0)), 0);
  EXPECT_EQ(g_trylock, 0);
  g_trylock = -1;
  EXPECT_EQ(mu_hash_del(g_table, node(0)), 0);
  EXPECT_EQ(g_trylock, 0);
  mu_hash_destroy(g_table);
}

TEST_F(HashLockContract, LetsTheBucketFunctionCallTheTable) {
  g_table = mu_hash_create(
      4,
      [](const mu_lst_node *node) -> uint32_t {
        const int key = number_of(node);
        return mu_hash_find(g_table, &key) != nullptr ? element_of(node).bucket : mu_hash_count(g_table);
      },
      compare);
  for (int i = 0; i < 4; i++) {
    elements_[i].bucket = static_cast<uint32_t>(i);
    EXPECT_EQ(mu_hash_add(g_table, node(i)), 0);
  }
  EXPECT_EQ(walk(g_table), (Numbers{0, 1, 2, 3}));
  EXPECT_EQ(mu_hash_del(g_table, node(1)), 0);
  EXPECT_EQ(walk(g_table), (Numbers{0, 2, 3}));
  mu_hash_destroy(g_table);
}

TEST_F(HashLockContract, IsNotTakenForTheCount) {
  add(0, 0);
  mu_mutex_lock(table_->lock);
  EXPECT_EQ(mu_hash_count(table_), 1u) << "would wait for ever";
  mu_mutex_unlock(table_->lock);
}

TEST_F(HashLockContract, IsNotTakenByRefusedCalls) {
  elements_[0].bucket = kSize;
  mu_mutex_lock(table_->lock);  // that they come back is the claim
  EXPECT_EQ(mu_hash_add(table_, node(0)), -1);
  EXPECT_EQ(mu_hash_del(table_, node(0)), -1);
  EXPECT_EQ(mu_hash_add(table_, nullptr), -1);
  EXPECT_EQ(mu_hash_del(table_, nullptr), -1);
  mu_mutex_unlock(table_->lock);
}

TEST_F(HashLockContract, IsATablesOwn) {
  mu_hash *const other = mu_hash_create(1, bucket_of, compare);
  EXPECT_NE(other->lock, table_->lock);
  mu_mutex_lock(table_->lock);
  elements_[0].bucket = 0;
  EXPECT_EQ(mu_hash_add(other, node(0)), 0);
  EXPECT_EQ(mu_hash_get(other), node(0));
  mu_mutex_unlock(table_->lock);
  mu_hash_destroy(other);
}

TEST_F(HashLockContract, IsNamedForTheAddressOfTheTable) {
  std::vector<std::string> names;
  g_on_create = [&names](mu_mutex_t, const std::string &name) { names.push_back(name); };
  mu_hash *const tables[] = {mu_hash_create(1, bucket_of, compare), mu_hash_create(1, bucket_of, compare)};
  g_on_create = nullptr;
  ASSERT_EQ(names.size(), 2u);
  for (size_t i = 0; i < 2; i++) {
    char name[20] = {};
    snprintf(name, sizeof name, "H%p", static_cast<void *>(tables[i]));
    EXPECT_EQ(names[i], name);
    mu_hash_destroy(tables[i]);
  }
  EXPECT_NE(names[0], names[1]);
}
