// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Many requests at once, for caller.c.
#ifndef TARN_TEST_SIM_HAMMER_H
#define TARN_TEST_SIM_HAMMER_H

// Threads, each of which writes the settings of an event type of its own and reads them back, over and over. They share
// the descriptor of the platform's device; with -1 each call opens its own. Returns how often the answer was another's.
long hammer_in_threads(int threads, int calls, int shared);

#endif
