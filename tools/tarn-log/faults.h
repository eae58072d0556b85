// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Reports faults of log files.
#ifndef TARN_TOOLS_LOG_FAULTS_H
#define TARN_TOOLS_LOG_FAULTS_H

#include <string>

#include "log_file.h"

namespace tarn_tools::log {

// "tarn-log: FILE: PROBLEM"
void report_problem(const std::string &path, const std::string &problem);

// "tarn-log: FILE: line 3, byte 63: REASON"
void report_fault(const std::string &path, const Fault &fault);

// Once for the whole file, instead of its faults.
constexpr char kNotALog[] = "not a log file: it has no \"SysLog:\", no description of a device and no record";

}  // namespace tarn_tools::log

#endif
