// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "modules.h"

#include <cerrno>
#include <cstring>

#include "console.h"
#include "tarn/log.h"

namespace tarn_sim {

namespace {

constexpr std::size_t kCommandAt = 10;
constexpr std::size_t kModuleAt = 12;
constexpr std::size_t kTypeAt = 13;
constexpr std::size_t kValueAt = 14;
constexpr std::uint16_t kSetModule = 3;
enum Setting : std::uint8_t { kPrint, kRecord, kEnable };

}  // namespace

Response Modules::control(const Message &message) {
  if (message.request.code != kSetLevel || message.argument.size() != kLogArgument) return refuse(EINVAL);
  std::uint16_t command = 0;
  memcpy(&command, message.argument.data() + kCommandAt, sizeof command);
  const auto byte = [&message](std::size_t at) { return static_cast<std::uint8_t>(message.argument[at]); };
  if (command != kSetModule || byte(kTypeAt) > kEnable) return refuse(EINVAL);
  const std::uint8_t value = byte(kValueAt);
  if (byte(kTypeAt) != kEnable && value > MUP_LOG_DEBUG) return refuse(EINVAL);
  Module &module = modules_[byte(kModuleAt)];
  module.was_set = true;
  if (byte(kTypeAt) == kPrint) module.print = value;
  if (byte(kTypeAt) == kRecord) module.record = value;
  if (byte(kTypeAt) == kEnable) module.is_enabled = value == 1;
  constexpr const char *kSettings[] = {"print", "record", "enable"};
  report_detail("module " + std::to_string(byte(kModuleAt)) + ": " + kSettings[byte(kTypeAt)] + ' ' +
                std::to_string(value));
  return {.argument = message.argument};
}

}  // namespace tarn_sim
