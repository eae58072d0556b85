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

void note_allocated(void *block) {
  Blocks *blocks = g_blocks;
  if (blocks == nullptr || block == nullptr) return;
  std::lock_guard lock(blocks->mutex);
  blocks->live.push_back(block);
}

void note_freed(void *block) {
  Blocks *blocks = g_blocks;
  if (blocks == nullptr || block == nullptr) return;
  // The vectors release memory of their own while the mutex is held.
  static thread_local bool inside = false;
  if (inside) return;
  inside = true;
  {
    std::lock_guard lock(blocks->mutex);
    const auto found = std::find(blocks->live.begin(), blocks->live.end(), block);
    if (found != blocks->live.end()) {
      blocks->live.erase(found);
      blocks->freed.push_back(block);
    }
  }
  inside = false;
}

}  // namespace tarn_test
