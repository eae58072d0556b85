// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The start of the log. The socket, the mutex and the table of modules live as long as the process.

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::log;

namespace {

// Clears everything before the user header, which survives a second start. `inited` is cleared first, by an atomic
// store, so that no message uses a state that is being cleared.
void clear_control() {
  store_release(control.inited, u8{0});
  constexpr size_t kBegin = offsetof(mup_log_ctrl, module_num);
  memset(reinterpret_cast<u8 *>(&control) + kBegin, 0, offsetof(mup_log_ctrl, usr_header) - kBegin);
}

void register_module(mup_log_module &module, const char *name) {
  module.record_level = kDefaultLevel;
  module.print_level = kDefaultLevel;
  module.enable = 1;
  memcpy(module.name, name, strnlen(name, sizeof module.name - 1));  // the record was zero: the name ends in NUL
}

}  // namespace

mu_status_t mup_log_init([[maybe_unused]] uint64_t reserved, uint16_t module_num, const char *names) {
  if (report_null(names)) return kBadArgument;
  clear_control();
  Owned<mup_log_module> modules = allocate<mup_log_module>(module_num);
  if (!modules) {
    mu_printf("No memory \r\n");
    return kNoMemory;
  }
  memcpy(control.sys_path, kSysPath, sizeof kSysPath);
  memcpy(control.usr_path, kUsrPath, sizeof kUsrPath);
  if (mu_mutex_init(&control.mutex, "log_mutex") != 0) {
    mu_printf("create mutex error \r\n");
    return kNoMutex;
  }
  for (u32 i = 0; i < module_num; i++) register_module(modules.get()[i], names + size_t{i} * MUP_LOG_NAME_SIZE);
  control.modules = modules.release();
  control.sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (control.sock < 0) mu_printf("Log socket failed\n");
  control.module_num = static_cast<u8>(module_num);
  control.server_ip = TARN_LOG_SERVER_IP;
  store_release(control.inited, u8{1});
  return 0;
}
