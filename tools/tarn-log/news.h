// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Finds the new lines in a log file that was rewritten.
#ifndef TARN_TOOLS_LOG_NEWS_H
#define TARN_TOOLS_LOG_NEWS_H

#include <vector>

#include "log_file.h"

namespace tarn_tools::log {

// Remembers the lines of a file's last state.
class News {
 public:
  // The indices of the lines of the file's present state that were not in the last one. Each line is new only once,
  // even if lines have vanished at the beginning.
  std::vector<std::size_t> take(const std::vector<Line> &now);

 private:
  std::vector<Line> seen_;
};

}  // namespace tarn_tools::log

#endif
