// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Records as JSON, one object per line. Bytes that are not UTF-8, such as those of a letter that was cut, become
// U+FFFD.
#ifndef TARN_TOOLS_LOG_JSON_H
#define TARN_TOOLS_LOG_JSON_H

#include <string>

#include "counts.h"
#include "log_file.h"
#include "times.h"

namespace tarn_tools::log {

std::string record_json(const std::string &path, std::size_t line, const Record &record, Zone zone);
std::string description_json(const std::string &path, const Description &description);
std::string counts_json(const Counts &counts);

}  // namespace tarn_tools::log

#endif
