// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the tools report on standard error, and how they fail.
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

// What printf makes of it.
[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...);

// Both throw a Failure. The second adds what errno stands for.
[[noreturn, gnu::format(printf, 1, 2)]] void fail(const char *pattern, ...);
[[noreturn, gnu::format(printf, 1, 2)]] void fail_with_errno(const char *pattern, ...);

// Throws a UsageError: `WHAT: "WORD" WHY`.
[[noreturn]] void refuse(const std::string &what, const std::string &word, const std::string &why);

// Prints "PROGRAM: TEXT" on standard error.
void report(const std::string &text);

// The name that stands before every report; `name` has to stay.
void set_program_name(const char *name);
const char *program_name();

// The text with its control characters as "\x1b": no byte of a file reaches a terminal as a command. A tab stays.
std::string printable(const std::string &text);

// "1 byte", "2 bytes".
std::string counted(unsigned long long count, const char *thing);

}  // namespace tarn_tools

#endif
