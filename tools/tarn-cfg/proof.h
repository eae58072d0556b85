// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the checksum of a damaged image proves: where one number of its structure is damaged and nothing else, the
// checksum is right again with the true number.
#ifndef TARN_TOOLS_CFG_PROOF_H
#define TARN_TOOLS_CFG_PROOF_H

#include <optional>

#include "image.h"

namespace tarn_tools::cfg {

// The size of the record at `offset` of `area`; 0 where none begins there that is whole.
size_t record_size(View area, size_t offset);

// Where the bytes at the end of the file begin that are all alike; its end where they are too few for padding.
size_t padding_of(View file);

// The end of the records where cfg_len is damaged: whole records lead from the header to the end of the file or to
// padding. `found` is the survey of `file`.
std::optional<size_t> proved_end(View file, const Survey &found);

struct ProvedLength {
  size_t offset;  // of the record in the file
  uint16_t length;
};

// The length of the record whose length is damaged, where the records are not whole: with it they lead from the header
// to the end that cfg_len states. Nothing where two records come into question.
std::optional<ProvedLength> proved_length(View file, const Survey &found);

}  // namespace tarn_tools::cfg

#endif
