// A file as a command finds it, and as it leaves it.
#ifndef TARN_CFG_OPEN_H
#define TARN_CFG_OPEN_H

#include "file.h"
#include "image.h"

namespace tarn_cfg {

struct Opened {
  Bytes bytes;
  Survey found;  // of `bytes`

  // Of a sound file.
  [[nodiscard]] View image() const { return View(bytes).first(static_cast<size_t>(found.image_size)); }
};

// Reads a file; whatever it holds.
Opened open_any(const std::string &path);
// Reads a file; ends the program where its image is damaged.
Opened open_sound(const std::string &path);

// Puts `image` in the place of the file's image, with room as `max_size` says. What would change no byte is not
// written.
void save(const Place &place, const Opened &old, View image, const std::string &max_size);

// The header's values as keys.
enum class HeaderValue { kNone, kActive, kFlag, kVersion };
HeaderValue header_value(const std::string &key);
const char *type_of(HeaderValue value);
uint32_t read_header(const tlv_hdr &header, HeaderValue value);

// The key of a field; one that is none ends the program. `or_header`: the header's values may stand there, too.
uint16_t parse_key(const std::string &key, bool or_header);
// The field; null, after a line on standard error, where it is not there.
const Record *find_or_say(const std::string &path, const Survey &found, uint16_t key);

}  // namespace tarn_cfg

#endif
