// gatewayd: a small gateway daemon on tarn, written to be copied from.
//
// Two threads run here: the main one, and the library's timer thread, on which callbacks run one after another. The
// configuration is the main thread's alone: it fills `settings` before the first timer, and nothing changes them later.
// `uplink` is the callbacks' alone. The timers' ids are shared, under `ids_lock`.
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <err.h>
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <inttypes.h>
#include <limits.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "tarn/log.h"
#include "tarn/platform.h"
#include "tarn/startup_cfg.h"
#include "tarn/timer.h"

static const char usage[] =
    "Usage: gatewayd --config FILE [OPTION]...   Watches an interface and logs what it sees.\n"
    "  --config FILE         configuration image; made if it does not exist\n"
    "  --run-for SECONDS     end by itself after this time (1 to 1000000)\n"
    "  --set-collector IP    store the log collector's IPv4 address; 0.0.0.0 for none\n"
    "  --help                show this and end\n"
    "SIGINT and SIGTERM end it; it then prints its timers and its log. Exit codes: 0 ended in order,\n"
    "1 internal failure, 2 bad option, 3 bad path, 4 image not readable, 5 image too large.\n";

enum { ENDS_INTERNAL = 1, ENDS_BAD_OPTION = 2, ENDS_BAD_PATH = 3, ENDS_UNREADABLE = 4, ENDS_TOO_LARGE = 5 };

struct options {
  const char *config;
  unsigned long run_for_s;  // 0: without end
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
    if (option == '?') errx(ENDS_BAD_OPTION, "see gatewayd --help");  // getopt_long has said what is wrong
    if (option == 'h') exit(fputs(usage, stdout) < 0 ? ENDS_INTERNAL : EXIT_SUCCESS);
    if (option == 'c') options.config = optarg;
    if (option == 'r') {
      options.run_for_s = strtoul(optarg, &end, 10);  // no number gives 0, a negative or longer one a large one
      const bool is_good = *end == '\0' && options.run_for_s >= 1 && options.run_for_s <= 1000000;
      if (!is_good) errx(ENDS_BAD_OPTION, "--run-for: '%s' is no time", optarg);
    }
    if (option == 's') {
      options.sets_collector = inet_pton(AF_INET, optarg, &options.collector) == 1;
      if (!options.sets_collector) errx(ENDS_BAD_OPTION, "--set-collector: '%s' is no IPv4 address", optarg);
    }
  }
  if (optind < argc) errx(ENDS_BAD_OPTION, "'%s' is no option; see gatewayd --help", argv[optind]);
  if (options.config == NULL) errx(ENDS_BAD_OPTION, "--config is missing; see gatewayd --help");
  return options;
}

// Log modules by id. Those of 16 and above have a ring of their own. Every id has a name, used or not: mup_log_set
// switches the first 21 modules by their names.
enum { LOG_MAIN, LOG_CONFIG, LOG_UPLINK, LOG_MEMORY, LOG_TRAFFIC = MUP_LOG_USR_FIRST, LOG_MODULES = 21 };
static const char log_modules[LOG_MODULES][MUP_LOG_NAME_SIZE] = {
    "main",    "config",  "uplink",  "memory",  "spare4",  "spare5",  "spare6",
    "spare7",  "spare8",  "spare9",  "spare10", "spare11", "spare12", "spare13",
    "spare14", "spare15", "traffic", "spare17", "spare18", "spare19", "spare20"};

#define LOG(module, level, ...) mup_log_msg(0, module, level, __LINE__, __VA_ARGS__)

// From here on messages are seen and kept.
static void start_log(void) {
  if (mup_log_init(0, LOG_MODULES, log_modules[0]) != 0) errx(ENDS_INTERNAL, "the log does not start");
  for (size_t i = 0; i < LOG_MODULES; i++) {
    (void)mup_log_level_set(0, log_modules[i], MUP_LOG_SET_PRINT, i == LOG_TRAFFIC ? MUP_LOG_INFO : MUP_LOG_NOTICE);
    (void)mup_log_level_set(0, log_modules[i], MUP_LOG_SET_RECORD, MUP_LOG_INFO);
  }
}

// The image as a file. All names are in one folder, where a rename is atomic.
static struct {
  const char *path;
  char temporary[PATH_MAX];  // the image while it is written
  char damaged[PATH_MAX];    // the latest image that was found damaged
  int folder;
} image_file;

static void locate_image(const char *path) {
  const char *slash = strrchr(path, '/');
  char folder[PATH_MAX] = ".";
  if (strlen(path) + sizeof ".tmp" > PATH_MAX) errx(ENDS_BAD_PATH, "%s: the path is too long", path);
  if (path[0] == '\0' || (slash != NULL && slash[1] == '\0')) errx(ENDS_BAD_PATH, "%s: names no file", path);
  if (slash != NULL) (void)snprintf(folder, sizeof folder, "%.*s", (int)(slash - path) + 1, path);
  image_file.path = path;
  (void)snprintf(image_file.temporary, PATH_MAX, "%s.tmp", path);
  (void)snprintf(image_file.damaged, PATH_MAX, "%s.bad", path);
  image_file.folder = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (image_file.folder < 0) err(ENDS_BAD_PATH, "%s: folder %s", path, folder);
}

// Returns 0, or the error number of the step that failed.
static int write_temporary(const uint8_t *image, uint32_t size) {
  (void)unlink(image_file.temporary);  // what a crash left there, or anybody put there, is not written to
  const int file = open(image_file.temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return errno;
  int error = 0;
  for (uint32_t done = 0; done < size && error == 0;) {
    const ssize_t written = write(file, image + done, size - done);
    if (written > 0) done += (uint32_t)written;
    if (written < 0 && errno != EINTR) error = errno;
  }
  if (error == 0 && fsync(file) != 0) error = errno;
  if (close(file) != 0 && error == 0) error = errno;  // some file systems tell only here that a write failed
  return error;
}

// A tlv_save_cb. The bytes are on the disk under another name before the image's name moves to them: at every moment, a
// loss of power included, that name stands for a whole image. The store ignores the result: a failure is told here.
static int32_t save_image(const uint8_t *image, uint32_t size) {
  int error = write_temporary(image, size);
  if (error == 0 && rename(image_file.temporary, image_file.path) != 0) error = errno;
  if (error != 0) {
    (void)unlink(image_file.temporary);
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: not saved, the file stays as it was: %s", image_file.path, strerror(error));
    return -1;
  }
  if (fsync(image_file.folder) != 0) {  // the new name is on the disk only when the folder is
    LOG(LOG_CONFIG, MUP_LOG_WARNING, "%s: saved, but a power loss may undo it: %s", image_file.path, strerror(errno));
  }
  return 0;
}

// An append may end up to 16 bytes behind what the store was told, so it is told 16 bytes less than there are.
enum { TEXT_SIZE = 32, BUFFER_SIZE = 4096, IMAGE_MAX_SIZE = BUFFER_SIZE - sizeof(tlv_hdr) };
static uint8_t buffer[BUFFER_SIZE];  // all zeros make a blank image
static tlv_inst *configuration;

// What the header in `buffer` states, which need not be true.
static uint64_t image_size(void) {
  return ntohl(tlv_get_int(((const tlv_hdr *)buffer)->cfg_len)) + (uint64_t)sizeof(tlv_hdr);
}

// Fills `buffer` with the file, or with a blank image after a first start or if the file is damaged.
static void read_image(void) {
  const int file = open(image_file.path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // does not wait at a pipe
  if (file < 0 && errno == ENOENT) {
    LOG(LOG_CONFIG, MUP_LOG_NOTICE, "%s: not there, first start", image_file.path);
    return;
  }
  struct stat status;
  if (file < 0 || fstat(file, &status) != 0) err(ENDS_UNREADABLE, "%s: cannot be opened", image_file.path);
  if (!S_ISREG(status.st_mode)) errx(ENDS_BAD_PATH, "%s: is no regular file", image_file.path);
  size_t length = 0;
  ssize_t got;
  while ((got = read(file, buffer + length, sizeof buffer - length)) != 0) {
    if (got > 0) length += (size_t)got;
    if (got < 0 && errno != EINTR) err(ENDS_UNREADABLE, "%s: cannot be read", image_file.path);
  }
  (void)close(file);
  if (length > IMAGE_MAX_SIZE) errx(ENDS_TOO_LARGE, "%s: larger than %d bytes", image_file.path, (int)IMAGE_MAX_SIZE);
  // tlv_load would make a blank image of whatever has no magic number, so the image is checked before; and tlv_check
  // believes the length that the header states, so that is measured first.
  if (length >= sizeof(tlv_hdr) && image_size() <= length && tlv_check(buffer) >= 0) return;
  mu_printf("\r\n");  // the store's messages do not end their line
  const char *fate = rename(image_file.path, image_file.damaged) == 0 ? "kept as" : "but could not be kept as";
  LOG(LOG_CONFIG, MUP_LOG_ERROR, "%s: damaged, starting with defaults; %s %s", image_file.path, fate,
      image_file.damaged);
  memset(buffer, 0, sizeof buffer);
}

// The settings, at first with their defaults. A text that fills its field has no NUL there.
static struct {
  char host_name[TEXT_SIZE + 1], uplink[TEXT_SIZE + 1];
  uint32_t uplink_check_ms, statistics_s;
  uint32_t collector;  // IPv4 address of the log collector in host byte order; 0 for none
  uint32_t boot_count;
} settings = {"gateway", "lo", 1000, 3, 0, 0};

// Their fields in the image: a text, or a number in its range.
static const struct field {
  uint16_t key, size;
  char *text;
  uint32_t *number, least, most;
} fields[] = {
    {0x0101, TEXT_SIZE, settings.host_name, NULL, 0, 0}, {0x0102, 4, NULL, &settings.boot_count, 0, UINT32_MAX},
    {0x0201, TEXT_SIZE, settings.uplink, NULL, 0, 0},    {0x0202, 4, NULL, &settings.uplink_check_ms, 100, 3600000},
    {0x0203, 4, NULL, &settings.statistics_s, 1, 3600},  {0x0301, 4, NULL, &settings.collector, 0, UINT32_MAX},
};
enum { FIELDS = sizeof fields / sizeof fields[0] };

// The size that a field has in the image; 0 if it is not there.
static uint32_t found_size(const struct field *field) {
  for (uint32_t i = 0; i < configuration->field_num; i++) {
    const tlv_field *found = configuration->field_tbl[i];
    if (ntohs(tlv_get_short(found->type)) == field->key) return ntohs(tlv_get_short(found->max_len));
  }
  return 0;
}

static void read_field(const struct field *field) {
  if (found_size(field) != field->size) return;
  uint32_t number = 0;
  if (field->text != NULL) {
    (void)tlv_read_buffer(configuration, field->key, field->size, field->text);
  } else if (tlv_read_int(configuration, field->key, &number) == 0 && number >= field->least && number <= field->most) {
    *field->number = number;
  } else {
    LOG(LOG_CONFIG, MUP_LOG_ERROR, "field 0x%04x: %u makes no sense, default used", field->key, number);
  }
}

// Looks before it writes: the store lets through what breaks an image, namely a text of another size, and an append
// that makes the image too long to be loaded again.
static void write_field(const struct field *field) {
  const uint32_t found = found_size(field);
  const bool has_room = image_size() + sizeof(tlv_field) + field->size <= IMAGE_MAX_SIZE;
  const bool fits = found == field->size || (found == 0 && has_room);
  int32_t result = -1;
  if (fits && field->text == NULL) result = tlv_write_int(configuration, field->key, *field->number);
  if (fits && field->text != NULL) {
    result = tlv_write_buffer(configuration, field->key, TEXT_SIZE, TEXT_SIZE, (const uint8_t *)field->text);
  }
  if (result != 0) LOG(LOG_CONFIG, MUP_LOG_ERROR, "field 0x%04x has another size or finds no room", field->key);
}

// Fills `settings`, counts this start, and brings the image up to date.
static void open_configuration(const struct options *options) {
  read_image();
  configuration = tlv_inst_init(buffer, IMAGE_MAX_SIZE, NULL);
  if (configuration == NULL || tlv_load(configuration) != 0) errx(ENDS_INTERNAL, "the configuration does not load");
  for (size_t i = 0; i < FIELDS; i++) read_field(&fields[i]);
  if (options->sets_collector) settings.collector = ntohl(options->collector.s_addr);
  settings.boot_count++;
  for (size_t i = 0; i < FIELDS; i++) write_field(&fields[i]);
  // All of it reaches the file at once, with this last change: until now there was no save function.
  configuration->save_cb = save_image;
  (void)tlv_write_version(configuration, 1);
}

// The timers. Callbacks share one thread with a small stack: short work, small buffers. The first scan of the service
// runs every timer that was added before it at once, so a callback must make sense at any time.
enum { TICK_MS = 10, SILENCE_MS = 3000, MEMORY_FIRST_MS = 1000, MEMORY_MOST_MS = 64000 };

// A timer that is armed from a callback needs its id, which mu_timer_add returns when the callback may already run. So
// the timers are added under this lock, and such a callback waits for it.
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
  uint64_t bytes;       // received; at first more than there can be
  uint64_t changed_at;  // in ticks
  uint32_t checks, changes;
} uplink = {.bytes = UINT64_MAX};

// Finds a row such as "    lo: 3319 30 0 ...", in which the bytes received come first.
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

static void check_uplink(void *unused) {  // circular
  (void)unused;
  uint64_t bytes;
  uplink.checks++;
  if (!read_bytes(&bytes)) {
    LOG(LOG_UPLINK, MUP_LOG_ERROR, "%s: no counters", settings.uplink);
    return;
  }
  if (bytes < uplink.bytes) {  // the first look, or the interface was made anew
    LOG(LOG_UPLINK, MUP_LOG_INFO, "%s: counting from %" PRIu64 " bytes", settings.uplink, bytes);
  } else if (bytes == uplink.bytes) {
    LOG(LOG_UPLINK, MUP_LOG_DEBUG, "%s: nothing new", settings.uplink);
  } else {
    LOG(LOG_UPLINK, MUP_LOG_NOTICE, "%s: %" PRIu64 " bytes received", settings.uplink, bytes - uplink.bytes);
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

// One-shot, armed again by itself and by traffic. It measures the silence and does not conclude it from being called.
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
  (void)sysinfo(&memory);  // fails for a bad address alone
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
  const bool all_run = check != 0 && statistics != 0 && silence_id != 0 && memory_id != 0;
  (void)mu_mutex_unlock(ids_lock);
  if (!all_run) errx(ENDS_INTERNAL, "the timers do not start");
}

// Called before the timer thread starts, which inherits the mask: these signals interrupt nothing, but wait to be asked
// for. SIGPIPE (nobody reads the output) and SIGXFSZ (a file grew too large) become errors of the write.
static sigset_t hold_signals(void) {
  sigset_t ends;
  (void)sigemptyset(&ends);
  (void)sigaddset(&ends, SIGINT);
  (void)sigaddset(&ends, SIGTERM);
  (void)sigaddset(&ends, SIGALRM);
  (void)sigprocmask(SIG_BLOCK, &ends, NULL);
  (void)signal(SIGPIPE, SIG_IGN);
  (void)signal(SIGXFSZ, SIG_IGN);
  return ends;
}

// Returns why the daemon ends.
static const char *wait_for_end(const sigset_t *ends, unsigned long run_for_s) {
  (void)alarm((unsigned)run_for_s);  // 0 for none
  int received;
  do received = sigwaitinfo(ends, NULL);
  while (received < 0);  // as after the process was stopped and goes on
  if (received == SIGALRM) return "its time is over";
  return received == SIGINT ? "SIGINT" : "SIGTERM";
}

int main(int argc, char **argv) {
  const struct options options = parse_options(argc, argv);
  const sigset_t ends = hold_signals();
  (void)setvbuf(stdout, NULL, _IOLBF, 0);  // each line at once, to a pipe or a file too

  start_log();
  locate_image(options.config);
  open_configuration(&options);
  // No other thread logs yet; later the log's mutex would have to be held here.
  mup_log_ctrl_get()->server_ip = settings.collector;
  mup_log_ctrl_get()->remote_mode = settings.collector != 0 ? MUP_LOG_REMOTE_AND_STORE : MUP_LOG_REMOTE_OFF;
  start_timers();
  LOG(LOG_MAIN, MUP_LOG_NOTICE, "%s: started, boot count %u", settings.host_name, settings.boot_count);

  LOG(LOG_MAIN, MUP_LOG_NOTICE, "%s: ends, %s", settings.host_name, wait_for_end(&ends, options.run_for_s));
  mu_timer_show();
  (void)mup_log_show(0, 0);
  // The timer thread ends with the process; what its callbacks use is static.
  return EXIT_SUCCESS;
}
