// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The survey of a file. It trusts no number in the file, and continues after a fault as far as that makes sense. The
// library's check stops at the first fault and does not report its place.

#include "image.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <map>

#include "common/report.h"

namespace tarn_tools::cfg {

namespace {

void look_at_magic(Survey &found) {
  const uint32_t magic = get32(found.header.magic);
  if (magic == TLV_MAGIC) return;
  found.faults.push_back({offsetof(tlv_hdr, magic),
                          format("not an image: magic number 0x%08" PRIx32 ", not 0x%08" PRIx32, magic, TLV_MAGIC)});
}

void look_at_checksum(View file, Survey &found) {
  if (found.image_size > file.size()) return;
  const uint16_t right = right_checksum(file.first(static_cast<size_t>(found.image_size)));
  const uint16_t stored = found.stored_checksum();
  found.right_checksum = right;
  if (stored == right) return;
  if (stored == 0) {
    found.notes.push_back({offsetof(tlv_hdr, crc), format("checksum not yet computed; 0x%04x is right", right)});
  } else {
    found.faults.push_back(
        {offsetof(tlv_hdr, crc), format("checksum 0x%04x is wrong; 0x%04x is right", stored, right)});
  }
}

void look_at_length(View file, Survey &found) {
  if (found.image_size <= file.size()) return;
  found.faults.push_back({offsetof(tlv_hdr, cfg_len), "cfg_len states " + counted(get32(found.header.cfg_len), "byte") +
                                                          " of records; the file has " +
                                                          std::to_string(file.size() - kHeaderSize)});
}

void walk(View file, Survey &found) {
  const size_t end = std::min<uint64_t>(found.image_size, file.size());
  size_t offset = kHeaderSize;
  while (offset < end) {
    const uint8_t *record = file.data() + offset;
    std::string fault = record_fault(record, end - offset);
    if (!fault.empty()) {
      found.faults.push_back({offset, std::move(fault)});
      break;
    }
    const uint16_t max_len = get16(record + offsetof(tlv_field, max_len));
    found.records.push_back({offset, get16(record), file.subspan(offset + kHeadSize, max_len)});
    offset += kHeadSize + max_len;
  }
  found.records_end = offset;
}

void look_for_repeated_keys(Survey &found) {
  std::map<uint16_t, size_t> first;
  for (const Record &record : found.records) {
    const auto [place, is_first] = first.emplace(record.key, record.offset);
    if (is_first) continue;
    found.notes.push_back(
        {record.offset, format("key 0x%04x once more; the one at 0x%zx is found", record.key, place->second)});
  }
}

}  // namespace

void put16(uint8_t *p, uint16_t value) {
  p[0] = static_cast<uint8_t>(value >> 8);
  p[1] = static_cast<uint8_t>(value);
}

void put32(uint8_t *p, uint32_t value) {
  put16(p, static_cast<uint16_t>(value >> 16));
  put16(p + 2, static_cast<uint16_t>(value));
}

std::string key_name(uint16_t key) { return format("0x%04x", key); }

std::string record_fault(const uint8_t *record, size_t left) {
  if (left < kHeadSize) return counted(left, "byte") + " left, too few for a record";
  const uint16_t key = get16(record);
  const uint16_t max_len = get16(record + offsetof(tlv_field, max_len));
  if (max_len == 0) return format("the record of key 0x%04x has length 0", key);
  if (left - kHeadSize >= max_len) return {};
  return format("the record of key 0x%04x has length %u, with %s left", key, max_len,
                counted(left - kHeadSize, "byte").c_str());
}

uint16_t right_checksum(View image) {
  Bytes copy(image.begin(), image.end());
  put16(copy.data() + offsetof(tlv_hdr, crc), 0);
  return static_cast<uint16_t>(tlv_crc_calc(copy.data(), static_cast<int32_t>(copy.size())));
}

const Record *Survey::find(uint16_t key) const {
  const auto at = std::find_if(records.begin(), records.end(), [&](const Record &record) { return record.key == key; });
  return at == records.end() ? nullptr : &*at;
}

Tail tail_after(View file, size_t size) {
  if (size >= file.size()) return {0, {}};
  const View rest = file.subspan(size);
  const bool alike = std::all_of(rest.begin(), rest.end(), [&](uint8_t byte) { return byte == rest[0]; });
  return {rest.size(), alike ? std::optional(rest[0]) : std::nullopt};
}

Survey survey(View file) {
  Survey found;
  if (file.size() < kHeaderSize) {
    found.faults.push_back({file.size(), format("the file ends within the header of %zu bytes", kHeaderSize)});
    return found;
  }
  found.has_header = true;
  memcpy(&found.header, file.data(), kHeaderSize);
  found.image_size = kHeaderSize + uint64_t{get32(found.header.cfg_len)};
  look_at_magic(found);
  look_at_checksum(file, found);
  look_at_length(file, found);
  walk(file, found);
  look_for_repeated_keys(found);
  found.tail = tail_after(file, std::min<uint64_t>(found.image_size, file.size()));
  if (found.tail.size != 0 && !found.tail.fill) {
    found.notes.push_back({static_cast<size_t>(found.image_size),
                           counted(found.tail.size, "byte") + " after the image, which are not padding"});
  }
  return found;
}

void require_sound(const std::string &path, const Survey &found) {
  if (found.faults.empty()) return;
  const Finding &first = found.faults.front();
  fail("%s: at 0x%zx: %s", path.c_str(), first.offset, first.text.c_str());
}

}  // namespace tarn_tools::cfg
