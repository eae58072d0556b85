// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The options of the command line.
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
  std::vector<std::string> lines;  // kSend: the lines to send
  bool are_typed = false;          // kSend: the user has written them; they are not made from arguments
  bool from_input = false;         // kSend: send the lines of standard input instead
  bool json = false;
  bool all = false;
  int interval_ms = 1000;
  std::uint32_t looks = 0;  // 0: no limit
};

// Nothing if the help or the version was requested and has been printed. Throws a UsageError.
std::optional<Options> parse_options(int argc, const char *const *argv);

}  // namespace tarn_tools::event

#endif
