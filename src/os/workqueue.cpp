// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Work queues: placeholders that accept everything and run nothing. Programs link to them.

#include "tarn/os.h"

long OS_WORKQUEUE_CREATE([[maybe_unused]] void *queue, [[maybe_unused]] void *name) { return 0; }

long OS_WORK_ADD([[maybe_unused]] void *queue, [[maybe_unused]] void *work, [[maybe_unused]] void *arg) { return 0; }

void OS_WORKQUEUE_DESTROY([[maybe_unused]] void *queue) {}

void OS_WORK_PROCESS_INTERNAL() {}
