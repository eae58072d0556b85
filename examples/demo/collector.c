// A log collector for the demo: writes each datagram that it receives as a line to standard output, until SIGTERM.
//
// It takes a free port of the loopback interface and names it in its first line: "port N".
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

static void fail(const char *step) {
  perror(step);
  exit(EXIT_FAILURE);
}

static int open_collector(void) {
  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);  // port 0: a free one
  socklen_t size = sizeof address;
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  if (sock < 0) fail("socket");
  if (bind(sock, (const struct sockaddr *)&address, size) != 0) fail("bind");
  if (getsockname(sock, (struct sockaddr *)&address, &size) != 0) fail("getsockname");
  (void)printf("port %u\n", (unsigned)ntohs(address.sin_port));
  return sock;
}

int main(void) {
  (void)setvbuf(stdout, NULL, _IOLBF, 0);
  const int sock = open_collector();
  char text[2048];
  for (;;) {
    const ssize_t length = recv(sock, text, sizeof text, 0);
    if (length < 0) fail("recv");
    (void)printf("%.*s\n", (int)length, text);
  }
}
