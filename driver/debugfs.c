// SPDX-License-Identifier: GPL-2.0-only
// SPDX-FileCopyrightText: 2026 The tarn authors
/*
 * Files below tarn/ in debugfs, through which a test or a person acts as the
 * hardware: "control" accepts commands, one a line; "status" shows the state of
 * the driver. README.md lists the commands. Without debugfs the driver works
 * without these files.
 */
#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/sched/signal.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "platform.h"

#define CONTROL_WRITE_MAX 16384	/* a datagram of 4096 bytes, in hex, fits */
#define STORM_MAX 10000000

static struct dentry *control_folder;

/* The next word of a line; empty at its end. */
static char *next_word(char **rest)
{
	char *word = strsep(rest, " ");

	return word ? word : "";
}

static int no_more(const char *rest)
{
	return rest && *rest ? -EINVAL : 0;
}

/*
 * hex_to_bytes() - turn "0a0b" into bytes, in place
 *
 * Return: their number, or -EINVAL.
 */
static int hex_to_bytes(char *text)
{
	const size_t length = strlen(text);

	if (length % 2 || length / 2 > PAL_DATAGRAM_MAX)
		return -EINVAL;
	/* A pair of digits is read before its byte is written over it. */
	return hex2bin((u8 *)text, text, length / 2) ? -EINVAL : length / 2;
}

static int read_event(char **rest, u16 *type, u16 *device_id)
{
	int error = kstrtou16(next_word(rest), 10, type);

	return error ? error : kstrtou16(next_word(rest), 10, device_id);
}

/* A dropped occurrence is counted; it is not an error of the command. */
static int send_event(u16 device_id, u16 type, const void *data, u16 length)
{
	const int result = channel_send(device_id, type, data, length);

	return result == -EINVAL || result == -ENOMEM ? result : 0;
}

/* event TYPE DEVICE [HEX] */
static int command_event(char *rest)
{
	u16 type, device_id;
	char *data;
	int error, length;

	error = read_event(&rest, &type, &device_id);
	if (error)
		return error;
	data = next_word(&rest);
	length = hex_to_bytes(data);
	if (length < 0)
		return length;
	error = no_more(rest);
	return error ? error : send_event(device_id, type, data, length);
}

/* storm TYPE DEVICE COUNT: each carries its number, from 0, as 32 bits */
static int command_storm(char *rest)
{
	u16 type, device_id;
	u32 count, i;
	int error;

	error = read_event(&rest, &type, &device_id);
	if (error)
		return error;
	error = kstrtou32(next_word(&rest), 10, &count);
	if (error || no_more(rest) || count > STORM_MAX)
		return -EINVAL;
	for (i = 0; i < count; i++) {
		error = send_event(device_id, type, &i, sizeof(i));
		if (error)
			return error;
		if (fatal_signal_pending(current))
			return -EINTR;
		cond_resched();
	}
	return 0;
}

/* datagram HEX: sent unchanged, without the registry */
static int command_datagram(char *rest)
{
	char *bytes = next_word(&rest);
	int size = hex_to_bytes(bytes);
	int result;

	if (size <= 0 || no_more(rest))
		return -EINVAL;
	result = channel_send_raw(bytes, size);
	return result == -ENOMEM ? result : 0;
}

/* kmsg MODULE LEVEL TEXT */
static int command_kmsg(char *rest)
{
	unsigned int module, level;
	int result;

	result = kstrtouint(next_word(&rest), 10, &module);
	if (result)
		return result;
	result = kstrtouint(next_word(&rest), 10, &level);
	if (result)
		return result;
	result = log_framed(module, level, rest ? rest : "");
	return result == -EBUSY ? 0 : result;
}

/* raw TEXT: printed whatever the levels, without a frame */
static int command_raw(char *rest)
{
	pr_info("%s\n", rest ? rest : "");
	return 0;
}

static int command_dump(char *rest)
{
	if (no_more(rest))
		return -EINVAL;
	registry_dump();
	return 0;
}

static const struct {
	const char *name;
	int (*run)(char *rest);
} commands[] = {
	{ "event", command_event },
	{ "storm", command_storm },
	{ "datagram", command_datagram },
	{ "kmsg", command_kmsg },
	{ "raw", command_raw },
	{ "dump", command_dump },
};

static int run_line(char *line)
{
	const char *name;
	size_t i;

	if (!*line)
		return 0;
	name = strsep(&line, " ");
	for (i = 0; i < ARRAY_SIZE(commands); i++)
		if (!strcmp(name, commands[i].name))
			return commands[i].run(line);
	return -EINVAL;
}

/*
 * Runs all lines of a write, or stops at the first line that fails and returns
 * its error.
 */
static ssize_t control_write(struct file *file, const char __user *user,
			     size_t size, loff_t *position)
{
	char *text, *rest, *line;
	int error = 0;

	if (size > CONTROL_WRITE_MAX)
		return -E2BIG;
	text = memdup_user_nul(user, size);
	if (IS_ERR(text))
		return PTR_ERR(text);
	if (strlen(text) != size)
		error = -EINVAL;	/* no command contains a NUL */
	rest = text;
	while (!error && (line = strsep(&rest, "\n")))
		error = run_line(line);
	kfree(text);
	return error ? error : size;
}

static const struct file_operations control_operations = {
	.owner = THIS_MODULE,
	.open = nonseekable_open,
	.write = control_write,
	.llseek = no_llseek,
};

static int status_show(struct seq_file *status, void *unused)
{
	channel_show(status);
	registry_show(status);
	log_show(status);
	return 0;
}

DEFINE_SHOW_ATTRIBUTE(status);

void control_start(void)
{
	control_folder = debugfs_create_dir("tarn", NULL);
	debugfs_create_file("control", 0200, control_folder, NULL,
			    &control_operations);
	debugfs_create_file("status", 0400, control_folder, NULL,
			    &status_fops);
}

void control_stop(void)
{
	debugfs_remove(control_folder);
}
