// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "request.h"

#include <array>
#include <cstdio>

namespace tarn_tools::event {

std::string quoted(const std::string &text) {
  std::string quoted = "\"";
  for (const char letter : text) {
    const auto byte = static_cast<unsigned char>(letter);
    if (letter == '"' || letter == '\\') {
      quoted += '\\';
      quoted += letter;
    } else if (byte < ' ' || byte == 0x7f) {
      std::array<char, 8> escape = {};
      (void)snprintf(escape.data(), escape.size(), "\\x%02x", byte);
      quoted += escape.data();
    } else {
      quoted += letter;
    }
  }
  return quoted + "\"";
}

bool is_word(const std::string &text) {
  for (const char letter : text) {
    const auto byte = static_cast<unsigned char>(letter);
    if (byte <= ' ' || byte == 0x7f || letter == '"' || letter == '#') return false;
  }
  return !text.empty();
}

std::string line_of(const EventRequest &request) {
  std::string line;
  if (request.every) line += "every " + *request.every + " ";
  line += "event " + request.type;
  if (request.device) line += " device " + std::to_string(*request.device);
  if (request.data) line += " data " + *request.data;
  if (request.text) line += " text " + quoted(*request.text);
  if (request.times) line += " " + std::to_string(*request.times) + " times";
  return line;
}

std::string line_of(const KernelRequest &request) {
  std::string line = "kmsg ";
  if (request.module) line += std::to_string(*request.module) + " " + std::to_string(request.level.value_or(0)) + " ";
  return line + quoted(request.text);
}

}  // namespace tarn_tools::event
