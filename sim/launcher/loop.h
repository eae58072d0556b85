// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The main loop: descriptors, and functions to call when they are ready. One thread.
#ifndef TARN_SIM_LAUNCHER_LOOP_H
#define TARN_SIM_LAUNCHER_LOOP_H

#include <functional>
#include <map>
#include <memory>

namespace tarn_sim {

class Loop {
 public:
  using Ready = std::function<void()>;

  // Calls `ready` in each round in which one of `events` is set, or the other side has hung up. `ready` may watch and
  // forget descriptors, including its own.
  void watch(int descriptor, short events, Ready ready);
  void change(int descriptor, short events);
  void forget(int descriptor);

  // One round: waits for at most `timeout_ms` (-1: for ever), and calls the function of each descriptor that is ready.
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
