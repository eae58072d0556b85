/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * The platform services: wrappers of the OS layer for the rest of the library and for applications. Each calls one
 * function of os.h and converts its result to a status of the library. Units, limits and the rules for null handles are
 * those of os.h.
 *
 * Holds for the whole header:
 * - Every function may be called from any thread; the wrappers keep no state.
 * - A thread may be cancelled in the wrappers of the functions that os.h lists for this.
 * - Unless a function says what null does, its pointers must not be null; this is not checked.
 * - Nothing is printed except by mu_printf itself.
 * - Wrappers that only release or signal something return 0, whatever the OS layer's result is.
 */
#ifndef TARN_PLATFORM_H
#define TARN_PLATFORM_H

#include <pthread.h>
#include <stdio.h>
#include <sys/types.h>

#include "tarn/types.h"

TARN_BEGIN_DECLS

/** Bytes of mu_printf's buffer: a text is cut to one byte less. */
#define MU_PRINTF_SIZE 896

/* ---- Console and memory ---------------------------------------------------------------------------------------- */

/**
 * Formats into a local buffer of MU_PRINTF_SIZE bytes and writes the text to standard output. Nothing is added and
 * nothing is flushed; a text of MU_PRINTF_SIZE bytes or more is cut. Allocates nothing itself.
 *
 * Lines of several threads may interleave.
 */
TARN_API void mu_printf(const char *format, ...) TARN_PRINTF(1, 2);

/**
 * Allocates `size` bytes, all zero.
 *
 * @return The block, to be released with mu_free; null when memory runs out or `size` is negative. The result for a
 *         size of 0 is libc's choice.
 */
TARN_API void *mu_malloc(int size);

/** Releases a block of mu_malloc; null is ignored. */
TARN_API void mu_free(void *block);

/* ---- Time ------------------------------------------------------------------------------------------------------ */

/** The wall clock in 10 ms units since 2007-07-24 04:53:20 UTC; negative before. See OS_TIME_GET. */
TARN_API int64_t mu_current_time(void);

/** The monotonic clock in ticks of 10 ms; only differences have a meaning. See OS_TICK_GET. */
TARN_API uint64_t mu_current_tick(void);

/** Waits `us` microseconds; a signal ends the wait early. See OS_DELAY. */
TARN_API void mu_udelay(uint32_t us);

/**
 * Waits `ms` milliseconds through OS_DELAY; 0 makes a system call with a zero timeout.
 *
 * Deliberate: the microseconds are computed in 32 bits and wrap above 4294967 ms.
 */
TARN_API void mu_mdelay(uint32_t ms);

/** Waits `ms` milliseconds through OS_SLEEP: as mu_mdelay, but 0 makes no system call. */
TARN_API void mu_sleep(uint32_t ms);

/* ---- Files ----------------------------------------------------------------------------------------------------- */

/** Opens `path` with the flags and the mode of open(2); see OS_FILE_OPEN. @return The descriptor, or -1. */
TARN_API long mu_file_open(const char *path, int flags, mode_t mode);

/** Closes a descriptor. @return 0, or -1. */
TARN_API long mu_file_close(int file);

/** Reads up to `length` bytes; a length above 2147483647 is rejected. @return Bytes read, or -1. */
TARN_API long mu_file_read(int file, void *buffer, uint32_t length);

/** Writes up to `length` bytes; a length above 2147483647 is rejected. @return Bytes written, or -1. */
TARN_API long mu_file_write(int file, const void *buffer, uint32_t length);

/** Finds the size of `stream`'s file, and moves the stream to its start; see OS_FILE_SIZE. @return Bytes, or -1. */
TARN_API long mu_file_size(FILE *stream);

/** Copies the file `source` to `destination`, the first argument. @return 0, or -1; see OS_FILE_CP. */
TARN_API long mu_file_cp(const char *destination, const char *source);

/* ---- Mutexes --------------------------------------------------------------------------------------------------- */

/**
 * Creates a mutex.
 *
 * @param[out] mutex  The new handle; null is stored when memory runs out. Every call tolerates that null.
 * @param[in]  name   Has no effect; may be null.
 * @retval 0  Created.
 * @retval 1  No memory.
 */
TARN_API int mu_mutex_init(mu_mutex_t *mutex, const char *name);

/** Destroys `mutex`; null is ignored. @return 0, always. */
TARN_API int mu_mutex_destroy(mu_mutex_t mutex);

/**
 * Locks `mutex`.
 *
 * @retval 0  Locked.
 * @retval 1  `mutex` is null: nothing is locked.
 */
TARN_API int mu_mutex_lock(mu_mutex_t mutex);

/**
 * Tries to lock `mutex` without waiting.
 *
 * @retval 0      Taken.
 * @retval 1      `mutex` is null (OS_MUTEX_TRYLOCK returns -1).
 * @retval EBUSY  Already held.
 */
TARN_API int mu_mutex_trylock(mu_mutex_t mutex);

/** Unlocks `mutex`; null is ignored. @return 0, always. */
TARN_API int mu_mutex_unlock(mu_mutex_t mutex);

/* ---- Semaphores ------------------------------------------------------------------------------------------------ */

/**
 * Creates a semaphore.
 *
 * @param[out] sem    The new handle; null is stored when memory runs out.
 * @param[in]  name   Not used; may be null.
 * @param[in]  count  The initial count.
 * @retval 0  Created.
 * @retval 1  No memory. The null handle may be waited on and destroyed, but must not be posted.
 */
TARN_API int mu_sem_init(mu_sem_t *sem, const char *name, uint32_t count);

/** Destroys `sem`; null is ignored. @return 0, always. */
TARN_API int mu_sem_destroy(mu_sem_t sem);

/** Waits for `sem`: `timeout_ms` 0 tries, -1 waits forever; see OS_SEM_WAIT. @return 0, taken or not. */
TARN_API int mu_sem_wait(mu_sem_t sem, int timeout_ms);

/** Posts `sem`, which must not be null. @return 0, always. */
TARN_API int mu_sem_post(mu_sem_t sem);

/* ---- Spin locks: mutexes under another name -------------------------------------------------------------------- */

/**
 * Creates a spin lock.
 *
 * @param[out] lock   The new handle; null is stored when memory runs out.
 * @param[in]  flags  Not used.
 * @retval 0  Created.
 * @retval 1  No memory.
 */
TARN_API int mu_spin_lock_init(mu_spinlock_t *lock, uint32_t flags);

/** Locks `lock`; null is ignored. @return 0, always. */
TARN_API int mu_spin_lock(mu_spinlock_t lock);

/** Unlocks `lock`; null is ignored. @return 0, always. */
TARN_API int mu_spin_unlock(mu_spinlock_t lock);

/** Destroys `lock`; null is ignored. @return 0, always. */
TARN_API int mu_spin_lock_destroy(mu_spinlock_t lock);

/* ---- Message queues -------------------------------------------------------------------------------------------- */

/** Opens or creates the message queue `name`; `flags` is not used. @return 0, or -1; see OS_QUEUE_CREATE. */
TARN_API long mu_queue_create(long *queue, const char *name, uint32_t max_messages, uint32_t message_size,
                              uint32_t flags);

/** Closes a queue, which continues to exist under its name; see OS_QUEUE_DELETE. @return 0, always. */
TARN_API long mu_queue_delete(long queue);

/** Receives one message; always waits for it: `timeout` has no effect. @return 0, or -1; see OS_QUEUE_GET. */
TARN_API long mu_queue_get(long queue, void *buffer, uint32_t size, uint32_t *length, int timeout);

/** Sends one message; waits while the queue is full. @return 0, or -1; see OS_QUEUE_PUT. */
TARN_API long mu_queue_put(long queue, const void *message, uint32_t length);

/* ---- Threads --------------------------------------------------------------------------------------------------- */

/** Creates a thread; see OS_THREAD_CREATE, which gets all arguments. @return 0, or -1 with `thread` unchanged. */
TARN_API long mu_thread_create(pthread_t *thread, const char *name, mu_thread_entry_t entry, void *arg,
                               uint32_t stack_size, int priority, uint32_t flags);

/* ---- Work queues: placeholders --------------------------------------------------------------------------------- */

/** Does nothing. @return 0, always. */
TARN_API long mu_workqueue_init(void *queue, void *name);

/** Does nothing: the work never runs. @return 0, always. */
TARN_API long mu_work_add(void *queue, void *work, void *arg);

/** Does nothing. */
TARN_API void mu_workqueue_destroy(void *queue);

/* ---- Numbers --------------------------------------------------------------------------------------------------- */

/** Divides. With a zero divisor, the quotient is 0 and the remainder the dividend's low 32 bits. See OS_DO_DIV. */
TARN_API void mu_div(uint64_t dividend, uint32_t divisor, uint64_t *quotient, uint32_t *remainder);

TARN_END_DECLS

#endif
