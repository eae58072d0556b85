// repair: the image is cut behind its last whole record, and sealed. Each step is told, and the damaged file kept.

#include <err.h>

#include <cinttypes>
#include <cstdio>

#include "commands.h"
#include "open.h"
#include "store.h"

namespace tarn_cfg {

namespace {

using Steps = std::vector<Finding>;

std::string hex4(uint16_t number) { return key_name(number); }

Bytes repaired(const Opened &old, Steps &steps) {
  const Survey &found = old.found;
  if (get32(found.header.magic) != TLV_MAGIC)
    steps.push_back({offsetof(tlv_hdr, magic), "the magic number is put back"});
  if (found.image_size != found.records_end) {
    steps.push_back({found.records_end, "cut behind the last whole record: cfg_len was " +
                                            std::to_string(get32(found.header.cfg_len)) + ", is " +
                                            std::to_string(found.records_end - kHeaderSize)});
  }
  Builder builder(found.header);
  builder.add_bytes(View(old.bytes).subspan(kHeaderSize, found.records_end - kHeaderSize));
  Bytes image = builder.sealed();
  const uint16_t checksum = get16(image.data() + offsetof(tlv_hdr, crc));
  if (checksum != found.stored_checksum()) {
    steps.push_back({offsetof(tlv_hdr, crc),
                     "sealed: the checksum was " + hex4(found.stored_checksum()) + ", is " + hex4(checksum)});
  }
  return image;
}

// The bytes of the file. One with bytes behind its image, or with padding behind what is left of it, keeps its size.
Bytes repaired_file(const std::string &path, const Opened &old, View image) {
  constexpr size_t kLeastPadding = kHeadSize;  // fewer bytes are rather the rest of a record
  const Behind rest = behind(old.bytes, image.size());
  if (rest.fill && rest.size >= kLeastPadding) return put_in_file(path, old.bytes, image.size(), image, SIZE_MAX);
  const size_t old_size = old.found.image_size < old.bytes.size() ? old.image().size() : old.bytes.size();
  return put_in_file(path, old.bytes, old_size, image, SIZE_MAX);
}

}  // namespace

int repair(const Options &options) {
  const Place place(options.file);
  const Opened old = open_any(options.file);
  if (!old.found.has_header) require_sound(options.file, old.found);
  if (get32(old.found.header.magic) != TLV_MAGIC && !options.magic) {
    errx(kWrong, "%s: at 0x0: no magic number, so perhaps no image; --magic takes it for one", options.file.c_str());
  }
  Steps steps;
  const Bytes image = repaired(old, steps);
  if (steps.empty()) {
    printf("%s: nothing to repair\n", options.file.c_str());
    return kDone;
  }
  for (const Finding &step : steps) printf("%s: at 0x%zx: %s\n", options.file.c_str(), step.offset, step.text.c_str());
  if (options.dry_run) return kNotSo;
  flush_output();  // a repair that cannot be told is not made
  printf("%s: as it was: %s\n", options.file.c_str(), place.keep(old.bytes, ".bad").c_str());
  flush_output();
  place.replace(repaired_file(options.file, old, image));
  return kDone;
}

}  // namespace tarn_cfg
