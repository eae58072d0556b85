// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include "common/report.h"
#include "input.h"

namespace tarn_tools::log {

void report_problem(const std::string &path, const std::string &problem) { report(shown_name(path) + ": " + problem); }

void report_fault(const std::string &path, const Fault &fault) {
  report_problem(path,
                 "line " + std::to_string(fault.line) + ", byte " + std::to_string(fault.offset) + ": " + fault.reason);
}

}  // namespace tarn_tools::log
