// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// How many records each level and each module has.
#ifndef TARN_TOOLS_LOG_COUNTS_H
#define TARN_TOOLS_LOG_COUNTS_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "entries.h"

namespace tarn_tools::log {

struct Counts {
  using List = std::vector<std::pair<std::string, std::size_t>>;

  std::size_t total = 0;
  List levels;   // the most severe first; only levels with records
  List modules;  // the most frequent first, then by name
};

Counts count(const std::vector<Entry> &entries);

// Prints two tables. `columns` is the width of the terminal, which bars fill; 0 for tables without bars.
std::string counts_table(const Counts &counts, std::size_t columns);

// The width of the terminal at standard output; 0 if it is not a terminal.
std::size_t terminal_columns();

}  // namespace tarn_tools::log

#endif
