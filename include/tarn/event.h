/**
 * @file
 * Events: a registry of numbered event types with subscribers, and the channel that brings the kernel's events.
 *
 * The registry. Each type has a list of callbacks, two counters and the state of its suppression. mu_event_send calls
 * all subscribers of a type, unless the type is suppressed: with suppression on, a type has windows, and `threshold`
 * occurrences are delivered in a window; the next one begins suppression and is dropped, as are those that follow. A
 * circular timer of MU_EVENT_POLL_MS advances the windows (mu_event_poll).
 *
 * The channel. mup_plat_event_init starts a registry of MUP_EVENT_NUM types, and a thread that receives the kernel's
 * events from a netlink socket and sends each to the registry. The configuration calls of that registry are forwarded
 * to the kernel through MU_PAL_DEVICE. docs/events.md shows the whole road, and the layouts byte by byte.
 *
 * Holds for the whole header:
 * - Results: 0 success, -1 failure; nothing is changed by a call that is refused.
 * - A type is in range when the registry is initialised and the type is less than `max_event_num`. Deliberate: some
 *   functions take the type signed, and for these a negative type is in range: it addresses the record that many places
 *   before the table, unchecked, or is forwarded. Never pass one. The others take it unsigned and refuse it.
 * - A pointer must not be null unless its function says what null does: it is not checked.
 * - Numbers in messages and headers are in host byte order.
 * - The lock "EVENT_LOCK" is held while callbacks, the send hook and the configuration handler run. It is not
 *   recursive: none of them may call a function of the registry that takes it, which are all but mu_event_compare,
 *   mu_event_suprs_attach and mu_event_dump. None may throw, longjmp or end its thread. No thread may be
 *   cancelled (pthread_cancel) meanwhile: the lock would stay locked for ever.
 * - Every function may be called from any thread, but for mu_event_init and mup_plat_event_init, whose call must not
 *   race with another call of theirs. A lock that could not be made is no lock: then nothing is guarded.
 * - Delivering allocates nothing. Nothing is printed but what a function says, on standard output.
 * - The socket and the device are opened close-on-exec: no program that the process starts gets them.
 * - After fork(2) the child has the registry and the socket, but neither the event thread nor the polling timer: no
 *   kernel event arrives, no suppression ends, and `evt_flag` lets no second start happen. Start after fork, and after
 *   daemon(3), which forks and so changes the parent whose id is the port.
 * - There is no stop: table, lock, timer, thread and socket live as long as the process.
 */
#ifndef TARN_EVENT_H
#define TARN_EVENT_H

#include "tarn/containers.h"
#include "tarn/types.h"

TARN_BEGIN_DECLS

/* ---- The registry: types --------------------------------------------------------------------------------------- */

/** Milliseconds between two polls. */
#define MU_EVENT_POLL_MS 500

/**
 * A subscriber. It runs on the thread that sends, with the lock held.
 *
 * @param[in] device_id  As it was sent.
 * @param[in] type       The event type; a negative one arrives as 2^32 plus it.
 * @param[in] data       As it was sent: the sender's, valid during the call.
 * @param[in] len        As it was sent. For the kernel's events it is what the datagram claims: see
 *                       remote_event_process.
 * @param[in] reserved   Always 0.
 * @return Ignored.
 */
typedef int (*mu_event_cb_t)(uint16_t device_id, uint32_t type, void *data, uint32_t len, uint64_t reserved);

/** Sees every occurrence that is delivered, before its subscribers. The result is ignored. */
typedef int (*mu_event_hook_t)(uint16_t device_id, uint32_t type, void *data, uint32_t len);

/** Told of the begin or of the end of suppression, with the cookie of mu_event_suprs_attach; the lock is held. */
typedef void (*mu_event_suprs_cb_t)(uint64_t cookie);

/** Settings of a type's suppression. */
typedef struct mu_event_cfg {
  uint32_t suprs_en;  /**< 0 off, else on. */
  uint32_t threshold; /**< Occurrences that are delivered in one window; with 0 the first is dropped already. */
  uint32_t period;    /**< Milliseconds; 50 times as long in effect: see mu_event_set. */
} mu_event_cfg_t;

/** Operations of the event configuration message. */
enum mu_event_op {
  MU_EVENT_OP_COUNTER_GET = 0,       /**< Sets `op`, `type`, `clear`; reads `count` back. */
  MU_EVENT_OP_COUNTER_CLEAR = 1,     /**< Sets `op`, `type`. */
  MU_EVENT_OP_COUNTER_CLEAR_ALL = 2, /**< Sets `op`. */
  MU_EVENT_OP_SET = 3,               /**< Sets `op`, `type` and the configuration. */
  MU_EVENT_OP_GET = 4,               /**< Sets `op`, `type` and the caller's configuration; reads that back. */
  MU_EVENT_OP_DUMP = 5               /**< Sets `op`, and `type` and the device id to 0. */
};

/** The event configuration message: what a configuration handler is given. The bytes that `op` does not name are 0. */
typedef struct mu_event_msg {
  uint32_t op;        /**< See mu_event_op. */
  uint32_t type;      /**< Event type. */
  uint32_t reserved;  /**< Never used. */
  uint32_t suprs_en;  /**< This and the next two: the configuration, 12 bytes as in mu_event_cfg_t. */
  uint32_t threshold; /**< See mu_event_cfg_t. */
  uint32_t period;    /**< Milliseconds. */
  uint32_t count;     /**< The counter's value: the handler's answer to MU_EVENT_OP_COUNTER_GET. */
  uint32_t clear;     /**< Not 0: clear the counter after reading. */
} mu_event_msg_t;

/**
 * Takes over the configuration calls. It works on the message in place, and its result is ignored. The lock is held,
 * but not for a dump.
 */
typedef int (*mu_event_cfg_handler_t)(uint16_t device_id, mu_event_msg_t *msg);

/** One subscriber: the record of a node of `mu_event_rec::cb_list`. */
typedef struct mu_event_subscriber {
  uint32_t type;    /**< The type that it subscribed to. */
  mu_event_cb_t cb; /**< Its identity. */
} mu_event_subscriber_t;

/** One event type. Guarded by the lock; mu_event_suprs_attach and mu_event_dump take none. */
typedef struct mu_event_rec {
  uint8_t registered;              /**< 1 while there are subscribers. Nothing reads it. */
  uint8_t suprs_en;                /**< 1: suppression is on. */
  uint8_t suprs_s;                 /**< 1 while the type is suppressed. */
  uint32_t type;                   /**< The type's number once mu_event_suprs_attach was called for it, before 0. */
  uint32_t count;                  /**< Occurrences that were delivered. */
  uint32_t suprs_cnt;              /**< Occurrences that suppression dropped. */
  uint32_t threshold;              /**< Occurrences that are delivered in one window. */
  uint32_t period_cnt;             /**< Occurrences that were delivered in the current window. */
  uint32_t period;                 /**< Length of a window in polls: the configured milliseconds, in 10 ms units. */
  uint32_t tick;                   /**< Polls in the current window. */
  mu_list_t *cb_list;              /**< The subscribers (mu_event_subscriber_t); null: none, and none can be added. */
  mu_event_suprs_cb_t release_cb;  /**< Called when suppression ends, and by mu_event_set; may be null. */
  mu_event_suprs_cb_t suppress_cb; /**< Called when suppression begins; may be null. */
  uint64_t cookie;                 /**< Passed to both. */
  uint64_t reserved;               /**< 0. */
} mu_event_rec;

/** The state of the registry. Read it under its lock; leave the writing to the functions. */
typedef struct mu_event_state {
  uint32_t inited;                    /**< 1 once mu_event_init is done. */
  int32_t max_event_num;              /**< Number of types; their numbers run from 0. */
  mu_mutex_t lock;                    /**< "EVENT_LOCK"; null if it could not be made. */
  uint32_t poll_timer;                /**< Id of the polling timer; 0 if it could not be made. */
  mu_event_hook_t send_hook;          /**< May be null. */
  mu_event_cfg_handler_t cfg_handler; /**< Null: the configuration calls act on the table. */
  mu_event_rec *events;               /**< The table, by type. */
} mu_event_state_t;

TARN_STATIC_ASSERT(sizeof(mu_event_cfg_t) == 12 && offsetof(mu_event_cfg_t, threshold) == 4 &&
                       offsetof(mu_event_cfg_t, period) == 8,
                   "event configuration layout");
TARN_STATIC_ASSERT(offsetof(mu_event_msg_t, type) == 4 && offsetof(mu_event_msg_t, reserved) == 8 &&
                       offsetof(mu_event_msg_t, suprs_en) == 12 && offsetof(mu_event_msg_t, threshold) == 16 &&
                       offsetof(mu_event_msg_t, period) == 20 && offsetof(mu_event_msg_t, count) == 24 &&
                       offsetof(mu_event_msg_t, clear) == 28 && sizeof(mu_event_msg_t) == 32,
                   "event configuration message layout");
TARN_STATIC_ASSERT(offsetof(mu_event_subscriber_t, cb) == 8 && sizeof(mu_event_subscriber_t) == 16,
                   "subscriber layout");
TARN_STATIC_ASSERT(offsetof(mu_event_rec, suprs_en) == 1 && offsetof(mu_event_rec, suprs_s) == 2 &&
                       offsetof(mu_event_rec, type) == 4 && offsetof(mu_event_rec, count) == 8 &&
                       offsetof(mu_event_rec, suprs_cnt) == 12 && offsetof(mu_event_rec, threshold) == 16 &&
                       offsetof(mu_event_rec, period_cnt) == 20 && offsetof(mu_event_rec, period) == 24 &&
                       offsetof(mu_event_rec, tick) == 28 && offsetof(mu_event_rec, cb_list) == 32 &&
                       offsetof(mu_event_rec, release_cb) == 40 && offsetof(mu_event_rec, suppress_cb) == 48 &&
                       offsetof(mu_event_rec, cookie) == 56 && offsetof(mu_event_rec, reserved) == 64 &&
                       sizeof(mu_event_rec) == 72,
                   "event record layout");
TARN_STATIC_ASSERT(offsetof(mu_event_state_t, max_event_num) == 4 && offsetof(mu_event_state_t, lock) == 8 &&
                       offsetof(mu_event_state_t, poll_timer) == 16 && offsetof(mu_event_state_t, send_hook) == 24 &&
                       offsetof(mu_event_state_t, cfg_handler) == 32 && offsetof(mu_event_state_t, events) == 40 &&
                       sizeof(mu_event_state_t) == 48,
                   "event state layout");

/* ---- The registry: functions ----------------------------------------------------------------------------------- */

/** The one registry of the process; all zero before mu_event_init. */
TARN_API extern mu_event_state_t glb_evt;

/**
 * Initialises the registry, with suppression off for every type, and starts the polling timer.
 *
 * Deliberate: a second call is not refused. It starts anew, and abandons the table, the lock and the running timer of
 * the first.
 *
 * @param[in] max_event_num  Number of types.
 * @param[in] send_hook      Null for none.
 * @param[in] cfg_handler    Takes over the counter and configuration calls and the dump; null for none.
 * @retval 0   Done. A timer that could not be made prints "Create event polling timer failed\n" (behind what the timer
 *             service prints): suppression then never ends. A list prints "Create event %d cb_list failed\n" with its
 *             type: that type takes no subscribers.
 * @retval -1  `max_event_num` is 0; `glb_evt` is unchanged.
 * @retval -1  No memory for the table, or `max_event_num` is negative or above 29826161, whose table would pass
 *             2147483647 bytes; `glb_evt` is all zero.
 */
TARN_API mu_status_t mu_event_init(int max_event_num, mu_event_hook_t send_hook, mu_event_cfg_handler_t cfg_handler);

/**
 * Adds a subscriber behind those that `type` has: they are called in the order of their registration. One that is
 * there already stays as it is; what tells subscribers apart is their pointer alone.
 *
 * @param[in] device_id  Not used.
 * @retval 0   Added, or there already. Deliberate: also when there was no memory, or the type has no list; then nothing
 *             was added.
 * @retval -1  `cb` is null, or `type` is out of range (unsigned).
 */
TARN_API mu_status_t mu_event_register(uint16_t device_id, uint32_t type, mu_event_cb_t cb);

/**
 * Removes a subscriber.
 *
 * @param[in] device_id  Not used.
 * @retval 0   Removed, or not there; a null `cb` never is.
 * @retval -1  `type` is out of range (unsigned).
 */
TARN_API mu_status_t mu_event_deregister(uint16_t device_id, uint32_t type, mu_event_cb_t cb);

/**
 * Compares the leading uint32_t, the type, of two subscribers, unsigned. Locks nothing. It is the compare callback of
 * the lists of subscribers, which the registry itself never queries.
 *
 * @retval 1   That of `a` is greater.
 * @retval 0   Equal.
 * @retval -1  It is smaller.
 */
TARN_API int32_t mu_event_compare(const void *a, const void *b);

/**
 * Delivers one occurrence: calls the send hook, then every subscriber, then counts it.
 *
 * With suppression on, an occurrence of a suppressed type is dropped; so is one that finds `threshold` delivered in the
 * current window, which begins suppression and calls `suppress_cb`. Both are counted in `suprs_cnt`.
 *
 * @param[in] data  Passed on, as is `len`; never looked at.
 * @retval 0   Delivered, be it to nobody.
 * @retval -1  Dropped, or `type` is out of range (signed): events before mu_event_init are dropped so.
 */
TARN_API mu_status_t mu_event_send(uint16_t device_id, int type, void *data, uint32_t len);

/**
 * Sets the callbacks that are told of a type's suppression, and resets the type: its counters, its settings
 * (suppression is off) and its window. Call it before anything else is done with the type; it takes no lock.
 *
 * Deliberate: the type loses its list of subscribers for good. Those that it had are no longer called; a later
 * mu_event_register gives 0 and sets `registered`, but adds nothing; only the send hook sees the type's occurrences.
 *
 * @param[in] release_cb   Called when suppression ends and by mu_event_set. Null only together with `suppress_cb`.
 * @param[in] suppress_cb  Called when suppression begins. Null only together with `release_cb`.
 * @param[in] cookie       Passed to both.
 * @retval 0   Done.
 * @retval -1  `type` is out of range (signed), or one callback alone is null.
 */
TARN_API mu_status_t mu_event_suprs_attach(int type, mu_event_suprs_cb_t release_cb, mu_event_suprs_cb_t suppress_cb,
                                           uint64_t cookie);

/**
 * Reads the count of a type's delivered occurrences.
 *
 * @param[in]  device_id  For the configuration handler.
 * @param[out] count      Not null. Set to 0 first, also when -1 is returned for the type.
 * @param[in]  clear      Not 0: sets the count to 0 after reading.
 * @retval 0   Read by the configuration handler.
 * @retval -1  `type` is out of range (unsigned). Deliberate: also when the value was read from the table; without a
 *             configuration handler -1 does not mean that `*count` is missing.
 */
TARN_API mu_status_t mu_event_counter_get(uint16_t device_id, uint32_t type, uint32_t *count, uint32_t clear);

/**
 * Sets both counters of a type, of delivered and of dropped occurrences, to 0.
 *
 * @param[in] device_id  For the configuration handler.
 * @retval 0   Done, or forwarded.
 * @retval -1  `type` is out of range (unsigned).
 */
TARN_API mu_status_t mu_event_counter_clear(uint16_t device_id, uint32_t type);

/**
 * Sets both counters of every type to 0; before mu_event_init there are none.
 *
 * @param[in] device_id  For the configuration handler.
 * @return 0, always.
 */
TARN_API mu_status_t mu_event_counter_clear_all(uint16_t device_id);

/**
 * Configures a type's suppression, sets its count of dropped occurrences to 0 and calls its `release_cb`. A suppression
 * that is on, the window and the count of delivered occurrences stay as they are.
 *
 * Deliberate: the period is kept in 10 ms units (1 for a value of at most 10, else truncated: 25 is kept as 2), but
 * counted in polls of MU_EVENT_POLL_MS. So a window takes 50 times the period: 1000 ms make 100 polls, 50 seconds.
 *
 * @param[in] device_id  For the configuration handler, which then does all of it.
 * @retval 0   Done, or forwarded.
 * @retval -1  `cfg` is null, or `type` is out of range (signed).
 */
TARN_API mu_status_t mu_event_set(uint16_t device_id, int type, const mu_event_cfg_t *cfg);

/**
 * Reads what mu_event_set configured.
 *
 * @param[in]     device_id  For the configuration handler.
 * @param[in,out] cfg        Without a handler: `suprs_en` 0 or 1, and the period as it is kept: 10 for 5, 20 for 25.
 *                           A handler gets what stands here, and its answer takes the place.
 * @retval 0   Done, or forwarded.
 * @retval -1  `cfg` is null, or `type` is out of range (signed); `*cfg` is unchanged.
 */
TARN_API mu_status_t mu_event_get(uint16_t device_id, int type, mu_event_cfg_t *cfg);

/**
 * Prints the table of types, one row a type, or has the configuration handler do it. Takes no lock, so that a row may
 * be of two moments; before mu_event_init the table has no rows.
 */
TARN_API void mu_event_dump(void);

/**
 * One poll of the suppression windows; the polling timer calls it on the timer thread. For each type with suppression
 * on it counts a poll, and in the poll that completes the period it ends the suppression and calls `release_cb`, or for
 * a type that is not suppressed begins a new window.
 *
 * Deliberate: the poll that ends a suppression does not begin a new window. An occurrence before the next poll begins
 * suppression again; if there is none, that poll begins the new window. Under a steady stream release and suppression
 * alternate with every poll, and nothing is delivered until one whole interval passes without an occurrence.
 */
TARN_API void mu_event_poll(void);

/* ---- The channel ----------------------------------------------------------------------------------------------- */

/** The platform's device, and the netlink protocol of its events. */
#define MU_PAL_DEVICE "/dev/mu_pal_ioctl"
#define MU_PAL_NETLINK 19

#define MU_PAL_IOCTL_BASE 0x4300 /**< The request code is this, or-ed with the command. */
#define MU_PAL_PAYLOAD_MAX 4072  /**< Bytes of payload behind the header of an argument, at most. */
#define MU_PAL_DATAGRAM_MAX 2048 /**< Bytes of a datagram that are received, at most. */
#define MUP_EVENT_NUM 20         /**< Types of the registry that mup_plat_event_init starts. */

/** Commands of the device. */
enum mu_pal_cmd {
  MU_PAL_EVENT_CFG = 1, /**< Payload: a mu_event_msg_t, which is answered in place. `length` 32, `device_id`. */
  MU_PAL_EVENT_DEST = 2 /**< No payload. `length` 0, `destination`. */
};

/** What every argument of the device and every datagram of the kernel starts with; the payload follows at byte 24. */
typedef struct mu_pal_hdr {
  uint16_t reserved0;    /**< 0. */
  uint16_t length;       /**< Bytes of the payload. */
  uint16_t reserved4;    /**< 0. */
  uint16_t event_type;   /**< Datagrams only: the event type. */
  uint16_t reserved8;    /**< 0. */
  uint16_t device_id;    /**< The device that it is about. */
  uint8_t reserved12[8]; /**< 0. */
  uint32_t destination;  /**< MU_PAL_EVENT_DEST only: the netlink port that shall receive events. */
} mu_pal_hdr_t;

TARN_STATIC_ASSERT(offsetof(mu_pal_hdr_t, length) == 2 && offsetof(mu_pal_hdr_t, event_type) == 6 &&
                       offsetof(mu_pal_hdr_t, device_id) == 10 && offsetof(mu_pal_hdr_t, destination) == 20 &&
                       sizeof(mu_pal_hdr_t) == 24,
                   "platform header layout");

/** 1 once mup_plat_event_init has run, else 0. */
TARN_API extern uint32_t evt_flag;

/** The netlink port of the process's events, which is the id of its parent process; written by the event thread. */
TARN_API extern int32_t evt_dest;

/**
 * Has the kernel carry out a command. The device is opened and closed by each call. Keeps no state.
 *
 * @param[in]     cmd  See mu_pal_cmd; or-ed into the request code.
 * @param[in,out] arg  A mu_pal_hdr_t and its payload, at any address, with all the room that the command's answer
 * needs.
 * @return What ioctl returned; -1 is printed as "Can not run command '%d', ret=%d.\n" with `cmd` and -1.
 * @retval -1  `arg` is null (nothing is printed), its `length` is above MU_PAL_PAYLOAD_MAX ("ioctl: input param is too
 *             long.\n"), or the device cannot be opened ("Device open failure /dev/mu_pal_ioctl\n").
 */
TARN_API int mu_pal_ioctl(uint32_t cmd, void *arg);

/** Tells the kernel which netlink port shall receive the events. A failure shows in mu_pal_ioctl's message alone. */
TARN_API void mu_event_dest_set(uint32_t port);

/**
 * Forwards an event configuration message to the kernel: the configuration handler that mup_plat_event_init installs.
 *
 * @param[in,out] msg  Not null. Takes the kernel's answer; when the device fails it stays as it is.
 * @return 0, always, so that configuration calls without the device succeed: the failure shows in mu_pal_ioctl's
 *         message alone.
 */
TARN_API int mup_event_cfg_forward(uint16_t device_id, mu_event_msg_t *msg);

/**
 * Applies an event configuration message to the registry: the receiving end of what a configuration handler forwards.
 * It is for processes without a configuration handler; with one the message would be forwarded again.
 *
 * @param[in,out] msg  Takes the answer: `count`, or the configuration.
 * @return What the function returned that `op` stands for: for MU_EVENT_OP_COUNTER_GET so -1, with `count` filled in.
 *         0 for MU_EVENT_OP_DUMP.
 * @retval -1  `msg` is null, or its `op` is above 5.
 */
TARN_API int event_cfg_set(uint16_t device_id, mu_event_msg_t *msg);

/**
 * The body of the event thread: opens the netlink socket, tells the kernel its port, binds it, and from then on sends
 * each datagram that arrives to the registry: device id, type and length as the header claims them, the data at byte 24
 * of an 8-byte aligned buffer. The port is the id of the parent process. It waits in select, without a timeout. A wait
 * that fails, other than by a signal, is followed by a pause of 100 ms: nothing but a program that closes the socket,
 * which is not its own, makes it fail for good.
 *
 * A datagram of less than 24 bytes is ignored. Deliberate, twice: the length is not compared with what was received,
 * so subscribers get up to 65535 for a buffer of 2024 bytes and must check it; and a failed receive is not told from a
 * full buffer, so that what the buffer holds is sent again (at first zeros: type 0, device 0, no data).
 *
 * The sender of a datagram is not looked at. The kernel's driver must keep the others out: its netlink protocol must
 * not let senders without privileges send to processes (no NL_CFG_F_NONROOT_SEND).
 *
 * A parent id of 1 (a daemon whose parent has ended, or which the init process started) and two daemons of one parent
 * mean the same port twice: the later bind fails. A parent id of 0 (the parent is outside of the process's PID
 * namespace) has the kernel choose another port than the one that the driver is told: no events arrive.
 *
 * @return Null, and only when the channel cannot be set up: without the socket, "!Create pkt_evt channel failed::\n"
 *         through perror, on standard error; when it cannot be bound, "bind socket failed(%d).\n" with errno.
 */
TARN_API void *remote_event_process(void);

/**
 * Starts the channel: the event thread, then a registry of MUP_EVENT_NUM types without a send hook whose configuration
 * calls are forwarded to the kernel. Prints "mu-event: init OK (max_event_num %d)\n" with MUP_EVENT_NUM. Every further
 * call does nothing. Events that arrive before the registry is ready are dropped.
 *
 * The thread has a stack of 32768 bytes, or the system's default where that is below the minimum (64-bit Arm), and the
 * scheduling policy SCHED_RR with priority 80. The registry's callbacks run on it: keep them short and frugal.
 *
 * Deliberate: no result is checked. A process that may not use SCHED_RR gets no event thread, and is not told: grant it
 * CAP_SYS_NICE, or an RLIMIT_RTPRIO of at least 80. Without memory there is no registry.
 */
TARN_API void mup_plat_event_init(void);

TARN_END_DECLS

#endif
