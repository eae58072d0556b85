// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The status of a simulation.
#ifndef TARN_TOOLS_EVENT_STATE_H
#define TARN_TOOLS_EVENT_STATE_H

#include <cstdint>
#include <string>
#include <vector>

namespace tarn_tools::event {

struct EventState {
  unsigned type = 0;
  std::string name;
  std::uint64_t count = 0;
  bool suppression = false;  // whether the daemon has enabled it
  bool suppressed = false;   // whether events are dropped now
  std::uint64_t suppressed_count = 0;
  std::uint64_t threshold = 0;
  std::uint64_t period_ms = 0;
};

struct ModuleState {
  unsigned id = 0;
  bool enabled = true;
  unsigned print = 0;
  unsigned record = 0;
};

struct State {
  std::uint64_t time_ms = 0;
  long pid = 0;
  bool running = false;
  bool bound = false;  // the daemon's event channel
  std::uint64_t port = 0;
  std::uint64_t destination = 0;
  std::uint64_t sent = 0, lost = 0, no_listener = 0;  // datagrams
  std::uint64_t kernel_lines = 0, kernel_withheld = 0, kernel_lost = 0;
  std::uint64_t script_pending = 0, script_done = 0;
  std::vector<EventState> events;
  std::vector<ModuleState> modules;  // those that the daemon has set
};

// Throws a Failure if it is not the status of a simulation.
State parse_state(const std::string &json);

}  // namespace tarn_tools::event

#endif
