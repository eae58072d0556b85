// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The checks of an image, in the order magic, checksum, records. None of them checks the size of a buffer: tlv_load
// does that.

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

namespace {

i32 complain_length() {
  mu_printf("\r\n Cfg len doesn't mach.");
  return -1;
}

}  // namespace

int32_t tlv_crc_check(uint8_t *image) {
  const u16 stored = get_be16(header_of(image).crc);
  return stored == image_checksum(image, records_size(image) + kHeaderSize) ? 0 : -1;
}

int32_t tlv_field_check(const uint8_t *image) {
  const u8 *record = image + kHeaderSize;
  u32 left = records_size(image);
  i32 count = 0;
  while (left != 0) {
    // A record whose head crosses the end is refused too: no byte after the image is read.
    if (left < kFieldHeadSize) return complain_length();
    const u32 max_len = get_be16(record + offsetof(tlv_field, max_len));
    if (max_len == 0) {
      // Deliberate: the type is printed in the processor's own order, so type 1 shows as 256 on a little-endian one.
      // Held by TlvFieldCheck.PrintsTheTypeInTheProcessorsOrder.
      mu_printf("\r\n The max len of field(%d) is 0.", tlv_get_short(record));
      return -1;
    }
    if (left - kFieldHeadSize < max_len) return complain_length();
    record += kFieldHeadSize + max_len;
    left -= kFieldHeadSize + max_len;
    count++;
  }
  return count;
}

int32_t tlv_check(uint8_t *image) {
  tlv_hdr &header = header_of(image);
  const u32 magic = get_be32(header.magic);
  if (magic != TLV_MAGIC) {
    mu_printf("\r\n Startup-cfg magic number is error(0x%08x).", magic);
    return -1;
  }
  if (get_be16(header.crc) == 0) {
    // Not yet computed. Stored before the records are checked, so an image with bad records is sealed too.
    seal(image, records_size(image) + kHeaderSize);
  } else if (tlv_crc_check(image) != 0) {
    mu_printf("\r\n Startup-cfg CRC doesn't match.");
    return -1;
  }
  const i32 count = tlv_field_check(image);
  if (count < 0) mu_printf("\r\n Startup-cfg field check failed.");
  return count;
}
