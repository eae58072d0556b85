/**
 * @file
 * The timer service: one-shot and circular software timers for the whole process, run by one thread.
 *
 * The first mu_timer_add or mu_circle_timer_add starts the service; it runs for the life of the process. Every 10 ms
 * the timer thread scans all timers, counts the elapsed ticks off each and runs the callbacks of those that ran out,
 * one after another.
 *
 * Holds for the whole header:
 * - Time is counted in ticks of 10 ms of the monotonic clock. Milliseconds become ticks as 1 for a value of at most
 *   10, else the value divided by 10, truncated: 15 ms and 19 ms both become one tick.
 * - Every function but mu_timer_compare takes the timer mutex and may be called from any thread, from callbacks and
 *   under the caller's own locks. None may be cancelled (pthread_cancel): it would leave the mutex locked, and the
 *   timers would stand still. The first add of a process must not race with another first add.
 * - Messages go to standard output.
 * - A pointer must not be null unless its function says what null does: it is not checked.
 * - After fork(2) the child has the records, but not the thread: timers are accepted and never run, and a mutex that
 *   was held stays held. Start the service after fork, and after daemon(3), which forks; a child that does not begin a
 *   new program (exec) must not use it.
 *
 * Two properties of the scan are part of the contract:
 * - The first scan counts the whole age of the monotonic clock as elapsed, so a timer that was added before it and
 *   does not exceed that age runs out at once, about 10 ms after it was added.
 * - The run time of the latest callback is added to the elapsed ticks of every scan until another callback runs:
 *   after a callback that took k ticks each scan counts k extra ticks.
 */
#ifndef TARN_TIMER_H
#define TARN_TIMER_H

#include <pthread.h>

#include "tarn/containers.h"
#include "tarn/types.h"

TARN_BEGIN_DECLS

/** Timers that exist at one time, at most. */
#define MU_TIMER_MAX 256

/**
 * A timer's callback. It runs on the timer thread with the timer mutex released, so it may call every timer
 * function, also on its own timer. A slow callback delays every other timer. It must not throw, longjmp or end its
 * thread.
 */
typedef void (*mu_timer_cb_t)(void *arg);

/** One timer: the record of a node of `timer_info.list`. Guarded by the timer mutex, but for `running`. */
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

/** The state of the service. Read it under its mutex; leave the writing to the service. */
typedef struct mu_timer_info {
  mu_list_t *list;            /**< The timers (mu_timer_rec_t) in the order in which they were added. */
  pthread_t tid;              /**< The timer thread; the library gives it no name, docs/timers.md shows how to. */
  mu_mutex_t mutex;           /**< The timer mutex; null if it could not be made, and then nothing is locked. */
  uint32_t max_num;           /**< MU_TIMER_MAX once started, 0 before. */
  uint32_t last_id;           /**< The id handed out last. */
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

/** The kernel thread id of the timer thread, as OS_CURRENT_THREAD gives it; written by the thread when it starts. */
TARN_API extern int64_t tmr_tid;

/**
 * Adds a one-shot timer: its callback runs once, after which the timer is gone, unless the callback itself started
 * it again with mu_timer_start or mu_timer_restart.
 *
 * @param[in] interval_ms  0 and negative values give one tick.
 * @param[in] callback     Not null.
 * @param[in] arg          Passed to `callback`; stays the caller's.
 * @return The timer's id, never 0. 0 when `callback` is null (nothing is printed), and when MU_TIMER_MAX timers exist
 *         (deleted ones that the thread has not yet freed included) or the service could not start: both print
 *         "Timer number exceed(%d)\n" with the limit, which is 0 for a service that could not start.
 *         Deliberate: when memory for the timer runs out an id is returned all the same, of a timer that does not
 *         exist.
 */
TARN_API uint32_t mu_timer_add(int interval_ms, mu_timer_cb_t callback, void *arg);

/**
 * Adds a circular timer: as mu_timer_add, but the timer reloads its interval after each callback. Ticks by which it
 * overshot are dropped: a period is never shortened to catch up.
 */
TARN_API uint32_t mu_circle_timer_add(int interval_ms, mu_timer_cb_t callback, void *arg);

/**
 * Deletes a timer. It never fires again, and the timer thread frees it at its next scan; until then it counts, and
 * mu_timer_start or mu_timer_restart bring it back.
 *
 * @retval 1  The callback is running at this moment and ends after this call; the caller is not the timer thread.
 * @retval 0  It is not, or the caller is the timer thread. Without such a timer "Oops: Delete an invalid timer!!\r\n"
 *            is printed.
 */
TARN_API uint32_t mu_timer_del(uint32_t id);

/**
 * Stops a timer: it keeps its remaining ticks and neither counts down nor fires until it is started again.
 *
 * @return As mu_timer_del; without such a timer "Oops: Stop an invalid timer!!\r\n" is printed.
 */
TARN_API uint32_t mu_timer_stop(uint32_t id);

/**
 * Starts a timer from its full interval; also one that was stopped or, before the thread has freed it, deleted.
 * Without such a timer it does nothing, silently.
 */
TARN_API void mu_timer_start(uint32_t id);

/**
 * Gives a timer a new interval and starts it as mu_timer_start does.
 *
 * Deliberate: the interval is unsigned here, so what would be -1 in an add makes 429496729 ticks.
 */
TARN_API void mu_timer_restart(uint32_t id, uint32_t interval_ms);

/** The number of timers, deleted ones that the thread has not yet freed included. */
TARN_API uint32_t mu_timer_count(void);

/**
 * Prints the table of timers, one row a timer, then the longest callback run and the number of expiries. Intervals,
 * remaining times and runs ("Drain") are in ticks. The header line comes before the mutex is taken, the rest under it.
 */
TARN_API void mu_timer_show(void);

/**
 * Compares a timer record's id with a searched id, unsigned. Locks nothing.
 *
 * @param[in] record  A mu_timer_rec_t.
 * @param[in] id      A uint32_t.
 * @retval 1   The record's id is greater.
 * @retval 0   Equal.
 * @retval -1  It is smaller.
 */
TARN_API int32_t mu_timer_compare(const void *record, const void *id);

TARN_END_DECLS

#endif
