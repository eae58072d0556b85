/* SPDX-License-Identifier: GPL-2.0-only */
/* SPDX-FileCopyrightText: 2026 The tarn authors */
/*
 * The reference platform driver: the declarations that its files share.
 *
 *   main.c      starts and stops the others
 *   registry.c  counts and suppresses events
 *   netlink.c   the configuration device, and the netlink socket that sends events
 *   log.c       framed messages, and the device that sets their levels
 *   debugfs.c   the files in debugfs that let tests and people make the driver do something
 */
#ifndef TARN_PLATFORM_H
#define TARN_PLATFORM_H

#include <linux/build_bug.h>
#include <linux/stddef.h>
#include <linux/types.h>

struct seq_file;

/*
 * The header of every argument of the configuration device and of every
 * datagram, in host byte order. The payload follows.
 */
struct pal_header {
	u16 reserved0;
	u16 length;		/* bytes of the payload */
	u16 reserved4;
	u16 event_type;
	u16 reserved8;
	u16 device_id;
	u8 reserved12[8];
	u32 destination;	/* the netlink port that receives events */
};

static_assert(sizeof(struct pal_header) == 24);
static_assert(offsetof(struct pal_header, event_type) == 6);
static_assert(offsetof(struct pal_header, device_id) == 10);
static_assert(offsetof(struct pal_header, destination) == 20);

/* The longest datagram that is sent, header included. */
#define PAL_DATAGRAM_MAX 4096
#define PAL_DATA_MAX (PAL_DATAGRAM_MAX - sizeof(struct pal_header))

/* The event configuration message: a request, answered in place. */
struct event_message {
	u32 op;
	u32 type;
	u32 reserved;
	u32 suprs_en;
	u32 threshold;
	u32 period;		/* ms */
	u32 count;
	u32 clear;
};

static_assert(sizeof(struct event_message) == 32);

enum event_op {
	EVENT_OP_COUNTER_GET,
	EVENT_OP_COUNTER_CLEAR,
	EVENT_OP_COUNTER_CLEAR_ALL,
	EVENT_OP_SET,
	EVENT_OP_GET,
	EVENT_OP_DUMP,
};

/* registry.c */
void registry_start(void);
void registry_stop(void);
int registry_admit(u32 type);
int registry_apply(struct event_message *message);
void registry_dump(void);
void registry_show(struct seq_file *status);

/* netlink.c */
int channel_start(void);
void channel_stop(void);
int channel_send(u16 device_id, u16 type, const void *data, u16 length);
int channel_send_raw(const void *datagram, size_t size);
void channel_show(struct seq_file *status);

/* log.c */
int log_start(void);
void log_stop(void);
int log_framed(unsigned int module, unsigned int level, const char *text);
void log_show(struct seq_file *status);

/* debugfs.c */
void control_start(void);
void control_stop(void);

#endif
