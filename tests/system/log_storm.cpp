// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Forwards many messages from many threads to the log collector on 127.0.0.1, in rounds.
//
// Usage: log_storm MODE THREADS ROUNDS MESSAGES
//
// Each thread logs MESSAGES messages a round, "THREAD NUMBER " and a filler, 13 to 511 characters. After a round the
// program prints "sent N", N in all, and waits for a line of standard input, so that no receive buffer has to hold more
// than a round. At the end it prints "stored N", the number of records in the system ring.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tarn/log.h"

namespace {

constexpr size_t kPrefixSize = 13;

void log_round(unsigned thread, unsigned first, unsigned count) {
  for (unsigned number = first; number < first + count; number++) {
    const std::string filler((thread * 31 + number * 7) % (MUP_LOG_MESSAGE_SIZE - kPrefixSize), 'x');
    mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%03u %08u %s", thread, number, filler.c_str());
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 5) return 2;
  const auto mode = static_cast<uint8_t>(atoi(argv[1]));
  const auto threads = static_cast<unsigned>(atoi(argv[2]));
  const auto rounds = static_cast<unsigned>(atoi(argv[3]));
  const auto messages = static_cast<unsigned>(atoi(argv[4]));

  if (mup_log_init(0, 1, "storm\0\0\0\0\0\0\0\0\0\0") != 0) return 1;
  mup_log_ctrl *log = mup_log_ctrl_get();
  log->server_ip = 0x7F000001;
  log->remote_mode = mode;
  for (unsigned round = 0; round < rounds; round++) {
    std::vector<std::thread> running;
    for (unsigned thread = 0; thread < threads; thread++)
      running.emplace_back(log_round, thread, round * messages, messages);
    for (std::thread &thread : running) thread.join();
    printf("sent %u\n", (round + 1) * threads * messages);
    fflush(stdout);
    if (getchar() == EOF) return 1;
  }
  unsigned stored = 0;
  for (const mup_log_rec &record : log->sys_ring) stored += record.text[0] != '\0';
  printf("stored %u\n", stored);
  return 0;
}
