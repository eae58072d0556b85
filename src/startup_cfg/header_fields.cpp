// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The three values of the header that belong to the application.

#include "internal.h"

using namespace tarn;
using namespace tarn::cfg;

namespace {

// The header of the image; null, with a message, if the instance has none.
tlv_hdr *header_for(const tlv_inst *inst) {
  if (inst == nullptr || !require_base(*inst)) return nullptr;
  return &header_of(inst->base);
}

void seal_whole(const tlv_inst &inst) { seal(inst.base, records_size(inst.base) + kHeaderSize); }

void save_whole(const tlv_inst &inst) { save(inst, records_size(inst.base) + kHeaderSize); }

}  // namespace

int32_t tlv_write_flag(tlv_inst *inst, uint8_t flag) {
  tlv_hdr *header = header_for(inst);
  if (header == nullptr) return -1;
  header->flag = flag;
  seal_whole(*inst);
  save_whole(*inst);
  return 0;
}

int32_t tlv_write_active(tlv_inst *inst, uint8_t active) {
  tlv_hdr *header = header_for(inst);
  if (header == nullptr) return -1;
  header->active = active;
  seal_whole(*inst);
  // Deliberate: not saved, unlike the other two. Held by TlvWriteHeader.SealsAndExceptForActiveSaves.
  return 0;
}

int32_t tlv_write_version(tlv_inst *inst, uint32_t version) {
  tlv_hdr *header = header_for(inst);
  if (header == nullptr) return -1;
  put_be32(header->version, version);
  seal_whole(*inst);
  save_whole(*inst);
  return 0;
}

int32_t tlv_read_flag(const tlv_inst *inst, uint8_t *out) {
  const tlv_hdr *header = header_for(inst);
  if (header == nullptr) return -1;
  *out = header->flag;
  return 0;
}
