/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * The timer service: one-shot and circular software timers for the whole process, run by one thread.
 *
 * The first mu_timer_add or mu_circle_timer_add starts the service; it runs for the life of the process. Every 10 ms
 * the timer thread scans all timers, subtracts the elapsed ticks from each and runs the callbacks of those that ran
 * out, one after another.
 *
 * Holds for the whole header:
 * - Time is counted in ticks of 10 ms of the monotonic clock. A value of at most 10 ms becomes 1 tick; any other is
 *   divided by 10 and truncated: 15 ms and 19 ms both become one tick.
 * - Every function except mu_timer_compare locks the timer mutex. It may be called from any thread, from callbacks and
 *   while the caller holds its own locks. No thread may be cancelled (pthread_cancel) in one of them: the mutex would
 *   stay locked, and the timers would stop. Two threads must not make the first add of a process at the same time.
 * - Messages go to standard output.
 * - Unless a function says what null does, its pointers must not be null; this is not checked.
 * - After fork(2) the child has the records, but not the thread: timers are accepted and never run, and a mutex that
 *   was held stays locked. Therefore start the service after fork, and after daemon(3), which forks. A child of a
 *   process that has started it must not use it.
 *
 * Two properties of the scan are part of the contract:
 * - The first scan counts the whole value of the monotonic clock, the time since the boot, as elapsed. A timer that was
 *   added before that scan, with an interval of at most that time, therefore runs out in it, about 10 ms after the add.
 * - The run time of the latest callback is added to the elapsed ticks of every scan until another callback runs:
 *   after a callback that took k ticks each scan counts k extra ticks.
 */
#ifndef TARN_TIMER_H
#define TARN_TIMER_H

#include <pthread.h>

#include "tarn/containers.h"
#include "tarn/types.h"

TARN_BEGIN_DECLS

/** The largest number of timers that can exist at one time. */
#define MU_TIMER_MAX 256

/**
 * A timer's callback. It runs on the timer thread with the timer mutex released, so it may call every timer
 * function, even on its own timer. A slow callback delays every other timer. It must not throw, longjmp or end its
 * thread.
 */
typedef void (*mu_timer_cb_t)(void *arg);

/** One timer: the record of a node of `timer_info.list`. The timer mutex guards every field except `running`. */
typedef struct mu_timer_rec {
  uint32_t interval;      /**< Reload value in ticks. */
  uint32_t remain;        /**< Ticks left before the callback runs. */
  mu_timer_cb_t callback; /**< Never null. */
  void *arg;              /**< Passed to `callback`, unchanged. */
  uint32_t type;          /**< 0 one-shot, 1 circular. */
  uint32_t id;            /**< Never 0. */
  uint32_t running;       /**< 1 while `callback` runs. */
  uint32_t deleted;       /**< 1 once deleted; the timer thread frees the timer at its next scan. */
  uint32_t stopped;       /**< 1 while stopped: it neither counts down nor fires. */
  uint32_t drain;         /**< Longest run of `callback` in ticks. */
} mu_timer_rec_t;

/** The state of the service. Read it under its mutex; only the service writes to it. */
typedef struct mu_timer_info {
  mu_list_t *list;            /**< The timers (mu_timer_rec_t) in the order in which they were added. */
  pthread_t tid;              /**< The timer thread. The library gives it no name; docs/timers.md shows how to. */
  mu_mutex_t mutex;           /**< The timer mutex; if it could not be made, null, and nothing is locked. */
  uint32_t max_num;           /**< MU_TIMER_MAX once started, 0 before. */
  uint32_t last_id;           /**< The id that was assigned last. */
  uint32_t last_drain;        /**< Run time of the latest callback in ticks. */
  uint32_t max_drain;         /**< Longest run of any callback in ticks. */
  mu_timer_cb_t max_drain_cb; /**< The callback that took `max_drain`. */
  uint64_t last_tick;         /**< The tick at the end of the latest scan; 0 before the first. */
  uint32_t expired;           /**< Number of expiries since the start. */
} mu_timer_info_t;

TARN_STATIC_ASSERT(offsetof(mu_timer_rec_t, remain) == 4 && offsetof(mu_timer_rec_t, callback) == 8 &&
                       offsetof(mu_timer_rec_t, arg) == 16 && offsetof(mu_timer_rec_t, type) == 24 &&
                       offsetof(mu_timer_rec_t, id) == 28 && offsetof(mu_timer_rec_t, running) == 32 &&
                       offsetof(mu_timer_rec_t, deleted) == 36 && offsetof(mu_timer_rec_t, stopped) == 40 &&
                       offsetof(mu_timer_rec_t, drain) == 44 && sizeof(mu_timer_rec_t) == 48,
                   "timer record layout");
TARN_STATIC_ASSERT(offsetof(mu_timer_info_t, tid) == 8 && offsetof(mu_timer_info_t, mutex) == 16 &&
                       offsetof(mu_timer_info_t, max_num) == 24 && offsetof(mu_timer_info_t, last_id) == 28 &&
                       offsetof(mu_timer_info_t, last_drain) == 32 && offsetof(mu_timer_info_t, max_drain) == 36 &&
                       offsetof(mu_timer_info_t, max_drain_cb) == 40 && offsetof(mu_timer_info_t, last_tick) == 48 &&
                       offsetof(mu_timer_info_t, expired) == 56 && sizeof(mu_timer_info_t) == 64,
                   "timer state layout");

/** The state of the service; all zero before the first add. */
TARN_API extern mu_timer_info_t timer_info;

/** 1 once the service runs, else 0. */
TARN_API extern uint32_t timer_initialized;

/** The kernel thread id of the timer thread, as OS_CURRENT_THREAD returns it; written by the thread when it starts. */
TARN_API extern int64_t tmr_tid;

/**
 * Adds a one-shot timer. Its callback runs once; then the timer is removed, unless the callback itself has started it
 * again with mu_timer_start or mu_timer_restart.
 *
 * @param[in] interval_ms  0 and negative values become one tick.
 * @param[in] callback     Not null.
 * @param[in] arg          Passed to `callback`; stays the caller's.
 * @return The timer's id, never 0; or 0 for a failure. If `callback` is null, nothing is printed. If MU_TIMER_MAX
 *         timers exist (including deleted ones that the thread has not yet freed) or the service could not start,
 *         "Timer number exceed(%d)\n" is printed with the limit; the limit is 0 if the service could not start.
 *         Deliberate: if there is no memory for the timer, the result is still an id, but no such timer exists.
 */
TARN_API uint32_t mu_timer_add(int interval_ms, mu_timer_cb_t callback, void *arg);

/**
 * Adds a circular timer: as mu_timer_add, but the timer gets its full interval again after each callback. If a callback
 * was late, the next period is not shortened.
 */
TARN_API uint32_t mu_circle_timer_add(int interval_ms, mu_timer_cb_t callback, void *arg);

/**
 * Deletes a timer. Its callback does not run again, and the timer thread frees it at its next scan. Until then it
 * counts towards the number of timers, and mu_timer_start or mu_timer_restart bring it back.
 *
 * @retval 1  The callback is running at this moment and ends after this call; the caller is not the timer thread.
 * @retval 0  The callback is not running, or the caller is the timer thread. If there is no such timer, it prints
 *            "Oops: Delete an invalid timer!!\r\n".
 */
TARN_API uint32_t mu_timer_del(uint32_t id);

/**
 * Stops a timer: it keeps its remaining ticks, does not count down, and its callback does not run until it is started
 * again.
 *
 * @return As mu_timer_del; if there is no such timer, "Oops: Stop an invalid timer!!\r\n" is printed.
 */
TARN_API uint32_t mu_timer_stop(uint32_t id);

/**
 * Starts a timer with its full interval. The timer may have been stopped, or deleted and not yet freed. If there is no
 * such timer, nothing is done or printed.
 */
TARN_API void mu_timer_start(uint32_t id);

/**
 * Gives a timer a new interval and starts it as mu_timer_start does.
 *
 * Deliberate: the interval is unsigned here: -1, which is one tick in an add, becomes 429496729 ticks.
 */
TARN_API void mu_timer_restart(uint32_t id, uint32_t interval_ms);

/** The number of timers, including deleted ones that the thread has not yet freed. */
TARN_API uint32_t mu_timer_count(void);

/**
 * Prints the table of timers, one row per timer, then the longest callback run and the number of expiries. Intervals,
 * remaining times and runs ("Drain") are in ticks. The mutex is held for all of it except the header line.
 */
TARN_API void mu_timer_show(void);

/**
 * Compares a timer record's id with a searched id, unsigned. Locks nothing.
 *
 * @param[in] record  A mu_timer_rec_t.
 * @param[in] id      A uint32_t.
 * @retval 1   The record's id is greater.
 * @retval 0   The ids are equal.
 * @retval -1  The record's id is smaller.
 */
TARN_API int32_t mu_timer_compare(const void *record, const void *id);

TARN_END_DECLS

#endif
