/**
 * @file
 * Logging. The log core: a process-wide log of named modules, each with its own levels.
 *
 * mup_log_init registers the modules; afterwards any thread logs with mup_log_msg. A message passes its module's
 * levels, is shown on the console, forwarded to a log collector as a UDP datagram, and kept in a ring: the system ring
 * for the modules 0 to 15, the user ring for 16 and above.
 *
 * Levels: 0 "Off", 1 "Emergency", 2 "Alert", 3 "Critical", 4 "Error", 5 "Warning", 6 "Notice", 7 "Info", 8 "Debug". A
 * threshold of N lets the levels 0 to N through: a message of level 0 passes every threshold.
 *
 * Holds for the whole header:
 * - Statuses: 0 success, -1 no mutex, 2 bad argument, 10 out of memory, 19 not initialised.
 * - The argument `reserved` is ignored; pass 0.
 * - A null argument that a function cannot work without prints "%s() _%d_: assert fail\n" (function, source line).
 * - Console output goes through mu_printf. There is no allocation after mup_log_init.
 * - Any thread may log. The log mutex guards the rings, their indices and `dirty`, and is held while a message is
 *   shown, sent and stored: nothing that runs under it may log.
 */
#ifndef TARN_LOG_H
#define TARN_LOG_H

#include <time.h>

#include "tarn/types.h"

TARN_BEGIN_DECLS

/** Levels of a message, and thresholds of a module. */
enum mup_log_level {
  MUP_LOG_OFF = 0,
  MUP_LOG_EMERGENCY = 1,
  MUP_LOG_ALERT = 2,
  MUP_LOG_CRITICAL = 3,
  MUP_LOG_ERROR = 4,
  MUP_LOG_WARNING = 5,
  MUP_LOG_NOTICE = 6,
  MUP_LOG_INFO = 7,
  MUP_LOG_DEBUG = 8,
};

/** Settings of a module, for mup_log_level_set and mup_log_level_get. */
enum mup_log_setting {
  MUP_LOG_SET_PRINT = 0,  /**< `print_level` */
  MUP_LOG_SET_RECORD = 1, /**< `record_level` */
  MUP_LOG_SET_ENABLE = 2, /**< `enable` */
};

#define MUP_LOG_NAME_SIZE 16     /**< Bytes of a module's name, its NUL included. */
#define MUP_LOG_TEXT_SIZE 256    /**< Bytes of a stored text, its NUL included. */
#define MUP_LOG_MESSAGE_SIZE 512 /**< Bytes of a formatted message, its NUL included. */
#define MUP_LOG_SYS_NUM 1024     /**< Records of the system ring. */
#define MUP_LOG_USR_NUM 512      /**< Records of the user ring. */
#define MUP_LOG_USR_FIRST 16     /**< The first module of the user ring. */
#define MUP_LOG_SERVER_PORT 514  /**< UDP port of the log collector. */

/** Line argument of a message that is kept and forwarded but never shown on the console: 'N' 'O' 'P' 'T'. */
#define MUP_LOG_NOPRINT 0x4E4F5054

/** Values of `remote_mode`; any other value acts as MUP_LOG_REMOTE_AND_STORE. */
enum mup_log_remote {
  MUP_LOG_REMOTE_OFF = 0,       /**< No forwarding. */
  MUP_LOG_REMOTE_ONLY = 1,      /**< Forward and do not store: without a socket the message is lost. */
  MUP_LOG_REMOTE_AND_STORE = 2, /**< Forward and store. */
};

/** One registered module. */
typedef struct mup_log_module {
  char name[MUP_LOG_NAME_SIZE]; /**< NUL-terminated. */
  uint8_t record_level;         /**< Threshold for keeping and forwarding; 4 at first. */
  uint8_t print_level;          /**< Threshold for the console; 4 at first. */
  uint8_t enable;               /**< 1: the module logs; any other value: all its messages are dropped. 1 at first. */
} mup_log_module;

/** One slot of a ring. An empty slot has an empty text. */
typedef struct mup_log_rec {
  uint8_t module;               /**< Module id. */
  uint8_t level;                /**< Level. */
  uint32_t line;                /**< The caller's line number; 0 for none. */
  time_t time;                  /**< When the message was logged: seconds since the Unix epoch. */
  char text[MUP_LOG_TEXT_SIZE]; /**< NUL-terminated. */
} mup_log_rec;

/** The device's description, written at the head of the user log file. */
typedef struct mup_log_usr_header {
  char manufacturer[32];
  char product_class[32];
  char serial_number[32];
  char ip[32];
  char hw_ver[32];
  char sw_ver[32];
} mup_log_usr_header;

/** Told of each setting that changes. Under mup_log_set and mup_log_usr_set it runs with the log mutex held. */
typedef void (*mup_log_level_hook)(uint8_t module, uint8_t type, uint8_t value);

/** The state of the log. Callers may set `remote_mode` and `server_ip` once it is initialised. */
typedef struct mup_log_ctrl {
  uint8_t inited;                        /**< 1 once initialised. */
  uint8_t module_num;                    /**< Number of modules: the low 8 bits of the count that was registered. */
  uint8_t dirty;                         /**< What changed since the last save: bit 0 system ring, bit 1 user ring. */
  uint8_t remote_mode;                   /**< Forwarding: see mup_log_remote; 0 at first. */
  uint32_t sys_idx;                      /**< The system ring's next slot, 0 to 1023: its oldest record. */
  uint32_t usr_idx;                      /**< The user ring's next slot, 0 to 511. */
  mu_mutex_t mutex;                      /**< The log mutex. */
  int32_t sock;                          /**< UDP socket; negative when none could be made: then nothing is sent. */
  mup_log_module *modules;               /**< The modules, by id. */
  uint32_t server_ip;                    /**< The collector's IPv4 address in host byte order, first octet on top. */
  mup_log_level_hook level_hook;         /**< Called after mup_log_level_set; null at first. */
  mup_log_rec sys_ring[MUP_LOG_SYS_NUM]; /**< Messages of the modules 0 to 15. */
  mup_log_rec usr_ring[MUP_LOG_USR_NUM]; /**< Messages of the modules 16 and above. */
  char sys_path[32];                     /**< "/overlay/mu_log.txt" */
  char usr_path[32];                     /**< "/overlay/user_log.txt" */
  mup_log_usr_header usr_header;         /**< Survives a second mup_log_init. */
} mup_log_ctrl;

static_assert(offsetof(mup_log_module, record_level) == 16 && offsetof(mup_log_module, print_level) == 17 &&
                  offsetof(mup_log_module, enable) == 18 && sizeof(mup_log_module) == 19,
              "log module layout");
static_assert(offsetof(mup_log_rec, level) == 1 && offsetof(mup_log_rec, line) == 4 &&
                  offsetof(mup_log_rec, time) == 8 && offsetof(mup_log_rec, text) == 16 && sizeof(mup_log_rec) == 272,
              "log record layout");
static_assert(sizeof(mup_log_usr_header) == 192, "log header layout");
static_assert(offsetof(mup_log_ctrl, module_num) == 1 && offsetof(mup_log_ctrl, dirty) == 2 &&
                  offsetof(mup_log_ctrl, remote_mode) == 3 && offsetof(mup_log_ctrl, sys_idx) == 4 &&
                  offsetof(mup_log_ctrl, usr_idx) == 8 && offsetof(mup_log_ctrl, mutex) == 16 &&
                  offsetof(mup_log_ctrl, sock) == 24 && offsetof(mup_log_ctrl, modules) == 32 &&
                  offsetof(mup_log_ctrl, server_ip) == 40 && offsetof(mup_log_ctrl, level_hook) == 48 &&
                  offsetof(mup_log_ctrl, sys_ring) == 56 && offsetof(mup_log_ctrl, usr_ring) == 278584 &&
                  offsetof(mup_log_ctrl, sys_path) == 417848 && offsetof(mup_log_ctrl, usr_path) == 417880 &&
                  offsetof(mup_log_ctrl, usr_header) == 417912 && sizeof(mup_log_ctrl) == 418104,
              "log state layout");

/**
 * Initialises the log: registers the modules, every level 4 and enabled, and opens the socket for forwarding, which
 * stays off. Call it once, before the first message and from one thread; messages before it are dropped silently. A
 * second call empties the rings and settings, keeps `usr_header`, and abandons the first one's table, mutex and socket.
 *
 * @param[in] module_num  Number of names. Above 255, only the low 8 bits are kept.
 * @param[in] names       `module_num` fields of 16 bytes each, copied. A name fills at most 15 characters; mup_log_set
 *                        expects at least 21 modules, of which 16 to 19 are the user modules.
 * @retval 0   Done. A socket that could not be made prints "Log socket failed\n" and is no failure.
 * @retval 2   `names` is null; nothing is changed.
 * @retval 10  No memory ("No memory \r\n").
 * @retval -1  No mutex ("create mutex error \r\n").
 */
TARN_API mu_status_t mup_log_init(uint64_t reserved, uint16_t module_num, const char *names);

/**
 * Logs a message.
 *
 * In this order: nothing happens before mup_log_init or for a null `fmt`; a module id above the number of modules
 * prints "unknow module id:%d\r\n" (Deliberate: an id equal to that number is accepted, and dropped), a level above 8
 * "unknow level id:%d\r\n"; a message of a disabled module, or above both thresholds, is dropped. The text is cut to
 * 511 characters. Within `print_level` it is shown, as "%s\r\n" when `line` is 0, else as "[MODULE-LEVEL: LINE]:
 * TEXT\r\n". Within `record_level` it is forwarded, if `remote_mode` says so, as one datagram of the bare text to
 * `server_ip`, port 514 (a failed send prints "Error writing buffer"), and its first 255 characters are stored. A full
 * ring drops its oldest record.
 *
 * @param[in] line  The caller's line; 0 for none, MUP_LOG_NOPRINT for a message that is not shown (stored with line 0).
 * @param[in] fmt   printf format, a trusted text: never use %n in it.
 */
TARN_API void mup_log_msg(uint64_t reserved, uint8_t module_id, uint8_t level, int32_t line, const char *fmt, ...)
    TARN_PRINTF(5, 6);

/**
 * Formats a record for display, in UTC: "[MM/DD-hh:mm:ss]-[LEVEL LINE]MODULE: TEXT\r\n", without the blank and the line
 * number when that is 0. A level above 8 and a module that is not registered show as empty names.
 *
 * @param[in]  rec  Null, as a null `dst`, gives the assertion message.
 * @param[out] dst  Takes the text, NUL-terminated, cut to `n` bytes.
 * @param[in]  n    Bytes at `dst`; 512 hold every record.
 */
TARN_API void mu_log2str(const mup_log_rec *rec, char *dst, uint32_t n);

/**
 * Prints the system ring, oldest record first, or with a nonzero `clear` empties it. The user ring is not shown. Does
 * nothing before mup_log_init.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_show(uint64_t reserved, int32_t clear);

/**
 * Changes a setting of the first module called `module_name`, then calls `level_hook`. Takes no lock.
 *
 * @param[in] type   See mup_log_setting. Deliberate: 3 and above changes nothing, but calls the hook and returns 0.
 * @param[in] value  A level (0 to 8), or 0 or 1 for the enable flag.
 * @retval 0   Done.
 * @retval 2   `module_name` is null (assertion message), no module has that name, or `value` is out of range.
 * @retval 19  Not initialised ("log system was not init \n").
 */
TARN_API mu_status_t mup_log_level_set(uint64_t reserved, const char *module_name, uint8_t type, uint8_t value);

/**
 * Reads a setting of the first module called `module_name`. Takes no lock.
 *
 * @param[in]  type   See mup_log_setting.
 * @param[out] value  The setting; written on success only.
 * @retval 0   Done.
 * @retval 2   `module_name` (assertion message) or `value` is null, `type` is above 2, or no module has that name.
 * @retval 19  Not initialised ("log system was not init \n").
 */
TARN_API mu_status_t mup_log_level_get(uint64_t reserved, const char *module_name, uint8_t type, uint8_t *value);

/** The name of a level, constant; "" for a level above 8. */
TARN_API const char *mup_log_level_str_get(uint8_t level);

/**
 * Switches the modules 0 to 20 on (nonzero) or off, each through mup_log_level_set by its own name, under the log
 * mutex. Ids that are not registered are passed over; before mup_log_init nothing happens.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_set(int32_t on);

/** Switches the user modules, 16 to 19, as mup_log_set does. @return 0, always. */
TARN_API mu_status_t mup_log_usr_set(int32_t on);

/** The state of the log; never null. Hold its mutex where the log may be in use. */
TARN_API mup_log_ctrl *mup_log_ctrl_get(void);

TARN_END_DECLS

#endif
