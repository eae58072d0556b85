// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A simulation's state as text.
#ifndef TARN_TOOLS_EVENT_TABLE_H
#define TARN_TOOLS_EVENT_TABLE_H

#include <string>

#include "state.h"

namespace tarn_tools::event {

// Lines of text. `before`, unless null, is an earlier state: the increase since then is shown as "+N". Without `all`,
// events without a name that were neither sent nor configured are omitted.
std::string table(const State &now, const State *before, bool all);

}  // namespace tarn_tools::event

#endif
