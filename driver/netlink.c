// SPDX-License-Identifier: GPL-2.0-only
// SPDX-FileCopyrightText: 2026 The tarn authors
/*
 * The two channels between the driver and a daemon: the configuration device,
 * for requests of the daemon, and a netlink socket, for events to it.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/atomic.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/netlink.h>
#include <linux/seq_file.h>
#include <linux/skbuff.h>
#include <linux/slab.h>
#include <linux/uaccess.h>
#include <net/net_namespace.h>
#include <net/sock.h>

#include "platform.h"

#define PAL_NETLINK 19
#define PAL_IOCTL_EVENT_CFG 0x4301
#define PAL_IOCTL_EVENT_DEST 0x4302

static struct sock *event_socket;

/* The netlink port that receives events, as last set; 0 for none. */
static u32 destination;

/* Numbers of datagrams, by their result. */
static atomic64_t sent;
static atomic64_t overruns;	/* the receiver's queue was full */
static atomic64_t refused;	/* nobody has the port */
static atomic64_t undirected;	/* no port was set */
static atomic64_t failed;	/* for example, no memory */

static atomic64_t *count_for(int result)
{
	switch (result) {
	case -EAGAIN:
	case -ENOBUFS:
		return &overruns;
	case -ECONNREFUSED:
		return &refused;
	default:
		return result < 0 ? &failed : &sent;
	}
}

/**
 * channel_send_raw() - send bytes as one datagram to the set port
 * @datagram: header and payload; not examined
 * @size: bytes, 1 to PAL_DATAGRAM_MAX
 *
 * Never waits: a receiver that is too slow loses the datagram, and its socket
 * reports ENOBUFS once until it has caught up.
 *
 * Return: 0, or a negative error number; each datagram is counted.
 */
int channel_send_raw(const void *datagram, size_t size)
{
	const u32 port = READ_ONCE(destination);
	struct sk_buff *skb;
	int result;

	if (size == 0 || size > PAL_DATAGRAM_MAX)
		return -EINVAL;
	if (!port) {
		atomic64_inc(&undirected);
		return -EDESTADDRREQ;
	}
	skb = alloc_skb(size, GFP_ATOMIC);
	if (!skb) {
		atomic64_inc(&failed);
		return -ENOMEM;
	}
	skb_put_data(skb, datagram, size);
	/* Frees the buffer in any case. */
	result = netlink_unicast(event_socket, skb, port, MSG_DONTWAIT);
	atomic64_inc(count_for(result));
	return result < 0 ? result : 0;
}

/**
 * channel_send() - send one occurrence of an event, unless it is suppressed
 * @device_id: the device that it is about
 * @type: event type
 * @data: what the subscribers get
 * @length: bytes of @data, at most PAL_DATA_MAX
 *
 * Return: 0 if it was sent; -EINVAL for a type or a length that does not
 * exist; -EBUSY if it is suppressed; else the error of the send.
 */
int channel_send(u16 device_id, u16 type, const void *data, u16 length)
{
	struct {
		struct pal_header header;
		u8 data[PAL_DATA_MAX];
	} *datagram;
	int result;

	if (length > PAL_DATA_MAX)
		return -EINVAL;
	result = registry_admit(type);
	if (result)
		return result;
	datagram = kzalloc(sizeof(datagram->header) + length, GFP_ATOMIC);
	if (!datagram) {
		atomic64_inc(&failed);
		return -ENOMEM;
	}
	datagram->header.length = length;
	datagram->header.event_type = type;
	datagram->header.device_id = device_id;
	memcpy((u8 *)datagram + sizeof(datagram->header), data, length);
	result = channel_send_raw(datagram, sizeof(datagram->header) + length);
	kfree(datagram);
	return result;
}

static long configure_events(const struct pal_header *header,
			     void __user *payload)
{
	struct event_message message;
	int error;

	if (header->length != sizeof(message))
		return -EINVAL;
	if (copy_from_user(&message, payload, sizeof(message)))
		return -EFAULT;
	error = registry_apply(&message);
	if (error)
		return error;
	return copy_to_user(payload, &message, sizeof(message)) ? -EFAULT : 0;
}

static long set_destination(const struct pal_header *header)
{
	if (header->length != 0)
		return -EINVAL;
	WRITE_ONCE(destination, header->destination);
	return 0;
}

static long pal_ioctl(struct file *file, unsigned int request,
		      unsigned long argument)
{
	u8 __user *user = (u8 __user *)argument;
	struct pal_header header;

	if (request != PAL_IOCTL_EVENT_CFG && request != PAL_IOCTL_EVENT_DEST)
		return -ENOTTY;
	if (copy_from_user(&header, user, sizeof(header)))
		return -EFAULT;
	if (request == PAL_IOCTL_EVENT_CFG)
		return configure_events(&header, user + sizeof(header));
	return set_destination(&header);
}

static const struct file_operations pal_operations = {
	.owner = THIS_MODULE,
	.open = nonseekable_open,
	.unlocked_ioctl = pal_ioctl,
	.llseek = no_llseek,
};

static struct miscdevice pal_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "mu_pal_ioctl",
	.fops = &pal_operations,
};

/**
 * channel_show() - write the destination and the counts
 * @status: the file to write to
 */
void channel_show(struct seq_file *status)
{
	seq_printf(status, "destination %u\n", READ_ONCE(destination));
	seq_printf(status, "sent %lld\n", atomic64_read(&sent));
	seq_printf(status, "overruns %lld\n", atomic64_read(&overruns));
	seq_printf(status, "refused %lld\n", atomic64_read(&refused));
	seq_printf(status, "undirected %lld\n", atomic64_read(&undirected));
	seq_printf(status, "failed %lld\n", atomic64_read(&failed));
}

/*
 * Without an input function the socket refuses what user space sends to it.
 */
int channel_start(void)
{
	struct netlink_kernel_cfg configuration = {};
	int error;

	event_socket = netlink_kernel_create(&init_net, PAL_NETLINK,
					     &configuration);
	if (!event_socket) {
		pr_err("netlink protocol %d is taken\n", PAL_NETLINK);
		return -EADDRINUSE;
	}
	error = misc_register(&pal_device);
	if (error)
		netlink_kernel_release(event_socket);
	return error;
}

void channel_stop(void)
{
	misc_deregister(&pal_device);
	netlink_kernel_release(event_socket);
}
