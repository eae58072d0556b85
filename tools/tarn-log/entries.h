// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Records of several files, in one order.
#ifndef TARN_TOOLS_LOG_ENTRIES_H
#define TARN_TOOLS_LOG_ENTRIES_H

#include <optional>
#include <string>
#include <vector>

#include "log_file.h"

namespace tarn_tools::log {

// A line that is a record, and the file that it is in. Both outlive it.
struct Entry {
  const std::string *path;
  const Line *line;

  const Record &record() const { return *line->record; }  // NOLINT(bugprone-unchecked-optional-access): it is a record
};

// Merges the files by time. The records of one file keep their order, even if the gateway's clock was set back.
std::vector<Entry> merge(const std::vector<std::vector<Entry>> &files);

// Keeps only the last `count`.
void keep_last(std::vector<Entry> *entries, std::optional<std::size_t> count);

}  // namespace tarn_tools::log

#endif
