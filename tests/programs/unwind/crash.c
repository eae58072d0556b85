// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Crashes at a place where a daemon may crash: in a callback that the library runs, or in a text that it formats.
//
//   crash PLACE          with a crash handler that prints a backtrace(3)
//   crash --core PLACE   without a handler: the system, or a debugger, gets the crash
#include <execinfo.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tarn/containers.h"
#include "tarn/event.h"
#include "tarn/log.h"
#include "tarn/platform.h"
#include "tarn/startup_cfg.h"
#include "tarn/timer.h"

enum { FRAMES = 64, STATUS = 3 };

// Exported, like every function that a backtrace should show: backtrace_symbols_fd knows only these.
void culprit(void);
void handle_crash(int number);

__attribute__((noinline)) void culprit(void) {
  volatile int *nowhere = (volatile int *)8;
  *nowhere = 1;
  (void)puts("did not crash");
}

void handle_crash(int number) {
  void *frames[FRAMES];
  (void)number;
  backtrace_symbols_fd(frames, backtrace(frames, FRAMES), STDOUT_FILENO);
  _exit(STATUS);
}

// ---- Callbacks ------------------------------------------------------------------------------------------------------

static int32_t compare(const void *record, const void *key) {
  (void)record, (void)key;
  culprit();
  return 0;
}

static void visit(void *record) {
  (void)record;
  culprit();
}

static uint32_t hash(const mu_lst_node *node) {
  (void)node;
  culprit();
  return 0;
}

static int match(const mu_lst_node *node, const void *key) {
  (void)node, (void)key;
  culprit();
  return 0;
}

static void on_timer(void *arg) {
  (void)arg;
  culprit();
}

static int on_event(uint16_t device, uint32_t type, void *data, uint32_t len, uint64_t reserved) {
  (void)device, (void)type, (void)data, (void)len, (void)reserved;
  culprit();
  return 0;
}

static int send_hook(uint16_t device, uint32_t type, void *data, uint32_t len) {
  (void)device, (void)type, (void)data, (void)len;
  culprit();
  return 0;
}

static int configure(uint16_t device, mu_event_msg_t *msg) {
  (void)device, (void)msg;
  culprit();
  return 0;
}

static void on_suppression(uint64_t cookie) {
  (void)cookie;
  culprit();
}

static int32_t save(const uint8_t *base, uint32_t size) {
  (void)base, (void)size;
  culprit();
  return 0;
}

static void on_level(uint8_t module, uint8_t type, uint8_t value) {
  (void)module, (void)type, (void)value;
  culprit();
}

static void *thread_body(void *arg) {
  culprit();
  return arg;
}

// ---- Places ---------------------------------------------------------------------------------------------------------

// A pointer that does not point to a text, like an uninitialised one.
static const char *bad_text(void) { return (const char *)8; }

static void in_list_compare(void) {
  const int record = 1;
  mu_list_t *list = mu_list_create(sizeof record, compare);
  (void)mu_list_add(list, &record);
  (void)mu_list_query(list, &record);
}

static void in_list_walk(void) {
  const int record = 1;
  mu_list_t *list = mu_list_create(sizeof record, NULL);
  (void)mu_list_add(list, &record);
  mu_list_traverse(list, visit);
}

static void in_hash(void) {
  mu_lst_node node = {0};
  mu_hash *table = mu_hash_create(4, hash, match);
  (void)mu_hash_add(table, &node);
}

static void in_timer(void) {
  (void)mu_timer_add(10, on_timer, NULL);
  for (;;) (void)pause();
}

static void in_thread(void) {
  pthread_t thread;
  (void)mu_thread_create(&thread, "crash", thread_body, NULL, 0, 0, 0);
  for (;;) (void)pause();
}

static void in_subscriber(void) {
  (void)mu_event_init(4, NULL, NULL);
  (void)mu_event_register(0, 1, on_event);
  (void)mu_event_send(0, 1, NULL, 0);
}

static void in_send_hook(void) {
  (void)mu_event_init(4, send_hook, NULL);
  (void)mu_event_send(0, 1, NULL, 0);
}

static void in_configuration(void) {
  (void)mu_event_init(4, NULL, configure);
  (void)mu_event_counter_clear(0, 1);
}

static void in_suppression(void) {
  const mu_event_cfg_t cfg = {1, 0, 10};
  (void)mu_event_init(4, NULL, NULL);
  (void)mu_event_suprs_attach(1, on_suppression, on_suppression, 0);
  (void)mu_event_set(0, 1, &cfg);
}

static void in_save(void) {
  static uint8_t image[256];
  tlv_inst *cfg = tlv_inst_init(image, sizeof image - 16, save);
  (void)tlv_load(cfg);
  (void)tlv_write_int(cfg, 1, 1);
}

static void start_log(void) {
  static const char names[MUP_LOG_NAME_SIZE] = "main";
  (void)mup_log_init(0, 1, names);
}

static void in_level_hook(void) {
  start_log();
  mup_log_ctrl_get()->level_hook = on_level;
  (void)mup_log_level_set(0, "main", MUP_LOG_SET_PRINT, MUP_LOG_INFO);
}

static void in_message(void) {
  start_log();
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "%s", bad_text());
}

static void in_print(void) { mu_printf("%s", bad_text()); }

static const struct {
  const char *name;
  void (*go)(void);
} places[] = {
    {"list-compare", in_list_compare},
    {"list-walk", in_list_walk},
    {"hash", in_hash},
    {"timer", in_timer},
    {"thread", in_thread},
    {"subscriber", in_subscriber},
    {"send-hook", in_send_hook},
    {"configuration", in_configuration},
    {"suppression", in_suppression},
    {"save", in_save},
    {"level-hook", in_level_hook},
    {"message", in_message},
    {"print", in_print},
};

int main(int argc, char **argv) {
  void *first[1];
  const int leaves_core = argc > 1 && strcmp(argv[1], "--core") == 0;
  const char *name = argc > 1 ? argv[argc - 1] : "";
  (void)backtrace(first, 1);  // the first call loads the unwinder, which must not happen in a handler
  if (!leaves_core) (void)signal(SIGSEGV, handle_crash);
  for (size_t i = 0; i < sizeof places / sizeof places[0]; i++) {
    if (strcmp(places[i].name, name) == 0) places[i].go();
  }
  return 0;
}
