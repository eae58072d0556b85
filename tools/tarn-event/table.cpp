// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "table.h"

#include <array>

namespace tarn_tools::event {

namespace {

constexpr std::array<const char *, 9> kLevels = {"Off",     "Emergency", "Alert", "Critical", "Error",
                                                 "Warning", "Notice",    "Info",  "Debug"};

std::string blanks(std::size_t size, std::size_t width) {
  std::string blanks;
  if (size < width) blanks.assign(width - size, ' ');
  return blanks;
}

std::string left(const std::string &text, std::size_t width) { return text + blanks(text.size(), width); }

std::string right(const std::string &text, std::size_t width) { return blanks(text.size(), width) + text; }

std::string decimal(std::uint64_t number) { return std::to_string(number); }

std::string seconds(std::uint64_t ms) {
  const std::string hundredths = decimal(ms % 1000 / 10);
  return decimal(ms / 1000) + (hundredths.size() < 2 ? ".0" : ".") + hundredths + " s";
}

std::string head(const State &now) {
  return seconds(now.time_ms) + ": " +
         (now.running ? "daemon " + std::to_string(now.pid) + " runs" : "the daemon has ended") +
         (now.bound ? ", events go to port " + decimal(now.destination) : ", it does not wait for events") +
         "\ndatagrams  " + decimal(now.sent) + " sent, " + decimal(now.lost) + " lost, " + decimal(now.no_listener) +
         " without a listener\nkernel log " + decimal(now.kernel_lines) + " lines, " + decimal(now.kernel_withheld) +
         " withheld by level, " + decimal(now.kernel_lost) + " lost\nscript     " + decimal(now.script_done) +
         " commands done, " + decimal(now.script_pending) + " to come\n";
}

bool is_of_interest(const EventState &event) {
  return event.count > 0 || event.suppressed_count > 0 || event.suppression || !event.name.empty();
}

// "+N" for the increase since the earlier state; nothing without one.
std::string since(std::uint64_t now, const std::uint64_t *before) {
  return before != nullptr && now > *before ? "+" + decimal(now - *before) : "";
}

const EventState *event_before(const State *before, unsigned type) {
  if (before == nullptr) return nullptr;
  for (const EventState &event : before->events) {
    if (event.type == type) return &event;
  }
  return nullptr;
}

std::string event_columns(const std::array<std::string, 9> &words) {
  return left(words[0], 5) + " " + left(words[1], 14) + " " + right(words[2], 10) + " " + right(words[3], 6) + "  " +
         left(words[4], 10) + " " + right(words[5], 10) + " " + right(words[6], 6) + " " + right(words[7], 10) + " " +
         right(words[8], 10) + "\n";
}

std::string event_row(const EventState &event, const EventState *before) {
  const std::string type = decimal(event.type);
  const std::string count = decimal(event.count);
  const std::string counted = since(event.count, before == nullptr ? nullptr : &before->count);
  if (!event.suppression) return event_columns({type, event.name, count, counted, "-", "-", "", "-", "-"});
  return event_columns({type, event.name, count, counted, event.suppressed ? "suppressed" : "open",
                        decimal(event.suppressed_count),
                        since(event.suppressed_count, before == nullptr ? nullptr : &before->suppressed_count),
                        decimal(event.threshold), decimal(event.period_ms) + " ms"});
}

std::string events(const State &now, const State *before, bool all) {
  std::string text =
      "\n" + event_columns({"Type", "Name", "Count", "", "Storms", "Dropped", "", "Threshold", "Period"});
  for (const EventState &event : now.events) {
    if (all || is_of_interest(event)) text += event_row(event, event_before(before, event.type));
  }
  return text;
}

const char *level(unsigned number) { return number < kLevels.size() ? kLevels.at(number) : "?"; }

std::string module_columns(const std::array<std::string, 4> &words) {
  return left(words[0], 6) + " " + left(words[1], 8) + " " + left(words[2], 10) + " " + words[3] + "\n";
}

std::string modules(const State &now) {
  if (now.modules.empty()) return "";
  std::string text = "\n" + module_columns({"Module", "Drivers", "Print", "Record"});
  for (const ModuleState &module : now.modules) {
    text += module_columns(
        {decimal(module.id), module.enabled ? "log" : "silent", level(module.print), level(module.record)});
  }
  return text;
}

}  // namespace

std::string table(const State &now, const State *before, bool all) {
  return head(now) + events(now, before, all) + modules(now);
}

}  // namespace tarn_tools::event
