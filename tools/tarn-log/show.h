// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shows the present records of the files.
#ifndef TARN_TOOLS_LOG_SHOW_H
#define TARN_TOOLS_LOG_SHOW_H

#include "options.h"

namespace tarn_tools::log {

// Returns the exit status. If a file cannot be read, the others are shown nevertheless.
int show(const Options &options);

}  // namespace tarn_tools::log

#endif
