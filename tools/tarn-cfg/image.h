// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The content of a file with a configuration image: header, records, the bytes after them, and faults.
#ifndef TARN_TOOLS_CFG_IMAGE_H
#define TARN_TOOLS_CFG_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tarn/startup_cfg.h"

namespace tarn_tools::cfg {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

constexpr size_t kHeaderSize = sizeof(tlv_hdr);
constexpr size_t kHeadSize = sizeof(tlv_field);
constexpr uint32_t kMaxValueSize = UINT16_MAX;

// Big-endian numbers at any address.
constexpr uint16_t get16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
constexpr uint32_t get32(const uint8_t *p) { return uint32_t{get16(p)} << 16 | get16(p + 2); }
void put16(uint8_t *p, uint16_t value);
void put32(uint8_t *p, uint32_t value);

// A whole record. The value refers to the bytes that were surveyed.
struct Record {
  size_t offset;  // of the record's head in the file
  uint16_t key;
  View value;
};

// Something worth reporting, and where in the file it is.
struct Finding {
  size_t offset;
  std::string text;
};

// The bytes after an image. If all have the same value, they are padding, into which the image may grow.
struct Tail {
  size_t size;
  std::optional<uint8_t> fill;
};

// The content of a file, as far as it can be read.
struct Survey {
  bool has_header = false;                 // nothing but `faults` is set without one
  tlv_hdr header = {};                     //
  uint64_t image_size = 0;                 // as the header states it
  std::optional<uint16_t> right_checksum;  // none if the file ends before the image
  std::vector<Record> records;             // the whole ones
  size_t records_end = 0;                  // where the last whole one ends
  Tail tail = {0, {}};
  std::vector<Finding> faults;  // prevent loading; ordered by offset within each kind
  std::vector<Finding> notes;   // do not prevent it, but are worth knowing

  [[nodiscard]] uint16_t stored_checksum() const { return get16(header.crc); }
  [[nodiscard]] bool is_sealed() const { return right_checksum == stored_checksum(); }
  // The first record with this key, which is the one that the library finds; null without one.
  [[nodiscard]] const Record *find(uint16_t key) const;
};

// The survey refers to `file`, which must outlive it.
Survey survey(View file);

// Throws a Failure if `found` has a fault. `path` is for the message.
void require_sound(const std::string &path, const Survey &found);

// The fault of the record at `record`, at which `left` bytes remain; empty for a whole record.
std::string record_fault(const uint8_t *record, size_t left);

// The bytes from `size` on.
Tail tail_after(View file, size_t size);

// The right checksum of an image, independent of the stored one.
uint16_t right_checksum(View image);

// "0x0102".
std::string key_name(uint16_t key);

}  // namespace tarn_tools::cfg

#endif
