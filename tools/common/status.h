// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Exit statuses of the tools.
#ifndef TARN_TOOLS_COMMON_STATUS_H
#define TARN_TOOLS_COMMON_STATUS_H

namespace tarn_tools {

enum ExitStatus {
  kDone = 0,
  kNotSo = 1,  // not found, or a check has failed
  kWrong = 2,  // wrong use or input, or something that could not be read or written
};

}  // namespace tarn_tools

#endif
