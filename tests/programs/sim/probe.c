// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Uses a gateway's paths and port as a daemon does, and prints the results. shim_test.cpp runs it with and without the
// preloaded shim.

#define _GNU_SOURCE

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static const char *outcome(int result) { return result >= 0 ? "ok" : strerror(errno); }

static void open_and_close(const char *path) {
  const int file = open(path, O_RDONLY);
  printf("%s: %s\n", path, outcome(file));
  if (file >= 0) close(file);
}

static void write_and_read(const char *path) {
  FILE *file = fopen(path, "w");
  if (file == NULL) {
    printf("write %s: %s\n", path, strerror(errno));
    return;
  }
  fputs("kept", file);
  fclose(file);
  char text[8] = "";
  const int again = openat(AT_FDCWD, path, O_RDONLY);
  const ssize_t got = read(again, text, sizeof text - 1);
  close(again);
  printf("read %s: %.*s\n", path, (int)got, text);
}

static void send_to_collector(void) {
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  struct sockaddr_in to = {.sin_family = AF_INET, .sin_port = htons(514)};
  to.sin_addr.s_addr = htonl(0x0A000001);
  const ssize_t sent = sendto(sock, "datagram", 8, 0, (const struct sockaddr *)&to, sizeof to);
  printf("sent %d\n", (int)sent);
  close(sock);
}

int main(void) {
  write_and_read("/overlay/file");
  printf("access: %s\n", outcome(access("/overlay/file", R_OK)));
  printf("unlink: %s\n", outcome(unlink("/overlay/file")));
  printf("access: %s\n", outcome(access("/overlay/file", R_OK)));
  const int made = open("/overlay/made", O_CREAT | O_WRONLY, 0640);
  printf("create: %s\n", outcome(made));
  if (made >= 0) close(made);
  open_and_close("/proc/kmsg");
  open_and_close("/dev/mulog-ioctl-dev");
  open_and_close("/dev/mu_pal_ioctl");
  open_and_close("/overlayer");
  open_and_close("/proc/kmsg2");
  open_and_close("/proc/self/stat");
  open_and_close("/dev/null");
  send_to_collector();
  return 0;
}
