// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The lists that the commands print as JSON.
#ifndef TARN_TOOLS_CFG_JSON_H
#define TARN_TOOLS_CFG_JSON_H

#include "diff.h"
#include "image.h"

namespace tarn_tools::cfg {

std::string survey_json(const std::string &path, size_t file_size, const Survey &found);
std::string findings_json(const std::string &path, size_t file_size, const Survey &found);
std::string differences_json(const std::vector<Difference> &differences);

}  // namespace tarn_tools::cfg

#endif
