// Numbers, bytes and texts as people write them.

#include "value.h"

#include <err.h>

#include <charconv>

#include "commands.h"

namespace tarn_cfg {

namespace {

constexpr struct {
  const char *name;
  size_t size;
} kFixedTypes[] = {{"char", 1}, {"short", 2}, {"int", 4}};

int digit_from(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool is_separator(char c) { return c == ' ' || c == ':' || c == '-'; }

// The bytes of the UTF-8 character that `text` begins with; 0 where it begins with none, or with a control character.
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

size_t size_of_type(std::string_view type) {
  for (const auto &fixed : kFixedTypes) {
    if (type == fixed.name) return fixed.size;
  }
  return 0;
}

const char *type_of_size(size_t size) {
  for (const auto &fixed : kFixedTypes) {
    if (size == fixed.size) return fixed.name;
  }
  return nullptr;
}

std::optional<uint32_t> number_from(std::string_view text, uint32_t most) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  if (is_hex) text.remove_prefix(2);
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, is_hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size() || number > most) return std::nullopt;
  return number;
}

uint32_t parse_number(const char *what, const std::string &text, uint32_t most) {
  const std::optional<uint32_t> number = number_from(text, most);
  if (!number) errx(kWrong, "%s '%s': a number from 0 to %u is needed", what, text.c_str(), most);
  return *number;
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

std::optional<uint32_t> number_of(View value) {
  if (type_of_size(value.size()) == nullptr) return std::nullopt;
  uint32_t number = 0;
  for (const uint8_t byte : value) number = number << 8 | byte;
  return number;
}

View without_padding(View value) {
  while (!value.empty() && value.back() == 0) value = value.first(value.size() - 1);
  return value;
}

std::optional<std::string> text_of(View value) {
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
  if (const std::optional<uint32_t> number = number_of(value)) {
    return std::string(type_of_size(value.size())) + " " + std::to_string(*number);
  }
  const std::string size = "[" + std::to_string(value.size()) + "] ";
  if (const std::optional<std::string> text = text_of(value)) return "text" + size + '"' + *text + '"';
  return "buffer" + size + hex(value);
}

Bytes bytes_of_number(uint32_t number, size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; i++) bytes[i] = static_cast<uint8_t>(number >> (8 * (size - 1 - i)));
  return bytes;
}

Bytes bytes_of_text(std::string_view text) { return {text.begin(), text.end()}; }

}  // namespace tarn_cfg
