/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * Events: a registry of numbered event types with subscribers, and the channel that brings the kernel's events.
 *
 * The registry. Each type has a list of callbacks, two counters and the state of its suppression. mu_event_send calls
 * all subscribers of a type, unless the type is suppressed. With suppression on, time is divided into windows, and at
 * most `threshold` occurrences are delivered in a window. The next one begins suppression: it and all later ones are
 * dropped until suppression ends. A circular timer of MU_EVENT_POLL_MS advances the windows (mu_event_poll).
 *
 * The channel. mup_plat_event_init starts a registry of MUP_EVENT_NUM types, and a thread that receives the kernel's
 * events from a netlink socket and sends each to the registry. The configuration calls of that registry are forwarded
 * to the kernel through MU_PAL_DEVICE. docs/events.md shows the whole path, and the layouts byte by byte.
 *
 * Holds for the whole header:
 * - Results: 0 success, -1 failure; a call that is refused changes nothing.
 * - A type is in range when the registry is initialised and the type is less than `max_event_num`. Deliberate: for
 *   functions whose type is signed, a negative type is in range: they use memory before the table as its record, or
 *   forward it. Never pass a negative type. Functions whose type is unsigned refuse it.
 * - Unless a function says what null does, its pointers must not be null; this is not checked.
 * - Numbers in messages and headers are in host byte order.
 * - The lock "EVENT_LOCK" is held while callbacks, the send hook and the configuration handler run. It is not
 *   recursive: none of them may call a function that takes it. These are all functions of the registry except
 *   mu_event_compare, mu_event_suprs_attach and mu_event_dump. No callback, hook or handler may throw, longjmp or end
 *   its thread. No thread may be cancelled (pthread_cancel) while it holds the lock: it would stay locked for ever.
 * - Every function may be called from any thread. A call of mu_event_init or mup_plat_event_init must not race with
 *   another call of either. If the lock could not be made, there is none, and nothing is guarded.
 * - Delivering allocates nothing. Functions print only what their text says, to standard output.
 * - The socket and the device are opened close-on-exec: programs that the process starts do not inherit them.
 * - After fork(2) the child has the registry and the socket, but neither the event thread nor the polling timer: no
 *   kernel event arrives, no suppression ends, and `evt_flag` prevents a second start. Start after fork, and after
 *   daemon(3): it forks, which changes the parent, whose id is the port.
 * - No function stops the service: table, lock, timer, thread and socket exist as long as the process.
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
 * @param[in] type       The event type. A negative type arrives as its value plus 2^32.
 * @param[in] data       As it was sent. It belongs to the sender and is valid during the call.
 * @param[in] len        As it was sent. For the kernel's events it is the length that the datagram claims: see
 *                       remote_event_process.
 * @param[in] reserved   Always 0.
 * @return Ignored.
 */
typedef int (*mu_event_cb_t)(uint16_t device_id, uint32_t type, void *data, uint32_t len, uint64_t reserved);

/** Sees every occurrence that is delivered, before its subscribers. The result is ignored. */
typedef int (*mu_event_hook_t)(uint16_t device_id, uint32_t type, void *data, uint32_t len);

/** Called when suppression begins or ends, with the cookie of mu_event_suprs_attach; the lock is held. */
typedef void (*mu_event_suprs_cb_t)(uint64_t cookie);

/** Settings of a type's suppression. */
typedef struct mu_event_cfg {
  uint32_t suprs_en;  /**< 0 off, else on. */
  uint32_t threshold; /**< Occurrences that are delivered in one window; with 0 even the first is dropped. */
  uint32_t period;    /**< Milliseconds; in effect 50 times as long: see mu_event_set. */
} mu_event_cfg_t;

/** Operations of the event configuration message. */
enum mu_event_op {
  MU_EVENT_OP_COUNTER_GET = 0,       /**< Sets `op`, `type`, `clear`; reads `count` back. */
  MU_EVENT_OP_COUNTER_CLEAR = 1,     /**< Sets `op`, `type`. */
  MU_EVENT_OP_COUNTER_CLEAR_ALL = 2, /**< Sets `op`. */
  MU_EVENT_OP_SET = 3,               /**< Sets `op`, `type` and the configuration. */
  MU_EVENT_OP_GET = 4,               /**< Sets `op`, `type`, the caller's configuration; reads the configuration
                                          back. */
  MU_EVENT_OP_DUMP = 5               /**< Sets `op`, and `type` and the device id to 0. */
};

/** The message that a configuration handler gets. Bytes that mu_event_op does not list for `op` are 0. */
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
 * Handles the configuration calls, which then do not use the table. It writes its answer into the message; its result
 * is ignored. The lock is held, except for a dump.
 */
typedef int (*mu_event_cfg_handler_t)(uint16_t device_id, mu_event_msg_t *msg);

/** One subscriber: the record of a node of `mu_event_rec::cb_list`. */
typedef struct mu_event_subscriber {
  uint32_t type;    /**< The type that it subscribed to. */
  mu_event_cb_t cb; /**< Its identity. */
} mu_event_subscriber_t;

/** One event type. Guarded by the lock, which mu_event_suprs_attach and mu_event_dump do not take. */
typedef struct mu_event_rec {
  uint8_t registered;              /**< 1 while there are subscribers. Nothing reads it. */
  uint8_t suprs_en;                /**< 1: suppression is on. */
  uint8_t suprs_s;                 /**< 1 while the type is suppressed. */
  uint32_t type;                   /**< The type's number after mu_event_suprs_attach was called for it; 0 before. */
  uint32_t count;                  /**< Occurrences that were delivered. */
  uint32_t suprs_cnt;              /**< Occurrences that suppression dropped. */
  uint32_t threshold;              /**< Occurrences that are delivered in one window. */
  uint32_t period_cnt;             /**< Occurrences that were delivered in the current window. */
  uint32_t period;                 /**< Length of a window in polls: the configured milliseconds, in 10 ms units. */
  uint32_t tick;                   /**< Polls in the current window. */
  mu_list_t *cb_list;              /**< The subscribers (mu_event_subscriber_t). Null: none can be added. */
  mu_event_suprs_cb_t release_cb;  /**< Called when suppression ends, and by mu_event_set; may be null. */
  mu_event_suprs_cb_t suppress_cb; /**< Called when suppression begins; may be null. */
  uint64_t cookie;                 /**< Passed to both. */
  uint64_t reserved;               /**< 0. */
} mu_event_rec;

/** The state of the registry. Read it under its lock; only the functions write to it. */
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
 * Deliberate: a second call is not refused. It makes a new registry, and does not release the first one's table and
 * lock, nor stop its timer.
 *
 * @param[in] max_event_num  Number of types.
 * @param[in] send_hook      Null for none.
 * @param[in] cfg_handler    Handles the counter and configuration calls and the dump; null for none.
 * @retval 0   Done. If the timer could not be made, "Create event polling timer failed\n" is printed (after the timer
 *             service's message), and suppression never ends. If the list of a type could not be made,
 *             "Create event %d cb_list failed\n" is printed with the type, and that type accepts no subscribers.
 * @retval -1  `max_event_num` is 0; `glb_evt` is unchanged.
 * @retval -1  No memory for the table, or `max_event_num` is negative or above 29826161, whose table would exceed
 *             2147483647 bytes; `glb_evt` is all zero.
 */
TARN_API mu_status_t mu_event_init(int max_event_num, mu_event_hook_t send_hook, mu_event_cfg_handler_t cfg_handler);

/**
 * Adds a subscriber to `type`. Subscribers are called in the order of their registration. A subscriber is identified
 * only by its pointer; if it is already registered, nothing changes.
 *
 * @param[in] device_id  Not used.
 * @retval 0   Added, or already there. Deliberate: also when memory ran out or the type has no list; then nothing was
 *             added.
 * @retval -1  `cb` is null, or `type` is out of range (unsigned).
 */
TARN_API mu_status_t mu_event_register(uint16_t device_id, uint32_t type, mu_event_cb_t cb);

/**
 * Removes a subscriber.
 *
 * @param[in] device_id  Not used.
 * @retval 0   Removed, or not there. A null `cb` is never there.
 * @retval -1  `type` is out of range (unsigned).
 */
TARN_API mu_status_t mu_event_deregister(uint16_t device_id, uint32_t type, mu_event_cb_t cb);

/**
 * Compares the leading uint32_t, the type, of two subscribers, unsigned. Locks nothing. It is the compare callback of
 * the lists of subscribers, which the registry itself never queries.
 *
 * @retval 1   The type of `a` is greater.
 * @retval 0   The types are equal.
 * @retval -1  The type of `a` is smaller.
 */
TARN_API int32_t mu_event_compare(const void *a, const void *b);

/**
 * Delivers one occurrence: calls the send hook, then every subscriber, then counts it.
 *
 * With suppression on, an occurrence of a suppressed type is dropped. If `threshold` occurrences have been delivered in
 * the current window, the next one is dropped too: it begins suppression and calls `suppress_cb`. Dropped occurrences
 * are counted in `suprs_cnt`.
 *
 * @param[in] data  Passed on with `len`; never read.
 * @retval 0   Delivered, even if there is no subscriber.
 * @retval -1  Dropped, or `type` is out of range (signed), as every type is before mu_event_init.
 */
TARN_API mu_status_t mu_event_send(uint16_t device_id, int type, void *data, uint32_t len);

/**
 * Sets the callbacks for the begin and the end of a type's suppression. Resets the type: its counters, its settings
 * (suppression is off) and its window. Call it before any other use of the type; it takes no lock.
 *
 * Deliberate: the type permanently loses its list of subscribers. They are no longer called; a later mu_event_register
 * returns 0 and sets `registered`, but adds nothing; only the send hook gets the type's occurrences.
 *
 * @param[in] release_cb   Called when suppression ends and by mu_event_set. Null only together with `suppress_cb`.
 * @param[in] suppress_cb  Called when suppression begins. Null only together with `release_cb`.
 * @param[in] cookie       Passed to both.
 * @retval 0   Done.
 * @retval -1  `type` is out of range (signed), or only one of the callbacks is null.
 */
TARN_API mu_status_t mu_event_suprs_attach(int type, mu_event_suprs_cb_t release_cb, mu_event_suprs_cb_t suppress_cb,
                                           uint64_t cookie);

/**
 * Reads the count of a type's delivered occurrences.
 *
 * @param[in]  device_id  For the configuration handler.
 * @param[out] count      Not null. Set to 0 first, even when `type` is out of range.
 * @param[in]  clear      Not 0: sets the count to 0 after reading.
 * @retval 0   Read by the configuration handler.
 * @retval -1  `type` is out of range (unsigned). Deliberate: also when the value was read from the table. Without a
 *             configuration handler, `*count` is valid although the result is -1, if `type` is in range.
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
 * Configures a type's suppression, sets its count of dropped occurrences to 0 and calls its `release_cb`. The state
 * `suprs_s`, the window and the count of delivered occurrences do not change.
 *
 * Deliberate: the period is stored in 10 ms units (1 for a value of at most 10, else truncated: 25 is stored as 2), but
 * counted in polls of MU_EVENT_POLL_MS. A window therefore takes 50 times the period: 1000 ms make 100 polls, 50
 * seconds.
 *
 * @param[in] device_id  For the configuration handler. If there is one, the call is only forwarded.
 * @retval 0   Done, or forwarded.
 * @retval -1  `cfg` is null, or `type` is out of range (signed).
 */
TARN_API mu_status_t mu_event_set(uint16_t device_id, int type, const mu_event_cfg_t *cfg);

/**
 * Reads what mu_event_set configured.
 *
 * @param[in]     device_id  For the configuration handler.
 * @param[in,out] cfg        Without a handler: `suprs_en` 0 or 1, and the stored period: 10 for 5, 20 for 25. A handler
 *                           gets the current content, and its answer replaces it.
 * @retval 0   Done, or forwarded.
 * @retval -1  `cfg` is null, or `type` is out of range (signed); `*cfg` is unchanged.
 */
TARN_API mu_status_t mu_event_get(uint16_t device_id, int type, mu_event_cfg_t *cfg);

/**
 * Prints the table of types, one row per type, or lets the configuration handler do it. Takes no lock: the values of a
 * row may be from different moments. Before mu_event_init the table has no rows.
 */
TARN_API void mu_event_dump(void);

/**
 * Does one poll of the suppression windows; the polling timer calls it on the timer thread. For each type with
 * suppression on it counts a poll. In the poll that completes the period, it ends the suppression and calls
 * `release_cb`; for a type that is not suppressed, it begins a new window.
 *
 * Deliberate: the poll that ends a suppression does not begin a new window. An occurrence before the next poll begins
 * suppression again; if there is none, the next poll begins the new window. In a steady stream, each poll ends the
 * suppression, and the next occurrence begins it again; nothing is delivered until one whole interval passes without an
 * occurrence.
 */
TARN_API void mu_event_poll(void);

/* ---- The channel ----------------------------------------------------------------------------------------------- */

/** The platform's device, and the netlink protocol of its events. */
#define MU_PAL_DEVICE "/dev/mu_pal_ioctl"
#define MU_PAL_NETLINK 19

#define MU_PAL_IOCTL_BASE 0x4300 /**< The request code is this value, or-ed with the command. */
#define MU_PAL_PAYLOAD_MAX 4072  /**< Bytes of payload after the header of an argument, at most. */
#define MU_PAL_DATAGRAM_MAX 2048 /**< Bytes of a datagram that are received, at most. */
#define MUP_EVENT_NUM 20         /**< Types of the registry that mup_plat_event_init starts. */

/** Commands of the device. */
enum mu_pal_cmd {
  MU_PAL_EVENT_CFG = 1, /**< Payload: a mu_event_msg_t, which is answered in place. `length` 32, `device_id`. */
  MU_PAL_EVENT_DEST = 2 /**< No payload. `length` 0, `destination`. */
};

/** Every argument of the device and every datagram of the kernel starts with these 24 bytes; the payload follows. */
typedef struct mu_pal_hdr {
  uint16_t reserved0;    /**< 0. */
  uint16_t length;       /**< Bytes of the payload. */
  uint16_t reserved4;    /**< 0. */
  uint16_t event_type;   /**< Datagrams only: the event type. */
  uint16_t reserved8;    /**< 0. */
  uint16_t device_id;    /**< The device that the event or the command is about. */
  uint8_t reserved12[8]; /**< 0. */
  uint32_t destination;  /**< MU_PAL_EVENT_DEST only: the netlink port that shall receive events. */
} mu_pal_hdr_t;

TARN_STATIC_ASSERT(offsetof(mu_pal_hdr_t, length) == 2 && offsetof(mu_pal_hdr_t, event_type) == 6 &&
                       offsetof(mu_pal_hdr_t, device_id) == 10 && offsetof(mu_pal_hdr_t, destination) == 20 &&
                       sizeof(mu_pal_hdr_t) == 24,
                   "platform header layout");

/** 1 once mup_plat_event_init has run, else 0. */
TARN_API extern uint32_t evt_flag;

/** The netlink port of the process's events: the id of its parent process. Written by the event thread. */
TARN_API extern int32_t evt_dest;

/**
 * Passes a command to the kernel. Each call opens and closes the device. Keeps no state.
 *
 * @param[in]     cmd  See mu_pal_cmd; or-ed into the request code.
 * @param[in,out] arg  A mu_pal_hdr_t and its payload, at any address, with enough room for the command's answer.
 * @return The result of ioctl; -1 is printed as "Can not run command '%d', ret=%d.\n" with `cmd` and -1.
 * @retval -1  `arg` is null (nothing is printed), its `length` is above MU_PAL_PAYLOAD_MAX ("ioctl: input param is too
 *             long.\n"), or the device cannot be opened ("Device open failure /dev/mu_pal_ioctl\n").
 */
TARN_API int mu_pal_ioctl(uint32_t cmd, void *arg);

/** Sets the netlink port to which the kernel sends events. A failure shows only in mu_pal_ioctl's message. */
TARN_API void mu_event_dest_set(uint32_t port);

/**
 * Forwards an event configuration message to the kernel: the configuration handler that mup_plat_event_init installs.
 *
 * @param[in,out] msg  Not null. Receives the kernel's answer; unchanged when the device fails.
 * @return 0, always, so that configuration calls without the device succeed: the failure shows only in mu_pal_ioctl's
 *         message.
 */
TARN_API int mup_event_cfg_forward(uint16_t device_id, mu_event_msg_t *msg);

/**
 * Applies an event configuration message, which a configuration handler has forwarded, to the registry. It is for
 * processes without a configuration handler; with one, the message would be forwarded again.
 *
 * @param[in,out] msg  Receives the answer: `count`, or the configuration.
 * @return The result of the function that `op` names: -1 for MU_EVENT_OP_COUNTER_GET, with `count` filled in. 0 for
 *         MU_EVENT_OP_DUMP.
 * @retval -1  `msg` is null, or its `op` is above 5.
 */
TARN_API int event_cfg_set(uint16_t device_id, mu_event_msg_t *msg);

/**
 * The body of the event thread: opens the netlink socket, reports its port to the kernel and binds it. Then it sends
 * each datagram that arrives to the registry: device id, type and length from the header, unchecked, and the data at
 * byte 24 of an 8-byte aligned buffer. The port is the id of the parent process. The thread waits in select, without a
 * timeout. If a wait fails, but not because of a signal, a pause of 100 ms follows. The wait fails permanently only if
 * the program closes the socket, which it must not do.
 *
 * A datagram of less than 24 bytes is ignored. Deliberate: the length is not compared with the received size.
 * Subscribers may get a length of up to 65535 for a buffer of 2024 bytes, and must check it. Deliberate: a failed
 * receive is treated like a full buffer: the buffer's content is sent again (initially zeros: type 0, device 0, no
 * data).
 *
 * The sender of a datagram is not checked. The kernel's driver must exclude other senders: its netlink protocol must
 * not allow senders without privileges to send to processes (no NL_CFG_F_NONROOT_SEND).
 *
 * Two daemons of one parent have the same port, and the second bind fails. This includes all daemons with a parent id
 * of 1, whose parent has ended or is the init process. If the parent id is 0 (the parent is outside of the process's
 * PID namespace), the driver gets the port 0, but the kernel chooses another one: no events arrive.
 *
 * @return Null, and only when the channel cannot be set up. Without a socket it prints
 *         "!Create pkt_evt channel failed::\n" through perror, to standard error; if the bind fails, "bind socket
 *         failed(%d).\n" with errno.
 */
TARN_API void *remote_event_process(void);

/**
 * Starts the channel: the event thread, then a registry of MUP_EVENT_NUM types without a send hook whose configuration
 * calls are forwarded to the kernel. Prints "mu-event: init OK (max_event_num %d)\n" with MUP_EVENT_NUM. Every further
 * call does nothing. Events that arrive before the registry is ready are dropped.
 *
 * The thread has a stack of 32768 bytes, or of the system's default size if 32768 is below the system's minimum (64-bit
 * Arm). Its scheduling policy is SCHED_RR with priority 80. Callbacks for kernel events run on it: they must be short
 * and use little stack.
 *
 * Deliberate: no result is checked. A process without the right to SCHED_RR gets no event thread, and no message says
 * so: grant it CAP_SYS_NICE, or an RLIMIT_RTPRIO of at least 80. If memory runs out, no registry is made.
 */
TARN_API void mup_plat_event_init(void);

TARN_END_DECLS

#endif
