// set, unset, resize: changes of fields, and set of the header's values.

#include <err.h>

#include <cinttypes>

#include "commands.h"
#include "open.h"
#include "store.h"
#include "value.h"

namespace tarn_cfg {

namespace {

Bytes with_header_value(const Opened &old, HeaderValue key, const Options &options) {
  if (options.type != type_of(key)) errx(kWrong, "%s is of type %s", options.key.c_str(), type_of(key));
  if (!options.length.empty()) errx(kWrong, "--length is for buffer and text");
  const uint32_t number = parse_number("value", options.value, key == HeaderValue::kVersion ? UINT32_MAX : UINT8_MAX);
  const Store store(old.image(), old.image().size());
  int32_t result = 0;
  if (key == HeaderValue::kActive) result = tlv_write_active(store.instance(), static_cast<uint8_t>(number));
  if (key == HeaderValue::kFlag) result = tlv_write_flag(store.instance(), static_cast<uint8_t>(number));
  if (key == HeaderValue::kVersion) result = tlv_write_version(store.instance(), number);
  if (result != 0) errx(kWrong, "internal: the header is not written");
  return store.image();
}

// What is to be written into a field of `length` bytes.
struct Change {
  uint16_t key;
  uint32_t length;
  Bytes data;
};

uint32_t parse_length(const std::string &text) {
  const uint32_t length = parse_number("length", text, kMaxValueSize);
  if (length == 0) errx(kWrong, "length 0: a field has 1 to %" PRIu32 " bytes", kMaxValueSize);
  return length;
}

Change fixed_change(uint16_t key, size_t size, const Options &options) {
  if (!options.length.empty()) errx(kWrong, "--length is for buffer and text");
  const uint32_t number = parse_number("value", options.value, UINT32_MAX >> (32 - 8 * size));
  return {key, static_cast<uint32_t>(size), bytes_of_number(number, size)};
}

Change buffer_change(uint16_t key, const Record *record, const Options &options) {
  std::optional<Bytes> data = options.type == "text" ? bytes_of_text(options.value) : bytes_from_hex(options.value);
  if (!data) errx(kWrong, "value '%s': pairs of hexadecimal digits are needed", options.value.c_str());
  size_t length = record != nullptr ? record->value.size() : data->size();
  if (!options.length.empty()) length = parse_length(options.length);
  if (length == 0) errx(kWrong, "an empty value: a new field needs --length");
  if (record == nullptr && length > kMaxValueSize) errx(kWrong, "a value of %zu bytes: %u fit", length, kMaxValueSize);
  if (data->size() > length) errx(kWrong, "a value of %zu bytes for a field of %zu", data->size(), length);
  if (data->empty()) data->push_back(0);  // the library takes no empty value; the rest of a field is zero anyway
  return {key, static_cast<uint32_t>(length), *data};
}

Change change_of(const Opened &old, const Options &options) {
  const uint16_t key = parse_key(options.key, true);
  const Record *record = old.found.find(key);
  const size_t size = size_of_type(options.type);
  Change change = size != 0 ? fixed_change(key, size, options) : buffer_change(key, record, options);
  if (record != nullptr && record->value.size() != change.length) {
    errx(kWrong, "%s: at 0x%zx: the field of key %s has %zu bytes, not %u; see resize", options.file.c_str(),
         record->offset, key_name(key).c_str(), record->value.size(), change.length);
  }
  return change;
}

int32_t write_field(tlv_inst *instance, const Change &change, const std::string &type) {
  const View data = change.data;
  if (type == "char") return tlv_write_char(instance, change.key, data[0]);
  if (type == "short") return tlv_write_short(instance, change.key, get16(data.data()));
  if (type == "int") return tlv_write_int(instance, change.key, get32(data.data()));
  return tlv_write_buffer(instance, change.key, change.length, static_cast<int32_t>(data.size()), data.data());
}

Bytes with_field(const Opened &old, const Options &options) {
  const Change change = change_of(old, options);
  const bool is_new = old.found.find(change.key) == nullptr;
  // The library seals and indexes an append only where the whole image fits what it is told.
  const Store store(old.image(), old.image().size() + (is_new ? kHeadSize + change.length : 0));
  if (write_field(store.instance(), change, options.type) != 0) errx(kWrong, "internal: the field is not written");
  return store.image();
}

}  // namespace

int set(const Options &options) {
  const Place place(options.file);
  const Opened old = open_sound(options.file);
  const HeaderValue key = header_value(options.key);
  const bool in_header = key != HeaderValue::kNone;
  save(place, old, in_header ? with_header_value(old, key, options) : with_field(old, options), options.max_size);
  return kDone;
}

int unset(const Options &options) {
  const Place place(options.file);
  const Opened old = open_sound(options.file);
  const uint16_t key = parse_key(options.key, false);
  if (find_or_say(options.file, old.found, key) == nullptr) return kNotSo;
  Builder builder(old.found.header);
  size_t taken = 0;
  for (const Record &record : old.found.records) {
    if (record.key == key) taken++;
    if (record.key != key) builder.add(record.key, record.value);
  }
  if (taken > 1) warnx("%s: key %s was there %zu times", options.file.c_str(), key_name(key).c_str(), taken);
  save(place, old, builder.sealed(), {});
  return kDone;
}

int resize(const Options &options) {
  const Place place(options.file);
  const Opened old = open_sound(options.file);
  const Record *found = find_or_say(options.file, old.found, parse_key(options.key, false));
  if (found == nullptr) return kNotSo;
  const uint32_t length = parse_length(options.length);
  const size_t used = without_padding(found->value).size();
  if (used > length && !options.cut) {
    errx(kWrong, "%s: at 0x%zx: %zu bytes of the value are not zero; --cut takes what is too long",
         options.file.c_str(), found->offset, used);
  }
  // Not with tlv_write_buffer, which would leave the header and the index behind.
  Builder builder(old.found.header);
  for (const Record &record : old.found.records) {
    Bytes value(record.value.begin(), record.value.end());
    if (&record == found) value.resize(length);
    builder.add(record.key, value);
  }
  save(place, old, builder.sealed(), options.max_size);
  return kDone;
}

}  // namespace tarn_cfg
