// SPDX-License-Identifier: GPL-2.0-only
// SPDX-FileCopyrightText: 2026 The tarn authors
/*
 * Messages for the daemons' log: printed in a frame that names the module and
 * the level, if the settings of the daemons let them pass. The device changes
 * the settings.
 */
#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/seq_file.h>
#include <linux/uaccess.h>

#include "platform.h"

#define LOG_IOCTL 0x4300
#define LOG_COMMAND_SET 3
#define LOG_MODULES 256
#define LOG_FRAMED_MODULES 100	/* a frame has two digits */
#define LOG_LEVEL_DEBUG 8

/* The argument of the device. */
struct log_control {
	u8 reserved0[10];
	u16 command;
	u8 module;
	u8 setting;
	u8 value;
	u8 reserved15[241];
};

static_assert(sizeof(struct log_control) == 256);
static_assert(offsetof(struct log_control, command) == 10);
static_assert(offsetof(struct log_control, value) == 14);

enum log_setting {
	LOG_SET_PRINT,
	LOG_SET_RECORD,
	LOG_SET_ENABLE,
	LOG_SETTINGS
};

/*
 * By module and setting. Independent single bytes: they are read and written
 * without a lock.
 */
static u8 settings[LOG_MODULES][LOG_SETTINGS];

/* The kernel's level for each level of the log, which begins with "Off". */
static const char *const kernel_level[LOG_LEVEL_DEBUG + 1] = {
	NULL, KERN_EMERG, KERN_ALERT, KERN_CRIT, KERN_ERR,
	KERN_WARNING, KERN_NOTICE, KERN_INFO, KERN_DEBUG,
};

/**
 * log_framed() - print a message for the daemons' log
 * @module: log module, 0 to 99
 * @level: 1 "Emergency" to 8 "Debug"
 * @text: the message; one that does not fit the kernel's line is cut, and
 *        then has no end of the frame
 *
 * Return: 0 if it was printed, -EBUSY if the module's settings silence it,
 * -EINVAL if there is no such module or level.
 */
int log_framed(unsigned int module, unsigned int level, const char *text)
{
	if (module >= LOG_FRAMED_MODULES)
		return -EINVAL;
	if (level < 1 || level > LOG_LEVEL_DEBUG)
		return -EINVAL;
	if (READ_ONCE(settings[module][LOG_SET_ENABLE]) != 1 ||
	    level > READ_ONCE(settings[module][LOG_SET_RECORD]))
		return -EBUSY;
	/* Not printk(): its index cannot hold messages whose level varies. */
	_printk("%s<jxlog-%02u:%u:%s<jxlog>\n", kernel_level[level], module,
		level, text);
	return 0;
}

static long log_ioctl(struct file *file, unsigned int request,
		      unsigned long argument)
{
	struct log_control control;

	if (request != LOG_IOCTL)
		return -ENOTTY;
	if (copy_from_user(&control, (void __user *)argument, sizeof(control)))
		return -EFAULT;
	if (control.command != LOG_COMMAND_SET)
		return -EINVAL;
	if (control.setting >= LOG_SETTINGS)
		return -EINVAL;
	if (control.setting != LOG_SET_ENABLE &&
	    control.value > LOG_LEVEL_DEBUG)
		return -EINVAL;
	WRITE_ONCE(settings[control.module][control.setting], control.value);
	return 0;
}

static const struct file_operations log_operations = {
	.owner = THIS_MODULE,
	.open = nonseekable_open,
	.unlocked_ioctl = log_ioctl,
	.llseek = no_llseek,
};

static struct miscdevice log_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "mulog-ioctl-dev",
	.fops = &log_operations,
};

/**
 * log_show() - write a line for each module whose settings have changed
 * @status: the file to write to
 */
void log_show(struct seq_file *status)
{
	int i;

	for (i = 0; i < LOG_MODULES; i++) {
		const u8 *module = settings[i];

		if (module[LOG_SET_ENABLE] == 1 &&
		    module[LOG_SET_PRINT] == LOG_LEVEL_DEBUG &&
		    module[LOG_SET_RECORD] == LOG_LEVEL_DEBUG)
			continue;
		seq_printf(status, "log %d: print %u record %u enable %u\n", i,
			   module[LOG_SET_PRINT], module[LOG_SET_RECORD],
			   module[LOG_SET_ENABLE]);
	}
}

int log_start(void)
{
	int i;

	for (i = 0; i < LOG_MODULES; i++) {
		settings[i][LOG_SET_PRINT] = LOG_LEVEL_DEBUG;
		settings[i][LOG_SET_RECORD] = LOG_LEVEL_DEBUG;
		settings[i][LOG_SET_ENABLE] = 1;
	}
	return misc_register(&log_device);
}

void log_stop(void)
{
	misc_deregister(&log_device);
}
