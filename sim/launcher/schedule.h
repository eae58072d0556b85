// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// When the commands of scripts are due. It reads no clock: callers pass the time.
#ifndef TARN_SIM_LAUNCHER_SCHEDULE_H
#define TARN_SIM_LAUNCHER_SCHEDULE_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "script.h"

namespace tarn_sim {

// Whether what a script may wait for has happened.
struct Readiness {
  bool channel = false;
  bool settings = false;
};

class Schedule {
 public:
  // The script starts at `now`, in ticks.
  Schedule(std::vector<Line> lines, std::uint64_t now);

  // Adds a line that counts from `now`.
  void add(const Line &line, std::uint64_t now);

  // Returns at most `most` of the commands that are due, including those that were missed: in the order of their times;
  // with equal times, of their lines. An `await` that is reached ends if `ready` says so.
  std::vector<Command> take(std::uint64_t now, const Readiness &ready, std::size_t most);

  // When the next command is due; it may be in the past. Nothing if there is none, or if it depends on an `await`.
  std::optional<std::uint64_t> next() const {
    return active_.empty() ? std::nullopt : std::optional(active_.front().due);
  }

  // What the script waits for, as of the last take.
  Awaited awaited() const { return awaits_ ? lines_[next_line_].awaited : Awaited::kNothing; }

  // The number of lines that still have commands, and of commands that were taken.
  std::size_t pending() const { return lines_.size() - next_line_ + active_.size(); }
  std::uint64_t done() const { return done_; }

 private:
  struct Active {
    std::uint64_t due;
    std::uint64_t number;  // of the line, in order of arrival
    std::uint64_t left;    // 0: no end
    std::uint64_t period;
    Command command;
  };

  void begin_lines(std::uint64_t start);
  void insert(const Line &line, std::uint64_t due);
  void place(Active active);
  void end_await(std::uint64_t now, const Readiness &ready);
  Command take_first();

  std::vector<Line> lines_;  // of the script; those after an `await` begin when it ends
  std::size_t next_line_ = 0;
  std::uint64_t await_from_ = 0;  // when the line before the next `await` is due
  bool awaits_ = false;           // whether that time has come
  std::list<Active> active_;      // ordered by time, then by number
  std::uint64_t inserted_ = 0;
  std::uint64_t done_ = 0;
};

}  // namespace tarn_sim

#endif
