// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The length of the longest series of tests.
#ifndef TARN_TESTS_SUPPORT_THINNING_H
#define TARN_TESTS_SUPPORT_THINNING_H

namespace tarn_test {

// Of a long series of cases that differ only in their data, a test runs every kThinning-th. An emulated processor needs
// thirty times as long, and any case would show a fault of that processor's code. Natively all cases run.
#if defined(TARN_EMULATED)
constexpr int kThinning = 5;
#else
constexpr int kThinning = 1;
#endif

}  // namespace tarn_test

#endif
