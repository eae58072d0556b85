// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The look-up of fields, and the checks that readers and writers make first.

#include "internal.h"

namespace tarn::cfg {

namespace {

void complain_not_loaded() { mu_printf("\r\n Maybe startup-cfg hasn't been loaded."); }

}  // namespace

tlv_field *find_field(const tlv_inst &inst, u16 type) {
  for (u32 i = 0; i < inst.field_num; i++) {
    tlv_field *field = inst.field_tbl[i];
    if (field != nullptr && get_be16(field->type) == type) return field;
  }
  return nullptr;
}

bool require_base(const tlv_inst &inst) {
  if (inst.base == nullptr) complain_not_loaded();
  return inst.base != nullptr;
}

bool require_index(const tlv_inst &inst) {
  if (inst.field_tbl == nullptr) complain_not_loaded();
  return inst.field_tbl != nullptr;
}

}  // namespace tarn::cfg
