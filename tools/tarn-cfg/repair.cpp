// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// repair: makes a sealed image of the whole fields of a damaged one. Each step is printed. The damaged file is kept
// beside it, and the bytes that are not in a whole field are written to another file.

#include <cinttypes>

#include "commands.h"
#include "common/output.h"
#include "common/report.h"
#include "open.h"
#include "salvage.h"
#include "store.h"

namespace tarn_tools::cfg {

namespace {

constexpr char kDamaged[] = ".bad";
constexpr char kLeftOut[] = ".lost";

struct Repair {
  Bytes image;
  Salvage found;
  std::vector<Finding> steps;

  bool loses_something() const { return !found.gaps.empty() || found.missing_bytes != 0; }
};

void note_damage(const Opened &old, Repair *repair) {
  const Salvage &found = repair->found;
  if (found.length) {
    const size_t at = found.length->offset + offsetof(tlv_field, max_len);
    repair->steps.push_back({at, format("the length of the field of key %s was %u, is %u, which the checksum proves",
                                        key_name(get16(&old.bytes[found.length->offset])).c_str(),
                                        get16(&old.bytes[at]), found.length->length)});
  }
  for (const Gap &gap : found.gaps) {
    repair->steps.push_back({gap.offset, counted(gap.bytes.size(), "byte") + " that no whole field has: left out"});
  }
  if (found.missing_bytes != 0) {
    repair->steps.push_back({old.bytes.size(), "the file ends " + counted(found.missing_bytes, "byte") +
                                                   " before the end of the image that cfg_len states"});
  }
}

// The image of the whole records, with the header's values.
Repair repair_of(const Opened &old) {
  const tlv_hdr &header = old.found.header;
  Repair repair = {{}, salvage(old.bytes, old.found), {}};
  if (get32(header.magic) != TLV_MAGIC) {
    repair.steps.push_back({offsetof(tlv_hdr, magic), "the magic number is put back"});
  }
  note_damage(old, &repair);
  Builder builder(header);
  for (const Record &record : repair.found.records) builder.add(record.key, record.value);
  repair.image = builder.sealed();
  const uint32_t old_length = get32(header.cfg_len);
  const uint32_t new_length = get32(repair.image.data() + offsetof(tlv_hdr, cfg_len));
  if (new_length != old_length) {
    repair.steps.push_back(
        {offsetof(tlv_hdr, cfg_len), format("cfg_len was %" PRIu32 ", is %" PRIu32, old_length, new_length)});
  }
  const uint16_t old_checksum = old.found.stored_checksum();
  const uint16_t new_checksum = get16(repair.image.data() + offsetof(tlv_hdr, crc));
  if (new_checksum != old_checksum) {
    repair.steps.push_back({offsetof(tlv_hdr, crc),
                            "sealed: the checksum was " + key_name(old_checksum) + ", is " + key_name(new_checksum)});
  }
  return repair;
}

// "3 of at least 4 fields kept": the number of fields in a run of damaged bytes is not known.
std::string balance(const Repair &repair) {
  const size_t kept = repair.found.records.size();
  const bool ends_in_gap = !repair.found.gaps.empty() && repair.found.missing_bytes != 0;
  const size_t lost = repair.found.gaps.size() + (repair.found.missing_bytes != 0 && !ends_in_gap ? 1 : 0);
  if (lost == 0) return counted(kept, "field") + " kept, none lost";
  return std::to_string(kept) + " of at least " + counted(kept + lost, "field") + " kept";
}

// One line for each gap: its place and its bytes.
Bytes left_out(const Salvage &found) {
  std::string text;
  for (const Gap &gap : found.gaps) text += format("at 0x%zx: ", gap.offset) + hex(gap.bytes) + "\n";
  return bytes_of_text(text);
}

// Both files that are kept have the same number.
std::string free_number(const Place &place) {
  std::string number;
  for (int next = 2; place.has_beside(kDamaged + number) || place.has_beside(kLeftOut + number); next++) {
    number = "." + std::to_string(next);
  }
  return number;
}

void write_repaired(const Place &place, const Opened &old, const Repair &repair) {
  const std::string &path = place.path();
  const std::string number = free_number(place);
  flush_output();  // if the report cannot be written, nothing is repaired
  print_line(path + ": as it was: " + place.keep(old.bytes, kDamaged + number));
  if (!repair.found.gaps.empty()) {
    print_line(path + ": left out: " + place.keep(left_out(repair.found), kLeftOut + number));
  }
  flush_output();
  place.replace(put_in_file(path, old.bytes, repair.found.area_end, repair.image, SIZE_MAX));
}

}  // namespace

int repair(const Options &options) {
  const Place place(options.file);
  const Opened old = open_any(options.file);
  if (!old.found.has_header) require_sound(options.file, old.found);
  if (get32(old.found.header.magic) != TLV_MAGIC && !options.takes_any_magic) {
    fail("%s: at 0x0: no magic number, so perhaps not an image; --magic takes it for one", options.file.c_str());
  }
  const Repair repair = repair_of(old);
  if (repair.steps.empty()) {
    print_line(options.file + ": nothing to repair");
    return kDone;
  }
  for (const Finding &step : repair.steps) {
    print_line(options.file + format(": at 0x%zx: ", step.offset) + step.text);
  }
  print_line(options.file + ": " + balance(repair));
  if (!options.is_dry_run) write_repaired(place, old, repair);
  if (repair.loses_something()) return kLost;
  return options.is_dry_run ? kNotSo : kDone;
}

}  // namespace tarn_tools::cfg
