// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// gatewayd: a small gateway daemon on tarn, as a model for others.
//
// Four threads run here: the main thread; the library's timer thread, which runs callbacks one after another; the
// kernel bridge, which only logs; and the event thread, which calls the subscribers. Only the main thread handles the
// configuration: it fills `settings` before it adds the first timer, and nothing changes them later. Only callbacks use
// `uplink`. The timers' ids are shared, under `ids_lock`.
#define _DEFAULT_SOURCE

#include <arpa/inet.h>
#include <err.h>
#include <getopt.h>
#include <inttypes.h>
#include <net/if.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "gatewayd.h"
#include "tarn/event.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

static const char usage[] =
    "Usage: gatewayd --config FILE [OPTION]...   Watches an interface and logs what it sees.\n"
    "  --config FILE         configuration image; made if it does not exist\n"
    "  --run-for SECONDS     end by itself after this time (1 to 1000000)\n"
    "  --set-collector IP    store the log collector's IPv4 address; 0.0.0.0 for none\n"
    "  --help                show this and end\n"
    "SIGINT and SIGTERM end it; it then prints its timers, events and log. SIGUSR1 lets it keep debugging messages,\n"
    "the kernel's drivers too, and SIGUSR2 no longer. Exit codes: 0 ended in order, 1 internal failure, 2 bad option,\n"
    "3 bad path, 4 image not readable, 5 image too large.\n";

struct options {
  const char *config;
  unsigned long run_for_s;  // 0: no limit
  bool sets_collector;
  struct in_addr collector;
};

static struct options parse_options(int argc, char **argv) {
  static const struct option known[] = {{"config", required_argument, NULL, 'c'},
                                        {"run-for", required_argument, NULL, 'r'},
                                        {"set-collector", required_argument, NULL, 's'},
                                        {"help", no_argument, NULL, 'h'},
                                        {NULL, 0, NULL, 0}};
  struct options options = {0};
  char *end;
  int option;
  while ((option = getopt_long(argc, argv, "", known, NULL)) != -1) {
    if (option == '?') errx(ENDS_BAD_OPTION, "see gatewayd --help");  // getopt_long has reported the fault
    if (option == 'h') exit(fputs(usage, stdout) < 0 ? ENDS_INTERNAL : EXIT_SUCCESS);
    if (option == 'c') options.config = optarg;
    if (option == 'r') {
      options.run_for_s = strtoul(optarg, &end, 10);  // 0 for text, a large number for a negative or longer one
      const bool is_good = *end == '\0' && options.run_for_s >= 1 && options.run_for_s <= 1000000;
      if (!is_good) errx(ENDS_BAD_OPTION, "--run-for: '%s' is not a time", optarg);
    }
    if (option == 's') {
      options.sets_collector = inet_pton(AF_INET, optarg, &options.collector) == 1;
      if (!options.sets_collector) errx(ENDS_BAD_OPTION, "--set-collector: '%s' is not an IPv4 address", optarg);
    }
  }
  if (optind < argc) errx(ENDS_BAD_OPTION, "'%s' is not an option; see gatewayd --help", argv[optind]);
  if (options.config == NULL) errx(ENDS_BAD_OPTION, "--config is missing; see gatewayd --help");
  return options;
}

// Every id up to 20 has a name, used or not: mup_log_set switches the first 21 modules by their names.
static const char log_modules[][MUP_LOG_NAME_SIZE] = {"main",    "config",  "uplink",  "kernel",  "memory",  "switch",
                                                      "spare6",  "spare7",  "spare8",  "spare9",  "spare10", "spare11",
                                                      "spare12", "spare13", "spare14", "spare15", "traffic", "spare17",
                                                      "spare18", "spare19", "spare20"};

static void set_levels(int module, uint8_t print, uint8_t record) {
  (void)mup_log_level_set(0, log_modules[module], MUP_LOG_SET_PRINT, print);
  (void)mup_log_level_set(0, log_modules[module], MUP_LOG_SET_RECORD, record);
}

// From here on messages are shown and kept, with those of earlier runs from the files. The kernel's log device receives
// each level that is set, and its drivers follow it.
static void start_log(void) {
  (void)mup_log_usr_init(sizeof log_modules / sizeof log_modules[0], log_modules[0]);
  if (mup_log_ctrl_get()->inited == 0) errx(ENDS_INTERNAL, "the log does not start");
  for (int module = LOG_MAIN; module <= LOG_SWITCH; module++) set_levels(module, MUP_LOG_NOTICE, MUP_LOG_INFO);
  set_levels(LOG_TRAFFIC, MUP_LOG_INFO, MUP_LOG_INFO);
}

// Debugging messages have the least severe level. They are kept and forwarded, but not shown.
static void keep_debugging_messages(bool are_kept) {
  const uint8_t level = are_kept ? MUP_LOG_DEBUG : MUP_LOG_INFO;
  for (int module = LOG_MAIN; module <= LOG_SWITCH; module++) {
    (void)mup_log_level_set(0, log_modules[module], MUP_LOG_SET_RECORD, level);
  }
  (void)mup_log_level_set(0, log_modules[LOG_TRAFFIC], MUP_LOG_SET_RECORD, level);
  LOG(LOG_MAIN, MUP_LOG_NOTICE, "debugging messages are %s", are_kept ? "kept" : "dropped");
}

static void use_collector(void) {
  mup_log_ctrl *log = mup_log_ctrl_get();
  (void)mu_mutex_lock(log->mutex);
  log->server_ip = settings.collector;
  log->remote_mode = settings.collector != 0 ? MUP_LOG_REMOTE_AND_STORE : MUP_LOG_REMOTE_OFF;
  (void)mu_mutex_unlock(log->mutex);
}

// The uplink's IPv4 address as text; empty if it has none.
static void find_address(char *text, size_t size) {
  struct ifreq request;
  memset(&request, 0, sizeof request);
  (void)snprintf(request.ifr_name, sizeof request.ifr_name, "%.15s", settings.uplink);
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  if (sock < 0) return;
  struct sockaddr_in address;
  if (ioctl(sock, SIOCGIFADDR, &request) == 0) {
    memcpy(&address, &request.ifr_addr, sizeof address);
    (void)inet_ntop(AF_INET, &address.sin_addr, text, (socklen_t)size);
  }
  (void)close(sock);
}

// Sets the description of the device at the head of the user log.
static void describe_device(void) {
  mup_log_usr_header header = {.manufacturer = "tarn", .product_class = "gatewayd", .hw_ver = "example"};
  (void)snprintf(header.serial_number, sizeof header.serial_number, "%.31s", settings.host_name);
  (void)snprintf(header.sw_ver, sizeof header.sw_ver, "%d.%d.%d", TARN_VERSION_MAJOR, TARN_VERSION_MINOR,
                 TARN_VERSION_PATCH);
  find_address(header.ip, sizeof header.ip);
  (void)mup_log_usr_header_set(&header);
}

// A separate thread copies kernel messages into the log. Without the right to read them it reports that and ends at
// once; the daemon continues without them.
static void start_kernel_bridge(void) {
  sem_t started;
  pthread_t bridge;
  if (sem_init(&started, 0, 0) != 0 || mu_thread_create(&bridge, "klog", log_msg_process, &started, 0, 0, 0) != 0) {
    errx(ENDS_INTERNAL, "the kernel bridge does not start");
  }
  (void)pthread_detach(bridge);              // it may end, and nothing joins it
  while (sem_wait(&started) != 0) continue;  // EINTR, as after SIGSTOP and SIGCONT
  (void)sem_destroy(&started);
}

// Event types. The platform's driver sends them for its ports, and check_uplink for the uplink, as device 0.
enum { EVENT_LINK_UP = 1, EVENT_LINK_DOWN, EVENT_TRAFFIC };

// Subscribers run on the sending thread, under the registry's lock: keep the work short, and do not call the registry.
static int on_link(uint16_t device, uint32_t type, void *data, uint32_t length, uint64_t reserved) {
  (void)data, (void)length, (void)reserved;  // do not read `length` bytes: a kernel event's length may be wrong
  LOG(LOG_UPLINK, MUP_LOG_NOTICE, "device %u: link %s", device, type == EVENT_LINK_UP ? "up" : "down");
  return 0;
}

static int on_traffic(uint16_t device, uint32_t type, void *data, uint32_t length, uint64_t reserved) {
  (void)type, (void)data, (void)length, (void)reserved;
  LOG(LOG_UPLINK, MUP_LOG_INFO, "device %u: traffic", device);
  return 0;
}

// With the platform's driver, events come from the kernel too, and the driver suppresses storms. Without it, the
// registry of this process suppresses them.
static void start_events(void) {
  if (access(MU_PAL_DEVICE, F_OK) == 0) {
    mup_plat_event_init();
  } else {
    LOG(LOG_MAIN, MUP_LOG_NOTICE, "no platform driver: only events of this process");
    (void)mu_event_init(MUP_EVENT_NUM, NULL, NULL);
  }
  const bool all_known = mu_event_register(0, EVENT_LINK_UP, on_link) == 0 &&
                         mu_event_register(0, EVENT_LINK_DOWN, on_link) == 0 &&
                         mu_event_register(0, EVENT_TRAFFIC, on_traffic) == 0;
  if (!all_known) errx(ENDS_INTERNAL, "the events do not start");
  // Traffic storms: three in a window are enough. 100 ms are 10 polls of 500 ms, so a window lasts 5 s.
  const mu_event_cfg_t storm = {.suprs_en = 1, .threshold = 3, .period = 100};
  (void)mu_event_set(0, EVENT_TRAFFIC, &storm);
}

// The timers. Callbacks share one thread with a small stack: keep the work short and buffers small. The first call may
// come early: the first scan of the service at once runs every timer that was added before it. A callback must
// therefore work at any time.
enum { TICK_MS = 10, SILENCE_MS = 3000, MEMORY_FIRST_MS = 1000, MEMORY_MOST_MS = 64000 };

// A callback that arms its timer needs the id, which mu_timer_add may return only after the callback has started. The
// timers are therefore added under this lock, and such a callback waits for it.
static mu_mutex_t ids_lock;
static uint32_t silence_id;
static uint32_t memory_id;

static void arm(const uint32_t *id, uint32_t interval_ms) {
  (void)mu_mutex_lock(ids_lock);
  const uint32_t timer = *id;
  (void)mu_mutex_unlock(ids_lock);
  mu_timer_restart(timer, interval_ms);
}

static struct {
  uint64_t bytes;       // received; at first more than is possible
  uint64_t changed_at;  // in ticks
  uint32_t checks, changes;
  bool is_up;  // at the last check
} uplink = {.bytes = UINT64_MAX};

// Finds a row such as " lo: 3319 30 0 ...", in which the received bytes come first.
static bool read_bytes(uint64_t *bytes) {
  FILE *table = fopen("/proc/net/dev", "re");
  if (table == NULL) return false;
  const size_t length = strlen(settings.uplink);
  char row[256];
  bool found = false;
  while (!found && fgets(row, sizeof row, table) != NULL) {
    const char *name = row + strspn(row, " ");
    found = strncmp(name, settings.uplink, length) == 0 && name[length] == ':';
    if (found) *bytes = strtoull(name + length + 1, NULL, 10);
  }
  (void)fclose(table);
  return found;
}

static void report_link(bool is_up) {
  if (uplink.checks > 1 && uplink.is_up == is_up) return;
  uplink.is_up = is_up;
  (void)mu_event_send(0, is_up ? EVENT_LINK_UP : EVENT_LINK_DOWN, NULL, 0);
}

static void check_uplink(void *unused) {  // circular
  (void)unused;
  uint64_t bytes;
  uplink.checks++;
  const bool is_up = read_bytes(&bytes);
  report_link(is_up);
  if (!is_up) {
    LOG(LOG_UPLINK, MUP_LOG_ERROR, "%s: no counters", settings.uplink);
    return;
  }
  if (bytes < uplink.bytes) {  // the first check, or a new interface
    LOG(LOG_UPLINK, MUP_LOG_INFO, "%s: counting from %" PRIu64 " bytes", settings.uplink, bytes);
  } else if (bytes == uplink.bytes) {
    LOG(LOG_UPLINK, MUP_LOG_DEBUG, "%s: nothing new", settings.uplink);
  } else {
    LOG(LOG_UPLINK, MUP_LOG_NOTICE, "%s: %" PRIu64 " bytes received", settings.uplink, bytes - uplink.bytes);
    (void)mu_event_send(0, EVENT_TRAFFIC, NULL, 0);  // -1 if it is suppressed
    uplink.changes++;
    uplink.changed_at = mu_current_tick();
    arm(&silence_id, SILENCE_MS);
  }
  uplink.bytes = bytes;
}

static void report_statistics(void *unused) {  // circular
  (void)unused;
  LOG(LOG_TRAFFIC, MUP_LOG_INFO, "%s: %u checks, %u with traffic", settings.uplink, uplink.checks, uplink.changes);
}

// One-shot, armed again by itself and by traffic. It measures the silence: that it was called does not prove silence.
static void watch_silence(void *unused) {
  (void)unused;
  const uint64_t silent_ms = (mu_current_tick() - uplink.changed_at) * TICK_MS;
  if (silent_ms >= SILENCE_MS) {
    LOG(LOG_UPLINK, MUP_LOG_WARNING, "%s: silent for %" PRIu64 " s", settings.uplink, silent_ms / 1000);
  }
  arm(&silence_id, silent_ms >= SILENCE_MS ? SILENCE_MS : (uint32_t)(SILENCE_MS - silent_ms));
}

// One-shot, armed again by itself for twice the time: often after the start, rarely later.
static void report_memory(void *unused) {
  (void)unused;
  static uint32_t interval_ms = MEMORY_FIRST_MS;
  struct sysinfo memory = {0};
  (void)sysinfo(&memory);  // fails only for a bad address
  LOG(LOG_MEMORY, MUP_LOG_INFO, "%lu KiB free", memory.freeram * memory.mem_unit / 1024);
  arm(&memory_id, interval_ms);
  if (interval_ms < MEMORY_MOST_MS) interval_ms *= 2;
}

static void start_timers(void) {
  if (mu_mutex_init(&ids_lock, "ids") != 0) errx(ENDS_INTERNAL, "no memory");
  uplink.changed_at = mu_current_tick();
  (void)mu_mutex_lock(ids_lock);
  const uint32_t check = mu_circle_timer_add((int)settings.uplink_check_ms, check_uplink, NULL);
  const uint32_t statistics = mu_circle_timer_add((int)settings.statistics_s * 1000, report_statistics, NULL);
  silence_id = mu_timer_add(SILENCE_MS, watch_silence, NULL);
  memory_id = mu_timer_add(MEMORY_FIRST_MS, report_memory, NULL);
  // The first check and the first report, at once and on the same thread as all later ones.
  const bool has_begun = mu_timer_add(0, check_uplink, NULL) != 0 && mu_timer_add(0, report_statistics, NULL) != 0;
  const bool all_run = check != 0 && statistics != 0 && silence_id != 0 && memory_id != 0 && has_begun;
  (void)mu_mutex_unlock(ids_lock);
  if (!all_run) errx(ENDS_INTERNAL, "the timers do not start");
}

// Called before the timer thread starts, which inherits the mask: these signals interrupt nothing and stay pending for
// sigwaitinfo. SIGPIPE (nobody reads the output) and SIGXFSZ (a file grew too large) become errors of the write.
static sigset_t hold_signals(void) {
  static const int awaited[] = {SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGUSR2};
  sigset_t signals;
  (void)sigemptyset(&signals);
  for (size_t i = 0; i < sizeof awaited / sizeof awaited[0]; i++) (void)sigaddset(&signals, awaited[i]);
  (void)sigprocmask(SIG_BLOCK, &signals, NULL);
  (void)signal(SIGPIPE, SIG_IGN);
  (void)signal(SIGXFSZ, SIG_IGN);
  return signals;
}

// Handles signals until one ends the daemon. Returns the reason.
static const char *wait_for_end(const sigset_t *signals, unsigned long run_for_s) {
  (void)alarm((unsigned)run_for_s);  // 0 for none
  for (;;) {
    const int received = sigwaitinfo(signals, NULL);  // fails with EINTR, as after SIGSTOP and SIGCONT
    if (received == SIGALRM) return "its time is over";
    if (received == SIGINT) return "SIGINT";
    if (received == SIGTERM) return "SIGTERM";
    if (received > 0) keep_debugging_messages(received == SIGUSR1);
  }
}

int main(int argc, char **argv) {
  const struct options options = parse_options(argc, argv);
  const sigset_t signals = hold_signals();
  (void)setvbuf(stdout, NULL, _IOLBF, 0);  // each line at once, to a pipe or a file too

  start_log();
  open_configuration(options.config, options.sets_collector ? &options.collector : NULL);
  use_collector();
  describe_device();
  start_kernel_bridge();
  start_events();
  start_timers();
  LOG(LOG_MAIN, MUP_LOG_NOTICE, "%s: started, boot count %u", settings.host_name, settings.boot_count);

  LOG(LOG_MAIN, MUP_LOG_NOTICE, "%s: ends, %s", settings.host_name, wait_for_end(&signals, options.run_for_s));
  mu_timer_show();
  mu_event_dump();  // with the driver, on the kernel's console
  (void)mup_log_show(0, 0);
  (void)mup_log_usr_savefile();  // the save timer may be up to three seconds away
  // The other threads end with the process; they use only static data.
  return EXIT_SUCCESS;
}
