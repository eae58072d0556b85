// Numbers, bytes and texts as people write them.
#ifndef TARN_CFG_VALUE_H
#define TARN_CFG_VALUE_H

#include <optional>
#include <string>
#include <string_view>

#include "image.h"

namespace tarn_cfg {

// The sizes of the fixed types, by name: "char" 1, "short" 2, "int" 4; 0 for another name.
size_t size_of_type(std::string_view type);
// The other way round: null for a size that no fixed type has.
const char *type_of_size(size_t size);

// A decimal number, or a hexadecimal one behind 0x, of at most `most`.
std::optional<uint32_t> number_from(std::string_view text, uint32_t most);
// The same; ends the program where `text` is none, with `what` in the message.
uint32_t parse_number(const char *what, const std::string &text, uint32_t most);

// Pairs of hexadecimal digits, between which one blank, colon or dash may stand.
std::optional<Bytes> bytes_from_hex(std::string_view text);
std::string hex(View bytes);

// The big-endian number that a value of one, two or four bytes is.
std::optional<uint32_t> number_of(View value);
// The text that a value is: UTF-8 without control characters, and zeros up to its end. Nothing for other values and
// for one of zeros alone.
std::optional<std::string> text_of(View value);
// The value without the zeros at its end.
View without_padding(View value);

// A value for people: "int 5", "text[32] "gateway"", "buffer[3] 334455".
std::string describe(View value);

// The number in `size` bytes, big-endian.
Bytes bytes_of_number(uint32_t number, size_t size);
Bytes bytes_of_text(std::string_view text);

}  // namespace tarn_cfg

#endif
