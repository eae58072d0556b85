// A file as a command finds it, and as it leaves it; and how the command line names what is in it.

#include "open.h"

#include <err.h>

#include <algorithm>

#include "commands.h"
#include "store.h"
#include "value.h"

namespace tarn_cfg {

Opened open_any(const std::string &path) {
  Opened opened = {read_file(path), {}};
  opened.found = survey(opened.bytes);
  return opened;
}

Opened open_sound(const std::string &path) {
  Opened opened = open_any(path);
  require_sound(path, opened.found);
  return opened;
}

void save(const Place &place, const Opened &old, View image, const std::string &max_size) {
  const Bytes bytes = put_in_file(place.path(), old.bytes, old.image().size(), image, room_of(max_size));
  if (bytes != old.bytes) place.replace(bytes);
}

HeaderValue header_value(const std::string &key) {
  if (key == "active") return HeaderValue::kActive;
  if (key == "flag") return HeaderValue::kFlag;
  if (key == "version") return HeaderValue::kVersion;
  return HeaderValue::kNone;
}

const char *type_of(HeaderValue value) { return value == HeaderValue::kVersion ? "int" : "char"; }

uint32_t read_header(const tlv_hdr &header, HeaderValue value) {
  if (value == HeaderValue::kVersion) return get32(header.version);
  return value == HeaderValue::kActive ? header.active : header.flag;
}

uint16_t parse_key(const std::string &key, bool or_header) {
  const std::optional<uint32_t> number = number_from(key, 0xFFFF);
  if (!number) {
    errx(kWrong, "key '%s': a number from 0 to 65535%s is needed", key.c_str(),
         or_header ? ", active, flag or version" : "");
  }
  return static_cast<uint16_t>(*number);
}

const Record *find_or_say(const std::string &path, const Survey &found, uint16_t key) {
  const Record *record = found.find(key);
  if (record == nullptr) warnx("%s: no field of key %s", path.c_str(), key_name(key).c_str());
  return record;
}

}  // namespace tarn_cfg
