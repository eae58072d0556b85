# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The simulated devices as files and sockets: opened, duplicated, inherited, closed. See fixture.py."""

import errno
import os
import socket

import fixture
from fixture import (AF_NETLINK, CHANNEL, CONFIGURE, DESTINATION, GET, KMSG, LOG_DEVICE, PAL, SET, SET_LEVEL, SOCK_RAW,
                     SimTest, datagram, header, level_message, message)

VARIANTS = ('open', 'open64', 'openat', 'openat64', '__open_2', '__open64_2', '__openat_2', '__openat64_2')


class Devices(SimTest):

  def test_are_opened_by_every_variant(self):
    _, daemon, control = self.play()
    control.do('kmsg "a line"')
    for path in (PAL, LOG_DEVICE, KMSG):
      for variant in VARIANTS:
        with self.subTest(path=path, variant=variant):
          file = daemon.open(path, os.O_RDONLY if path == KMSG else os.O_RDWR, variant)
          self.assertGreaterEqual(file, 0)
          self.assertEqual(daemon.call('close', file), 0)
      for variant in ('fopen', 'fopen64'):
        with self.subTest(path=path, variant=variant):
          self.assertGreaterEqual(daemon.call('fopen', variant, path, 'r' if path == KMSG else 'r+'), 0)

  def test_answer_whatever_variant_opened_them(self):
    _, daemon, control = self.play()
    for number, variant in enumerate(VARIANTS):
      with self.subTest(variant=variant):
        file = daemon.open(PAL, variant=variant)
        self.assertEqual(daemon.ioctl(file, DESTINATION, header(destination=100 + number))[0], 0)
        self.assertEqual(control.status()['channel']['destination'], 100 + number)

  def test_are_found_by_access(self):
    _, daemon, _ = self.play()
    for path in (PAL, LOG_DEVICE, KMSG):
      for call in ('access', 'faccessat'):
        self.assertEqual(daemon.call(call, path, os.F_OK), 0, path)
        self.assertEqual(daemon.call(call, path, os.R_OK | os.W_OK), 0, path)

  def test_are_closed_on_exec_as_was_asked_for(self):
    _, daemon, _ = self.play()
    for path in (PAL, LOG_DEVICE, KMSG):
      for flags, expected in ((0, 0), (os.O_CLOEXEC, 1)):
        self.assertEqual(daemon.call('cloexec', daemon.open(path, os.O_RDONLY | flags)), expected, (path, flags))
    for flags, expected in ((0, 0), (socket.SOCK_CLOEXEC, 1)):
      self.assertEqual(daemon.call('cloexec', daemon.socket(flags)), expected, flags)

  def test_do_not_block_where_that_was_asked_for(self):
    _, daemon, _ = self.play()
    self.assert_error('EAGAIN', daemon.call('read', daemon.open(KMSG, os.O_RDONLY | os.O_NONBLOCK), 9))
    sock = daemon.socket(socket.SOCK_NONBLOCK)
    self.assertEqual(daemon.bind(sock, 5), 0)
    self.assert_error('EAGAIN', daemon.call('recvfrom', sock, 9, 0))

  def test_may_have_the_standard_descriptors(self):
    _, daemon, _ = self.play()
    for descriptor in (0, 1, 2):
      self.assertEqual(daemon.call('close', descriptor), 0)
    self.assertEqual(daemon.open(PAL), 0)
    self.assertEqual(daemon.open(LOG_DEVICE), 1)
    self.assertEqual(daemon.socket(), 2)
    self.assertEqual(daemon.ioctl(0, DESTINATION, header(destination=7))[0], 0)
    self.assertEqual(daemon.ioctl(1, SET_LEVEL, level_message(1, 1, 1))[0], 0)
    self.assertEqual(daemon.bind(2, 7), 0)
    self.assertEqual(daemon.configure(SET, 1, 1, 3, 1000)[0], 0)

  def test_leave_no_descriptors_behind_in_the_daemon(self):
    _, daemon, _ = self.play()
    lowest = daemon.open('/dev/null', os.O_RDONLY)
    daemon.call('close', lowest)
    for _ in range(20):
      self.assertEqual(daemon.configure(SET, 1, 1, 3, 1000)[0], 0)
      self.assertEqual(daemon.configure(6)[0], -errno.EINVAL)
      self.assertEqual(daemon.set_level(1, 1, 1), 0)
      daemon.open('/overlay/missing', os.O_RDONLY)
      sock = daemon.socket()
      self.assert_error('EINVAL', daemon.bind(sock, 5, 0))
      self.assertEqual(daemon.call('close', sock), 0)
    self.assertEqual(daemon.open('/dev/null', os.O_RDONLY), lowest)

  def test_are_none_once_their_descriptor_is_another_file(self):
    _, daemon, _ = self.play()
    file = daemon.open(PAL)
    daemon.call('close', file)
    self.assert_error('EBADF', daemon.ioctl(file, CONFIGURE, header(32) + message(GET))[0])
    self.assertEqual(daemon.open('/dev/null'), file)
    self.assert_error('ENOTTY', daemon.ioctl(file, CONFIGURE, header(32) + message(GET))[0])


class Copies(SimTest):

  def test_of_a_descriptor_are_the_device_too(self):
    _, daemon, control = self.play()
    file = daemon.open(PAL)
    copies = [daemon.call('dup', file), daemon.call('dup2', file, 0), daemon.call('dup2', file, 50)]
    daemon.call('close', file)
    for copy in copies:
      self.assertEqual(daemon.ioctl(copy, DESTINATION, header(destination=copy + 1))[0], 0)
      self.assertEqual(control.status()['channel']['destination'], copy + 1)
      daemon.call('close', copy)

  def test_of_a_channel_are_the_channel_too(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    copy, other = daemon.call('dup', sock), daemon.socket()
    daemon.call('close', sock)
    control.do('event 1')
    self.assertEqual(daemon.receive(copy), datagram(1))
    self.assertTrue(control.status()['channel']['bound'])
    self.assert_error('EADDRINUSE', daemon.bind(other, daemon.call('getppid')))
    daemon.call('close', copy)
    self.assertEqual(daemon.bind(other, daemon.call('getppid')), 0)

  def test_in_a_forked_child_answer_and_so_do_the_parents_afterwards(self):
    _, daemon, control = self.play()
    file, sock, port = daemon.open(PAL), daemon.channel(), daemon.call('getppid')
    self.assertEqual(daemon.call('fork'), 0)  # the child's answer
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(destination=9))[0], 0)
    self.assertEqual(control.status()['channel']['destination'], 9)
    self.assertEqual(daemon.set_destination(port), 0)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertEqual(daemon.set_level(1, 1, 1), 0)
    daemon.end(42)
    self.assertEqual(daemon.answer()[0], 42)
    control.do('event 2')
    self.assertEqual(daemon.receive(sock), datagram(2))
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(destination=8))[0], 0)
    self.assertEqual(control.status()['channel']['destination'], 8)

  def test_in_an_executed_program_answer(self):
    self.natively()  # the program executes itself
    _, daemon, control = self.play()
    file, sock = daemon.open(PAL), daemon.channel()
    daemon.send('exec')
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(destination=9))[0], 0)
    self.assertEqual(daemon.set_destination(daemon.call('getppid')), 0)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertGreaterEqual(daemon.open(KMSG, os.O_RDONLY), 0)

  def test_in_threads_answer(self):
    _, daemon, control = self.play()
    file = daemon.call('thread', 'open', 'open', PAL, os.O_RDWR)
    self.assertEqual(daemon.call('thread', 'ioctl', file, DESTINATION, header(destination=9).hex()), 0)
    sock = daemon.call('thread', 'socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    self.assertEqual(daemon.call('thread', 'bind-netlink', sock, 9, 12, AF_NETLINK), 0)
    control.do('event 1')
    self.assertEqual(daemon.ask('thread', 'recvfrom', sock, 99, 0), (24, datagram(1)))

  def test_in_a_thread_of_a_child_and_a_child_of_a_thread_answer(self):
    _, daemon, _ = self.play()
    file = daemon.open(PAL)
    get = (header(32) + message(GET, 7)).hex()
    for where in (('in-child', 'thread'), ('thread', 'in-child')):
      self.assertEqual(daemon.ask(*where, 'ioctl', file, CONFIGURE, get), (0, header(32) + message(GET, 7)), where)


class OtherCalls(SimTest):

  def test_to_ioctl_are_the_machines_own(self):
    _, daemon, _ = self.play()
    self.assert_error('ENOTTY', daemon.call('ioctl-null', daemon.open('/dev/null'), SET_LEVEL))
    self.assert_error('ENOTTY', daemon.call('ioctl-none', daemon.open('/dev/null'), CONFIGURE))
    file = daemon.open(self.write('four', 'four'), os.O_RDONLY)
    self.assertEqual(daemon.call('fionread', file), 4)
    self.assertGreaterEqual(daemon.call('fionread', daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)), 0)

  def test_to_netlink_sockets_of_other_protocols_are_the_machines_own(self):
    _, daemon, _ = self.play()
    route = daemon.call('socket', AF_NETLINK, SOCK_RAW, 0)
    self.assertGreaterEqual(route, 0)
    self.assert_error('EINVAL', daemon.bind(route, 0, 11))
    self.assertEqual(daemon.bind(route, 0), 0)
    # An emulator may know no other protocols.
    self.assertIn(-daemon.call('socket', AF_NETLINK, SOCK_RAW, 31), (errno.EPROTONOSUPPORT, errno.EAFNOSUPPORT))
    self.assert_error('EAFNOSUPPORT', daemon.call('socket', 99, SOCK_RAW, CHANNEL))

  def test_to_sockets_of_the_internet_are_the_machines_own(self):
    _, daemon, _ = self.play()
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('bind-inet', udp, '7f000001', 0), 0)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
      receiver.bind(('127.0.0.1', 0))
      receiver.settimeout(fixture.HANG_S)
      self.assertEqual(daemon.call('sendto', udp, '7f000001', receiver.getsockname()[1], '0102'), 2)
      self.assertEqual(receiver.recv(9), b'\1\2')


if __name__ == '__main__':
  fixture.main()
