// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shows a simulation's state repeatedly.
#ifndef TARN_TOOLS_EVENT_WATCH_H
#define TARN_TOOLS_EVENT_WATCH_H

#include "connection.h"
#include "options.h"

namespace tarn_tools::event {

// Ends when the simulation ends, after `options.looks` states, or when nobody reads standard output any more. On a
// terminal each state replaces the one before. Returns the exit status.
int watch(Connection *connection, const Options &options);

// Shows the state once. Returns the exit status.
int show(Connection *connection, const Options &options);

}  // namespace tarn_tools::event

#endif
