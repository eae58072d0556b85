// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "filter.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace tarn_tools::log {

namespace {

// Whether the list is empty or the predicate holds for one of its members.
template <typename List, typename Predicate>
bool one_of(const List &list, Predicate predicate) {
  return list.empty() || std::any_of(list.begin(), list.end(), predicate);
}

}  // namespace

std::unique_ptr<Pattern> Pattern::compile(const std::string &expression, bool ignore_case, std::string *error) {
  std::unique_ptr<Pattern> pattern(new Pattern);
  const int flags = REG_EXTENDED | REG_NOSUB | (ignore_case ? REG_ICASE : 0);
  const int status = regcomp(&pattern->compiled_, expression.c_str(), flags);
  pattern->is_compiled_ = status == 0;
  if (pattern->is_compiled_) return pattern;
  std::array<char, 256> text = {};
  (void)regerror(status, &pattern->compiled_, text.data(), text.size());
  *error = text.data();
  return nullptr;
}

Pattern::~Pattern() {
  if (is_compiled_) regfree(&compiled_);
}

bool Filter::passes(const Record &record) const {
  if (record.level < level_first || record.level > level_last) return false;
  if (record.time < since || record.time > until) return false;
  if (!one_of(modules, [&record](const std::string &module) { return module == record.module; })) return false;
  const auto holds = [this, &record](const std::string &text) {
    const char *found =
        ignore_case ? strcasestr(record.text.c_str(), text.c_str()) : strstr(record.text.c_str(), text.c_str());
    return found != nullptr;
  };
  return one_of(texts, holds) &&
         one_of(patterns, [&record](const auto &pattern) { return pattern->is_in(record.text); });
}

}  // namespace tarn_tools::log
