// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The files of the OS layer, under the platform's names.

#include "tarn/os.h"
#include "tarn/platform.h"

long mu_file_open(const char *path, int flags, mode_t mode) { return OS_FILE_OPEN(path, flags, mode); }

long mu_file_close(int file) { return OS_FILE_CLOSE(file); }

long mu_file_read(int file, void *buffer, uint32_t length) {
  return OS_FILE_READ(file, buffer, static_cast<int>(length));
}

long mu_file_write(int file, const void *buffer, uint32_t length) {
  return OS_FILE_WRITE(file, buffer, static_cast<int>(length));
}

long mu_file_size(FILE *stream) { return OS_FILE_SIZE(stream); }

long mu_file_cp(const char *destination, const char *source) { return OS_FILE_CP(destination, source); }
