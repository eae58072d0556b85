// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The types of values, and values as people write and read them.
#ifndef TARN_TOOLS_CFG_VALUE_H
#define TARN_TOOLS_CFG_VALUE_H

#include <optional>
#include <string>
#include <string_view>

#include "image.h"

namespace tarn_tools::cfg {

enum class ValueType : uint8_t { kChar, kShort, kInt, kBuffer, kText, kRaw };

const char *name_of(ValueType type);
// Nothing if no type has the name.
std::optional<ValueType> type_named(std::string_view name);

// The bytes of a number of this type; 0 for the types that are not numbers.
size_t size_of(ValueType type);
// The largest number of this many bytes, 1 to 4.
constexpr uint32_t largest_number(size_t size) { return UINT32_MAX >> (32 - 8 * size); }
// The type of numbers of this many bytes; nothing if there is none.
std::optional<ValueType> number_type(size_t size);

// Pairs of hexadecimal digits, between which one blank, colon or dash may be.
std::optional<Bytes> bytes_from_hex(std::string_view text);
std::string hex(View bytes);

// A value of one, two or four bytes as a big-endian number.
std::optional<uint32_t> number_in(View value);
// A value as a text: UTF-8 without control characters, then zeros up to its end. Nothing for other values, and for
// values of only zeros.
std::optional<std::string> text_in(View value);
// The value without the zeros at its end.
View without_padding(View value);

// A value as readable text: "int 5", "text[32] "gateway"", "buffer[3] 334455".
std::string describe(View value);

// The number in `size` bytes, big-endian.
Bytes bytes_of_number(uint32_t number, size_t size);
Bytes bytes_of_text(std::string_view text);

}  // namespace tarn_tools::cfg

#endif
