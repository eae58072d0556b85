// What the tool tells on standard error.
#ifndef TARN_TOOLS_LOG_MESSAGE_H
#define TARN_TOOLS_LOG_MESSAGE_H

#include <string>

#include "log_file.h"

namespace tarn_log {

// "tarn-log: TEXT"
void tell(const std::string &text);

// "tarn-log: FILE: line 3, byte 63: REASON"
void tell_fault(const std::string &path, const Fault &fault);

// The text with its control characters as "\x1b": nothing that a daemon has logged reaches a terminal as a command.
// A tab stays.
std::string printable(const std::string &text);

}  // namespace tarn_log

#endif
