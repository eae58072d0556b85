// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "value.h"

namespace tarn_tools::cfg {

namespace {

constexpr struct {
  ValueType type;
  const char *name;
  size_t size;
} kTypes[] = {
    {ValueType::kChar, "char", 1},     {ValueType::kShort, "short", 2}, {ValueType::kInt, "int", 4},
    {ValueType::kBuffer, "buffer", 0}, {ValueType::kText, "text", 0},   {ValueType::kRaw, "raw", 0},
};

int digit_from(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool is_separator(char c) { return c == ' ' || c == ':' || c == '-'; }

// The number of bytes of the UTF-8 character at the beginning of `text`; 0 if there is none, or a control character.
size_t character_size(View text) {
  const uint8_t first = text[0];
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
  uint32_t code = first & (0x7FU >> size);
  for (size_t i = 1; i < size; i++) {
    if ((text[i] & 0xC0) != 0x80) return 0;
    code = code << 6 | (text[i] & 0x3FU);
  }
  const bool overlong = code < (size == 4 ? 0x10000U : size == 3 ? 0x800U : 0x80U);
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return overlong || surrogate || code < 0xA0 || code > 0x10FFFF ? 0 : size;
}

}  // namespace

const char *name_of(ValueType type) {
  for (const auto &known : kTypes) {
    if (type == known.type) return known.name;
  }
  return "";
}

std::optional<ValueType> type_named(std::string_view name) {
  for (const auto &known : kTypes) {
    if (name == known.name) return known.type;
  }
  return std::nullopt;
}

size_t size_of(ValueType type) {
  for (const auto &known : kTypes) {
    if (type == known.type) return known.size;
  }
  return 0;
}

std::optional<ValueType> number_type(size_t size) {
  for (const auto &known : kTypes) {
    if (size != 0 && size == known.size) return known.type;
  }
  return std::nullopt;
}

std::optional<Bytes> bytes_from_hex(std::string_view text) {
  Bytes bytes;
  for (size_t at = 0; at < text.size(); at += 2) {
    if (at != 0 && is_separator(text[at])) at++;
    if (at + 1 >= text.size()) return std::nullopt;
    const int high = digit_from(text[at]);
    const int low = digit_from(text[at + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return bytes;
}

std::string hex(View bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t byte : bytes) {
    text += kDigits[byte / 16];
    text += kDigits[byte % 16];
  }
  return text;
}

std::optional<uint32_t> number_in(View value) {
  if (!number_type(value.size())) return std::nullopt;
  uint32_t number = 0;
  for (const uint8_t byte : value) number = number << 8 | byte;
  return number;
}

View without_padding(View value) {
  while (!value.empty() && value.back() == 0) value = value.first(value.size() - 1);
  return value;
}

std::optional<std::string> text_in(View value) {
  const View text = without_padding(value);
  if (text.empty()) return std::nullopt;
  for (View rest = text; !rest.empty();) {
    const size_t size = character_size(rest);
    if (size == 0) return std::nullopt;
    rest = rest.subspan(size);
  }
  return std::string(text.begin(), text.end());
}

std::string describe(View value) {
  if (const std::optional<ValueType> type = number_type(value.size())) {
    return std::string(name_of(*type)) + " " + std::to_string(number_in(value).value_or(0));
  }
  const std::string size = "[" + std::to_string(value.size()) + "] ";
  if (const std::optional<std::string> text = text_in(value)) return "text" + size + '"' + *text + '"';
  return "buffer" + size + hex(value);
}

Bytes bytes_of_number(uint32_t number, size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; i++) bytes[i] = static_cast<uint8_t>(number >> (8 * (size - 1 - i)));
  return bytes;
}

Bytes bytes_of_text(std::string_view text) { return {text.begin(), text.end()}; }

}  // namespace tarn_tools::cfg
