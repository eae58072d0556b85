// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Declarations that the sources of gatewayd share.
#ifndef GATEWAYD_H
#define GATEWAYD_H

#include <netinet/in.h>
#include <stdint.h>

#include "tarn/log.h"

enum { ENDS_INTERNAL = 1, ENDS_BAD_OPTION = 2, ENDS_BAD_PATH = 3, ENDS_UNREADABLE = 4, ENDS_TOO_LARGE = 5 };

// Log modules by id. Those of 16 and above have a separate ring and file. Kernel drivers use these ids too; text that
// the kernel bridge cannot assign is logged as module 3.
enum { LOG_MAIN, LOG_CONFIG, LOG_UPLINK, LOG_KERNEL, LOG_MEMORY, LOG_SWITCH, LOG_TRAFFIC = MUP_LOG_USR_FIRST };

#define LOG(module, level, ...) mup_log_msg(0, module, level, __LINE__, __VA_ARGS__)

enum { TEXT_SIZE = 32 };

// Initially the defaults. A text that fills its field in the image has no NUL there.
struct settings {
  char host_name[TEXT_SIZE + 1], uplink[TEXT_SIZE + 1];
  uint32_t uplink_check_ms, statistics_s;
  uint32_t collector;  // IPv4 address of the log collector in host byte order; 0 for none
  uint32_t boot_count;
};
extern struct settings settings;

// Fills `settings` from the image in the file `path`, counts this start, and brings the image up to date. `collector`,
// unless null, replaces the one of the image. Ends the process if that path cannot hold an image.
void open_configuration(const char *path, const struct in_addr *collector);

#endif
