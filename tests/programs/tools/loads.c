// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Opens images with the library as a daemon does. Standard input has one image after the other. Before each are two
// numbers of 4 bytes in network order: its size and the daemon's max_size. Prints one line per image: the result of
// tlv_load and the number of fields that it has found.
#include <arpa/inet.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tarn/platform.h>
#include <tarn/startup_cfg.h>

static int next_image(uint32_t *size, uint32_t *max_size) {
  uint32_t numbers[2];
  if (fread(numbers, sizeof numbers, 1, stdin) != 1) return 0;
  *size = ntohl(numbers[0]);
  *max_size = ntohl(numbers[1]);
  return 1;
}

int main(void) {
  uint32_t size = 0;
  uint32_t max_size = 0;
  while (next_image(&size, &max_size)) {
    uint8_t *buffer = calloc(1, (size_t)(size > max_size ? size : max_size) + 16);
    if (buffer == NULL || fread(buffer, 1, size, stdin) != size) return 1;
    tlv_inst *instance = tlv_inst_init(buffer, max_size, NULL);
    if (instance == NULL) return 1;
    const int result = tlv_load(instance);
    printf("%d %u\n", result, instance->field_num);
    mu_free(instance->field_tbl);
    mu_free(instance);
    free(buffer);
  }
  return 0;
}
