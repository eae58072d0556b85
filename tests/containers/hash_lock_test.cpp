// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The mutex of a hash table: its name, the accesses that it guards, and the callbacks that run with it held.
//
// The library calls its exported functions by name, so a program that defines one of them gets the library's calls too.
// This program records them and passes them on.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "containers/fixture.h"
#include "tarn/platform.h"

using namespace tarn_test;

// ---- The mutexes of the library, seen -------------------------------------------------------------------------------

namespace {

// Hooks of a test, after the library's lock and before its unlock. Set while no other thread runs.
std::function<void(mu_mutex_t)> g_on_lock;
std::function<void(mu_mutex_t)> g_on_unlock;

// The 20 bytes at the name of each mutex.
using Name = std::array<char, 20>;
std::vector<Name> *g_names;

// Removes a hook while it runs, because it may lock.
void run_hook(std::function<void(mu_mutex_t)> &hook, mu_mutex_t mutex) {
  if (!hook) return;
  const std::function<void(mu_mutex_t)> taken = std::exchange(hook, nullptr);
  taken(mutex);
  hook = taken;
}

template <typename Function>
Function library(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int mu_mutex_init(mu_mutex_t *mutex, const char *name) {
  static const auto real = library<decltype(&mu_mutex_init)>("mu_mutex_init");
  if (g_names != nullptr) {
    Name &noted = g_names->emplace_back();
    for (size_t i = 0; i < noted.size(); i++) noted[i] = name[i];
  }
  return real(mutex, name);
}

int mu_mutex_lock(mu_mutex_t mutex) {
  static const auto real = library<decltype(&mu_mutex_lock)>("mu_mutex_lock");
  const int result = real(mutex);
  run_hook(g_on_lock, mutex);
  return result;
}

int mu_mutex_unlock(mu_mutex_t mutex) {
  static const auto real = library<decltype(&mu_mutex_unlock)>("mu_mutex_unlock");
  run_hook(g_on_unlock, mutex);
  return real(mutex);
}

}  // extern "C"

// ---- The mutex ------------------------------------------------------------------------------------------------------

namespace {

// The actions so far, one word each.
std::string g_events;

class HashLock : public HashTest {
 protected:
  HashLock() {
    table_->hash_fn = [](const mu_lst_node *node) {
      g_events += "hash ";
      return bucket_of(node);
    };
    table_->cmp_fn = [](const mu_lst_node *node, const void *key) {
      g_events += "compare ";
      return compare(node, key);
    };
  }
  ~HashLock() override {
    g_on_lock = nullptr;
    g_on_unlock = nullptr;
  }

  // The actions of a call, all of them on the mutex of `table`.
  static std::string events_of(const mu_hash *table, const std::function<void()> &call) {
    g_events.clear();
    g_on_lock = [table](mu_mutex_t mutex) { g_events += mutex == table->lock ? "lock " : "lock-another "; };
    g_on_unlock = [table](mu_mutex_t mutex) { g_events += mutex == table->lock ? "unlock " : "unlock-another "; };
    call();
    g_on_lock = nullptr;
    g_on_unlock = nullptr;
    return g_events;
  }

  // Makes the table hold the elements 0 and 1, in bucket 0; element 2 will go there.
  void reset() {
    while (mu_hash_get(table_) != nullptr) {
    }
    fill({0, 0});
    elements_[2].bucket = 0;
  }
};

// A call to the table.
struct Operation {
  const char *name;
  void (*run)(mu_hash *table, mu_lst_node *in, mu_lst_node *out);  // an element of the table and one that is in none
  const char *events;
  const char *events_if_empty;
};

const Operation kOperations[] = {
    {"add", [](mu_hash *table, mu_lst_node *, mu_lst_node *out) { mu_hash_add(table, out); }, "hash lock unlock ",
     "hash lock unlock "},
    {"del", [](mu_hash *table, mu_lst_node *in, mu_lst_node *) { mu_hash_del(table, in); }, "hash lock unlock ",
     nullptr},
    {"find", [](mu_hash *table, mu_lst_node *, mu_lst_node *out) { mu_hash_find(table, &element_of(out).number); },
     "lock compare compare unlock ", "lock unlock "},
    {"get", [](mu_hash *table, mu_lst_node *, mu_lst_node *) { mu_hash_get(table); }, "lock unlock ", "lock unlock "},
    {"first",
     [](mu_hash *table, mu_lst_node *, mu_lst_node *) {
       mu_lst_node *found = nullptr;
       uint32_t bucket = 0;
       mu_hash_first(table, &found, &bucket);
     },
     "lock unlock ", "lock unlock "},
    {"next",
     [](mu_hash *table, mu_lst_node *in, mu_lst_node *) {
       mu_lst_node *found = nullptr;
       uint32_t bucket = 0;
       mu_hash_next(table, in, 0, &found, &bucket);
       mu_hash_next(table, found, 0, &found, &bucket);  // the end of the walk
     },
     "lock unlock lock unlock ", nullptr},
};

mu_hash *g_table;
int g_trylock;

// The result of an attempt to lock the table's mutex.
int try_table() {
  const int result = mu_mutex_trylock(g_table->lock);
  if (result == 0) mu_mutex_unlock(g_table->lock);
  return result;
}

}  // namespace

TEST_F(HashLock, IsTakenAfterTheBucketFunctionAndReleasedAtTheEndOfEachCall) {
  for (const Operation &operation : kOperations) {
    SCOPED_TRACE(operation.name);
    reset();
    EXPECT_EQ(events_of(table_, [&] { operation.run(table_, node(0), node(2)); }), operation.events);
    if (operation.events_if_empty == nullptr) continue;
    while (mu_hash_get(table_) != nullptr) {
    }
    EXPECT_EQ(events_of(table_, [&] { operation.run(table_, node(0), node(2)); }), operation.events_if_empty);
    EXPECT_EQ(mu_mutex_trylock(table_->lock), 0) << "free again";
    mu_mutex_unlock(table_->lock);
  }
}

TEST_F(HashLock, CoversEveryChange) {
  for (const Operation &operation : kOperations) {
    SCOPED_TRACE(operation.name);
    reset();
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

// An add by another thread just before the lock is seen; one at its end is not.
TEST_F(HashLock, CoversWhatFirstReads) {
  add(0, 2);
  g_on_lock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[1], node(1)); };
  g_on_unlock = [this](mu_mutex_t) { mu_lst_add(&table_->buckets[0], node(2)); };
  EXPECT_EQ(mu_hash_first(table_, &out_, &bucket_), 0);
  EXPECT_EQ(out_, node(1));
  EXPECT_EQ(bucket_, 1u);
}

TEST_F(HashLock, CoversWhatNextReads) {
  fill({0, 3});
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

TEST_F(HashLock, CoversWhatFindAndGetRead) {
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

TEST_F(HashLock, IsFreeInTheBucketFunctionAndHeldInTheCompareFunction) {
  g_table = table_;
  table_->hash_fn = [](const mu_lst_node *) -> uint32_t {
    g_trylock = try_table();
    return 0;
  };
  table_->cmp_fn = [](const mu_lst_node *, const void *) {
    g_trylock = try_table();
    return 0;
  };
  g_trylock = -1;
  EXPECT_EQ(mu_hash_add(table_, node(0)), 0);
  EXPECT_EQ(g_trylock, 0);
  EXPECT_EQ(mu_hash_find(table_, nullptr), node(0));
  EXPECT_EQ(g_trylock, EBUSY);
  EXPECT_EQ(mu_hash_del(table_, node(0)), 0);
  EXPECT_EQ(g_trylock, 0);
}

TEST_F(HashLock, LetsTheBucketFunctionCallTheTable) {
  g_table = table_;
  table_->hash_fn = [](const mu_lst_node *node) -> uint32_t {
    if (try_table() != 0) return UINT32_MAX;  // instead of a wait without end
    const int key = number_of(node);
    return mu_hash_find(g_table, &key) != nullptr ? bucket_of(node) : mu_hash_count(g_table);
  };
  fill({0, 1, 2, 3});
  EXPECT_EQ(walk(table_), (Numbers{0, 1, 2, 3}));
  EXPECT_EQ(mu_hash_del(table_, node(1)), 0);
  EXPECT_EQ(walk(table_), (Numbers{0, 2, 3}));
}

TEST_F(HashLock, IsNotTakenForTheCount) {
  fill({0});
  EXPECT_EQ(events_of(table_, [this] { EXPECT_EQ(mu_hash_count(table_), 1u); }), "");
}

TEST_F(HashLock, IsNotTakenByRefusedCalls) {
  elements_[0].bucket = kSize;
  const auto refused = [this] {
    EXPECT_EQ(mu_hash_add(table_, node(0)), -1);
    EXPECT_EQ(mu_hash_del(table_, node(0)), -1);
    EXPECT_EQ(mu_hash_add(table_, nullptr), -1);
    EXPECT_EQ(mu_hash_del(table_, nullptr), -1);
  };
  EXPECT_EQ(events_of(table_, refused), "hash hash ");
}

TEST_F(HashLock, IsATablesOwn) {
  mu_hash *const other = mu_hash_create(1, bucket_of, compare);
  EXPECT_NE(other->lock, table_->lock);
  const auto use = [&] {
    EXPECT_EQ(mu_hash_add(other, node(0)), 0);
    EXPECT_EQ(mu_hash_get(other), node(0));
  };
  EXPECT_EQ(events_of(other, use), "lock unlock lock unlock ");
  mu_hash_destroy(other);
}

TEST_F(HashLock, IsNamedHAndTheTablesAddressInTwentyZeroedBytes) {
  std::vector<Name> names;
  g_names = &names;
  mu_hash *const tables[] = {mu_hash_create(1, bucket_of, compare), mu_hash_create(1, bucket_of, compare)};
  g_names = nullptr;
  ASSERT_EQ(names.size(), 2u);
  for (size_t i = 0; i < 2; i++) {
    std::ostringstream text;
    text << "H0x" << std::hex << reinterpret_cast<uintptr_t>(tables[i]);
    Name expected{};
    text.str().copy(expected.data(), expected.size());
    EXPECT_EQ(names[i], expected);
    mu_hash_destroy(tables[i]);
  }
  EXPECT_NE(names[0], names[1]);
}
