// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "levels.h"

#include <strings.h>

namespace tarn_tools::log {

std::string_view level_name(int level) { return mup_log_level_str_get(static_cast<uint8_t>(level)); }

std::optional<int> find_level(std::string_view name) {
  for (int level = 0; level < kLevelCount; level++) {
    if (level_name(level) == name) return level;
  }
  return std::nullopt;
}

std::optional<int> guess_level(std::string_view text) {
  if (text.empty()) return std::nullopt;
  if (text.size() == 1 && text[0] >= '0' && text[0] < '0' + kLevelCount) return text[0] - '0';
  std::optional<int> found;
  for (int level = 0; level < kLevelCount; level++) {
    const std::string_view name = level_name(level);
    if (text.size() > name.size() || strncasecmp(text.data(), name.data(), text.size()) != 0) continue;
    if (found) return std::nullopt;  // "e" may be Emergency or Error
    found = level;
  }
  return found;
}

}  // namespace tarn_tools::log
