// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The records of the files as they are now.
#ifndef TARN_TOOLS_LOG_SHOW_H
#define TARN_TOOLS_LOG_SHOW_H

#include "options.h"

namespace tarn_tools::log {

// Returns the exit status. A file that cannot be read does not keep the others from being shown.
int show(const Options &options);

}  // namespace tarn_tools::log

#endif
