// gatewayd: a small gateway daemon on tarn, written to be copied from.
//
// It keeps its settings in a configuration image (settings.c, image_file.c), watches the traffic of a network interface
// from timers, logs what it sees, and ends in order on SIGINT or SIGTERM.
//
// Two threads run here: the main one, and the library's timer thread, on which callbacks run one after another. Neither
// the configuration nor the daemon's own data has a lock in the library, so each has one owner:
//   the configuration  the main thread; callbacks see `settings`, which is complete before the first timer
//   `uplink`           the callbacks
//   `ids`              both, under `ids_lock`
#define _POSIX_C_SOURCE 200809L

#include "gatewayd.h"

#include <arpa/inet.h>
#include <errno.h>
#include <getopt.h>
#include <inttypes.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "tarn/platform.h"
#include "tarn/timer.h"

static const char usage[] =
    "Usage: gatewayd --config FILE [OPTION]...\n"
    "A small gateway daemon: watches an interface and logs what it sees.\n\n"
    "  --config FILE         configuration image; made if it does not exist\n"
    "  --run-for SECONDS     end by itself after this time (1 to 1000000)\n"
    "  --set-collector IP    store the log collector's IPv4 address; 0.0.0.0 for none\n"
    "  --help                show this and end\n\n"
    "SIGINT and SIGTERM end it; it then prints its timers and its log.\n\n"
    "Exit codes: 0 ended in order, 1 internal failure, 2 bad option, 3 bad path,\n"
    "4 image not readable, 5 image too large.\n";

void fail(int code, const char *format, ...) {
  va_list args;
  va_start(args, format);
  (void)fputs("gatewayd: ", stderr);
  (void)vfprintf(stderr, format, args);
  (void)fputc('\n', stderr);
  va_end(args);
  exit(code);
}

// ---- Log
// -------------------------------------------------------------------------------------------------------------

// By id; see gatewayd.h. Every id has a name of its own, used or not: mup_log_set switches the first 21 modules, each
// by its name.
static const char log_modules[][MUP_LOG_NAME_SIZE] = {
    "main",     "config",   "uplink",  "memory",   "spare-4",  "spare-5",  "spare-6",
    "spare-7",  "spare-8",  "spare-9", "spare-10", "spare-11", "spare-12", "spare-13",
    "spare-14", "spare-15", "traffic", "spare-17", "spare-18", "spare-19", "spare-20"};
enum { LOG_MODULES = sizeof log_modules / sizeof log_modules[0] };

// From here on messages are seen. Each module shows and keeps errors and worse, until it is told otherwise.
static void start_log(void) {
  if (mup_log_init(0, LOG_MODULES, log_modules[0]) != 0) fail(ENDS_INTERNAL, "the log does not start");
  (void)mup_log_level_set(0, "main", MUP_LOG_SET_PRINT, MUP_LOG_NOTICE);
  (void)mup_log_level_set(0, "config", MUP_LOG_SET_PRINT, MUP_LOG_NOTICE);
  (void)mup_log_level_set(0, "uplink", MUP_LOG_SET_PRINT, MUP_LOG_NOTICE);
  (void)mup_log_level_set(0, "traffic", MUP_LOG_SET_PRINT, MUP_LOG_INFO);
}

static void apply_log_settings(void) {
  for (size_t i = 0; i < LOG_MODULES; i++) {
    (void)mup_log_level_set(0, log_modules[i], MUP_LOG_SET_RECORD, settings.log_level);
  }
  if (settings.collector == 0) return;
  mup_log_ctrl *log = mup_log_ctrl_get();
  (void)mu_mutex_lock(log->mutex);  // until it is unlocked, nothing here may log
  log->server_ip = settings.collector;
  log->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  (void)mu_mutex_unlock(log->mutex);
}

// ---- Timers
// ----------------------------------------------------------------------------------------------------------
//
// The callbacks share one thread with a small stack: short work, small buffers. The first scan of the service runs
// every timer that was added before it at once, so a callback must make sense at any time.

enum { TICK_MS = 10, SILENCE_MS = 5000, MEMORY_FIRST_MS = 1000, MEMORY_MOST_MS = 64000 };

// A timer that is armed from a callback needs its id, which mu_timer_add returns when the callback may already run. So
// the timers are added under this lock, and such a callback waits for it.
static mu_mutex_t ids_lock;
static struct {
  uint32_t silence;
  uint32_t memory;
} ids;

static void arm(const uint32_t *id, uint32_t interval_ms) {
  (void)mu_mutex_lock(ids_lock);
  const uint32_t timer = *id;
  (void)mu_mutex_unlock(ids_lock);
  mu_timer_restart(timer, interval_ms);
}

struct counters {
  uint64_t bytes;
  uint64_t packets;
};

static struct {
  bool is_known;  // `received` has been read
  struct counters received;
  uint64_t changed_at;  // in ticks
  uint32_t checks;
  uint32_t changes;
} uplink;

// Reads a row such as "    lo: 3319 30 0 ...": bytes and packets received come first. Returns whether it is the
// interface's; changes the row.
static bool parse_row(char *row, const char *interface, struct counters *received) {
  const char *name = row + strspn(row, " ");
  char *colon = strchr(row, ':');
  if (colon == NULL) return false;
  *colon = '\0';
  if (strcmp(name, interface) != 0) return false;
  char *numbers = colon + 1;
  received->bytes = strtoull(numbers, &numbers, 10);
  received->packets = strtoull(numbers, NULL, 10);
  return true;
}

static bool read_counters(const char *interface, struct counters *received) {
  FILE *table = fopen("/proc/net/dev", "re");
  if (table == NULL) return false;
  char row[256];
  bool found = false;
  while (!found && fgets(row, sizeof row, table) != NULL) found = parse_row(row, interface, received);
  (void)fclose(table);
  return found;
}

static void note_traffic(uint64_t packets, uint64_t bytes) {
  LOG(LOG_UPLINK, MUP_LOG_NOTICE, "%s: %" PRIu64 " packets, %" PRIu64 " bytes", settings.uplink, packets, bytes);
  uplink.changes++;
  uplink.changed_at = mu_current_tick();
  arm(&ids.silence, SILENCE_MS);
}

// Circular.
static void check_uplink(void *unused) {
  (void)unused;
  struct counters now;
  uplink.checks++;
  if (!read_counters(settings.uplink, &now)) {
    LOG(LOG_UPLINK, MUP_LOG_ERROR, "%s: no counters", settings.uplink);
    return;
  }
  const struct counters before = uplink.received;
  const bool is_comparable = uplink.is_known && now.packets >= before.packets && now.bytes >= before.bytes;
  uplink.is_known = true;
  uplink.received = now;
  if (!is_comparable) {  // the first look, or the interface was made anew
    LOG(LOG_UPLINK, MUP_LOG_INFO, "%s: counting from %" PRIu64 " packets", settings.uplink, now.packets);
  } else if (now.packets == before.packets) {
    LOG(LOG_UPLINK, MUP_LOG_DEBUG, "%s: nothing new", settings.uplink);
  } else {
    note_traffic(now.packets - before.packets, now.bytes - before.bytes);
  }
}

// One-shot, armed again by itself and by traffic. It measures the silence and does not conclude it from being called:
// the first scan calls it at once.
static void watch_silence(void *unused) {
  (void)unused;
  const uint64_t silent_ms = (mu_current_tick() - uplink.changed_at) * TICK_MS;
  uint32_t next_ms = SILENCE_MS;
  if (silent_ms < SILENCE_MS) {
    next_ms = (uint32_t)(SILENCE_MS - silent_ms);
  } else {
    LOG(LOG_UPLINK, MUP_LOG_WARNING, "%s: silent for %" PRIu64 " s", settings.uplink, silent_ms / 1000);
  }
  arm(&ids.silence, next_ms);
}

static uint64_t available_memory_kib(void) {
  static const char key[] = "MemAvailable:";
  uint64_t available_kib = 0;
  char row[128];
  FILE *table = fopen("/proc/meminfo", "re");
  if (table == NULL) return 0;
  while (fgets(row, sizeof row, table) != NULL) {
    if (strncmp(row, key, strlen(key)) == 0) available_kib = strtoull(row + strlen(key), NULL, 10);
  }
  (void)fclose(table);
  return available_kib;
}

// One-shot, armed again by itself for twice the time: often after the start, rarely later.
static void report_memory(void *unused) {
  (void)unused;
  static uint32_t interval_ms = MEMORY_FIRST_MS;
  LOG(LOG_MEMORY, MUP_LOG_INFO, "%" PRIu64 " KiB available", available_memory_kib());
  arm(&ids.memory, interval_ms);
  if (interval_ms < MEMORY_MOST_MS) interval_ms *= 2;
}

// Circular.
static void report_statistics(void *unused) {
  (void)unused;
  LOG(LOG_TRAFFIC, MUP_LOG_INFO, "%s: %" PRIu32 " checks, %" PRIu32 " with traffic; %" PRIu32 " timers",
      settings.uplink, uplink.checks, uplink.changes, mu_timer_count());
}

static void start_timers(void) {
  if (mu_mutex_init(&ids_lock, "ids") != 0) fail(ENDS_INTERNAL, "no memory");
  uplink.changed_at = mu_current_tick();
  (void)mu_mutex_lock(ids_lock);
  const uint32_t check = mu_circle_timer_add((int)settings.uplink_check_ms, check_uplink, NULL);
  const uint32_t statistics = mu_circle_timer_add(settings.statistics_s * 1000, report_statistics, NULL);
  ids.silence = mu_timer_add(SILENCE_MS, watch_silence, NULL);
  ids.memory = mu_timer_add(MEMORY_FIRST_MS, report_memory, NULL);
  const bool all_run = check != 0 && statistics != 0 && ids.silence != 0 && ids.memory != 0;
  (void)mu_mutex_unlock(ids_lock);
  if (!all_run) fail(ENDS_INTERNAL, "the timers do not start");
}

// ---- Options
// ---------------------------------------------------------------------------------------------------------

struct options {
  const char *config;
  uint32_t run_for_s;  // 0: without end
  bool sets_collector;
  uint32_t collector;
};

static uint32_t parse_seconds(const char *text) {
  char *end;
  const unsigned long seconds = strtoul(text, &end, 10);  // a number too large for it becomes the largest
  const bool is_number = text[0] >= '0' && text[0] <= '9' && *end == '\0';
  if (!is_number || seconds < 1 || seconds > 1000000) fail(ENDS_BAD_OPTION, "--run-for: '%s' is no time", text);
  return (uint32_t)seconds;
}

static uint32_t parse_address(const char *text) {
  struct in_addr address;
  if (inet_pton(AF_INET, text, &address) != 1) fail(ENDS_BAD_OPTION, "--set-collector: '%s' is no IPv4 address", text);
  return ntohl(address.s_addr);
}

static struct options parse_options(int argc, char **argv) {
  static const struct option known[] = {{"config", required_argument, NULL, 'c'},
                                        {"run-for", required_argument, NULL, 'r'},
                                        {"set-collector", required_argument, NULL, 's'},
                                        {"help", no_argument, NULL, 'h'},
                                        {NULL, 0, NULL, 0}};
  struct options options = {0};
  int option;
  while ((option = getopt_long(argc, argv, "", known, NULL)) != -1) {
    if (option == '?') fail(ENDS_BAD_OPTION, "see gatewayd --help");  // getopt_long has said what is wrong
    if (option == 'h') {
      (void)fputs(usage, stdout);
      exit(EXIT_SUCCESS);
    }
    if (option == 'c') options.config = optarg;
    if (option == 'r') options.run_for_s = parse_seconds(optarg);
    if (option == 's') {
      options.sets_collector = true;
      options.collector = parse_address(optarg);
    }
  }
  if (optind < argc) fail(ENDS_BAD_OPTION, "'%s' is no option; see gatewayd --help", argv[optind]);
  if (options.config == NULL) fail(ENDS_BAD_OPTION, "--config is missing; see gatewayd --help");
  return options;
}

// ---- Start and end
// ---------------------------------------------------------------------------------------------------

// Called before the timer thread starts, which inherits the mask: SIGINT and SIGTERM then wait for wait_for_end and
// interrupt nothing half done. The others would kill a daemon whose output nobody reads any more, or whose file grew
// beyond a limit; ignored, they become errors of the write.
static sigset_t hold_signals(void) {
  sigset_t ends;
  (void)sigemptyset(&ends);
  (void)sigaddset(&ends, SIGINT);
  (void)sigaddset(&ends, SIGTERM);
  (void)pthread_sigmask(SIG_BLOCK, &ends, NULL);
  (void)signal(SIGPIPE, SIG_IGN);
  (void)signal(SIGXFSZ, SIG_IGN);
  return ends;
}

// Returns why the daemon ends.
static const char *wait_for_end(const sigset_t *ends, uint32_t run_for_s) {
  const uint64_t end = mu_current_tick() + (uint64_t)run_for_s * 1000 / TICK_MS;
  int received = -1;
  while (received < 0) {  // a wait also ends when the process was stopped and goes on
    if (run_for_s == 0) {
      received = sigwaitinfo(ends, NULL);
      continue;
    }
    const uint64_t now = mu_current_tick();
    if (now >= end) return "its time is over";
    const uint64_t left_ms = (end - now) * TICK_MS;
    const struct timespec left = {.tv_sec = (time_t)(left_ms / 1000), .tv_nsec = (long)(left_ms % 1000) * 1000000};
    received = sigtimedwait(ends, NULL, &left);
  }
  return received == SIGINT ? "SIGINT" : "SIGTERM";
}

int main(int argc, char **argv) {
  const struct options options = parse_options(argc, argv);
  const sigset_t ends = hold_signals();
  (void)setvbuf(stdout, NULL, _IOLBF, 0);  // each line at once, to a pipe or a file too

  start_log();
  image_file_locate(options.config);
  settings_open(options.sets_collector ? &options.collector : NULL);
  apply_log_settings();
  start_timers();
  LOG(LOG_MAIN, MUP_LOG_NOTICE, "%s: started, boot count %" PRIu32, settings.host_name, settings.boot_count);

  const char *reason = wait_for_end(&ends, options.run_for_s);
  LOG(LOG_MAIN, MUP_LOG_NOTICE, "%s: ends, %s", settings.host_name, reason);
  settings_close();
  mu_timer_show();
  (void)mup_log_show(0, 0);
  // The timer thread ends with the process; what its callbacks use is static.
  return EXIT_SUCCESS;
}
