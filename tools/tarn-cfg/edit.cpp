// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// set, unset, resize: changes of fields, and set of the header's values.

#include <cinttypes>

#include "commands.h"
#include "common/report.h"
#include "open.h"
#include "store.h"

namespace tarn_tools::cfg {

namespace {

uint32_t number_of_value(const Options &options) { return number_in(options.value).value_or(0); }

Bytes with_header_value(const Opened &old, const Options &options) {
  const uint32_t number = number_of_value(options);
  const Store store(old.image(), old.image().size());
  int32_t result = 0;
  switch (*options.key.in_header) {  // NOLINT(bugprone-unchecked-optional-access): the caller has looked
    case HeaderValue::kActive:
      result = tlv_write_active(store.instance(), static_cast<uint8_t>(number));
      break;
    case HeaderValue::kFlag:
      result = tlv_write_flag(store.instance(), static_cast<uint8_t>(number));
      break;
    case HeaderValue::kVersion:
      result = tlv_write_version(store.instance(), number);
      break;
  }
  if (result != 0) fail("internal: the header is not written");
  return store.image();
}

// The length of the field that is to be written; `record` is the present one, null without one.
uint32_t length_of_field(const Record *record, const Options &options) {
  const size_t needed = options.value.size();
  const size_t length = options.length ? *options.length : record != nullptr ? record->value.size() : needed;
  if (length == 0) fail("an empty value: a new field needs --length");
  if (length > kMaxValueSize) fail("a value of %s: %" PRIu32 " fit", counted(length, "byte").c_str(), kMaxValueSize);
  if (needed > length) fail("a value of %s for a field of %zu", counted(needed, "byte").c_str(), length);
  return static_cast<uint32_t>(length);
}

uint32_t checked_length(const Record *record, const Options &options) {
  const size_t number_size = size_of(*options.type);  // NOLINT(bugprone-unchecked-optional-access): set needs one
  const uint32_t length = number_size != 0 ? static_cast<uint32_t>(number_size) : length_of_field(record, options);
  if (record == nullptr || record->value.size() == length) return length;
  fail("%s: at 0x%zx: the field of key %s has %s, not %" PRIu32 "; see resize", options.file.c_str(), record->offset,
       key_name(record->key).c_str(), counted(record->value.size(), "byte").c_str(), length);
}

int32_t write_field(tlv_inst *instance, uint32_t length, const Options &options) {
  const uint16_t key = options.key.number;
  const uint32_t number = number_of_value(options);
  // The library refuses an empty value; the rest of a field is zero anyway.
  const Bytes data = options.value.empty() ? Bytes{0} : options.value;
  switch (*options.type) {  // NOLINT(bugprone-unchecked-optional-access): set needs one
    case ValueType::kChar:
      return tlv_write_char(instance, key, static_cast<uint8_t>(number));
    case ValueType::kShort:
      return tlv_write_short(instance, key, static_cast<uint16_t>(number));
    case ValueType::kInt:
      return tlv_write_int(instance, key, number);
    case ValueType::kBuffer:
    case ValueType::kText:
    case ValueType::kRaw:
      break;
  }
  return tlv_write_buffer(instance, key, length, static_cast<int32_t>(data.size()), data.data());
}

Bytes with_field(const Opened &old, const Options &options) {
  const Record *record = old.found.find(options.key.number);
  const uint32_t length = checked_length(record, options);
  // The library seals and indexes an append only if the whole image fits `max_size`.
  const Store store(old.image(), old.image().size() + (record == nullptr ? kHeadSize + length : 0));
  if (write_field(store.instance(), length, options) != 0) fail("internal: the field is not written");
  return store.image();
}

}  // namespace

int set(const Options &options) {
  const Place place(options.file);
  const Opened old = open_sound(options.file);
  save(place, old, options.key.in_header ? with_header_value(old, options) : with_field(old, options),
       options.max_size);
  return kDone;
}

int unset(const Options &options) {
  const Place place(options.file);
  const Opened old = open_sound(options.file);
  const uint16_t key = options.key.number;
  if (find_or_report(options.file, old.found, key) == nullptr) return kNotSo;
  Builder builder(old.found.header);
  size_t removed = 0;
  for (const Record &record : old.found.records) {
    if (record.key == key) removed++;
    if (record.key != key) builder.add(record.key, record.value);
  }
  if (removed > 1)
    report(format("%s: key %s was there %zu times", options.file.c_str(), key_name(key).c_str(), removed));
  save(place, old, builder.sealed(), options.max_size);
  return kDone;
}

int resize(const Options &options) {
  const Place place(options.file);
  const Opened old = open_sound(options.file);
  const Record *found = find_or_report(options.file, old.found, options.key.number);
  if (found == nullptr) return kNotSo;
  const uint32_t length = options.length.value_or(0);
  const size_t used = without_padding(found->value).size();
  if (used > length && !options.cut) {
    fail("%s: at 0x%zx: the value is longer: %s before its zeros; --cut removes what is too long", options.file.c_str(),
         found->offset, counted(used, "byte").c_str());
  }
  // Not with tlv_write_buffer, which would not change the header and the index.
  Builder builder(old.found.header);
  for (const Record &record : old.found.records) {
    Bytes value(record.value.begin(), record.value.end());
    if (&record == found) value.resize(length);
    builder.add(record.key, value);
  }
  save(place, old, builder.sealed(), options.max_size);
  return kDone;
}

}  // namespace tarn_tools::cfg
