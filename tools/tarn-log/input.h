// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The bytes of a log file.
//
// The daemon writes its files anew, whole and in place, so whoever reads one may find it empty or half written.
#ifndef TARN_TOOLS_LOG_INPUT_H
#define TARN_TOOLS_LOG_INPUT_H

#include <cstdint>
#include <string>

namespace tarn_tools::log {

// The name that stands for standard input.
constexpr char kStandardInput[] = "-";

// Eight times what the daemon's larger file can have: 1024 lines of 511 characters, and its head.
constexpr std::size_t kContentMax = std::size_t{4} << 20;

// The name of a file as messages show it.
std::string shown_name(const std::string &path);

enum class Reading : std::uint8_t {
  kDone,
  kFailed,
  kTooLarge,  // more than kContentMax: not a log file
  kChanging,  // the file was never twice the same
};

struct Content {
  Reading reading = Reading::kDone;
  std::string bytes;    // kDone
  std::string problem;  // the others: the reason, for people
};

// A file that may be written just now: what it held when it was read twice with the same result. What the daemon has
// not finished yet is missing, but no line of one state comes after one of another.
Content read_settled(const std::string &path);

// What a file holds that has not been written for a moment, however long that has to be waited for. Standard input, and
// what is not a regular file, is read as it comes.
Content read_at_rest(const std::string &path);

}  // namespace tarn_tools::log

#endif
