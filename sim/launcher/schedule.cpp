// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "schedule.h"

#include <algorithm>
#include <utility>

namespace tarn_sim {

Schedule::Schedule(std::vector<Line> lines, std::uint64_t now) : lines_(std::move(lines)) { begin_lines(now); }

void Schedule::add(const Line &line, std::uint64_t now) { insert(line, now + line.ticks); }

// Computes the times of the lines up to the next `await`.
void Schedule::begin_lines(std::uint64_t start) {
  std::uint64_t due = start;
  for (; next_line_ < lines_.size() && lines_[next_line_].awaited == Awaited::kNothing; next_line_++) {
    const Line &line = lines_[next_line_];
    due = (line.when == Line::When::kAt ? start : due) + line.ticks;
    insert(line, due);
  }
  await_from_ = due;
}

void Schedule::insert(const Line &line, std::uint64_t due) {
  place({due, inserted_++, line.times, line.period, line.command});
}

void Schedule::place(Active active) {
  const auto is_later = [&active](const Active &other) {
    return std::pair(other.due, other.number) > std::pair(active.due, active.number);
  };
  const auto next = std::find_if(active_.begin(), active_.end(), is_later);
  active_.insert(next, std::move(active));
}

// An `await` is reached when the previous line is due.
void Schedule::end_await(std::uint64_t now, const Readiness &ready) {
  while (next_line_ < lines_.size() && now >= await_from_) {
    awaits_ = !(lines_[next_line_].awaited == Awaited::kChannel ? ready.channel : ready.settings);
    if (awaits_) return;
    next_line_++;
    begin_lines(now);
  }
}

Command Schedule::take_first() {
  Active first = std::move(active_.front());
  active_.pop_front();
  done_++;
  Command command = first.command;
  if (first.left != 1) {
    if (first.left > 0) first.left--;
    first.due += first.period;
    place(std::move(first));
  }
  return command;
}

std::vector<Command> Schedule::take(std::uint64_t now, const Readiness &ready, std::size_t most) {
  end_await(now, ready);
  std::vector<Command> due;
  while (due.size() < most && !active_.empty() && active_.front().due <= now) due.push_back(take_first());
  return due;
}

}  // namespace tarn_sim
