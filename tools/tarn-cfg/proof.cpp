// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "proof.h"

namespace tarn_tools::cfg {

namespace {

constexpr size_t kLeastPadding = kHeadSize;  // fewer bytes are more probably the rest of a record
constexpr uint32_t kModulus = UINT16_MAX;    // of the one's complement sum
constexpr size_t kLengthAt = offsetof(tlv_field, max_len);

// The end of the chain of whole records that begins at `offset`, at most `end`.
size_t end_of_chain(View file, size_t offset, size_t end) {
  while (offset < end) {
    const size_t size = record_size(file, offset);
    if (size == 0) break;
    offset += size;
  }
  return offset;
}

uint16_t swapped(uint16_t word) { return static_cast<uint16_t>(word << 8 | word >> 8); }

// The number that must replace `word`, at `offset` of the image, to change the sum of all words by `change`.
uint16_t changed_word(uint16_t word, size_t offset, uint32_t change) {
  const bool is_across_words = offset % 2 != 0;  // its bytes then count as if they were swapped
  const uint32_t counted_as = is_across_words ? swapped(word) : word;
  const auto changed = static_cast<uint16_t>((counted_as + change) % kModulus);
  return is_across_words ? swapped(changed) : changed;
}

bool proves(View image, size_t offset, uint16_t length, uint16_t checksum) {
  const size_t next = offset + kHeadSize + length;
  if (length == 0 || next > image.size() || end_of_chain(image, next, image.size()) != image.size()) return false;
  Bytes changed(image.begin(), image.end());
  put16(changed.data() + offset + kLengthAt, length);
  return right_checksum(changed) == checksum;
}

}  // namespace

size_t record_size(View area, size_t offset) {
  const uint8_t *record = area.data() + offset;
  if (!record_fault(record, area.size() - offset).empty()) return 0;
  return kHeadSize + get16(record + kLengthAt);
}

size_t padding_of(View file) {
  size_t begin = file.size();
  while (begin > kHeaderSize && file[begin - 1] == file.back()) begin--;
  return file.size() - begin < kLeastPadding ? file.size() : begin;
}

std::optional<size_t> proved_end(View file, const Survey &found) {
  if (found.stored_checksum() == 0 || found.is_sealed()) return std::nullopt;
  const size_t padding = padding_of(file);
  const size_t end = end_of_chain(file, kHeaderSize, padding);
  if (end < padding) return std::nullopt;
  Bytes image(file.begin(), file.begin() + static_cast<ptrdiff_t>(end));
  put32(image.data() + offsetof(tlv_hdr, cfg_len), static_cast<uint32_t>(end - kHeaderSize));
  return right_checksum(image) == found.stored_checksum() ? std::optional(end) : std::nullopt;
}

std::optional<ProvedLength> proved_length(View file, const Survey &found) {
  if (found.stored_checksum() == 0 || found.is_sealed() || !found.right_checksum) return std::nullopt;
  // If the records are whole, a value is damaged, not a length: some length would always match the checksum.
  if (found.records_end == found.image_size) return std::nullopt;
  // The checksum is the complement of the sum.
  const uint32_t change = kModulus + *found.right_checksum - found.stored_checksum();
  std::optional<ProvedLength> proved;
  const View image = file.first(static_cast<size_t>(found.image_size));
  for (size_t offset = kHeaderSize; offset + kHeadSize < image.size();) {
    const uint16_t stated = get16(image.data() + offset + kLengthAt);
    const uint16_t length = changed_word(stated, offset + kLengthAt, change);
    if (length != stated && proves(image, offset, length, found.stored_checksum())) {
      if (proved) return std::nullopt;
      proved = {offset, length};
    }
    const size_t size = record_size(image, offset);
    if (size == 0) break;
    offset += size;
  }
  return proved;
}

}  // namespace tarn_tools::cfg
