// SPDX-License-Identifier: GPL-2.0-only
// SPDX-FileCopyrightText: 2026 The tarn authors
/*
 * The reference platform driver: start and end.
 */
#include <linux/module.h>

#include "platform.h"

static int __init platform_init(void)
{
	int error;

	registry_start();
	error = channel_start();
	if (error)
		goto stop_registry;
	error = log_start();
	if (error)
		goto stop_channel;
	control_start();
	return 0;

stop_channel:
	channel_stop();
stop_registry:
	registry_stop();
	return error;
}

/*
 * Nothing uses the module when this runs: an open device or control file holds
 * the module, and so does every socket of the protocol.
 */
static void __exit platform_exit(void)
{
	control_stop();
	log_stop();
	channel_stop();
	registry_stop();
}

module_init(platform_init);
module_exit(platform_exit);

MODULE_DESCRIPTION("tarn: reference platform driver");
MODULE_AUTHOR("The tarn authors");
MODULE_LICENSE("GPL");
