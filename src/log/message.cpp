// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The path of a message: filtered, formatted, shown, forwarded, stored.
//
// A message that is dropped costs two comparisons: nothing is formatted or locked for it. For other messages, the text
// and the time are made before the lock is taken.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal.h"

using namespace tarn;
using namespace tarn::log;

namespace {

struct Message {
  u8 module;
  u8 level;
  u32 line;
  time_t time;
  std::string_view text;  // NUL-terminated
};

// Only the value 1 counts as enabled.
bool passes(u8 level, u8 print_level, u8 record_level, u8 enable) {
  return enable == 1 && (level <= record_level || level <= print_level);
}

void show(const Message &message) {
  if (message.line == 0) {
    mu_printf("%s\r\n", message.text.data());
  } else {
    mu_printf("[%s-%s: %d]: %s\r\n", module_name(message.module), mup_log_level_str_get(message.level),
              static_cast<int>(message.line), message.text.data());
  }
}

void forward(std::string_view text, int sock) {
  sockaddr_in collector = {};
  collector.sin_family = AF_INET;
  collector.sin_port = htons(MUP_LOG_SERVER_PORT);
  collector.sin_addr.s_addr = htonl(load_relaxed(control.server_ip));
  const ssize_t sent =
      sendto(sock, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&collector), sizeof collector);
  if (sent < 0) mu_printf("Error writing buffer");
}

// A full ring drops its oldest record, which is in the next slot.
void store(const Message &message) {
  const bool system = message.module < MUP_LOG_USR_FIRST;
  const Ring ring = system ? system_ring() : user_ring();
  mup_log_rec &slot = ring.oldest(0);
  slot.module = message.module;
  slot.level = message.level;
  slot.line = message.line;
  slot.time = message.time;
  const size_t len = std::min(message.text.size(), sizeof slot.text - 1);
  memcpy(slot.text, message.text.data(), len);
  memset(slot.text + len, 0, sizeof slot.text - len);
  *ring.next = (*ring.next + 1) & (ring.size - 1);
  mark_dirty(system ? kSysDirty : kUsrDirty);
}

}  // namespace

void mup_log_msg([[maybe_unused]] uint64_t reserved, uint8_t module_id, uint8_t level, int32_t line, const char *fmt,
                 ...) {
  if (fmt == nullptr || !is_inited()) return;
  // Deliberate: an id equal to the number of modules is not reported, although no module has it; the message is dropped
  // below. Held by LogMsg.AcceptsAndDropsAnIdEqualToTheNumberOfModules.
  const u8 module_num = control.module_num;
  if (module_id > module_num) {
    mu_printf("unknow module id:%d\r\n", module_id);
    return;
  }
  if (level > kLevelMax) {
    mu_printf("unknow level id:%d\r\n", level);
    return;
  }
  if (module_id == module_num) return;
  const mup_log_module &module = control.modules[module_id];
  const u8 print_level = load_relaxed(module.print_level);
  const u8 record_level = load_relaxed(module.record_level);
  if (!passes(level, print_level, record_level, load_relaxed(module.enable))) return;

  char text[MUP_LOG_MESSAGE_SIZE];
  text[0] = '\0';
  va_list args;
  va_start(args, fmt);
  (void)vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  const bool hidden = line == MUP_LOG_NOPRINT;
  const Message message = {module_id, level, hidden ? 0 : static_cast<u32>(line), time(nullptr), text};

  ScopedLock lock(control.mutex);
  if (!hidden && level <= print_level) show(message);
  if (level > record_level) return;
  const u8 remote_mode = load_relaxed(control.remote_mode);
  const int sock = control.sock;
  if (remote_mode != MUP_LOG_REMOTE_OFF && sock >= 0) forward(message.text, sock);
  if (remote_mode == MUP_LOG_REMOTE_ONLY) return;
  store(message);
}
