// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "loop.h"

#include <poll.h>

#include <vector>

namespace tarn_sim {

void Loop::watch(int descriptor, short events, Ready ready) {
  watches_[descriptor] = std::make_shared<Watch>(Watch{events, std::move(ready)});
}

void Loop::change(int descriptor, short events) { watches_.at(descriptor)->events = events; }

void Loop::forget(int descriptor) {
  const auto found = watches_.find(descriptor);
  if (found == watches_.end()) return;
  found->second->is_forgotten = true;
  watches_.erase(found);
}

void Loop::run(int timeout_ms) {
  std::vector<pollfd> polled;
  std::vector<std::shared_ptr<Watch>> watches;  // keeps those alive that are forgotten in this round
  for (const auto &[descriptor, watch] : watches_) {
    polled.push_back({descriptor, watch->events, 0});
    watches.push_back(watch);
  }
  if (poll(polled.data(), polled.size(), timeout_ms) <= 0) return;
  for (std::size_t i = 0; i < polled.size(); i++) {
    if (polled[i].revents != 0 && !watches[i]->is_forgotten) watches[i]->ready();
  }
}

}  // namespace tarn_sim
