// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writes of fields of one, two and four bytes.

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

namespace {

void put_value(u8 *p, u8 value) { *p = value; }
void put_value(u8 *p, u16 value) { put_be16(p, value); }
void put_value(u8 *p, u32 value) { put_be32(p, value); }

template <typename Value>
i32 write_fixed(tlv_inst *inst, u16 type, Value value) {
  if (inst == nullptr || !require_base(*inst)) return -1;
  const u32 size = records_size(inst->base);
  if (tlv_field *field = find_field(*inst, type)) {
    if (max_len_of(*field) != sizeof value) {
      mu_printf("\r\n This type tlv should be %d bytes length.", max_len_of(*field));
      return -1;
    }
    put_value(value_of(field), value);
    seal(inst->base, size + kHeaderSize);
    save(*inst, size + kHeaderSize);
    return 0;
  }
  // Deliberate: the limit applies to the record area only; in tlv_load it applies to the whole image. Held by
  // TlvAppend.ThatFitsOnlyWithItsRecordAreaIsSavedUnsealed.
  const u64 new_size = u64{size} + kFieldHeadSize + sizeof value;
  if (new_size > inst->max_size) return -1;
  put_value(value_of(put_field_head(inst->base, size, type, sizeof value)), value);
  finish_append(*inst, static_cast<u32>(new_size));
  return 0;
}

}  // namespace

int32_t tlv_write_char(tlv_inst *inst, uint16_t type, uint8_t value) { return write_fixed(inst, type, value); }

int32_t tlv_write_short(tlv_inst *inst, uint16_t type, uint16_t value) { return write_fixed(inst, type, value); }

int32_t tlv_write_int(tlv_inst *inst, uint16_t type, uint32_t value) { return write_fixed(inst, type, value); }
