// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// get: one value.

#include "commands.h"
#include "common/output.h"
#include "common/report.h"
#include "open.h"
#include "store.h"
#include "value.h"

namespace tarn_tools::cfg {

namespace {

uint32_t read_number(const tlv_inst *instance, uint16_t key, size_t size) {
  uint8_t one = 0;
  uint16_t two = 0;
  uint32_t four = 0;
  if (size == 1 && tlv_read_char(instance, key, &one) == 0) return one;
  if (size == 2 && tlv_read_short(instance, key, &two) == 0) return two;
  if (size == 4 && tlv_read_int(instance, key, &four) == 0) return four;
  fail("internal: the field is not read");
}

Bytes read_buffer(const tlv_inst *instance, const Record &record) {
  Bytes value(record.value.size());
  const uint32_t size = tlv_read_buffer(instance, record.key, static_cast<uint32_t>(value.size()), value.data());
  if (size != value.size()) fail("internal: the field is not read");
  return value;
}

// The type in which a value is shown if the user does not state one.
ValueType natural_type(View value) {
  if (const std::optional<ValueType> number = number_type(value.size())) return *number;
  return text_in(value) ? ValueType::kText : ValueType::kBuffer;
}

bool is_of(View value, ValueType type) {
  if (const size_t size = size_of(type)) return value.size() == size;
  return type != ValueType::kText || without_padding(value).empty() || text_in(value);
}

void print_value(const tlv_inst *instance, const Record &record, ValueType type) {
  if (const size_t size = size_of(type)) return print_line(std::to_string(read_number(instance, record.key, size)));
  const Bytes value = read_buffer(instance, record);
  if (type == ValueType::kRaw) print({value.begin(), value.end()});
  if (type == ValueType::kBuffer) print_line(hex(value));
  if (type == ValueType::kText) print_line(text_in(value).value_or(""));
}

}  // namespace

int get(const Options &options) {
  const Opened opened = open_sound(options.file);
  if (options.key.in_header) {
    print_line(std::to_string(read_header(opened.found.header, *options.key.in_header)));
    return kDone;
  }
  const Record *record = find_or_report(options.file, opened.found, options.key.number);
  if (record == nullptr) return kNotSo;
  const ValueType type = options.type.value_or(natural_type(record->value));
  if (!is_of(record->value, type)) {
    report(format("%s: at 0x%zx: the field of key %s is not %s but %s", options.file.c_str(), record->offset,
                  key_name(record->key).c_str(), name_of(type), describe(record->value).c_str()));
    return kNotSo;
  }
  const Store store(opened.image(), opened.image().size());
  print_value(store.instance(), *record, type);
  return kDone;
}

}  // namespace tarn_tools::cfg
