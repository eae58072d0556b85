// Images as JSON. A document holds all that an image and its file are made of but what follows from the rest: the
// length of the records and a right checksum.
//
// Each field says in which of the forms its value stands: a number, a text, or hexadecimal digits. The zeros at the end
// of a text or buffer follow from its length. What a document says beyond that is refused rather than dropped.

#include "json.h"

#include <err.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "commands.h"
#include "file.h"
#include "open.h"
#include "store.h"
#include "value.h"

namespace tarn_cfg {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char *kFormat = "tarn-cfg";
constexpr unsigned kFormatVersion = 1;

// Names of files need not be UTF-8.
std::string dump(const Json &json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

Json field_to_json(const Record &record) {
  Json field = {{"key", key_name(record.key)}};
  if (const std::optional<uint32_t> number = number_of(record.value)) {
    field["type"] = type_of_size(record.value.size());
    field["value"] = *number;
    return field;
  }
  const std::optional<std::string> text = text_of(record.value);
  field["type"] = text ? "text" : "buffer";
  field["length"] = record.value.size();
  field["value"] = text ? *text : hex(without_padding(record.value));
  return field;
}

// Reads the members of one JSON object. What it misses or does not expect ends the program.
class Members {
 public:
  Members(const std::string &file, std::string where, const Json &object)
      : file_(file), where_(std::move(where)), object_(object) {
    if (!object_.is_object()) fail("an object is needed");
  }

  [[noreturn]] void fail(const std::string &reason) const {
    errx(kWrong, "%s: %s: %s", file_.c_str(), where_.c_str(), reason.c_str());
  }

  [[nodiscard]] bool has(const char *name) const { return object_.contains(name); }

  const Json &at(const char *name) {
    if (!has(name)) fail(std::string("no \"") + name + "\"");
    read_++;
    return object_.at(name);
  }

  uint32_t number(const char *name, uint32_t most) {
    const Json &json = at(name);
    const bool fits = json.is_number_unsigned() && json.get<uint64_t>() <= most;
    if (!fits) fail(std::string("\"") + name + "\": a number from 0 to " + std::to_string(most) + " is needed");
    return json.get<uint32_t>();
  }

  std::string text(const char *name) {
    const Json &json = at(name);
    if (!json.is_string()) fail(std::string("\"") + name + "\": a text is needed");
    return json.get<std::string>();
  }

  Bytes bytes(const char *name) {
    const std::optional<Bytes> bytes = bytes_from_hex(text(name));
    if (!bytes) fail(std::string("\"") + name + "\": pairs of hexadecimal digits are needed");
    return *bytes;
  }

  void expect_no_more() const {
    if (read_ != object_.size()) fail("more members than a document has");
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
  if (json.is_string()) key = number_from(json.get<std::string>(), UINT16_MAX);
  if (json.is_number_unsigned()) key = number_from(json.dump(), UINT16_MAX);
  if (!key) field.fail("\"key\": a number from 0 to 65535 is needed");
  return static_cast<uint16_t>(*key);
}

Bytes value_from(Members &field) {
  const std::string type = field.text("type");
  if (const size_t size = size_of_type(type)) {
    return bytes_of_number(field.number("value", UINT32_MAX >> (32 - 8 * size)), size);
  }
  if (type != "text" && type != "buffer") field.fail("\"type\": char, short, int, text or buffer is needed");
  const uint32_t length = field.number("length", kMaxValueSize);
  Bytes value = type == "text" ? bytes_of_text(field.text("value")) : field.bytes("value");
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
  const Json &sealed = document.at("sealed");
  if (!sealed.is_boolean()) document.fail("\"sealed\": true or false is needed");
  const Json &fields = document.at("fields");
  if (!fields.is_array()) document.fail("\"fields\": an array is needed");

  Builder builder(header);
  for (size_t i = 0; i < fields.size(); i++) {
    Members field(file, "field " + std::to_string(i), fields[i]);
    const uint16_t key = key_from(field);
    builder.add(key, value_from(field));
    field.expect_no_more();
  }
  return sealed.get<bool>() ? builder.sealed() : builder.unsealed();
}

void add_behind(const std::string &file, const Json &json, Bytes &bytes) {
  Members behind(file, "behind", json);
  Bytes more;
  if (behind.has("hex")) {
    more = behind.bytes("hex");
  } else {
    const uint32_t size = behind.number("size", kMaxFileSize);
    more.assign(size, static_cast<uint8_t>(behind.number("fill", UINT8_MAX)));
  }
  behind.expect_no_more();
  bytes.insert(bytes.end(), more.begin(), more.end());
}

// Ends the program at a member that is there twice: the parser would drop one of the two.
class Once {
 public:
  explicit Once(std::string file) : file_(std::move(file)) {}

  bool operator()(int depth, Json::parse_event_t event, const Json &parsed) {
    const auto level = static_cast<size_t>(depth);  // of the object; its names are one deeper
    if (event == Json::parse_event_t::object_start) {
      names_.resize(level);
      names_.emplace_back();
    } else if (event == Json::parse_event_t::key) {
      const auto &name = parsed.get_ref<const std::string &>();
      if (!names_[level - 1].insert(name).second) {
        errx(kWrong, "%s: \"%s\" is there twice in one object", file_.c_str(), name.c_str());
      }
    }
    return true;
  }

 private:
  std::string file_;
  std::vector<std::set<std::string>> names_;  // of each object around, outermost first
};

Json parse(const std::string &name, const std::string &text) {
  // The parser would take a NUL for the end, and drop what stands behind it.
  if (const size_t nul = text.find('\0'); nul != std::string::npos) {
    errx(kWrong, "%s: at 0x%zx: no JSON", name.c_str(), nul);
  }
  try {
    return Json::parse(text, Once(name));
  } catch (const Json::parse_error &error) {
    errx(kWrong, "%s: at 0x%zx: no JSON", name.c_str(), error.byte == 0 ? 0 : error.byte - 1);
  }
}

Json findings_to_json(const std::vector<Finding> &findings) {
  Json list = Json::array();
  for (const Finding &finding : findings) list.push_back({{"offset", finding.offset}, {"text", finding.text}});
  return list;
}

Json record_to_json(const Record &record) {
  Json json = {{"offset", record.offset}, {"key", record.key}, {"length", record.value.size()}};
  const std::optional<uint32_t> number = number_of(record.value);
  const std::optional<std::string> text = text_of(record.value);
  json["number"] = number ? Json(*number) : Json();
  json["text"] = text ? Json(*text) : Json();
  json["hex"] = hex(record.value);
  return json;
}

}  // namespace

std::string file_to_json(View file, const Survey &found) {
  Json document = {{kFormat, kFormatVersion}};
  for (const char *name : {"active", "flag", "version"}) {
    document[name] = read_header(found.header, header_value(name));
  }
  document["sealed"] = found.is_sealed();
  document["fields"] = Json::array();
  for (const Record &record : found.records) document["fields"].push_back(field_to_json(record));
  if (found.behind.size != 0 && found.behind.fill) {
    document["behind"] = {{"size", found.behind.size}, {"fill", *found.behind.fill}};
  } else if (found.behind.size != 0) {
    document["behind"] = {{"hex", hex(file.subspan(static_cast<size_t>(found.image_size)))}};
  }
  return dump(document);
}

Bytes file_from_json(const std::string &name, const std::string &text) {
  const Json json = parse(name, text);
  Members document(name, "document", json);
  if (document.number(kFormat, UINT32_MAX) != kFormatVersion) document.fail("made by another version");
  Bytes bytes = image_from(name, document);
  if (document.has("behind")) add_behind(name, document.at("behind"), bytes);
  document.expect_no_more();
  if (bytes.size() > kMaxFileSize) document.fail("more than " + std::to_string(kMaxFileSize) + " bytes");
  return bytes;
}

std::string survey_json(const std::string &path, size_t file_size, const Survey &found) {
  Json json = {{"file", path}, {"size", file_size}};
  if (found.has_header) {
    json["image_size"] = found.image_size;
    json["magic"] = get32(found.header.magic);
    json["checksum"] = found.stored_checksum();
    json["right_checksum"] = found.right_checksum ? Json(*found.right_checksum) : Json();
    for (const char *name : {"active", "flag", "version"}) {
      json[name] = read_header(found.header, header_value(name));
    }
  }
  json["records"] = Json::array();
  for (const Record &record : found.records) json["records"].push_back(record_to_json(record));
  json["faults"] = findings_to_json(found.faults);
  json["notes"] = findings_to_json(found.notes);
  return dump(json);
}

std::string findings_json(const std::string &path, size_t file_size, const Survey &found) {
  return dump({{"file", path},
               {"size", file_size},
               {"sound", found.faults.empty()},
               {"faults", findings_to_json(found.faults)},
               {"notes", findings_to_json(found.notes)}});
}

std::string differences_json(const std::vector<Difference> &differences) {
  Json list = Json::array();
  for (const Difference &difference : differences) {
    list.push_back({{"what", difference.what},
                    {"before", difference.before ? Json(*difference.before) : Json()},
                    {"after", difference.after ? Json(*difference.after) : Json()}});
  }
  return dump(list);
}

int export_json(const Options &options) {
  const Opened opened = open_sound(options.file);
  (void)fputs(file_to_json(opened.bytes, opened.found).c_str(), stdout);
  return kDone;
}

}  // namespace tarn_cfg
