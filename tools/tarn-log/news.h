// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What is new in a log file that was written anew.
#ifndef TARN_TOOLS_LOG_NEWS_H
#define TARN_TOOLS_LOG_NEWS_H

#include <vector>

#include "log_file.h"

namespace tarn_tools::log {

// Remembers the lines of a file's last state.
class News {
 public:
  // The lines of the file's present state that were not in the last one, as indices. Each line is news once, however
  // many lines have vanished at the beginning.
  std::vector<std::size_t> take(const std::vector<Line> &now);

 private:
  std::vector<Line> seen_;
};

}  // namespace tarn_tools::log

#endif
