// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Typed reads.

#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

namespace {

// The field, or null. Prints a message if the instance is not loaded or the caller has no room for a value.
const tlv_field *field_for(const tlv_inst *inst, u16 type, bool has_output) {
  if (inst == nullptr || !require_index(*inst)) return nullptr;
  if (!has_output) {
    mu_printf("\r\n Input an invalid parameter.");
    return nullptr;
  }
  return find_field(*inst, type);
}

}  // namespace

int32_t tlv_read_char(const tlv_inst *inst, uint16_t type, uint8_t *out) {
  const tlv_field *field = field_for(inst, type, out != nullptr);
  if (field == nullptr) return -1;
  if (max_len_of(*field) > 1) {
    mu_printf("\r\n Attempt to read a cfg which length is %d into a char(type = %d).", max_len_of(*field), type);
    return -1;
  }
  *out = *value_of(field);
  return 0;
}

int32_t tlv_read_short(const tlv_inst *inst, uint16_t type, uint16_t *out) {
  const tlv_field *field = field_for(inst, type, out != nullptr);
  if (field == nullptr) return -1;
  if (max_len_of(*field) != sizeof *out) {
    // Only this message has no full stop.
    mu_printf("\r\n Attempt to read a cfg which length is %d into a short(type = %d )", max_len_of(*field), type);
    return -1;
  }
  *out = get_be16(value_of(field));
  return 0;
}

int32_t tlv_read_int(const tlv_inst *inst, uint16_t type, uint32_t *out) {
  const tlv_field *field = field_for(inst, type, out != nullptr);
  if (field == nullptr) return -1;
  if (max_len_of(*field) != sizeof *out) {
    mu_printf("\r\n Attempt to read a cfg which length is %d into a int(type = %d ).", max_len_of(*field), type);
    return -1;
  }
  *out = get_be32(value_of(field));
  return 0;
}

uint32_t tlv_read_buffer(const tlv_inst *inst, uint16_t type, uint32_t buf_len, void *buf) {
  const tlv_field *field = field_for(inst, type, buf != nullptr && buf_len != 0);
  if (field == nullptr) return 0;
  const u32 max_len = max_len_of(*field);
  if (buf_len < max_len) {
    mu_printf("\r\n The length of buffer is too short to store the value (type = %d).", type);
    return 0;
  }
  memcpy(buf, value_of(field), max_len);
  return max_len;
}
