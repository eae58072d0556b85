// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Reports to standard error, and failures of the tools.
//
// A function that cannot do its work throws a Failure. run_program (program.h) reports it, at one place for each tool.
#ifndef TARN_TOOLS_COMMON_REPORT_H
#define TARN_TOOLS_COMMON_REPORT_H

#include <stdexcept>
#include <string>

namespace tarn_tools {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The command line is wrong; the report also names --help.
class UsageError : public Failure {
 public:
  using Failure::Failure;
};

// The text that printf would print.
[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...);

// Both throw a Failure. The second adds the text for errno.
[[noreturn, gnu::format(printf, 1, 2)]] void fail(const char *pattern, ...);
[[noreturn, gnu::format(printf, 1, 2)]] void fail_with_errno(const char *pattern, ...);

// Throws a UsageError: `WHAT: "WORD" WHY`.
[[noreturn]] void refuse(const std::string &what, const std::string &word, const std::string &why);

// Prints "PROGRAM: TEXT" on standard error.
void report(const std::string &text);

// Sets the name before every report; `name` must stay valid.
void set_program_name(const char *name);
const char *program_name();

// The text with control characters as "\x1b", so that no byte of a file is a command to a terminal. Tabs are kept.
std::string printable(const std::string &text);

// "1 byte", "2 bytes".
std::string counted(unsigned long long count, const char *thing);

}  // namespace tarn_tools

#endif
