// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The lines that a simulation understands.
#ifndef TARN_TOOLS_EVENT_REQUEST_H
#define TARN_TOOLS_EVENT_REQUEST_H

#include <cstdint>
#include <optional>
#include <string>

namespace tarn_tools::event {

// An event, or a storm of them.
struct EventRequest {
  std::string type;  // a number or a name
  std::optional<std::uint16_t> device;
  std::optional<std::string> data;   // hexadecimal
  std::optional<std::string> text;   // in place of `data`
  std::optional<std::string> every;  // a time
  std::optional<std::uint32_t> times;
};

// A line of the kernel's log, framed if there are a module and a level.
struct KernelRequest {
  std::optional<unsigned> module, level;
  std::string text;
};

std::string line_of(const EventRequest &request);
std::string line_of(const KernelRequest &request);

// The text in double quotes, with escapes where they are needed.
std::string quoted(const std::string &text);

// Whether it is one word of a line: not empty, not a comment, and without blanks, quotes and control characters.
bool is_word(const std::string &text);

}  // namespace tarn_tools::event

#endif
