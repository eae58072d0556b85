// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Selects records.
#ifndef TARN_TOOLS_LOG_FILTER_H
#define TARN_TOOLS_LOG_FILTER_H

#include <regex.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "levels.h"
#include "log_file.h"

namespace tarn_tools::log {

// A POSIX extended regular expression.
class Pattern {
 public:
  // Null if the expression is not valid; `error` then has the reason.
  static std::unique_ptr<Pattern> compile(const std::string &expression, bool ignore_case, std::string *error);

  ~Pattern();
  Pattern(const Pattern &) = delete;
  Pattern &operator=(const Pattern &) = delete;

  bool is_in(const std::string &text) const { return regexec(&compiled_, text.c_str(), 0, nullptr, 0) == 0; }

 private:
  Pattern() = default;

  regex_t compiled_ = {};
  bool is_compiled_ = false;
};

// All conditions must hold. The condition of a list holds if it is empty or one of its members holds.
struct Filter {
  std::vector<std::string> modules;
  int level_first = 0;
  int level_last = kLevelCount - 1;
  std::int64_t since = std::numeric_limits<std::int64_t>::min();
  std::int64_t until = std::numeric_limits<std::int64_t>::max();
  std::vector<std::string> texts;
  std::vector<std::unique_ptr<Pattern>> patterns;
  bool ignore_case = false;

  bool passes(const Record &record) const;
};

}  // namespace tarn_tools::log

#endif
