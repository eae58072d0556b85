// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A simulation's state, looked at again and again.
#ifndef TARN_TOOLS_EVENT_WATCH_H
#define TARN_TOOLS_EVENT_WATCH_H

#include "connection.h"
#include "options.h"

namespace tarn_tools::event {

// Until the simulation ends, `options.looks` is reached, or nobody reads standard output any more. On a terminal each
// look takes the place of the one before. Returns the exit status.
int watch(Connection *connection, const Options &options);

// One look. Returns the exit status.
int show(Connection *connection, const Options &options);

}  // namespace tarn_tools::event

#endif
