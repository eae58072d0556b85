// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The image's checksum: RFC 1071 over big-endian 16-bit words.
//
// The words are added in 32 bits and folded at the end. This sum equals 256 times the sum of the first bytes of all
// words plus the sum of the second bytes, even when it wraps. First and second bytes are therefore added separately,
// sixteen bytes at a time.

#include <algorithm>
#include <bit>
#include <cstring>

#include "internal.h"

using namespace tarn;

namespace {

using Pairs = u16 __attribute__((vector_size(16)));  // eight byte pairs, each in the processor's order

constexpr size_t kVectorSize = sizeof(Pairs);
// A 16-bit lane holds the sum of 257 bytes of 255.
constexpr size_t kVectorsPerBlock = 256;
constexpr size_t kLanes = kVectorSize / sizeof(u16);

constexpr bool kLittleEndian = std::endian::native == std::endian::little;

u32 sum_lanes(const Pairs &lanes) {
  u32 sum = 0;
  for (size_t i = 0; i < kLanes; i++) sum += lanes[i];
  return sum;
}

// Adds up at most kVectorsPerBlock vectors.
u32 sum_block(const u8 *data, size_t vectors) {
  Pairs low_bytes = {};
  Pairs high_bytes = {};
  for (size_t i = 0; i < vectors; i++) {
    Pairs pairs;
    memcpy(&pairs, data + i * kVectorSize, kVectorSize);
    low_bytes += pairs & 0xFF;
    high_bytes += pairs >> 8;
  }
  const u32 low = sum_lanes(low_bytes);
  const u32 high = sum_lanes(high_bytes);
  return kLittleEndian ? low * 256 + high : high * 256 + low;
}

// The unfolded sum of `len` bytes, modulo 2^32.
u32 sum_words(const u8 *data, size_t len) {
  u32 sum = 0;
  while (len >= kVectorSize) {
    const size_t vectors = std::min(len / kVectorSize, kVectorsPerBlock);
    sum += sum_block(data, vectors);
    data += vectors * kVectorSize;
    len -= vectors * kVectorSize;
  }
  for (; len >= 2; data += 2, len -= 2) sum += cfg::get_be16(data);
  if (len != 0) sum += u32{data[0]} << 8;
  return sum;
}

// The high half is all ones: the 16-bit value is widened to 32 bits before the complement.
u32 fold_and_complement(u32 sum) {
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return ~sum;
}

// Lengths are signed 32-bit numbers; a negative one counts as 0.
size_t counted(i32 len) { return len < 0 ? 0 : static_cast<size_t>(len); }

}  // namespace

uint32_t tlv_crc_calc(const void *data, int32_t len) {
  return fold_and_complement(sum_words(static_cast<const u8 *>(data), counted(len)));
}

namespace tarn::cfg {

u16 image_checksum(const u8 *image, u32 size) {
  constexpr size_t kCrcBegin = offsetof(tlv_hdr, crc);
  constexpr size_t kCrcEnd = offsetof(tlv_hdr, active);
  static_assert(kCrcBegin % 2 == 0 && kCrcEnd == kCrcBegin + 2, "the field is one whole word of the sum");

  const size_t len = counted(static_cast<i32>(size));
  u32 sum = sum_words(image, std::min(len, kCrcBegin));
  if (len > kCrcEnd) sum += sum_words(image + kCrcEnd, len - kCrcEnd);
  return static_cast<u16>(fold_and_complement(sum));
}

void seal(u8 *image, u32 size) { put_be16(header_of(image).crc, image_checksum(image, size)); }

}  // namespace tarn::cfg
