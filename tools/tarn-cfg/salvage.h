// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What of a damaged image is whole.
#ifndef TARN_TOOLS_CFG_SALVAGE_H
#define TARN_TOOLS_CFG_SALVAGE_H

#include <vector>

#include "image.h"
#include "proof.h"

namespace tarn_tools::cfg {

// Bytes that belong to no whole record.
struct Gap {
  size_t offset;
  View bytes;
};

struct Salvage {
  std::vector<Record> records;
  std::optional<ProvedLength> length;  // a damaged length that is known again
  std::vector<Gap> gaps;               // each holds at least a field, as far as can be known
  size_t area_end = 0;                 // where the records end: what comes from there on is not of the image
  size_t missing_bytes = 0;            // of the image as it states its length; the file ends before them
};

// `found` is the survey of `file`, which has a header. The result refers to `file`.
Salvage salvage(View file, const Survey &found);

}  // namespace tarn_tools::cfg

#endif
