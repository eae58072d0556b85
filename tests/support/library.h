// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The address range of libtarn.so in the process.
#ifndef TARN_TESTS_SUPPORT_LIBRARY_H
#define TARN_TESTS_SUPPORT_LIBRARY_H

namespace tarn_test {

// Whether a call that returns to `address` was made by libtarn.so. A call in tail position returns to the library's
// caller and is not recognised.
bool is_in_library(const void *address);

}  // namespace tarn_test

#endif
