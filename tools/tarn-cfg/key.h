// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Identifies a value: the key of a field, or the name of a value in the header.
#ifndef TARN_TOOLS_CFG_KEY_H
#define TARN_TOOLS_CFG_KEY_H

#include <string>

#include "tarn/startup_cfg.h"
#include "value.h"

namespace tarn_tools::cfg {

enum class HeaderValue : uint8_t { kActive, kFlag, kVersion };

constexpr HeaderValue kHeaderValues[] = {HeaderValue::kActive, HeaderValue::kFlag, HeaderValue::kVersion};

const char *name_of(HeaderValue value);
ValueType type_of(HeaderValue value);
uint32_t read_header(const tlv_hdr &header, HeaderValue value);

struct Key {
  std::optional<HeaderValue> in_header;
  uint16_t number = 0;  // of a field, unless it is in the header
};

// Both throw a UsageError if the word is not such a key.
Key field_key(const std::string &word);
Key field_or_header_key(const std::string &word);

}  // namespace tarn_tools::cfg

#endif
