/**
 * @file
 * Logging: a process-wide log of named modules, each with its own levels; the files that keep it over a restart; the
 * bridge that brings the kernel's messages into it.
 *
 * mup_log_usr_init starts the log with its files (mup_log_init the log alone); afterwards any thread logs with
 * mup_log_msg. A message passes its module's levels, is shown on the console, forwarded to a log collector as a UDP
 * datagram, and kept in a ring: the system ring for the modules 0 to 15, the user ring for 16 and above. Every three
 * seconds a ring that has changed is written to its file. docs/log-files.md and docs/kernel-frames.md have the formats.
 *
 * Levels: 0 "Off", 1 "Emergency", 2 "Alert", 3 "Critical", 4 "Error", 5 "Warning", 6 "Notice", 7 "Info", 8 "Debug". A
 * threshold of N lets the levels 0 to N through: a message of level 0 passes every threshold.
 *
 * Holds for the whole header:
 * - Statuses: 0 success, -1 no mutex, 2 bad argument, 10 out of memory, 19 (of the file functions: 1) not initialised.
 * - The argument `reserved` is ignored; pass 0.
 * - A null argument that a function cannot work without, and says so, prints "%s() _%d_: assert fail\n" (function,
 *   source line). Other pointers must not be null.
 * - Console output goes through mu_printf. Nothing is allocated for a message.
 * - Files are made with mode 0666 less the process's umask: a daemon whose log is not for everybody sets one.
 * - The socket, the kernel's messages and the log device are opened close-on-exec: no program that the process starts
 *   gets them.
 * - After fork(2) the child has the rings, but not the timer thread: it logs, yet no file is saved unless it calls
 *   mup_log_usr_savefile, and then child and parent write over each other's files; a mutex that was held stays held.
 *   Start the log after fork, and after daemon(3), which forks.
 * - Any thread may log. The log mutex guards the rings, their indices and `dirty`, and is held while a message is
 *   shown, sent and stored, and while a file is read, written or copied, so messages wait for that: nothing that runs
 *   under it may log. A thread that is cancelled (pthread_cancel) in a function of this header leaves the mutex locked
 *   for ever: a thread that may be cancelled calls them with cancellation disabled (pthread_setcancelstate).
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
#define MUP_LOG_SAVE_PERIOD 3000 /**< ms from one look at `dirty` to the next. */

/** Line argument of a message that is kept and forwarded but never shown on the console: 'N' 'O' 'P' 'T'. */
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

/**
 * Starts the log with its files: mup_log_init, then the level hook (mup_log_kern_level_set), then both files are read
 * back into the rings, and a circular timer of MUP_LOG_SAVE_PERIOD ms starts that runs mup_log_usr_savefile. Call it
 * once, from one thread, in place of mup_log_init. There is no stop.
 *
 * A file that is missing or cannot be read is made ("Log file:%s init\n"): the system file with "SysLog:\n" and one
 * NUL, the user file empty. Reading a file ends at the first line that is no record of a registered module and a known
 * level, or when the ring is full; what was read before it stays. An unfinished last line is dropped; one of more than
 * 512 bytes prints "Log file:%s Parse fail\n". The records' line numbers are not in the files: they are 0.
 *
 * Deliberate: of a file of exactly 512 bytes nothing is read back. Deliberate: the files hold UTC and are read back as
 * local time, so a record's time moves by the zone's offset with each restart. Deliberate: `usr_header` is not read
 * back; set it after the start.
 *
 * Prints "mu-log: init usr log OK (module_num %d, max_log_num %d, save_log_timer %d seconds)\n" with the given count,
 * 1024 and 3. Without memory for the reading it prints "Log Malloc fail \n" instead: no file is read, no timer starts.
 *
 * @param[in] module_num  As for mup_log_init,
 * @param[in] names       as is this. A failure of mup_log_init is not reported: what else can be done is done.
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_usr_init(uint16_t module_num, const char *names);

/**
 * Writes each file whose ring has changed, whole and in place, and clears `dirty`; with nothing changed it returns
 * without a lock. A carriage return or line feed in a stored text becomes a blank, in the ring too. A file that cannot
 * be opened is passed over, and not tried again before its ring changes anew. After a write that fails or is cut short,
 * as on a full disk, nothing more of that file is written: it holds the beginning of what it should hold, and reading
 * it back drops a last line that is not whole. Runs on the timer thread every MUP_LOG_SAVE_PERIOD ms; may be called
 * from any thread, as before an ordered end.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_usr_savefile(void);

/**
 * Sets the device's description: six texts of at most 31 characters. Set after mup_log_usr_init, it is written by the
 * next save. Set before, it is kept, but the start clears `dirty`: it is written with the next change of the user ring.
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
 * Empties the user ring. The next save leaves the description alone in its file.
 *
 * @retval 0  Done.
 * @retval 1  Not initialised.
 */
TARN_API mu_status_t mup_log_usr_clean(void);

/**
 * Copies a log file, as it was last saved, with its times turned from UTC into local time (localtime_r: of the zone
 * that the process last set). Lines that are no records, such as those of the description, are copied as they are.
 * Lines are taken in pieces of at most 319 bytes. Holds the log mutex meanwhile.
 *
 * @param[in] out_path     The copy; overwritten. Created empty when the log file alone cannot be opened.
 * @param[in] which        0: the system log; any other value: the user log.
 * @param[in] module       Null for every record, else a module's name, at most 32 characters: only lines that hold
 *                         "]NAME:" and,
 * @param[in] level_count  anywhere in the line, the name of one of the first `level_count` levels; 0 for no record at
 *                         all, 9 and above for every level. Without `module` it is ignored.
 * @retval 0  Done. Deliberate: also when a file could not be opened ("open file fail \n").
 * @retval 1  Not initialised.
 * @retval 2  `out_path` is null (assertion message), or `module` is too long.
 */
TARN_API mu_status_t mup_log_file_get(const char *out_path, int8_t which, const char *module, uint8_t level_count);

/**
 * Deletes "/overlay/mu_log.txt" and "/overlay/user_log.txt" and prints "remove the log file \n". The rings stay: the
 * next save of a changed ring makes its file again. Takes no lock.
 *
 * @return 0, always.
 */
TARN_API mu_status_t mup_log_file_remove(void);

/**
 * The kernel bridge: a thread body that reads "/proc/kmsg" for the life of the process and logs each framed message
 * in it, "<jxlog-MM?L?TEXT<jxlog>" with the module in two digits and the level in one, as "TEXT\n" with
 * MUP_LOG_NOPRINT: kept and forwarded, never shown. Other text is dropped. More than 512 bytes that wait for the end of
 * a frame are logged as one message of module 3, level 7. Start it after mup_log_usr_init:
 *
 *     sem_t started;
 *     pthread_t bridge;
 *     sem_init(&started, 0, 0);
 *     mu_thread_create(&bridge, "klog", log_msg_process, &started, 0, 0, 0);  // and, if that gave 0:
 *     pthread_detach(bridge);
 *     sem_wait(&started);
 *
 * Reads at pauses of 100 ms; the right to read "/proc/kmsg" is the caller's to have (root, or CAP_SYSLOG). Allocates
 * nothing.
 *
 * @param[in] started  A sem_t, posted once as soon as the thread runs; it may go when the wait for it is over. Null
 *                     for none.
 * @return Null, when the messages are left to the system's own daemon ("/overlay/klogd" exists: "Klogd enable!!\n") or
 *         "/proc/kmsg" cannot be opened ("Open kmsg fail! \n"). Otherwise it does not return.
 */
TARN_API void *log_msg_process(void *started);

/**
 * Passes a module's changed setting on to the kernel: opens "/dev/mulog-ioctl-dev", issues request 0x4300 with a
 * message of 256 bytes, closes it. Without the device it prints "Device open failure /dev/mulog-ioctl-dev\n"; a refused
 * request is not reported. This is the level hook that mup_log_usr_init installs. Takes no lock.
 *
 * @param[in] module_index  The module's id.
 * @param[in] type          See mup_log_setting; passed on as it is,
 * @param[in] value         as is this.
 */
TARN_API void mup_log_kern_level_set(uint8_t module_index, uint8_t type, uint8_t value);

TARN_END_DECLS

#endif
