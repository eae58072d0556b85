// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The commands of tarn-cfg.
#ifndef TARN_TOOLS_CFG_COMMANDS_H
#define TARN_TOOLS_CFG_COMMANDS_H

#include "common/status.h"
#include "options.h"

namespace tarn_tools::cfg {

// repair: the image is sound again, but fields of the damaged one are not in it.
constexpr int kLost = 3;

// Each returns an exit status.
int check(const Options &options);
int create(const Options &options);
int diff(const Options &options);
int export_json(const Options &options);
int get(const Options &options);
int import_json(const Options &options);
int repair(const Options &options);
int resize(const Options &options);
int set(const Options &options);
int show(const Options &options);
int unset(const Options &options);

}  // namespace tarn_tools::cfg

#endif
