// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The same in C++: the headers declare C linkage, so this links to a C library.

#include <tarn/containers.h>
#include <tarn/convert.h>
#include <tarn/log.h>
#include <tarn/os.h>
#include <tarn/platform.h>
#include <tarn/startup_cfg.h>
#include <tarn/timer.h>

#include <string>

int main() {
  if (mu_timer_count() != 0 || mu_timer_add(
                                   3600000, [](void *) {}, nullptr) != 1)
    return 1;
  mu_list_t *list = mu_list_create(sizeof(int), nullptr);
  const int number = 7;
  if (mu_list_add(list, &number) != 0 || *static_cast<int *>(mu_list_first(list)->data) != 7) return 2;
  mu_list_destory(list);
  uint8_t image[64] = {};
  tlv_inst *inst = tlv_inst_init(image, sizeof image - sizeof(tlv_hdr), nullptr);
  uint16_t value = 0;
  if (tlv_load(inst) != 0 || tlv_write_short(inst, 1, 514) != 0) return 3;
  if (tlv_read_short(inst, 1, &value) != 0 || value != 514) return 4;
  mu_free(inst->field_tbl);
  mu_free(inst);
  if (std::string(mup_log_level_str_get(8)) != "Debug" || mup_log_ctrl_get()->inited != 0) return 5;
  if (OS_STRTOUL("42", nullptr, 10) != 42) return 6;
  uint32_t ip = 0;
  if (mu_str2ip("192.168.1.254", &ip) != 0 || ip != 0xC0A801FE) return 7;
  mu_printf("consumer: done\n");
  return 0;
}
