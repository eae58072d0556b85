// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "script.h"
#include "tarn/platform.h"

namespace tarn_sim {

namespace {

// Set before there is a second thread.
bool g_verbose;
std::optional<std::uint64_t> g_start_tick;

// "[    1.500] ", in seconds, or nothing.
std::string time_in_front() {
  if (!g_verbose || !g_start_tick) return "";
  const std::uint64_t ms = (mu_current_tick() - *g_start_tick) * kTickMs;
  char text[32];
  (void)snprintf(text, sizeof text, "[%5llu.%03llu] ", static_cast<unsigned long long>(ms / 1000),
                 static_cast<unsigned long long>(ms % 1000));
  return text;
}

}  // namespace

void report(const std::string &line) {
  const std::string whole = "tarn-sim: " + time_in_front() + line + '\n';
  std::string_view rest = whole;
  while (!rest.empty()) {
    const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) return;  // there is no other way to report it
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

void report_detail(const std::string &line) {
  if (g_verbose) report(line);
}

void set_verbose(bool verbose) { g_verbose = verbose; }

void start_clock() { g_start_tick = mu_current_tick(); }

std::string readable(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '\\') {
      text += "\\\\";
    } else if (value < 0x20 || value == 0x7F) {
      text += "\\x";
      text += kDigits[value >> 4];
      text += kDigits[value & 15];
    } else {
      text += byte;
    }
  }
  return text;
}

}  // namespace tarn_sim
