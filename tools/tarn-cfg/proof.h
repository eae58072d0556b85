// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the checksum of a damaged image proves: if only one number of its structure is damaged, the checksum is right
// again with the true number.
#ifndef TARN_TOOLS_CFG_PROOF_H
#define TARN_TOOLS_CFG_PROOF_H

#include <optional>

#include "image.h"

namespace tarn_tools::cfg {

// The size of the record at `offset` of `area`; 0 if no whole record begins there.
size_t record_size(View area, size_t offset);

// The beginning of the equal bytes at the end of the file; the end of the file if they are too few for padding.
size_t padding_of(View file);

// The end of the records if cfg_len is damaged: a chain of whole records from the header to the end of the file or to
// padding. `found` is the survey of `file`.
std::optional<size_t> proved_end(View file, const Survey &found);

struct ProvedLength {
  size_t offset;  // of the record in the file
  uint16_t length;
};

// The true length of the record whose length is damaged: with it the chain of records leads from the header to the end
// that cfg_len states. Nothing if two records are possible.
std::optional<ProvedLength> proved_length(View file, const Survey &found);

}  // namespace tarn_tools::cfg

#endif
