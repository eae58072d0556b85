// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "key.h"

#include "common/words.h"

namespace tarn_tools::cfg {

namespace {

constexpr char kWhat[] = "key";
constexpr char kNeeded[] = "is not a number from 0 to 65535";

}  // namespace

const char *name_of(HeaderValue value) {
  switch (value) {
    case HeaderValue::kActive:
      return "active";
    case HeaderValue::kFlag:
      return "flag";
    case HeaderValue::kVersion:
      break;
  }
  return "version";
}

ValueType type_of(HeaderValue value) { return value == HeaderValue::kVersion ? ValueType::kInt : ValueType::kChar; }

uint32_t read_header(const tlv_hdr &header, HeaderValue value) {
  if (value == HeaderValue::kVersion) return get32(header.version);
  return value == HeaderValue::kActive ? header.active : header.flag;
}

Key field_key(const std::string &word) {
  const std::optional<uint32_t> number = number_from(word, UINT16_MAX);
  if (!number) refuse(kWhat, word, kNeeded);
  return {std::nullopt, static_cast<uint16_t>(*number)};
}

Key field_or_header_key(const std::string &word) {
  for (const HeaderValue value : kHeaderValues) {
    if (word == name_of(value)) return {value, 0};
  }
  const std::optional<uint32_t> number = number_from(word, UINT16_MAX);
  if (!number) refuse(kWhat, word, std::string(kNeeded) + ", nor active, flag or version");
  return {std::nullopt, static_cast<uint16_t>(*number)};
}

}  // namespace tarn_tools::cfg
