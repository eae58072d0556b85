// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Scripts: each line is a command and its time.
//
// `at TIME` counts from the start or from the last `await`, `after TIME` from the time at which the previous line
// is due. A line without a time is due with the previous line. `every TIME` repeats: its first command is due with the
// previous line, and the next line counts from there. All times are in ticks of 10 ms.
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
  Awaited awaited = Awaited::kNothing;  // for other values the other members have no meaning
  When when = When::kAfter;
  std::uint64_t ticks = 0;
  std::uint64_t period = 0;  // ticks between two repetitions; 0: all at once
  std::uint64_t times = 1;   // 0: no end
  Command command;
};

// Reads one line. For a blank one, returns nothing, reports no fault and sets `*is_blank`.
std::optional<Line> parse_line(std::string_view text, Names *names, bool *is_blank, Fault *fault);

// Reads a time such as "250ms", "1.5s" or "2m", in ticks. `*reason` says why if it is not a multiple of 10 ms.
std::optional<std::uint64_t> parse_time(const std::string &text, std::string *reason);

// Reads the lines of a file. Adds every fault to `faults`: "FILE:LINE:COLUMN: REASON", or "FILE: REASON" if the file
// cannot be read.
std::vector<Line> read_script(const std::string &path, Names *names, std::vector<std::string> *faults);

}  // namespace tarn_sim

#endif
