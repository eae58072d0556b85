// SPDX-License-Identifier: GPL-2.0-only
// SPDX-FileCopyrightText: 2026 The tarn authors
/*
 * The event table: counters and the suppression of storms, with the semantics
 * of the library's registry in a process without a configuration handler. An
 * event that is suppressed here never reaches user space.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/kernel.h>
#include <linux/seq_file.h>
#include <linux/spinlock.h>
#include <linux/workqueue.h>

#include "platform.h"

#define EVENT_TYPES 20
#define POLL_MS 500
#define PERIOD_UNIT_MS 10

struct event {
	bool suprs_en;
	bool suprs_s;		/* being suppressed */
	u32 count;		/* passed on */
	u32 suprs_cnt;		/* dropped */
	u32 threshold;		/* most to pass on in one window */
	u32 period_cnt;		/* passed on in this window */
	u32 period;		/* polls in a window */
	u32 tick;		/* polls in this window */
};

/*
 * Taken with interrupts off: in a real driver, most events come from an
 * interrupt handler.
 */
static DEFINE_SPINLOCK(events_lock);
static struct event events[EVENT_TYPES];
static u32 polls;		/* since the start */

/**
 * registry_admit() - account for one occurrence of an event
 * @type: event type
 *
 * Return: 0 if it shall be sent, -EBUSY if it is suppressed, -EINVAL if there
 * is no such type.
 */
int registry_admit(u32 type)
{
	struct event *event;
	unsigned long flags;
	int result = 0;

	if (type >= EVENT_TYPES)
		return -EINVAL;
	event = &events[type];
	spin_lock_irqsave(&events_lock, flags);
	if (event->suprs_en &&
	    (event->suprs_s || event->period_cnt >= event->threshold)) {
		/* The occurrence beyond the threshold is dropped too. */
		event->suprs_s = true;
		event->suprs_cnt++;
		result = -EBUSY;
	} else {
		event->period_cnt++;
		event->count++;
	}
	spin_unlock_irqrestore(&events_lock, flags);
	return result;
}

/*
 * One poll. The poll that ends a suppression does not begin a new window: an
 * occurrence before the next poll is suppressed again.
 */
static void poll_event(struct event *event)
{
	if (!event->suprs_en)
		return;
	event->tick++;
	if (event->tick < event->period)
		return;
	if (event->suprs_s) {
		event->suprs_s = false;
	} else {
		event->period_cnt = 0;
		event->tick = 0;
	}
}

static void poll_events(struct work_struct *work)
{
	unsigned long flags;
	int i;

	spin_lock_irqsave(&events_lock, flags);
	for (i = 0; i < EVENT_TYPES; i++)
		poll_event(&events[i]);
	WRITE_ONCE(polls, polls + 1);
	spin_unlock_irqrestore(&events_lock, flags);
	schedule_delayed_work(to_delayed_work(work), msecs_to_jiffies(POLL_MS));
}

static DECLARE_DELAYED_WORK(poll_work, poll_events);

static void clear_counters(struct event *event)
{
	event->count = 0;
	event->suprs_cnt = 0;
}

static void get_counter(struct event *event, struct event_message *message)
{
	message->count = event->count;
	if (message->clear)
		event->count = 0;
}

/*
 * A window lasts as many polls as the period has units of 10 ms, that is 50
 * times the period. A suppression in progress continues, and so does the
 * window.
 */
static void set_suppression(struct event *event,
			    const struct event_message *message)
{
	event->suprs_cnt = 0;
	event->period = message->period > PERIOD_UNIT_MS ?
			message->period / PERIOD_UNIT_MS : 1;
	event->threshold = message->threshold;
	event->suprs_en = message->suprs_en != 0;
}

static void get_suppression(const struct event *event,
			    struct event_message *message)
{
	message->suprs_en = event->suprs_en;
	message->threshold = event->threshold;
	message->period = event->period * PERIOD_UNIT_MS;
}

static void clear_all_counters(void)
{
	unsigned long flags;
	int i;

	spin_lock_irqsave(&events_lock, flags);
	for (i = 0; i < EVENT_TYPES; i++)
		clear_counters(&events[i]);
	spin_unlock_irqrestore(&events_lock, flags);
}

static int apply_to_event(struct event_message *message)
{
	unsigned long flags;
	struct event *event;
	int error = 0;

	if (message->type >= EVENT_TYPES)
		return -EINVAL;
	event = &events[message->type];
	spin_lock_irqsave(&events_lock, flags);
	switch (message->op) {
	case EVENT_OP_COUNTER_GET:
		get_counter(event, message);
		break;
	case EVENT_OP_COUNTER_CLEAR:
		clear_counters(event);
		break;
	case EVENT_OP_SET:
		set_suppression(event, message);
		break;
	case EVENT_OP_GET:
		get_suppression(event, message);
		break;
	default:
		error = -EINVAL;
	}
	spin_unlock_irqrestore(&events_lock, flags);
	return error;
}

/**
 * registry_apply() - carry out an event configuration message
 * @message: the request; receives the answer
 *
 * Return: 0, or -EINVAL if the operation or the type does not exist.
 */
int registry_apply(struct event_message *message)
{
	switch (message->op) {
	case EVENT_OP_COUNTER_CLEAR_ALL:
		clear_all_counters();
		return 0;
	case EVENT_OP_DUMP:
		registry_dump();
		return 0;
	default:
		return apply_to_event(message);
	}
}

static struct event event_snapshot(int type)
{
	struct event snapshot;
	unsigned long flags;

	spin_lock_irqsave(&events_lock, flags);
	snapshot = events[type];
	spin_unlock_irqrestore(&events_lock, flags);
	return snapshot;
}

static void dump_event(int type)
{
	const struct event event = event_snapshot(type);

	if (event.suprs_en)
		pr_info("%-4d %-10u %-8s %-7s %-9u %-9u %u\n", type,
			event.count, "Enable", event.suprs_s ? "Yes" : "No",
			event.suprs_cnt, event.threshold,
			event.period * PERIOD_UNIT_MS);
	else
		pr_info("%-4d %-10u %-8s %-7s %-9s %-9s %s\n", type,
			event.count, "Disable", "-", "-", "-", "-");
}

/**
 * registry_dump() - write the event table to the kernel log
 */
void registry_dump(void)
{
	static const char line[] =
		"===============================================================";
	static const char thin_line[] =
		"---------------------------------------------------------------";
	int i;

	pr_info("%s\n", line);
	pr_info("%-4s %-10s %-8s %-7s %-9s %-9s %-12s\n", "Type", "Count",
		"Suprs-en", "Suprs-s", "Suprs-cnt", "Threshold", "Period(ms)");
	pr_info("%s\n", thin_line);
	for (i = 0; i < EVENT_TYPES; i++)
		dump_event(i);
}

/**
 * registry_show() - write the number of polls, and a line for each event type
 * that was sent or configured
 * @status: the file to write to
 */
void registry_show(struct seq_file *status)
{
	int i;

	seq_printf(status, "polls %u\n", READ_ONCE(polls));
	for (i = 0; i < EVENT_TYPES; i++) {
		const struct event event = event_snapshot(i);

		if (event.count || event.suprs_cnt || event.suprs_en)
			seq_printf(status,
				   "event %d: count %u dropped %u suppressed %d\n",
				   i, event.count, event.suprs_cnt,
				   event.suprs_s);
	}
}

void registry_start(void)
{
	schedule_delayed_work(&poll_work, msecs_to_jiffies(POLL_MS));
}

void registry_stop(void)
{
	cancel_delayed_work_sync(&poll_work);
}
