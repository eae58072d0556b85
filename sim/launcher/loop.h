// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The main loop: descriptors, and what is to be done when they are ready. One thread.
#ifndef TARN_SIM_LAUNCHER_LOOP_H
#define TARN_SIM_LAUNCHER_LOOP_H

#include <functional>
#include <map>
#include <memory>

namespace tarn_sim {

class Loop {
 public:
  using Ready = std::function<void()>;

  // Calls `ready` while any of `events` holds, or the other side hung up. It may watch and forget others, and itself.
  void watch(int descriptor, short events, Ready ready);
  void change(int descriptor, short events);
  void forget(int descriptor);

  // One round: waits for at most `timeout_ms`, -1 for ever, and calls for each that is ready.
  void run(int timeout_ms);

 private:
  struct Watch {
    short events;
    Ready ready;
    bool is_forgotten = false;
  };
  std::map<int, std::shared_ptr<Watch>> watches_;
};

}  // namespace tarn_sim

#endif
