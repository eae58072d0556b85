// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A simulation's state for people.
#ifndef TARN_TOOLS_EVENT_TABLE_H
#define TARN_TOOLS_EVENT_TABLE_H

#include <string>

#include "state.h"

namespace tarn_tools::event {

// Lines of text. `before`, unless null, is an earlier state: what has come since is shown as "+N". Events that were
// neither sent nor named nor configured are left out unless `all`.
std::string table(const State &now, const State *before, bool all);

}  // namespace tarn_tools::event

#endif
