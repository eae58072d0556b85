// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The levels, with the library's names.
#ifndef TARN_TOOLS_LOG_LEVELS_H
#define TARN_TOOLS_LOG_LEVELS_H

#include <optional>
#include <string_view>

#include "tarn/log.h"

namespace tarn_tools::log {

constexpr int kLevelCount = MUP_LOG_DEBUG + 1;

// "Off" to "Debug".
std::string_view level_name(int level);

// The level that has exactly this name in a file.
std::optional<int> find_level(std::string_view name);

// The level that the user names: by its number, its name, or a unique beginning of it, in upper or lower case.
std::optional<int> guess_level(std::string_view text);

}  // namespace tarn_tools::log

#endif
