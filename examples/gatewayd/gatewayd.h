// What the files of gatewayd share.
#ifndef GATEWAYD_H
#define GATEWAYD_H

#include <stdint.h>

#include "tarn/log.h"
#include "tarn/startup_cfg.h"
#include "tarn/types.h"

// ---- Failures before the daemon runs, and exit codes beside 0 (gatewayd.c)
// -------------------------------------------

enum { ENDS_INTERNAL = 1, ENDS_BAD_OPTION = 2, ENDS_BAD_PATH = 3, ENDS_UNREADABLE = 4, ENDS_TOO_LARGE = 5 };

// Tells whoever started the daemon, on standard error, and ends it. Later failures go to the log.
_Noreturn void fail(int code, const char *format, ...) TARN_PRINTF(2, 3);

// ---- Log
// -------------------------------------------------------------------------------------------------------------

// Log modules. Those of 16 and above have a ring of their own; 16 to 19 are what mup_log_usr_set switches.
enum { LOG_MAIN, LOG_CONFIG, LOG_UPLINK, LOG_MEMORY, LOG_TRAFFIC = MUP_LOG_USR_FIRST };

#define LOG(module, level, ...) mup_log_msg(0, module, level, __LINE__, __VA_ARGS__)

// ---- The file of the configuration image (image_file.c)
// ----------------------------------------------------------------

// Finds the image's folder. Ends the daemon if there is none.
void image_file_locate(const char *path);

// Fills `buffer` with a sound image, or with zeros after a first start or a damaged image, which is then kept under
// another name. Ends the daemon if the image cannot be read or is larger than `max_size`, which is less than `size`.
void image_file_read(uint8_t *buffer, uint32_t size, uint32_t max_size);

// Replaces the image by the `size` bytes at `image`; a tlv_save_cb. Whatever happens, the file holds a whole image.
int32_t image_file_save(const uint8_t *image, uint32_t size);

// ---- Settings (settings.c)
// -------------------------------------------------------------------------------------------

enum { HOST_NAME_SIZE = 32, INTERFACE_SIZE = 16 };

struct settings {
  char host_name[HOST_NAME_SIZE + 1];  // a value that fills its field has no NUL there
  char uplink[INTERFACE_SIZE + 1];
  uint32_t uplink_check_ms;
  uint32_t collector;   // IPv4 address of the log collector in host byte order; 0 for none
  uint32_t boot_count;  // this start included
  uint16_t statistics_s;
  uint8_t log_level;
};

// Set by settings_open alone, before any timer runs: callbacks read it without a lock.
extern struct settings settings;

// Reads the configuration and makes the fields that it lacks, counts this start, and stores `new_collector` if it is
// not null. Ends the daemon if there is no memory. Like settings_close for the main thread alone: the store has no
// lock.
void settings_open(const uint32_t *new_collector);

// Notes that this run ended in order.
void settings_close(void);

#endif
