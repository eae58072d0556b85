/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * What every tarn header shares: the version, the export macro, the status type and the handles.
 *
 * The headers are plain C: each compiles by itself, as C99 or later and as C++98 or later. tarn is built for 64-bit
 * Linux with glibc 2.34 or later, whose libc.so.6 also contains the threads, the semaphores and the message queues.
 */
#ifndef TARN_TYPES_H
#define TARN_TYPES_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/** The version of the library. The build system and the package files read it from here. */
#define TARN_VERSION_MAJOR 1
#define TARN_VERSION_MINOR 0
#define TARN_VERSION_PATCH 0

/** Marks what libtarn exports; everything else is hidden. */
#define TARN_API __attribute__((visibility("default")))

/**
 * Lets the compiler check a printf-style call: `fmt` and `args` are positions in the argument list, counted from 1.
 */
#define TARN_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))

/** Checks a condition at compile time. Before C11 and C++11 there is no such check, and nothing is checked. */
#if defined(__cplusplus) ? __cplusplus >= 201103L : defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define TARN_STATIC_ASSERT(condition, message) static_assert(condition, message)
#else
#define TARN_STATIC_ASSERT(condition, message) struct tarn_not_checked
#endif

#ifdef __cplusplus
#define TARN_BEGIN_DECLS extern "C" {
#define TARN_END_DECLS }
#else
#define TARN_BEGIN_DECLS
#define TARN_END_DECLS
#endif

TARN_STATIC_ASSERT(sizeof(void *) == 8 && sizeof(long) == 8, "tarn is built for 64-bit Linux");

/** Milliseconds of a tick, the unit of timers, clocks and the periods of events. */
#define MU_TICK_MS 10

/**
 * Status result: 0 is success. Two failure values are in use, 1 and -1. Which one a function returns is part of its
 * contract. Logging adds 2 (bad argument), 10 (out of memory) and 19 (not initialised); aes128_cmac_compute
 * returns 2 for a bad tag length.
 */
typedef int32_t mu_status_t;

/**
 * Handle of a mutex. Made by OS_MUTEX_CREATE or mu_mutex_init, released by OS_MUTEX_DESTROY or mu_mutex_destroy.
 * The mutex is of the default type: a thread that locks it twice deadlocks, and only its holder may unlock it.
 * A null handle means that there is no mutex.
 */
typedef struct tarn_mutex *mu_mutex_t;

/** Handle of a counting semaphore, private to the process. */
typedef struct tarn_sem *mu_sem_t;

/** Handle of a spin lock. A spin lock is a mutex: waiting for it sleeps. */
typedef mu_mutex_t mu_spinlock_t;

/** Entry function of a thread. Its result is kept for pthread_join. */
typedef void *(*mu_thread_entry_t)(void *arg);

#endif
