// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "counts.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>

#include "common/report.h"
#include "levels.h"

namespace tarn_tools::log {

namespace {

constexpr std::size_t kPlainColumns = 80;  // if the terminal does not report its width
constexpr std::size_t kBarMin = 8;
constexpr std::size_t kGap = 2;     // before each column
constexpr std::size_t kMargin = 1;  // at the right

std::size_t widest_name(const Counts::List &list) {
  std::size_t widest = 0;
  for (const auto &[name, count] : list) widest = std::max(widest, printable(name).size());
  return widest;
}

std::size_t most(const Counts::List &list) {
  std::size_t most = 0;
  for (const auto &[name, count] : list) most = std::max(most, count);
  return most;
}

std::string bar(std::size_t length) {
  const bool is_utf8 = strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  std::string text;
  for (std::size_t i = 0; i < length; i++) text += is_utf8 ? "\u2588" : "#";
  return text;
}

// The longest bar ends before the last column of the line; the shortest has one character.
std::string table(const char *title, const Counts::List &list, std::size_t name_width, std::size_t columns) {
  const std::size_t largest = most(list);
  const std::size_t count_width = std::to_string(largest).size();
  const std::size_t used = 3 * kGap + name_width + count_width + kMargin;
  const std::size_t bar_width = std::max(columns > used ? columns - used : 0, kBarMin);
  std::string text = std::string(title) + "\n";
  for (const auto &[name, count] : list) {
    const std::string shown = printable(name);
    const std::string number = std::to_string(count);
    text.append("  ")
        .append(shown)
        .append(name_width - shown.size() + kGap + count_width - number.size(), ' ')
        .append(number);
    if (columns > 0) text.append("  ").append(bar(std::max<std::size_t>(count * bar_width / largest, 1)));
    text += "\n";
  }
  return text;
}

}  // namespace

Counts count(const std::vector<Entry> &entries) {
  std::array<std::size_t, kLevelCount> levels = {};
  std::map<std::string, std::size_t> modules;
  for (const Entry &entry : entries) {
    levels.at(static_cast<std::size_t>(entry.record().level))++;
    modules[entry.record().module]++;
  }
  Counts counts;
  counts.total = entries.size();
  for (int level = 0; level < kLevelCount; level++) {
    const std::size_t number = levels.at(static_cast<std::size_t>(level));
    if (number > 0) counts.levels.emplace_back(level_name(level), number);
  }
  counts.modules.assign(modules.begin(), modules.end());
  std::stable_sort(counts.modules.begin(), counts.modules.end(),
                   [](const auto &one, const auto &other) { return one.second > other.second; });
  return counts;
}

std::string counts_table(const Counts &counts, std::size_t columns) {
  std::string text = counted(counts.total, "record") + "\n";
  if (counts.total == 0) return text;
  const std::size_t name_width = std::max(widest_name(counts.levels), widest_name(counts.modules));
  return text + "\n" + table("By level", counts.levels, name_width, columns) + "\n" +
         table("By module", counts.modules, name_width, columns);
}

std::size_t terminal_columns() {
  if (isatty(STDOUT_FILENO) == 0) return 0;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kPlainColumns;
  return size.ws_col;
}

}  // namespace tarn_tools::log
