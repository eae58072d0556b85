// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Finds the whole parts of a damaged image.
#ifndef TARN_TOOLS_CFG_SALVAGE_H
#define TARN_TOOLS_CFG_SALVAGE_H

#include <vector>

#include "image.h"
#include "proof.h"

namespace tarn_tools::cfg {

// Bytes that do not belong to a whole record.
struct Gap {
  size_t offset;
  View bytes;
};

struct Salvage {
  std::vector<Record> records;
  std::optional<ProvedLength> length;  // a damaged length whose true value is proved
  std::vector<Gap> gaps;               // each holds at least a field, as far as can be known
  size_t area_end = 0;                 // the end of the records: later bytes do not belong to the image
  size_t missing_bytes = 0;            // bytes of the stated length that are after the end of the file
};

// `found` is the survey of `file`, which has a header. The result refers to `file`.
Salvage salvage(View file, const Survey &found);

}  // namespace tarn_tools::cfg

#endif
