// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A daemon for the power-cut runs: it logs numbered messages without end and prints its actions on the console, so the
// script that cuts the power knows what was logged, saved, and being written.
//
//   cut: found COUNT LAST   records of the system log that the start read back, the highest number in both logs
//   cut: logged N MS        message N, MS after the start of the machine
//   cut: saved N MS         all up to N, and the file is closed
//   cut: rewrite N MS       the file is shorter than it was
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tarn/log.h"
#include "tarn/os.h"
#include "tarn/platform.h"

namespace {

constexpr char kModules[17][MUP_LOG_NAME_SIZE] = {"main", "m1",  "m2",  "m3",  "m4",  "m5",  "m6",  "m7",  "m8",
                                                  "m9",   "m10", "m11", "m12", "m13", "m14", "m15", "user"};
constexpr char kFile[] = "/overlay/mu_log.txt";
constexpr unsigned kAtOnce = 1000;  // a full file takes longest to write

volatile unsigned logged;

long uptime_ms() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// The number of a record; 0 if it has none.
unsigned number_of(const mup_log_rec &record) {
  unsigned number = 0;
  return sscanf(record.text, "number %u ", &number) == 1 ? number : 0;
}

void report_found() {
  unsigned count = 0, last = 0;
  for (const mup_log_rec &record : mup_log_ctrl_get()->sys_ring) {
    count += number_of(record) != 0;
    last = std::max(last, number_of(record));
  }
  for (const mup_log_rec &record : mup_log_ctrl_get()->usr_ring) last = std::max(last, number_of(record));
  logged = last;
  printf("cut: found %u %u\n", count, last);
}

void log_next() {
  const unsigned next = logged + 1;
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "number %u of a run that ends with the power", next);
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "number %u of a run that ends with the power", next);
  logged = next;
}

// Does not lock the log, because a save holds the lock: it must see a rewrite in progress.
void *watch_file(void *) {
  off_t size = 0;
  while (true) {
    struct stat file = {};
    (void)stat(kFile, &file);
    if (file.st_size < size) printf("cut: rewrite %u %ld\n", logged, uptime_ms());
    size = file.st_size;
    usleep(500);
  }
}

// The save clears the mark of the ring under the lock, after it has closed the files.
void *watch_saves(void *) {
  mup_log_ctrl *log = mup_log_ctrl_get();
  bool was_dirty = false;
  while (true) {
    mu_mutex_lock(log->mutex);
    const bool is_dirty = log->dirty != 0;
    const unsigned last = logged;
    mu_mutex_unlock(log->mutex);
    if (was_dirty && !is_dirty) printf("cut: saved %u %ld\n", last, uptime_ms());
    was_dirty = is_dirty;
    usleep(2000);
  }
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  mup_log_usr_init(17, kModules[0]);
  report_found();
  pthread_t file, saves;
  mu_thread_create(&file, "file", watch_file, nullptr, 0, 0, 0);
  mu_thread_create(&saves, "saves", watch_saves, nullptr, 0, 0, 0);
  for (unsigned i = 0; i < kAtOnce; i++) log_next();
  while (true) {
    log_next();
    printf("cut: logged %u %ld\n", logged, uptime_ms());
    usleep(50000);
  }
}
