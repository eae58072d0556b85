// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// show and check: the content of a file, and its faults.

#include "commands.h"
#include "common/output.h"
#include "common/report.h"
#include "json.h"
#include "open.h"
#include "store.h"

namespace tarn_tools::cfg {

namespace {

constexpr size_t kShownBytes = 24;

const char *checksum_state(const Survey &found) {
  if (!found.right_checksum) return "unknown: the file ends before the image";
  if (found.is_sealed()) return "right";
  return found.stored_checksum() == 0 ? "not yet computed" : "wrong";
}

std::string header_text(const Survey &found) {
  std::string text = format("image     %s, %s\n", counted(found.image_size, "byte").c_str(),
                            counted(found.records.size(), "record").c_str());
  if (found.tail.size != 0) {
    text += "after     " + counted(found.tail.size, "byte");
    text += found.tail.fill ? format(" of 0x%02x\n", *found.tail.fill) : "\n";
  }
  text += format("magic     0x%08x\n", get32(found.header.magic));
  text += format("checksum  0x%04x, %s\n", found.stored_checksum(), checksum_state(found));
  for (const HeaderValue value : kHeaderValues) {
    text += format("%-9s %u\n", name_of(value), read_header(found.header, value));
  }
  return text;
}

std::string record_text(const Record &record) {
  const std::optional<uint32_t> number = number_in(record.value);
  const std::optional<std::string> text = text_in(record.value);
  const bool is_cut = record.value.size() > kShownBytes;
  const std::string bytes = hex(record.value.first(is_cut ? kShownBytes : record.value.size())) + (is_cut ? "..." : "");
  return format("0x%06zx  0x%04x  %6zu  %-10s  ", record.offset, record.key, record.value.size(),
                number ? std::to_string(*number).c_str() : "-") +
         (text ? '"' + *text + '"' : bytes);
}

std::string finding_text(const std::string &path, const char *kind, const Finding &finding) {
  return path + ": " + kind + format("at 0x%zx: ", finding.offset) + finding.text;
}

}  // namespace

int show(const Options &options) {
  const Opened opened = open_any(options.file);
  const Survey &found = opened.found;
  if (options.json) {
    print(survey_json(options.file, opened.bytes.size(), found));
  } else if (found.has_header) {
    print(header_text(found));
    if (!found.records.empty()) print("\noffset    key     length  number      text or bytes\n");
    for (const Record &record : found.records) print_line(record_text(record));
  }
  if (!options.json) {
    flush_output();  // the sound part is printed before the faults
    for (const Finding &fault : found.faults) report(finding_text(options.file, "", fault));
  }
  return found.faults.empty() ? kDone : kNotSo;
}

int check(const Options &options) {
  Opened opened = open_any(options.file);
  Survey &found = opened.found;
  if (found.has_header && found.image_size > options.max_size) {
    found.faults.push_back({offsetof(tlv_hdr, cfg_len), "the image has " + counted(found.image_size, "byte") +
                                                            ", more than " + std::to_string(options.max_size)});
  }
  if (options.json) {
    print(findings_json(options.file, opened.bytes.size(), found));
  } else {
    for (const Finding &fault : found.faults) print_line(finding_text(options.file, "", fault));
    for (const Finding &note : found.notes) print_line(finding_text(options.file, "note: ", note));
  }
  if (!found.faults.empty()) return kNotSo;
  const Store loads(opened.image(), opened.image().size());  // the library decides
  if (!options.json) {
    print_line(options.file + ": sound: " + counted(opened.image().size(), "byte") + ", " +
               counted(found.records.size(), "record"));
  }
  return kDone;
}

}  // namespace tarn_tools::cfg
