// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Instances: one for a caller's buffer, and private copies.

#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

tlv_inst *tlv_inst_init(uint8_t *base, uint32_t max_size, tlv_save_cb save_cb) {
  if (base == nullptr) return nullptr;
  Owned<tlv_inst> inst = allocate<tlv_inst>();
  if (!inst) return nullptr;
  inst->base = base;
  inst->max_size = max_size;
  inst->save_cb = save_cb;
  return inst.release();
}

tlv_inst *tlv_inst_duplicate(const tlv_inst *src) {
  if (src == nullptr || src->field_num == 0) return nullptr;
  const u64 size = u64{records_size(src->base)} + kHeaderSize;
  Owned<tlv_field *> table = allocate<tlv_field *>(src->field_num);
  if (!table) return nullptr;
  Owned<u8> image = allocate<u8>(size);
  if (!image) return nullptr;
  Owned<tlv_inst> copy = allocate<tlv_inst>();
  if (!copy) return nullptr;

  memcpy(image.get(), src->base, size);
  for (u32 i = 0; i < src->field_num; i++) {
    const tlv_field *field = src->field_tbl[i];
    if (field == nullptr) continue;
    const auto offset = reinterpret_cast<const u8 *>(field) - src->base;
    table.get()[i] = reinterpret_cast<tlv_field *>(image.get() + offset);
  }
  copy->base = image.release();
  copy->field_tbl = table.release();
  copy->field_num = src->field_num;
  // Deliberate: the source's size, although the copy's buffer has room only for the image. Held by
  // TlvInstDuplicate.KeepsTheMaxSizeOfItsSource.
  copy->max_size = src->max_size;
  return copy.release();
}
