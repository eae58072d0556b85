// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Records and descriptions on standard output.
#ifndef TARN_TOOLS_LOG_PRINTER_H
#define TARN_TOOLS_LOG_PRINTER_H

#include <string>

#include "entries.h"
#include "options.h"

namespace tarn_tools::log {

class Printer {
 public:
  explicit Printer(const Options &options);

  // A description that has no fields prints nothing.
  void print(const std::string &path, const Description &description) const;
  void print(const Entry &entry) const;

 private:
  bool json_;
  bool colour_;
  bool header_;
  Zone zone_;
};

}  // namespace tarn_tools::log

#endif
