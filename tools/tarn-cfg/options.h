// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The options of the command line.
#ifndef TARN_TOOLS_CFG_OPTIONS_H
#define TARN_TOOLS_CFG_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "key.h"
#include "value.h"

namespace tarn_tools::cfg {

struct Options {
  std::string file;
  std::string other;  // diff: the second file; import: the JSON file
  Key key;
  std::optional<ValueType> type;      // get: none if the value's form decides
  Bytes value;                        // set: the bytes that the field begins with
  std::optional<uint32_t> length;     // set, resize: of the field
  size_t max_size = SIZE_MAX;         // of the image
  std::optional<uint32_t> file_size;  // create
  std::optional<uint8_t> fill;        // create: the byte of the padding
  bool json = false;
  bool force = false;
  bool cut = false;
  bool takes_any_magic = false;
  bool is_dry_run = false;
};

// Returns the exit status.
using Command = int (*)(const Options &);

struct Request {
  Command command = nullptr;  // null if the help or the version was printed
  Options options;
};

// Throws a UsageError.
Request parse_command_line(int argc, const char *const *argv);

}  // namespace tarn_tools::cfg

#endif
