// create and import: files made anew.

#include <err.h>

#include "commands.h"
#include "file.h"
#include "json.h"
#include "store.h"
#include "value.h"

namespace tarn_cfg {

namespace {

void write_anew(const Options &options, View bytes) {
  const Place place(options.file);
  if (options.force && place.exists()) {
    place.replace(bytes);
  } else if (!place.make(bytes)) {
    errx(kWrong, "%s: is there; --force replaces it", options.file.c_str());
  }
}

}  // namespace

int create(const Options &options) {
  if (options.length.empty() && !options.fill.empty()) errx(kWrong, "--fill needs --size");
  Bytes bytes = Builder(tlv_hdr{}).sealed();
  if (!options.length.empty()) {
    const uint32_t size = parse_number("--size", options.length, kMaxFileSize);
    require_room(options.file, bytes.size(), size);
    bytes.resize(size,
                 options.fill.empty() ? uint8_t{0} : static_cast<uint8_t>(parse_number("--fill", options.fill, 255)));
  }
  write_anew(options, bytes);
  return kDone;
}

int import_json(const Options &options) {
  const Bytes text = read_input(options.other);
  const std::string name = options.other == "-" ? "standard input" : options.other;
  const Bytes bytes = file_from_json(name, std::string(text.begin(), text.end()));
  require_room(options.file, static_cast<size_t>(survey(bytes).image_size), room_of(options.max_size));
  write_anew(options, bytes);
  return kDone;
}

}  // namespace tarn_cfg
