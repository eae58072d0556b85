// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A document holds everything in an image and its file, except the length of the records and a right checksum, which
// can be computed.
//
// Each field states the form of its value: a number, a text, or hexadecimal digits. The zeros at the end of a text or
// buffer follow from its length. Unknown members of a document are refused, not ignored.

#include "document.h"

#include <utility>

#include "commands.h"
#include "common/json.h"
#include "common/output.h"
#include "common/report.h"
#include "common/words.h"
#include "file.h"
#include "open.h"
#include "store.h"

namespace tarn_tools::cfg {

namespace {

constexpr char kFormat[] = "tarn-cfg";
constexpr uint32_t kFormatVersion = 1;
constexpr char kTail[] = "behind";  // the member for the bytes after the image

Json field_to_json(const Record &record) {
  Json::Object field = {{"key", key_name(record.key)}};
  if (const std::optional<ValueType> type = number_type(record.value.size())) {
    field.emplace_back("type", name_of(*type));
    field.emplace_back("value", number_in(record.value));
    return field;
  }
  const std::optional<std::string> text = text_in(record.value);
  field.emplace_back("type", name_of(text ? ValueType::kText : ValueType::kBuffer));
  field.emplace_back("length", record.value.size());
  field.emplace_back("value", text ? *text : hex(without_padding(record.value)));
  return field;
}

// Reads the members of one JSON object. A missing or unexpected member is a Failure.
class Members {
 public:
  Members(const std::string &file, std::string where, const Json &object)
      : file_(file), where_(std::move(where)), object_(object) {
    if (object_.members() == nullptr) fail("an object is needed");
  }

  [[noreturn]] void fail(const std::string &reason) const {
    tarn_tools::fail("%s: %s: %s", file_.c_str(), where_.c_str(), reason.c_str());
  }

  [[nodiscard]] bool has(const char *name) const { return object_.find(name) != nullptr; }

  const Json &at(const char *name) {
    const Json *member = object_.find(name);
    if (member == nullptr) fail(std::string("no \"") + name + "\"");
    read_++;
    return *member;
  }

  uint32_t number(const char *name, uint32_t most) {
    const uint64_t *number = at(name).number();
    const bool fits = number != nullptr && *number <= most;
    if (!fits) fail(std::string("\"") + name + "\": a number from 0 to " + std::to_string(most) + " is needed");
    return static_cast<uint32_t>(*number);
  }

  std::string text(const char *name) {
    const std::string *text = at(name).text();
    if (text == nullptr) fail(std::string("\"") + name + "\": a text is needed");
    return *text;
  }

  Bytes bytes(const char *name) {
    const std::optional<Bytes> bytes = bytes_from_hex(text(name));
    if (!bytes) fail(std::string("\"") + name + "\": pairs of hexadecimal digits are needed");
    return *bytes;
  }

  void expect_no_more() const {
    if (read_ != object_.members()->size()) fail("more members than a document has");
  }

 private:
  const std::string &file_;
  std::string where_;
  const Json &object_;
  size_t read_ = 0;
};

// "0x0102" or 258.
uint16_t key_from(Members &field) {
  const Json &json = field.at("key");
  std::optional<uint32_t> key;
  if (json.text() != nullptr) key = number_from(*json.text(), UINT16_MAX);
  if (json.number() != nullptr) key = number_from(std::to_string(*json.number()), UINT16_MAX);
  if (!key) field.fail("\"key\": a number from 0 to 65535 is needed");
  return static_cast<uint16_t>(*key);
}

Bytes value_from(Members &field) {
  const std::optional<ValueType> type = type_named(field.text("type"));
  if (!type || *type == ValueType::kRaw) field.fail("\"type\": char, short, int, text or buffer is needed");
  if (const size_t size = size_of(*type)) return bytes_of_number(field.number("value", largest_number(size)), size);
  const uint32_t length = field.number("length", kMaxValueSize);
  Bytes value = type == ValueType::kText ? bytes_of_text(field.text("value")) : field.bytes("value");
  if (length == 0) field.fail("\"length\": a field has at least one byte");
  if (value.size() > length) field.fail(R"("value": longer than "length")");
  value.resize(length);
  return value;
}

Bytes image_from(const std::string &file, Members &document) {
  tlv_hdr header = {};
  header.active = static_cast<uint8_t>(document.number("active", UINT8_MAX));
  header.flag = static_cast<uint8_t>(document.number("flag", UINT8_MAX));
  put32(header.version, document.number("version", UINT32_MAX));
  const bool *sealed = document.at("sealed").boolean();
  if (sealed == nullptr) document.fail("\"sealed\": true or false is needed");
  const Json::Array *fields = document.at("fields").items();
  if (fields == nullptr) document.fail("\"fields\": an array is needed");

  Builder builder(header);
  for (size_t i = 0; i < fields->size(); i++) {
    Members field(file, "field " + std::to_string(i), (*fields)[i]);
    const uint16_t key = key_from(field);
    builder.add(key, value_from(field));
    field.expect_no_more();
  }
  return *sealed ? builder.sealed() : builder.unsealed();
}

// The bytes after the image: padding, or any bytes.
void add_tail(const std::string &file, const Json &json, Bytes &bytes) {
  Members tail(file, kTail, json);
  Bytes more;
  if (tail.has("hex")) {
    more = tail.bytes("hex");
  } else {
    const uint32_t size = tail.number("size", kMaxFileSize);
    more.assign(size, static_cast<uint8_t>(tail.number("fill", UINT8_MAX)));
  }
  tail.expect_no_more();
  bytes.insert(bytes.end(), more.begin(), more.end());
}

Json parse(const std::string &name, const std::string &text) {
  try {
    return parse_json(text);
  } catch (const JsonError &error) {
    tarn_tools::fail("%s: %s", name.c_str(), error.what());
  }
}

Json tail_to_json(View file, const Survey &found) {
  if (found.tail.fill) return Json::Object{{"size", found.tail.size}, {"fill", found.tail.fill}};
  return Json::Object{{"hex", hex(file.subspan(static_cast<size_t>(found.image_size)))}};
}

}  // namespace

std::string file_to_json(View file, const Survey &found) {
  Json::Object document = {{kFormat, kFormatVersion}};
  for (const HeaderValue value : kHeaderValues) document.emplace_back(name_of(value), read_header(found.header, value));
  document.emplace_back("sealed", found.is_sealed());
  Json::Array fields;
  for (const Record &record : found.records) fields.push_back(field_to_json(record));
  document.emplace_back("fields", std::move(fields));
  if (found.tail.size != 0) document.emplace_back(kTail, tail_to_json(file, found));
  return dump_json(std::move(document), Layout::kIndented) + "\n";
}

Bytes file_from_json(const std::string &name, const std::string &text) {
  const Json json = parse(name, text);
  Members document(name, "document", json);
  if (document.number(kFormat, UINT32_MAX) != kFormatVersion) document.fail("made by another version");
  Bytes bytes = image_from(name, document);
  if (document.has(kTail)) add_tail(name, document.at(kTail), bytes);
  document.expect_no_more();
  if (bytes.size() > kMaxFileSize) document.fail("more than " + counted(kMaxFileSize, "byte"));
  return bytes;
}

int export_json(const Options &options) {
  const Opened opened = open_sound(options.file);
  print(file_to_json(opened.bytes, opened.found));
  return kDone;
}

}  // namespace tarn_tools::cfg
