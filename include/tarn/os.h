/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * The OS abstraction layer. Only this code of the library calls the system for threads, locks, semaphores, time,
 * delays, files by descriptor and message queues. Applications usually call the mu_* wrappers of platform.h.
 *
 * Holds for the whole header:
 * - `long` is a signed 64-bit value. Results are 0 or a count for success and -1 for failure, unless said otherwise.
 * - Unless a function says what null does, its pointers must not be null; this is not checked.
 * - Nothing is printed; errno is what libc set.
 * - Every function may be called from any thread. The layer keeps no state.
 * - A system call that a signal interrupts is not made again, except by the timed semaphore wait.
 * - A thread may be cancelled (pthread_cancel) in the functions that wait: OS_SLEEP, OS_DELAY, OS_SEM_WAIT,
 *   OS_QUEUE_GET, OS_QUEUE_PUT, OS_FILE_READ, OS_FILE_WRITE, OS_FILE_OPEN and OS_FILE_CLOSE. They hold no lock and no
 *   memory of the library; the callers' cleanup handlers and destructors run. Do not cancel a thread in OS_FILE_CP: its
 *   streams would stay open.
 * - Handles belong to the caller from their create call to their destroy call. They are allocated with libc's
 *   malloc. Destroying a handle that is locked or waited on is the caller's error and is not checked.
 */
#ifndef TARN_OS_H
#define TARN_OS_H

#include <pthread.h>
#include <stdio.h>
#include <sys/types.h>

#include "tarn/types.h"

TARN_BEGIN_DECLS

/* ---- Mutexes --------------------------------------------------------------------------------------------------- */

/**
 * Creates a mutex.
 *
 * @param[in] name  Has no effect; may be null.
 * @return The new mutex, or null when memory runs out.
 */
TARN_API mu_mutex_t OS_MUTEX_CREATE(const char *name);

/** Locks `mutex`, waiting as long as it takes. A null handle is ignored. */
TARN_API void OS_MUTEX_LOCK(mu_mutex_t mutex);

/**
 * Tries to lock `mutex` without waiting.
 *
 * @retval 0      Taken.
 * @retval -1     `mutex` is null.
 * @retval EBUSY  Already held. This and any other positive result is the error number of pthread_mutex_trylock.
 */
TARN_API int OS_MUTEX_TRYLOCK(mu_mutex_t mutex);

/** Unlocks `mutex`, which the caller holds. A null handle is ignored. */
TARN_API void OS_MUTEX_UNLOCK(mu_mutex_t mutex);

/** Destroys `mutex` and frees its memory. A null handle is ignored. */
TARN_API void OS_MUTEX_DESTROY(mu_mutex_t mutex);

/* ---- Semaphores ------------------------------------------------------------------------------------------------ */

/**
 * Creates an unnamed counting semaphore, private to the process.
 *
 * @param[in] count  The initial count. The system refuses a count above SEM_VALUE_MAX (2147483647). This is not
 *                   reported; then nothing may be done with the handle except destroying it.
 * @return The new semaphore, or null when memory runs out.
 */
TARN_API mu_sem_t OS_SEM_CREATE(uint32_t count);

/**
 * Destroys `sem` and frees its memory.
 *
 * @retval 0   Done.
 * @retval -1  `sem` is null.
 */
TARN_API long OS_SEM_DESTROY(mu_sem_t sem);

/**
 * Takes `sem`, waiting no longer than `timeout_ms`. It does not report whether `sem` was taken.
 *
 * @param[in] sem         A null handle returns at once.
 * @param[in] timeout_ms  0: one attempt without waiting. -1: a wait without limit; a signal ends it. A positive value:
 *                        a wait of at most that many milliseconds of the wall clock; a step of the system clock
 *                        lengthens or shortens the wait, a signal does not end it. Other negative values: at most one
 *                        attempt.
 */
TARN_API void OS_SEM_WAIT(mu_sem_t sem, int timeout_ms);

/** Posts `sem` once. The handle is not checked and must not be null. */
TARN_API void OS_SEM_POST(mu_sem_t sem);

/* ---- Spin locks: mutexes under another name -------------------------------------------------------------------- */

/** Creates a spin lock, as OS_MUTEX_CREATE does; the argument has no effect. */
TARN_API mu_spinlock_t OS_SPINLOCK_CREATE(uint32_t flags);

/** Locks `lock`, as OS_MUTEX_LOCK does. */
TARN_API void OS_SPINLOCK_LOCK(mu_spinlock_t lock);

/** Unlocks `lock`, as OS_MUTEX_UNLOCK does. */
TARN_API void OS_SPINLOCK_UNLOCK(mu_spinlock_t lock);

/** Destroys `lock`, as OS_MUTEX_DESTROY does. */
TARN_API void OS_SPINLOCK_DESTROY(mu_spinlock_t lock);

/* ---- Time ------------------------------------------------------------------------------------------------------ */

/**
 * Reads the monotonic clock in ticks of 10 ms, truncated. The origin is that of the clock, in practice the boot; only
 * differences have a meaning. Setting the wall clock does not affect it.
 */
TARN_API uint64_t OS_TICK_GET(void);

/**
 * Reads the wall clock in units of 10 ms, truncated, since 1185252800 seconds after the Unix epoch
 * (2007-07-24 04:53:20 UTC). Negative before that instant.
 */
TARN_API int64_t OS_TIME_GET(void);

/**
 * Waits `us` microseconds in one select call without descriptors. For 0 it makes the call too, with a zero timeout.
 * A signal ends the delay early.
 */
TARN_API void OS_DELAY(uint32_t us);

/**
 * Waits `ms` milliseconds as OS_DELAY does, but for 0 it makes no system call.
 *
 * Deliberate: the microseconds are computed in 32 bits. A value above 4294967 ms wraps: 5000000 ms sleep
 * about 705 s.
 */
TARN_API void OS_SLEEP(uint32_t ms);

/* ---- Threads --------------------------------------------------------------------------------------------------- */

/** The calling thread's kernel thread id (gettid): not a pthread handle. */
TARN_API long OS_CURRENT_THREAD(void);

/**
 * Creates a joinable thread with default scheduling. The library never joins or detaches it.
 *
 * @param[out] thread      The handle of the new thread; written on success only. Not null.
 * @param[in]  name        Not used: the thread gets no name.
 * @param[in]  entry       The thread's body. It must not throw.
 * @param[in]  arg         Passed to `entry`.
 * @param[in]  stack_size  Requested bytes of stack; a value below 8192 counts as 8192. If the system rejects the size
 *                         (below its minimum: 16384 on x86-64, 131072 on 64-bit Arm), its default applies.
 * @param[in]  priority    Not used.
 * @param[in]  flags       Not used; pass 0.
 * @retval 0   The thread runs.
 * @retval -1  No memory, or the system refused the thread.
 */
TARN_API long OS_THREAD_CREATE(pthread_t *thread, const char *name, mu_thread_entry_t entry, void *arg,
                               uint32_t stack_size, int priority, uint32_t flags);

/* ---- POSIX message queues, between threads and processes ------------------------------------------------------- */

/**
 * Opens the message queue "/NAME" for reading and writing. If it does not exist, creates it with mode 0770. An existing
 * queue keeps its sizes and its messages.
 *
 * @param[out] queue         The queue's descriptor; written on success only.
 * @param[in]  name          Without the leading "/"; cut so that the system name has at most 127 characters.
 * @param[in]  max_messages  The largest number of messages in the queue.
 * @param[in]  message_size  Bytes of the largest message.
 * @retval 0   Open.
 * @retval -1  `queue` or `name` is null, or the system call failed.
 */
TARN_API long OS_QUEUE_CREATE(long *queue, const char *name, uint32_t max_messages, uint32_t message_size);

/**
 * Closes the descriptor `queue`. The name is not unlinked: the queue and its messages stay in the system, and the
 * next OS_QUEUE_CREATE of that name finds them again.
 *
 * @return 0, always.
 */
TARN_API long OS_QUEUE_DELETE(long queue);

/**
 * Receives one message; waits until there is one.
 *
 * @param[in]  queue    The queue's descriptor.
 * @param[out] buffer   The message.
 * @param[in]  size     Bytes at `buffer`: at least the queue's message size.
 * @param[out] length   Bytes received; written on success only.
 * @param[in]  timeout  Deliberate: no effect. Every receive waits, even with 0.
 * @retval 0   Received.
 * @retval -1  `buffer` or `length` is null, or the system call failed, for example because `size` is too small.
 */
TARN_API long OS_QUEUE_GET(long queue, void *buffer, uint32_t size, uint32_t *length, int timeout);

/**
 * Sends `length` bytes at `message` with priority 0; waits while the queue is full.
 *
 * @retval 0   Sent.
 * @retval -1  The system call failed; errno says why.
 */
TARN_API long OS_QUEUE_PUT(long queue, const void *message, uint32_t length);

/* ---- Files ----------------------------------------------------------------------------------------------------- */

/**
 * Opens `path` with the flags and the creation mode of open(2), unchanged. A process that starts other programs should
 * pass O_CLOEXEC: otherwise those programs inherit the descriptor.
 *
 * @return The descriptor, or -1.
 */
TARN_API long OS_FILE_OPEN(const char *path, int flags, mode_t mode);

/**
 * Closes the descriptor `file`.
 *
 * @return The result of close(2): 0 or -1.
 */
TARN_API long OS_FILE_CLOSE(int file);

/**
 * Reads up to `length` bytes into `buffer`. The system rejects a negative length.
 *
 * @return The result of read(2): the bytes read, 0 at the end of the file, or -1.
 */
TARN_API long OS_FILE_READ(int file, void *buffer, int length);

/**
 * Writes up to `length` bytes from `buffer`. The system rejects a negative length, as in OS_FILE_READ.
 *
 * @return The result of write(2): the bytes written, or -1.
 */
TARN_API long OS_FILE_WRITE(int file, const void *buffer, int length);

/**
 * Finds the size of `stream`'s file. Afterwards the stream is at its start, wherever it was before.
 *
 * @return The size in bytes, truncated to a signed 32-bit value, so wrong for a file of 2 GiB or more. -1 on an error.
 */
TARN_API long OS_FILE_SIZE(FILE *stream);

/**
 * Copies the file `source` to `destination`, the first argument, which is created or truncated.
 *
 * @retval 0   Copied up to the end of the source, or up to a read error. Write errors are not detected.
 * @retval -1  A path is null, or a file could not be opened; a missing source creates no destination.
 */
TARN_API long OS_FILE_CP(const char *destination, const char *source);

/* ---- Work queues: placeholders --------------------------------------------------------------------------------- */

/**
 * Deliberate: does nothing, like every work-queue function. Work that is added never runs.
 *
 * @return 0, always.
 */
TARN_API long OS_WORKQUEUE_CREATE(void *queue, void *name);

/** Does nothing: the work never runs. @return 0, always. */
TARN_API long OS_WORK_ADD(void *queue, void *work, void *arg);

/** Does nothing. */
TARN_API void OS_WORKQUEUE_DESTROY(void *queue);

/** Does nothing. */
TARN_API void OS_WORK_PROCESS_INTERNAL(void);

/* ---- Numbers --------------------------------------------------------------------------------------------------- */

/** libc's strtoul, exactly. `end` may be null. */
TARN_API unsigned long OS_STRTOUL(const char *text, char **end, int base);

/**
 * Divides a 64-bit number by a 32-bit one.
 *
 * @param[out] quotient   `dividend` / `divisor`; 0 for a zero divisor.
 * @param[out] remainder  The remainder; for a zero divisor, the low 32 bits of `dividend`.
 */
TARN_API void OS_DO_DIV(uint64_t dividend, uint32_t divisor, uint64_t *quotient, uint32_t *remainder);

TARN_END_DECLS

#endif
