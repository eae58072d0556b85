// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A parsed log file: the head, and the lines of the records.
#ifndef TARN_TOOLS_LOG_LOG_FILE_H
#define TARN_TOOLS_LOG_LOG_FILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn_tools::log {

struct Record {
  std::int64_t time = 0;  // seconds since the Unix epoch
  int level = 0;
  std::string module;
  std::string text;
};

// The place of a line in its file, and its fault.
struct Fault {
  std::size_t line = 0;    // from 1
  std::size_t offset = 0;  // of the line's first byte, from 0
  std::string reason;
};

// A line after the head: a record, or a fault.
struct Line {
  std::string raw;  // without its line feed
  std::size_t number = 0;
  std::size_t offset = 0;
  std::optional<Record> record;
  std::string reason;  // why it is not a record
};

// The device's description: names and values in the order of the file.
using Description = std::vector<std::pair<std::string, std::string>>;

struct LogFile {
  Description description;
  std::vector<Fault> head_faults;
  std::vector<Line> lines;
  // Whether it looks like a log file; an empty file does. If not, its faults mean nothing.
  bool is_log = true;
};

// Whether a last line without a line feed is a fault, or is still being written and is ignored.
enum class LastLine : std::uint8_t { kMustEnd, kMayGrow };

LogFile parse_log(std::string_view content, LastLine last_line);

}  // namespace tarn_tools::log

#endif
