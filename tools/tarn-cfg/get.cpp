// get: one value.

#include <err.h>

#include <cstdio>

#include "commands.h"
#include "open.h"
#include "store.h"
#include "value.h"

namespace tarn_cfg {

namespace {

void print(const std::string &text) {
  (void)fwrite(text.data(), 1, text.size(), stdout);
  (void)fputc('\n', stdout);
}

uint32_t read_number(const tlv_inst *instance, uint16_t key, size_t size) {
  uint8_t one = 0;
  uint16_t two = 0;
  uint32_t four = 0;
  if (size == 1 && tlv_read_char(instance, key, &one) == 0) return one;
  if (size == 2 && tlv_read_short(instance, key, &two) == 0) return two;
  if (size == 4 && tlv_read_int(instance, key, &four) == 0) return four;
  errx(kWrong, "internal: the field is not read");
}

Bytes read_buffer(const tlv_inst *instance, const Record &record) {
  Bytes value(record.value.size());
  const uint32_t size = tlv_read_buffer(instance, record.key, static_cast<uint32_t>(value.size()), value.data());
  if (size != value.size()) errx(kWrong, "internal: the field is not read");
  return value;
}

// What a value is shown as where the user does not say it.
std::string natural_type(View value) {
  if (const char *fixed = type_of_size(value.size())) return fixed;
  return text_of(value) ? "text" : "buffer";
}

bool is_of(View value, const std::string &type) {
  const size_t size = size_of_type(type);
  if (size != 0) return value.size() == size;
  return type != "text" || without_padding(value).empty() || text_of(value);
}

void print_value(const tlv_inst *instance, const Record &record, const std::string &type) {
  if (const size_t size = size_of_type(type)) {
    print(std::to_string(read_number(instance, record.key, size)));
    return;
  }
  const Bytes value = read_buffer(instance, record);
  if (type == "raw") (void)fwrite(value.data(), 1, value.size(), stdout);
  if (type == "buffer") print(hex(value));
  if (type == "text") print(text_of(value).value_or(""));
}

}  // namespace

int get(const Options &options) {
  const Opened opened = open_sound(options.file);
  if (const HeaderValue key = header_value(options.key); key != HeaderValue::kNone) {
    if (!options.type.empty() && options.type != type_of(key)) {
      errx(kWrong, "%s is of type %s", options.key.c_str(), type_of(key));
    }
    print(std::to_string(read_header(opened.found.header, key)));
    return kDone;
  }
  const Record *record = find_or_say(options.file, opened.found, parse_key(options.key, true));
  if (record == nullptr) return kNotSo;
  const std::string type = options.type.empty() ? natural_type(record->value) : options.type;
  if (!is_of(record->value, type)) {
    warnx("%s: at 0x%zx: the field of key %s is no %s but %s", options.file.c_str(), record->offset,
          key_name(record->key).c_str(), type.c_str(), describe(record->value).c_str());
    return kNotSo;
  }
  const Store store(opened.image(), opened.image().size());
  print_value(store.instance(), *record, type);
  return kDone;
}

}  // namespace tarn_cfg
