// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tarn_tools {

namespace {

const char *name = "tarn";

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *pattern, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int size = vsnprintf(nullptr, 0, pattern, again);
  va_end(again);
  std::string text(size < 0 ? 0 : static_cast<std::size_t>(size), '\0');
  (void)vsnprintf(text.data(), text.size() + 1, pattern, arguments);
  return text;
}

unsigned byte_at(const std::string &text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

bool is_high_control(unsigned byte) { return byte >= 0x80 && byte <= 0x9f; }

// U+0080 to U+009F are controls too: 0xC2 and such a byte, or on a terminal of single bytes that byte without 0xC2.
bool is_control(const std::string &text, std::size_t at) {
  const unsigned byte = byte_at(text, at);
  const unsigned before = at > 0 ? byte_at(text, at - 1) : 0;
  if (byte < ' ' || byte == 0x7f) return byte != '\t';
  if (byte == 0xc2) return is_high_control(byte_at(text, at + 1));
  return is_high_control(byte) && (before < 0x80 || before == 0xc2);
}

}  // namespace

std::string format(const char *pattern, ...) {  // NOLINT(cert-dcl50-cpp): the compiler checks the arguments
  va_list arguments;
  va_start(arguments, pattern);
  std::string text = formatted(pattern, arguments);
  va_end(arguments);
  return text;
}

void fail(const char *pattern, ...) {  // NOLINT(cert-dcl50-cpp): the compiler checks the arguments
  va_list arguments;
  va_start(arguments, pattern);
  const std::string text = formatted(pattern, arguments);
  va_end(arguments);
  throw Failure(text);
}

void fail_with_errno(const char *pattern, ...) {  // NOLINT(cert-dcl50-cpp): the compiler checks the arguments
  const int error = errno;
  va_list arguments;
  va_start(arguments, pattern);
  const std::string text = formatted(pattern, arguments);
  va_end(arguments);
  throw Failure(text + ": " + strerror(error));
}

void refuse(const std::string &what, const std::string &word, const std::string &why) {
  throw UsageError(what + ": \"" + word + "\" " + why);
}

void report(const std::string &text) { (void)fprintf(stderr, "%s: %s\n", name, printable(text).c_str()); }

void set_program_name(const char *program) { name = program; }

const char *program_name() { return name; }

std::string printable(const std::string &text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size(); at++) {
    if (is_control(text, at)) {
      std::array<char, 8> escape = {};
      (void)snprintf(escape.data(), escape.size(), "\\x%02x", byte_at(text, at));
      shown += escape.data();
    } else {
      shown += text[at];
    }
  }
  return shown;
}

std::string counted(unsigned long long count, const char *thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

}  // namespace tarn_tools
