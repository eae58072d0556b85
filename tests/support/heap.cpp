// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/heap.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace tarn_test {

namespace {

struct Blocks {
  std::mutex mutex;
  std::vector<void *> live;
  std::vector<void *> freed;
};

std::atomic<Blocks *> g_blocks;

}  // namespace

HeapWatch::HeapWatch() { g_blocks = new Blocks; }

HeapWatch::~HeapWatch() { delete g_blocks.exchange(nullptr); }

size_t HeapWatch::live() const {
  Blocks &blocks = *g_blocks;
  std::lock_guard lock(blocks.mutex);
  return blocks.live.size();
}

std::vector<void *> HeapWatch::freed() const {
  Blocks &blocks = *g_blocks;
  std::lock_guard lock(blocks.mutex);
  return blocks.freed;
}

namespace {

// The vectors themselves allocate and release memory while the mutex is held.
thread_local bool g_inside = false;

template <typename Note>
void with_blocks(void *block, Note note) {
  Blocks *blocks = g_blocks;
  if (blocks == nullptr || block == nullptr || g_inside) return;
  g_inside = true;
  {
    std::lock_guard lock(blocks->mutex);
    note(*blocks);
  }
  g_inside = false;
}

}  // namespace

void note_allocated(void *block) {
  with_blocks(block, [block](Blocks &blocks) { blocks.live.push_back(block); });
}

void note_freed(void *block) {
  with_blocks(block, [block](Blocks &blocks) {
    const auto found = std::find(blocks.live.begin(), blocks.live.end(), block);
    if (found == blocks.live.end()) return;
    blocks.live.erase(found);
    blocks.freed.push_back(block);
  });
}

}  // namespace tarn_test
