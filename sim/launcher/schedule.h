// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// When the commands of scripts are due. It knows no clock: whoever asks says what the time is.
#ifndef TARN_SIM_LAUNCHER_SCHEDULE_H
#define TARN_SIM_LAUNCHER_SCHEDULE_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "script.h"

namespace tarn_sim {

// What a script may wait for, as it is now.
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

  // At most `most` of the commands that are due, in the order of their times, and of the lines where those are equal.
  // What was missed is made up for. An `await` that has come is over when `ready` says so.
  std::vector<Command> take(std::uint64_t now, const Readiness &ready, std::size_t most);

  // When the next command is due, which may be past; nothing when there is none, or when it depends on an `await`.
  std::optional<std::uint64_t> next() const {
    return active_.empty() ? std::nullopt : std::optional(active_.front().due);
  }

  // What the script waits for, as of the last take.
  Awaited awaited() const { return awaits_ ? lines_[next_line_].awaited : Awaited::kNothing; }

  // Lines that are not done, and commands that were taken.
  std::size_t pending() const { return lines_.size() - next_line_ + active_.size(); }
  std::uint64_t done() const { return done_; }

 private:
  struct Active {
    std::uint64_t due;
    std::uint64_t number;  // of the line, in the order in which they came
    std::uint64_t left;    // 0: without an end
    std::uint64_t period;
    Command command;
  };

  void begin_lines(std::uint64_t start);
  void insert(const Line &line, std::uint64_t due);
  void place(Active active);
  void end_await(std::uint64_t now, const Readiness &ready);
  Command take_first();

  std::vector<Line> lines_;  // of the script; those after an `await` begin when it is over
  std::size_t next_line_ = 0;
  std::uint64_t await_from_ = 0;  // when the line before the `await` that is next is due
  bool awaits_ = false;           // that time has come
  std::list<Active> active_;      // by their times, then by their numbers
  std::uint64_t inserted_ = 0;
  std::uint64_t done_ = 0;
};

}  // namespace tarn_sim

#endif
