// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The steps of every append of a field to an image, whatever the field's size.

#include "internal.h"

namespace tarn::cfg {

void save(const tlv_inst &inst, u32 size) {
  if (inst.save_cb != nullptr) (void)inst.save_cb(inst.base, size);  // it reports its own failures
}

tlv_field *put_field_head(u8 *image, u32 size, u16 type, u16 max_len) {
  auto *field = reinterpret_cast<tlv_field *>(records_of(image) + size);
  put_be16(field->type, type);
  put_be16(field->max_len, max_len);
  return field;
}

void finish_append(tlv_inst &inst, u32 size) {
  tlv_hdr &header = header_of(inst.base);
  put_be32(header.cfg_len, size);
  put_be16(header.crc, 0);  // makes tlv_load seal the image
  // Deliberate: an image that has become too long for tlv_load stays unsealed and unindexed, yet is saved. Held by
  // TlvAppend.ThatFitsOnlyWithItsRecordAreaIsSavedUnsealed.
  (void)tlv_load(&inst);
  save(inst, size + kHeaderSize);
}

}  // namespace tarn::cfg
