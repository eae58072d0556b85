// show and check: what a file holds, and what is wrong with it.

#include <err.h>

#include <cinttypes>
#include <cstdio>

#include "commands.h"
#include "json.h"
#include "open.h"
#include "store.h"
#include "value.h"

namespace tarn_cfg {

namespace {

constexpr size_t kShownBytes = 24;

const char *checksum_state(const Survey &found) {
  if (!found.right_checksum) return "unknown: the file ends before the image";
  if (found.is_sealed()) return "right";
  return found.stored_checksum() == 0 ? "not yet computed" : "wrong";
}

void print_header(const Survey &found) {
  printf("image     %" PRIu64 " bytes, %zu records\n", found.image_size, found.records.size());
  if (found.behind.size != 0 && found.behind.fill) {
    printf("behind    %zu bytes of 0x%02x\n", found.behind.size, *found.behind.fill);
  } else if (found.behind.size != 0) {
    printf("behind    %zu bytes\n", found.behind.size);
  }
  printf("magic     0x%08" PRIx32 "\n", get32(found.header.magic));
  printf("checksum  0x%04x, %s\n", found.stored_checksum(), checksum_state(found));
  printf("active    %u\nflag      %u\nversion   %" PRIu32 "\n", found.header.active, found.header.flag,
         get32(found.header.version));
}

void print_record(const Record &record) {
  const std::optional<uint32_t> number = number_of(record.value);
  const std::optional<std::string> text = text_of(record.value);
  printf("0x%06zx  0x%04x  %6zu  %-10s  ", record.offset, record.key, record.value.size(),
         number ? std::to_string(*number).c_str() : "-");
  if (text) {
    printf("\"%s\"\n", text->c_str());
    return;
  }
  const bool is_cut = record.value.size() > kShownBytes;
  printf("%s%s\n", hex(record.value.first(is_cut ? kShownBytes : record.value.size())).c_str(), is_cut ? "..." : "");
}

void print_findings(FILE *out, const char *path, const char *kind, const std::vector<Finding> &findings) {
  for (const Finding &finding : findings) {
    (void)fprintf(out, "%s: %sat 0x%zx: %s\n", path, kind, finding.offset, finding.text.c_str());
  }
}

}  // namespace

int show(const Options &options) {
  const Opened opened = open_any(options.file);
  const Survey &found = opened.found;
  if (options.json) {
    (void)fputs(survey_json(options.file, opened.bytes.size(), found).c_str(), stdout);
  } else if (found.has_header) {
    print_header(found);
    if (!found.records.empty()) printf("\noffset    key     length  number      text or bytes\n");
    for (const Record &record : found.records) print_record(record);
  }
  (void)fflush(stdout);
  if (!options.json) print_findings(stderr, options.file.c_str(), "", found.faults);
  return found.faults.empty() ? kDone : kNotSo;
}

int check(const Options &options) {
  Opened opened = open_any(options.file);
  Survey &found = opened.found;
  const size_t room = room_of(options.max_size);
  if (found.has_header && found.image_size > room) {
    found.faults.push_back({offsetof(tlv_hdr, cfg_len), "the image has " + std::to_string(found.image_size) +
                                                            " bytes, more than " + std::to_string(room)});
  }
  if (options.json) {
    (void)fputs(findings_json(options.file, opened.bytes.size(), found).c_str(), stdout);
  } else {
    print_findings(stdout, options.file.c_str(), "", found.faults);
    print_findings(stdout, options.file.c_str(), "note: ", found.notes);
  }
  if (!found.faults.empty()) return kNotSo;
  const Store loads(opened.image(), opened.image().size());  // the library has the last word
  if (!options.json) {
    printf("%s: sound: %zu bytes, %zu records\n", options.file.c_str(), opened.image().size(), found.records.size());
  }
  return kDone;
}

}  // namespace tarn_cfg
