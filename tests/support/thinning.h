// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// How long the longest series of tests are.
#ifndef TARN_TESTS_SUPPORT_THINNING_H
#define TARN_TESTS_SUPPORT_THINNING_H

namespace tarn_test {

// Of a long series of cases that differ in their data alone, a test takes every kThinning-th. On an emulated processor
// these take thirty times as long, and what it does differently shows in any of them; natively all are taken.
#if defined(TARN_EMULATED)
constexpr int kThinning = 5;
#else
constexpr int kThinning = 1;
#endif

}  // namespace tarn_test

#endif
