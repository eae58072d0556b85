// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The commands of scripts and clients to the simulated kernel.
#ifndef TARN_SIM_LAUNCHER_COMMAND_H
#define TARN_SIM_LAUNCHER_COMMAND_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "names.h"
#include "words.h"

namespace tarn_sim {

// The calls that can be made to fail.
enum class Call : std::uint8_t { kIoctl, kOpen, kBind, kSocket };
constexpr std::size_t kCalls = 4;
constexpr const char *kCallNames[kCalls] = {"ioctl", "open", "bind", "socket"};

struct Command {
  enum class Kind : std::uint8_t {
    kEvent,        // type, device, text: the data
    kName,         // takes effect when it is read
    kDriverLine,   // module, level, text
    kKernelLine,   // text
    kKernelBytes,  // text
    kDatagram,     // text
    kFail,         // call, count
    kDump,
    kSay,  // text
    kStop,
  };
  Kind kind = Kind::kDump;
  std::uint32_t type = 0;
  std::uint16_t device = 0;
  std::uint8_t module = 0;
  std::uint8_t level = 0;
  Call call = Call::kIoctl;
  std::uint32_t count = 0;
  std::string text;
};

// A command and the number of its repetitions: COMMAND [N times].
struct Counted {
  Command command;
  std::optional<std::uint32_t> times;
};

// Reads a command. `end` is the column after the last word. A `name` takes effect in `names` at once.
std::optional<Counted> parse_command(std::span<const Word> words, std::size_t end, Names *names, Fault *fault);

// A number of at most `most` in decimal digits.
std::optional<std::uint32_t> parse_number(const std::string &text, std::uint32_t most);

}  // namespace tarn_sim

#endif
