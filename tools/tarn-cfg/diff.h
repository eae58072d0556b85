// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The differences of two images.
#ifndef TARN_TOOLS_CFG_DIFF_H
#define TARN_TOOLS_CFG_DIFF_H

#include "image.h"

namespace tarn_tools::cfg {

// If only `after` is set, the value was added; if only `before` is set, it was removed.
struct Difference {
  std::string what;  // a key, or "active", "flag", "version", "order"
  std::optional<std::string> before, after;
};

std::vector<Difference> differences(const Survey &a, const Survey &b);

}  // namespace tarn_tools::cfg

#endif
