// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Many requests at once, for caller.c.
#ifndef TARN_TEST_SIM_HAMMER_H
#define TARN_TEST_SIM_HAMMER_H

// Starts threads. Each repeatedly writes the settings of one event type and reads them back. They share the descriptor
// of the platform's device; with -1 each call opens its own. Returns how often a thread got the answer for another.
long hammer_in_threads(int threads, int calls, int shared);

#endif
