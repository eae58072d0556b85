// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Loading: checks the image and builds an index of its records for the look-ups.

#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

namespace tarn::cfg {

void format_blank(u8 *image) {
  memset(image, 0, kHeaderSize);
  put_be32(header_of(image).magic, TLV_MAGIC);
  seal(image, kHeaderSize);
}

}  // namespace tarn::cfg

namespace {

void drop_index(tlv_inst &inst) {
  mu_free(inst.field_tbl);
  inst.field_tbl = nullptr;
  inst.field_num = 0;
}

// Points `table` at the `count` records of a checked image.
void index_records(u8 *image, tlv_field **table, u32 count) {
  u8 *record = records_of(image);
  for (u32 i = 0; i < count; i++) {
    table[i] = reinterpret_cast<tlv_field *>(record);
    record += kFieldHeadSize + max_len_of(*table[i]);
  }
}

}  // namespace

int32_t tlv_load(tlv_inst *inst) {
  if (inst == nullptr) {
    mu_printf("\r\n The base address of startup configuration is NULL.");
    return -1;
  }
  // Deliberate: formatted before its size is checked, so 16 bytes are written whatever `max_size` is. Held by
  // TlvLoadBlank.FormatsABufferBeforeItMeasuresIt.
  if (get_be32(header_of(inst->base).magic) != TLV_MAGIC) format_blank(inst->base);
  if (inst->max_size < u64{records_size(inst->base)} + kHeaderSize) return -1;
  const i32 count = tlv_check(inst->base);
  if (count < 0) return -1;

  drop_index(*inst);
  if (count == 0) return 0;
  const auto field_num = static_cast<u32>(count);
  Owned<tlv_field *> table = allocate<tlv_field *>(field_num);
  if (!table) return -1;
  index_records(inst->base, table.get(), field_num);
  inst->field_tbl = table.release();
  inst->field_num = field_num;
  return 0;
}
