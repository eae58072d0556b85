/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * Logging: a process-wide log of named modules, each with its own levels; the files that preserve it across a restart;
 * the bridge that adds the kernel's messages to it.
 *
 * mup_log_usr_init starts the log with its files; mup_log_init starts it without files. Afterwards any thread may log
 * with mup_log_msg. According to its module's levels, a message is shown on the console, forwarded to a log collector
 * as a UDP datagram, and kept in a ring: the system ring for the modules 0 to 15, the user ring for 16 and above. Every
 * three seconds a ring that has changed is written to its file. docs/log-files.md and docs/kernel-frames.md describe
 * the formats.
 *
 * Levels: 0 "Off", 1 "Emergency", 2 "Alert", 3 "Critical", 4 "Error", 5 "Warning", 6 "Notice", 7 "Info", 8 "Debug". A
 * threshold of N lets the levels 0 to N through: a message of level 0 passes every threshold.
 *
 * Holds for the whole header:
 * - Statuses: 0 success, -1 no mutex, 2 bad argument, 10 out of memory, 19 (of the file functions: 1) not initialised.
 * - The argument `reserved` is ignored; pass 0.
 * - The assertion message, which some functions print for a null pointer, is "%s() _%d_: assert fail\n" (function,
 *   source line). Unless a function says what null does, its pointers must not be null.
 * - Console output goes through mu_printf. Nothing is allocated for a message.
 * - Files are created with mode 0666 less the process's umask: a daemon whose log is confidential sets a strict umask.
 * - The socket, the kernel's messages and the log device are opened close-on-exec: programs that the process starts do
 *   not inherit them.
 * - After fork(2) the child has the rings, but not the timer thread: it logs, but no file is saved unless it calls
 *   mup_log_usr_savefile; then child and parent overwrite each other's files. A mutex that was held during the fork
 *   stays locked in the child. Start the log after fork, and after daemon(3), which forks.
 * - Any thread may log. The log mutex guards the rings, their indices and `dirty`. It is held while a message is shown,
 *   sent and stored, and while a file is read, written or copied. During that time other messages wait, and code that
 *   runs with the mutex held must not log. If a thread is cancelled (pthread_cancel) in a function of this header, the
 *   mutex stays locked for ever: disable cancellation (pthread_setcancelstate) around these calls.
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
  MUP_LOG_DEBUG = 8
};

/** Settings of a module, for mup_log_level_set and mup_log_level_get. */
enum mup_log_setting {
  MUP_LOG_SET_PRINT = 0,  /**< `print_level` */
  MUP_LOG_SET_RECORD = 1, /**< `record_level` */
  MUP_LOG_SET_ENABLE = 2  /**< `enable` */
};

#define MUP_LOG_NAME_SIZE 16     /**< Bytes of a module's name, its NUL included. */
#define MUP_LOG_TEXT_SIZE 256    /**< Bytes of a stored text, its NUL included. */
#define MUP_LOG_MESSAGE_SIZE 512 /**< Bytes of a formatted message, its NUL included. */
#define MUP_LOG_SYS_NUM 1024     /**< Records of the system ring. */
#define MUP_LOG_USR_NUM 512      /**< Records of the user ring. */
#define MUP_LOG_USR_FIRST 16     /**< The first module of the user ring. */
#define MUP_LOG_SERVER_PORT 514  /**< UDP port of the log collector. */
#define MUP_LOG_SAVE_PERIOD 3000 /**< ms between two checks of `dirty`. */

/** Line argument: the message is kept and forwarded, but never shown on the console. The bytes are "NOPT". */
#define MUP_LOG_NOPRINT 0x4E4F5054

/** Values of `remote_mode`; any other value acts as MUP_LOG_REMOTE_AND_STORE. */
enum mup_log_remote {
  MUP_LOG_REMOTE_OFF = 0,      /**< No forwarding. */
  MUP_LOG_REMOTE_ONLY = 1,     /**< Forward and do not store: without a socket the message is lost. */
  MUP_LOG_REMOTE_AND_STORE = 2 /**< Forward and store. */
};

/** One registered module. */
typedef struct mup_log_module {
  char name[MUP_LOG_NAME_SIZE]; /**< NUL-terminated. */
  uint8_t record_level;         /**< Threshold for keeping and forwarding; initially 4. */
  uint8_t print_level;          /**< Threshold for the console; initially 4. */
  uint8_t enable;               /**< 1: the module logs; any other value: all its messages are dropped. Initially 1. */
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

/** Called for each changed setting. mup_log_set and mup_log_usr_set call it with the log mutex held. */
typedef void (*mup_log_level_hook)(uint8_t module, uint8_t type, uint8_t value);

/** The state of the log. Callers may set `remote_mode` and `server_ip` once it is initialised. */
typedef struct mup_log_ctrl {
  uint8_t inited;                        /**< 1 once initialised. */
  uint8_t module_num;                    /**< Number of modules: the low 8 bits of the count that was registered. */
  uint8_t dirty;                         /**< What changed since the last save: bit 0 system ring, bit 1 user ring. */
  uint8_t remote_mode;                   /**< Forwarding: see mup_log_remote; initially 0. */
  uint32_t sys_idx;                      /**< The system ring's next slot, 0 to 1023; it holds the oldest record. */
  uint32_t usr_idx;                      /**< The user ring's next slot, 0 to 511. */
  mu_mutex_t mutex;                      /**< The log mutex. */
  int32_t sock;                          /**< UDP socket; if it could not be made, negative, and nothing is sent. */
  mup_log_module *modules;               /**< The modules, by id. */
  uint32_t server_ip;                    /**< The collector's IPv4 address, first octet in the most significant byte. */
  mup_log_level_hook level_hook;         /**< Called after mup_log_level_set; initially null. */
  mup_log_rec sys_ring[MUP_LOG_SYS_NUM]; /**< Messages of the modules 0 to 15. */
  mup_log_rec usr_ring[MUP_LOG_USR_NUM]; /**< Messages of the modules 16 and above. */
  char sys_path[32];                     /**< "/overlay/mu_log.txt" */
  char usr_path[32];                     /**< "/overlay/user_log.txt" */
  mup_log_usr_header usr_header;         /**< Kept by a second mup_log_init. */
} mup_log_ctrl;

TARN_STATIC_ASSERT(offsetof(mup_log_module, record_level) == 16 && offsetof(mup_log_module, print_level) == 17 &&
                       offsetof(mup_log_module, enable) == 18 && sizeof(mup_log_module) == 19,
                   "log module layout");
TARN_STATIC_ASSERT(offsetof(mup_log_rec, level) == 1 && offsetof(mup_log_rec, line) == 4 &&
                       offsetof(mup_log_rec, time) == 8 && offsetof(mup_log_rec, text) == 16 &&
                       sizeof(mup_log_rec) == 272,
                   "log record layout");
TARN_STATIC_ASSERT(sizeof(mup_log_usr_header) == 192, "log header layout");
TARN_STATIC_ASSERT(offsetof(mup_log_ctrl, module_num) == 1 && offsetof(mup_log_ctrl, dirty) == 2 &&
                       offsetof(mup_log_ctrl, remote_mode) == 3 && offsetof(mup_log_ctrl, sys_idx) == 4 &&
                       offsetof(mup_log_ctrl, usr_idx) == 8 && offsetof(mup_log_ctrl, mutex) == 16 &&
                       offsetof(mup_log_ctrl, sock) == 24 && offsetof(mup_log_ctrl, modules) == 32 &&
                       offsetof(mup_log_ctrl, server_ip) == 40 && offsetof(mup_log_ctrl, level_hook) == 48 &&
                       offsetof(mup_log_ctrl, sys_ring) == 56 && offsetof(mup_log_ctrl, usr_ring) == 278584 &&
                       offsetof(mup_log_ctrl, sys_path) == 417848 && offsetof(mup_log_ctrl, usr_path) == 417880 &&
                       offsetof(mup_log_ctrl, usr_header) == 417912 && sizeof(mup_log_ctrl) == 418104,
                   "log state layout");

/**
 * Initialises the log: registers the modules, each enabled and with both levels 4, and opens the socket for forwarding.
 * Forwarding stays off. Call it once, from one thread, before the first message; earlier messages are dropped silently.
 * A second call empties the rings, resets the settings, keeps `usr_header`, and does not release the first call's
 * table, mutex and socket.
 *
 * @param[in] module_num  Number of names. Above 255, only the low 8 bits are kept.
 * @param[in] names       `module_num` fields of 16 bytes each, copied. A name has at most 15 characters. mup_log_set
 *                        expects at least 21 modules, of which 16 to 19 are the user modules.
 * @retval 0   Done. If the socket could not be made, "Log socket failed\n" is printed; this is not a failure.
 * @retval 2   `names` is null; nothing is changed.
 * @retval 10  No memory ("No memory \r\n").
 * @retval -1  No mutex ("create mutex error \r\n").
 */
TARN_API mu_status_t mup_log_init(uint64_t reserved, uint16_t module_num, const char *names);

/**
 * Logs a message.
 *
 * The steps, in this order:
 * - Before mup_log_init, or if `fmt` is null, nothing happens.
 * - If the module id is above the number of modules, "unknow module id:%d\r\n" is printed, and the message is dropped.
 *   Deliberate: an id equal to that number is not reported; its message is dropped too.
 * - If the level is above 8, "unknow level id:%d\r\n" is printed, and the message is dropped.
 * - A message of a disabled module, or above both thresholds, is dropped.
 * - The text is cut to 511 characters.
 * - Within `print_level` it is shown: "%s\r\n" if `line` is 0, else "[MODULE-LEVEL: LINE]: TEXT\r\n".
 * - Within `record_level`, according to `remote_mode`, it is forwarded as one datagram that holds only the text, to
 *   `server_ip`, port 514 (a failed send prints "Error writing buffer"); and its first 255 characters are stored. In a
 *   full ring the record replaces the oldest one.
 *
 * @param[in] line  The caller's line; 0 for none, MUP_LOG_NOPRINT for a message that is not shown (stored with line 0).
 * @param[in] fmt   printf format; it must come from the program itself and must not contain %n.
 */
TARN_API void mup_log_msg(uint64_t reserved, uint8_t module_id, uint8_t level, int32_t line, const char *fmt, ...)
    TARN_PRINTF(5, 6);

/**
 * Formats a record for display, in UTC: "[MM/DD-hh:mm:ss]-[LEVEL LINE]MODULE: TEXT\r\n". If the line number is 0, it
 * and the blank before it are omitted. A level above 8 and a module that is not registered have empty names.
 *
 * @param[in]  rec  A null `rec` prints the assertion message, and so does a null `dst`.
 * @param[out] dst  The text, NUL-terminated, cut to `n` bytes.
 * @param[in]  n    Bytes at `dst`; 512 are enough for every record.
 */
TARN_API void mu_log2str(const mup_log_rec *rec, char *dst, uint32_t n);

/**
 * Prints the system ring, oldest record first; with a nonzero `clear`, empties it instead. The user ring is not shown.
 * Does nothing before mup_log_init.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_show(uint64_t reserved, int32_t clear);

/**
 * Changes a setting of the first module called `module_name`, then calls `level_hook`. Takes no lock.
 *
 * @param[in] type   See mup_log_setting. Deliberate: 3 or above changes nothing, but calls the hook and returns 0.
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
 * Enables (nonzero) or disables the modules 0 to 20, each by its name with mup_log_level_set, with the log mutex held.
 * Skips ids that are not registered. Does nothing before mup_log_init.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_set(int32_t on);

/** As mup_log_set, for the user modules 16 to 19. @return 0, always. */
TARN_API mu_status_t mup_log_usr_set(int32_t on);

/** The state of the log; never null. Hold its mutex if another thread may use the log. */
TARN_API mup_log_ctrl *mup_log_ctrl_get(void);

/**
 * Starts the log with its files: calls mup_log_init, sets the level hook (mup_log_kern_level_set), reads both files
 * back into the rings, and starts a circular timer of MUP_LOG_SAVE_PERIOD ms, which runs mup_log_usr_savefile. Call it
 * once, from one thread, instead of mup_log_init. No function stops the log.
 *
 * A file that is missing or cannot be read is created ("Log file:%s init\n"): the system file with "SysLog:\n" and one
 * NUL, the user file empty. Reading a file ends when the ring is full, or at the first line that is not a record of a
 * registered module and a known level; earlier records stay. A last line without a line feed is dropped; if it has more
 * than 512 bytes, "Log file:%s Parse fail\n" is printed. Line numbers are not in the files: the records have 0.
 *
 * Deliberate: nothing is read back from a file of exactly 512 bytes. Deliberate: times are written as UTC and read back
 * as local time, so each restart moves a record's time by the zone's offset. Deliberate: `usr_header` is not read back;
 * set it after the start.
 *
 * Prints "mu-log: init usr log OK (module_num %d, max_log_num %d, save_log_timer %d seconds)\n" with the given count,
 * 1024 and 3. If there is no memory to read the files, prints "Log Malloc fail \n" instead: no file is read, and no
 * timer starts.
 *
 * @param[in] module_num  As for mup_log_init.
 * @param[in] names       As for mup_log_init. A failure of mup_log_init is not reported; the other steps follow.
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_usr_init(uint16_t module_num, const char *names);

/**
 * Writes each file whose ring has changed, whole and in place, and clears `dirty`. If nothing has changed, it returns
 * without taking the lock. A carriage return or line feed in a stored text becomes a blank, in the ring too. A file
 * that cannot be opened is skipped, and not tried again until its ring changes again. After a write that fails or is
 * short, as on a full disk, nothing more of that file is written: the file holds the beginning of its intended content,
 * and reading it back drops an incomplete last line. The timer thread calls this function every MUP_LOG_SAVE_PERIOD ms;
 * any thread may call it, for example before the process ends.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_usr_savefile(void);

/**
 * Sets the device's description: six texts of at most 31 characters. If it is set after mup_log_usr_init, the next save
 * writes it. If it is set before, it is kept, but mup_log_usr_init clears `dirty`: it is written with the next change
 * of the user ring.
 *
 * @param[in] header  A mup_log_usr_header, copied.
 * @retval 0  Done.
 * @retval 2  `header` is null (assertion message).
 */
TARN_API mu_status_t mup_log_usr_header_set(const void *header);

/**
 * Reads the device's description.
 *
 * @param[out] header  A mup_log_usr_header.
 * @retval 0  Done.
 * @retval 2  `header` is null (assertion message).
 */
TARN_API mu_status_t mup_log_usr_header_get(void *header);

/**
 * Empties the user ring. After the next save, its file holds only the description.
 *
 * @retval 0  Done.
 * @retval 1  Not initialised.
 */
TARN_API mu_status_t mup_log_usr_clean(void);

/**
 * Copies a log file, as it was last saved, with its times converted from UTC to local time (localtime_r: the zone that
 * the process last set). Lines that are not records, such as those of the description, are copied unchanged. Lines are
 * read in pieces of at most 319 bytes. The log mutex is held during the copy.
 *
 * @param[in] out_path     The copy; overwritten. If the copy can be opened but the log file cannot, an empty copy is
 *                         created.
 * @param[in] which        0: the system log; any other value: the user log.
 * @param[in] module       Null for every record, else a module's name of at most 32 characters: only records whose line
 *                         contains "]NAME:" are copied.
 * @param[in] level_count  Ignored when `module` is null. Otherwise the line must also contain, anywhere, the name of
 *                         one of the first `level_count` levels. 0: no record is copied; 9 and above: every level.
 * @retval 0  Done. Deliberate: also returned when a file could not be opened ("open file fail \n").
 * @retval 1  Not initialised.
 * @retval 2  `out_path` is null (assertion message), or `module` is too long.
 */
TARN_API mu_status_t mup_log_file_get(const char *out_path, int8_t which, const char *module, uint8_t level_count);

/**
 * Deletes "/overlay/mu_log.txt" and "/overlay/user_log.txt" and prints "remove the log file \n". The rings are kept:
 * the next save of a changed ring creates its file again. Takes no lock.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_file_remove(void);

/**
 * The kernel bridge: a thread body that reads "/proc/kmsg" for the life of the process. A framed message in it is
 * "<jxlog-MM?L?TEXT<jxlog>", with the module in two digits and the level in one. It is logged as "TEXT\n" with
 * MUP_LOG_NOPRINT: kept and forwarded, never shown. Other text is dropped. If more than 512 bytes wait for the end of a
 * frame, they are logged as one message of module 3, level 7. Start it after mup_log_usr_init:
 *
 *     sem_t started;
 *     pthread_t bridge;
 *     sem_init(&started, 0, 0);
 *     mu_thread_create(&bridge, "klog", log_msg_process, &started, 0, 0, 0);  // and, if that returned 0:
 *     pthread_detach(bridge);
 *     sem_wait(&started);
 *
 * Pauses 100 ms between reads. The process must have the right to read "/proc/kmsg" (root, or CAP_SYSLOG). Allocates
 * nothing.
 *
 * @param[in] started  A sem_t, posted once as soon as the thread runs, or null. After waiting for it, the caller may
 *                     destroy it.
 * @return Null, when the system's own daemon reads the messages ("/overlay/klogd" exists: "Klogd enable!!\n") or
 *         "/proc/kmsg" cannot be opened ("Open kmsg fail! \n"). Otherwise it does not return.
 */
TARN_API void *log_msg_process(void *started);

/**
 * Passes a module's changed setting to the kernel: opens "/dev/mulog-ioctl-dev", issues request 0x4300 with a message
 * of 256 bytes, and closes the device. If the device cannot be opened, it prints
 * "Device open failure /dev/mulog-ioctl-dev\n"; a refused request is not reported. This is the level hook that
 * mup_log_usr_init installs. Takes no lock.
 *
 * @param[in] module_index  The module's id.
 * @param[in] type          See mup_log_setting; passed on unchanged.
 * @param[in] value         Passed on unchanged.
 */
TARN_API void mup_log_kern_level_set(uint8_t module_index, uint8_t type, uint8_t value);

TARN_END_DECLS

#endif
