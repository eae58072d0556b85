// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// --follow: shows the records that the daemon adds to its files.
#ifndef TARN_TOOLS_LOG_FOLLOW_H
#define TARN_TOOLS_LOG_FOLLOW_H

#include "options.h"

namespace tarn_tools::log {

// Returns the program's exit status when nobody reads the output any more; otherwise it runs until interrupted.
int follow(const Options &options);

}  // namespace tarn_tools::log

#endif
