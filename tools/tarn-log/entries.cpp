// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "entries.h"

namespace tarn_tools::log {

std::vector<Entry> merge(const std::vector<std::vector<Entry>> &files) {
  std::vector<std::size_t> next(files.size(), 0);
  std::vector<Entry> merged;
  for (;;) {
    const Entry *earliest = nullptr;
    std::size_t from = 0;
    for (std::size_t i = 0; i < files.size(); i++) {
      if (next[i] == files[i].size()) continue;
      const Entry &candidate = files[i][next[i]];
      if (earliest != nullptr && candidate.record().time >= earliest->record().time) continue;
      earliest = &candidate;
      from = i;
    }
    if (earliest == nullptr) return merged;
    merged.push_back(*earliest);
    next[from]++;
  }
}

void keep_last(std::vector<Entry> *entries, std::optional<std::size_t> count) {
  if (!count || entries->size() <= *count) return;
  entries->erase(entries->begin(), entries->end() - static_cast<std::ptrdiff_t>(*count));
}

}  // namespace tarn_tools::log
