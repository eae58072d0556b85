// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// --follow: what the daemon adds to its files, as it does.
#ifndef TARN_TOOLS_LOG_FOLLOW_H
#define TARN_TOOLS_LOG_FOLLOW_H

#include "options.h"

namespace tarn_tools::log {

// Ends when nobody reads what is printed, with the program's exit status; else the program is interrupted.
int follow(const Options &options);

}  // namespace tarn_tools::log

#endif
