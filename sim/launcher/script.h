// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Scripts: lines, each a command and when it is due.
//
// A line says when: `at TIME` from the start or from the last `await`; `after TIME` from when the line before
// is due; without a word when the line before is. `every TIME` repeats: its first command is due when the line before
// is, and the lines after it count from there. All times are in ticks of 10 ms.
#ifndef TARN_SIM_LAUNCHER_SCRIPT_H
#define TARN_SIM_LAUNCHER_SCRIPT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"

namespace tarn_sim {

constexpr std::uint64_t kTickMs = 10;

// What a script waits for.
enum class Awaited : std::uint8_t {
  kNothing,
  kChannel,   // the daemon's channel is bound to the destination that it has set
  kSettings,  // the daemon has set how an event is suppressed
};

struct Line {
  enum class When : std::uint8_t { kAt, kAfter };
  Awaited awaited = Awaited::kNothing;  // anything else: nothing more counts
  When when = When::kAfter;
  std::uint64_t ticks = 0;
  std::uint64_t period = 0;  // ticks between two repetitions; 0: all at once
  std::uint64_t times = 1;   // 0: without an end
  Command command;
};

// Reads one line. No line, and no fault, for a blank one; then `*is_blank` is set.
std::optional<Line> parse_line(std::string_view text, Names *names, bool *is_blank, Fault *fault);

// Reads a time such as "250ms", "1.5s" or "2m", in ticks. The reason when it is none, or no multiple of 10 ms.
std::optional<std::uint64_t> parse_time(const std::string &text, std::string *reason);

// The lines of a file. Every fault is added to `faults`: "FILE:LINE:COLUMN: REASON", without line and column when the
// file cannot be read.
std::vector<Line> read_script(const std::string &path, Names *names, std::vector<std::string> *faults);

}  // namespace tarn_sim

#endif
