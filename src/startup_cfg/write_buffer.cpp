// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writes of buffer fields: in place, appended, or resized in place.

#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

namespace {

struct Data {
  const u8 *bytes;
  u32 len;
};

i32 complain_parameter() {
  mu_printf("parameter wrong \n");
  return -1;
}

// Writes the data, and zeros up to the end of the value area.
void put_value(tlv_field *field, u32 max_len, const Data &data) {
  u8 *value = value_of(field);
  memset(value, 0, max_len);
  memcpy(value, data.bytes, data.len);
}

i32 append(tlv_inst &inst, u16 type, u32 max_len, const Data &data) {
  const u32 size = records_size(inst.base);
  // Deliberate: the limit applies to the record area only; in tlv_load it applies to the whole image. Held by
  // TlvAppend.ThatFitsOnlyWithItsRecordAreaIsSavedUnsealed.
  const u64 new_size = u64{size} + kFieldHeadSize + max_len;
  if (new_size > inst.max_size) {
    mu_printf("new cfg len %d > max len %d \n", static_cast<int>(new_size), static_cast<int>(inst.max_size));
    return -1;
  }
  if (max_len > kMaxFieldSize) return complain_parameter();
  put_value(put_field_head(inst.base, size, type, static_cast<u16>(max_len)), max_len, data);
  finish_append(inst, static_cast<u32>(new_size));
  return 0;
}

// Moves the records after `field` so that they start after a value area of `max_len` bytes. False when memory runs out;
// then nothing has moved.
bool move_tail(const tlv_inst &inst, tlv_field *field, u32 size, u32 max_len) {
  const u32 old_len = max_len_of(*field);
  const u8 *old_end = value_of(field) + old_len;
  const auto before_tail = static_cast<u32>(old_end - records_of(inst.base));
  // Deliberate: the size is cut to 16 bits, so of a longer tail only (size modulo 65536) bytes move. Held by
  // TlvResizeLarge.MovesOnlyTheRestModulo64KiBOfALongerTail.
  const auto tail_size = static_cast<u16>(size - before_tail);
  if (tail_size == 0) return true;
  Owned<u8> tail = allocate<u8>(tail_size);
  if (!tail) return false;
  memcpy(tail.get(), old_end, tail_size);
  memcpy(value_of(field) + max_len, tail.get(), tail_size);
  return true;
}

// Deliberate, and the reason why callers must not change a field's `max_len` in this way: the capacity is not checked,
// the index is not rebuilt, and only the upper half of the image's new length is stored. Held by the tests TlvResize.*
// and TlvResizeLarge.*.
i32 resize(tlv_inst &inst, tlv_field *field, u32 max_len, const Data &data) {
  if (max_len > kMaxFieldSize) return complain_parameter();
  const u32 size = records_size(inst.base);
  const u32 new_size = size + max_len - max_len_of(*field);
  if (!move_tail(inst, field, size, max_len)) return -1;
  put_be16(field->max_len, static_cast<u16>(max_len));
  put_be16(header_of(inst.base).cfg_len, static_cast<u16>(new_size >> 16));
  put_value(field, max_len, data);
  seal(inst.base, size + kHeaderSize);
  save(inst, new_size + kHeaderSize);
  return 0;
}

i32 replace(tlv_inst &inst, tlv_field *field, u32 max_len, const Data &data) {
  const u32 size = records_size(inst.base);
  put_value(field, max_len, data);
  seal(inst.base, size + kHeaderSize);
  save(inst, size + kHeaderSize);
  return 0;
}

}  // namespace

int32_t tlv_write_buffer(tlv_inst *inst, uint16_t type, uint32_t max_len, int32_t len, const uint8_t *data) {
  if (inst == nullptr || len < 0 || static_cast<i32>(max_len) < len) return complain_parameter();
  if (!require_base(*inst)) return -1;
  if (data == nullptr || len == 0) {
    mu_printf("\r\n Input an invalid parameter.");
    return -1;
  }
  const Data value = {data, static_cast<u32>(len)};
  tlv_field *field = find_field(*inst, type);
  if (field == nullptr) return append(*inst, type, max_len, value);
  if (max_len_of(*field) == max_len) return replace(*inst, field, max_len, value);
  return resize(*inst, field, max_len, value);
}
