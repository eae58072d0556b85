// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the command line asks for.
#ifndef TARN_TOOLS_EVENT_OPTIONS_H
#define TARN_TOOLS_EVENT_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn_tools::event {

enum class Action : std::uint8_t { kSend, kStatus, kWatch };

struct Options {
  std::string control;  // the socket's path
  Action action = Action::kSend;
  std::vector<std::string> lines;  // kSend: to be sent, one after another
  bool are_typed = false;          // kSend: as the user has written them, and not made from arguments
  bool from_input = false;         // kSend: those of standard input instead
  bool json = false;
  bool all = false;
  int interval_ms = 1000;
  std::uint32_t looks = 0;  // 0: without end
};

// Nothing when the help or the version was asked for and is printed. Throws a UsageError.
std::optional<Options> parse_options(int argc, const char *const *argv);

}  // namespace tarn_tools::event

#endif
