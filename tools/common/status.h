// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// How the tools end.
#ifndef TARN_TOOLS_COMMON_STATUS_H
#define TARN_TOOLS_COMMON_STATUS_H

namespace tarn_tools {

enum ExitStatus {
  kDone = 0,
  kNotSo = 1,  // the thing asked about is not so
  kWrong = 2,  // wrong use or input, or something that could not be read or written
};

}  // namespace tarn_tools

#endif
