// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Files: libc's descriptors, and the size and the copy of whole files through buffered streams.

#include <fcntl.h>
#include <unistd.h>

#include "tarn/os.h"

namespace {

// Keeps the sign while widening: a negative length becomes a request that the system rejects.
size_t widened(int length) { return static_cast<size_t>(static_cast<ssize_t>(length)); }

void copy_bytes(FILE *from, FILE *to) {
  for (int byte = fgetc(from); byte != EOF; byte = fgetc(from)) {
    (void)fputc(byte, to);  // write errors are not detected, as the header says
  }
}

}  // namespace

long OS_FILE_OPEN(const char *path, int flags, mode_t mode) { return open64(path, flags, mode); }

long OS_FILE_CLOSE(int file) { return close(file); }

long OS_FILE_READ(int file, void *buffer, int length) { return read(file, buffer, widened(length)); }

long OS_FILE_WRITE(int file, const void *buffer, int length) { return write(file, buffer, widened(length)); }

long OS_FILE_SIZE(FILE *stream) {
  (void)fseek(stream, 0, SEEK_END);  // if this fails, ftell fails too
  const long end = ftell(stream);
  rewind(stream);
  // Deliberate: cut to 32 bits, so a file of 2 GiB or more reports a wrong size. Held by OsFile.SizeIsCutTo32Bits.
  return static_cast<int32_t>(end);
}

long OS_FILE_CP(const char *destination, const char *source) {
  if (destination == nullptr || source == nullptr) return -1;
  FILE *from = fopen(source, "r");
  if (from == nullptr) return -1;
  FILE *to = fopen(destination, "w");
  if (to == nullptr) {
    (void)fclose(from);  // read only: nothing to lose
    return -1;
  }
  copy_bytes(from, to);
  (void)fclose(from);
  (void)fclose(to);  // write errors are not detected
  return 0;
}
