// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The bytes of a log file.
//
// The daemon rewrites its files whole and in place, so a reader may find one empty or half-written.
#ifndef TARN_TOOLS_LOG_INPUT_H
#define TARN_TOOLS_LOG_INPUT_H

#include <cstdint>
#include <string>

namespace tarn_tools::log {

// The name that means standard input.
constexpr char kStandardInput[] = "-";

// Eight times the size of the daemon's larger file: 1024 lines of 511 characters, and its head.
constexpr std::size_t kContentMax = std::size_t{4} << 20;

// The name of a file as messages show it.
std::string shown_name(const std::string &path);

enum class Reading : std::uint8_t {
  kDone,
  kFailed,
  kTooLarge,  // more than kContentMax: not a log file
  kChanging,  // no two reads had the same result
};

struct Content {
  Reading reading = Reading::kDone;
  std::string bytes;    // kDone
  std::string problem;  // the others: the reason, as text
};

// Reads a file that may be written at the same time, until two reads have the same result. Lines that the daemon has
// not written yet are missing, but lines of two states are never mixed.
Content read_settled(const std::string &path);

// Waits until a file has not been written for a moment, and reads it. Standard input and files that are not regular are
// read at once.
Content read_at_rest(const std::string &path);

}  // namespace tarn_tools::log

#endif
