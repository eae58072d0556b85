// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the sources of the configuration store: the image's numbers, its seal, and the look-up of fields.
#ifndef TARN_STARTUP_CFG_INTERNAL_H
#define TARN_STARTUP_CFG_INTERNAL_H

#include "platform/support.h"
#include "tarn/startup_cfg.h"

namespace tarn::cfg {

constexpr u32 kHeaderSize = sizeof(tlv_hdr);
constexpr u32 kFieldHeadSize = sizeof(tlv_field);
constexpr u32 kMaxFieldSize = 0xFFFF;  // the largest value of the 16-bit `max_len`

// NOLINTNEXTLINE(readability-non-const-parameter): the image is written through the result
inline tlv_hdr &header_of(u8 *image) { return *reinterpret_cast<tlv_hdr *>(image); }
inline const tlv_hdr &header_of(const u8 *image) { return *reinterpret_cast<const tlv_hdr *>(image); }

// Big-endian numbers at any address. Compilers turn each into a load and a byte swap.
inline u16 get_be16(const u8 *p) { return static_cast<u16>(p[0] << 8 | p[1]); }
inline u32 get_be32(const u8 *p) { return u32{get_be16(p)} << 16 | get_be16(p + 2); }
inline void put_be16(u8 *p, u16 value) {
  p[0] = static_cast<u8>(value >> 8);
  p[1] = static_cast<u8>(value);
}
inline void put_be32(u8 *p, u32 value) {
  put_be16(p, static_cast<u16>(value >> 16));
  put_be16(p + 2, static_cast<u16>(value));
}

inline u32 records_size(const u8 *image) { return get_be32(header_of(image).cfg_len); }
inline u8 *records_of(u8 *image) { return image + kHeaderSize; }

inline u16 max_len_of(const tlv_field &field) { return get_be16(field.max_len); }
inline u8 *value_of(tlv_field *field) { return reinterpret_cast<u8 *>(field) + kFieldHeadSize; }
inline const u8 *value_of(const tlv_field *field) { return reinterpret_cast<const u8 *>(field) + kFieldHeadSize; }

// The checksum of the image's first `size` bytes with the `crc` field counted as 0. A size of 2^31 and more counts as
// 0.
u16 image_checksum(const u8 *image, u32 size);

// Stores the checksum over `size` bytes.
void seal(u8 *image, u32 size);

// Makes the buffer a blank image: only a sealed header.
void format_blank(u8 *image);

// The first indexed field with this key, or null.
tlv_field *find_field(const tlv_inst &inst, u16 type);

// Each prints a message and returns false if the base or the index is missing.
bool require_base(const tlv_inst &inst);
bool require_index(const tlv_inst &inst);

// Hands the first `size` bytes to the save function, if there is one.
void save(const tlv_inst &inst, u32 size);

// Writes the head of a record after the `size` bytes of the record area. The value area comes next.
tlv_field *put_field_head(u8 *image, u32 size, u16 type, u16 max_len);

// Adds to the image a record that was already written directly after the record area: indexes, seals, saves. `size` is
// the new size of the record area.
void finish_append(tlv_inst &inst, u32 size);

}  // namespace tarn::cfg

#endif
