// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Numbers at any address, in the processor's own order: callers convert to the byte order of an image.

#include <cstring>

#include "tarn/startup_cfg.h"

uint8_t tlv_get_char(const uint8_t *p) { return *p; }

void tlv_set_char(uint8_t *p, uint8_t value) { *p = value; }

uint16_t tlv_get_short(const void *p) {
  uint16_t value;
  memcpy(&value, p, sizeof value);
  return value;
}

void tlv_set_short(void *p, uint16_t value) { memcpy(p, &value, sizeof value); }

uint32_t tlv_get_int(const void *p) {
  uint32_t value;
  memcpy(&value, p, sizeof value);
  return value;
}

void tlv_set_int(void *p, uint32_t value) { memcpy(p, &value, sizeof value); }
