# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The event channel, netlink protocol 19: its sockets, their ports, and the datagrams. See fixture.py."""

import json
import signal
import socket
import struct
import sys
import time

import fixture
from fixture import AF_NETLINK, CHANNEL, TYPES, SimTest, datagram


class Datagrams(SimTest):

  def test_are_right_to_the_byte(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for line, expected in (('event 7 device 2 data 010203', datagram(7, 2, b'\1\2\3')),
                           ('event 7 device 2 data 01 02 03', datagram(7, 2, b'\1\2\3')),
                           ('event link-up', datagram(1)), ('event link-down port 65535', datagram(2, 65535)),
                           ('event traffic device 0', datagram(3)), ('event storm', datagram(4)),
                           (r'event 19 text "a\x00\n\"\\ #"', datagram(19, 0, b'a\0\n"\\ #')),
                           ('event 1 text word', datagram(1, 0, b'word')), ('event 1 text ""', datagram(1)),
                           ('event 0 data aAfF', datagram(0, 0, b'\xaa\xff')),
                           ('event 1 data ' + '5a' * 2024, datagram(1, 0, b'Z' * 2024)),
                           ('raw-datagram 01', b'\1'), ('raw-datagram ' + '00 ' * 23, bytes(23)),
                           ('raw-datagram ' + '11' * 24, b'\x11' * 24), ('raw-datagram ' + '22' * 2048, b'\x22' * 2048),
                           ('raw-datagram ' + '33' * 3000, b'\x33' * 3000)):
      with self.subTest(line=line[:40]):
        control.do(line)
        self.assertEqual(daemon.receive(sock), expected)
    self.assertFalse(daemon.has_more(sock))

  def test_have_the_form_of_the_worked_example(self):
    if fixture.ORDER != '<' or sys.byteorder != 'little':
      self.skipTest('the example is that of a little-endian machine')
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 7 device 2 data 010203')
    self.assertEqual(daemon.receive(sock).hex(' '), '00 00 03 00 00 00 07 00 00 00 02 00 00 00 00 00 '
                                                    '00 00 00 00 00 00 00 00 01 02 03')

  def test_that_are_longer_than_the_buffer_lose_their_rest(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('raw-datagram ' + '44' * 2049, 'event 1')
    self.assertEqual(daemon.ask('recvfrom', sock, 2048, 0), (2048, b'\x44' * 2048))
    self.assertEqual(daemon.ask('recvfrom', sock, 2048, 0), (24, datagram(1)))

  def test_come_in_the_order_of_the_commands(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for first in range(0, 600, 60):
      control.do(*('event %d device %d' % (number % TYPES, number) for number in range(first, first + 60)))
      for number in range(first, first + 60):
        self.assertEqual(daemon.receive(sock), datagram(number % TYPES, number))

  def test_name_no_sender(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.call('sender-size', sock), 0)  # it cannot grow beyond a netlink socket's 12 bytes

  def test_that_nobody_is_bound_for_are_counted(self):
    _, daemon, control = self.play()
    control.do('event 1 2 times', 'raw-datagram 00')
    self.assertEqual(control.status()['channel'], {'bound': False, 'port': 0, 'destination': 0, 'sent': 0, 'lost': 0,
                                                   'no_listener': 3})
    self.assertEqual(daemon.bind(daemon.socket(), 77), 0)
    control.do('event 1')  # bound, but not to the destination
    self.assertEqual(control.status()['channel']['no_listener'], 4)
    self.assertEqual(daemon.count(1), 3)  # the driver has counted its events
    self.assertFalse(daemon.has_more(daemon.channel()))

  def test_that_a_full_socket_does_not_take_are_lost_and_that_is_said_once(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1 data %s 2000 times' % ('00' * 1000))
    control.wait_until_done()
    channel = control.status()['channel']
    self.assertGreater(channel['sent'], 10)
    self.assertGreater(channel['lost'], 0)
    self.assertEqual(channel['sent'] + channel['lost'], 2000)
    for _ in range(channel['sent']):
      self.assertEqual(daemon.receive(sock), datagram(1, 0, bytes(1000)))
    self.assertFalse(daemon.has_more(sock))
    control.do('event 2')
    self.assertEqual(daemon.receive(sock), datagram(2))
    self.assertEqual(control.status()['channel']['lost'], channel['lost'])
    self.assertEqual(sim.errors().count('a datagram is lost'), 1)

  def test_of_a_program_are_taken_no_notice_of(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    self.assertEqual(daemon.call('send', sock, bytes(24).hex()), 24)
    # In the form of a request to bind.
    self.assertEqual(daemon.call('send', sock, struct.pack(fixture.ORDER + 'II12x', 3, 12).hex()), 20)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))


class Bind(SimTest):

  def test_wants_a_whole_address_of_netlink(self):
    _, daemon, control = self.play()
    sock = daemon.socket()
    for size in (0, 1, 2, 8, 11):
      self.assert_error('EINVAL', daemon.bind(sock, 5, size))
    self.assert_error('EINVAL', daemon.bind(sock, 5, 12, socket.AF_INET))
    self.assertFalse(control.status()['channel']['bound'])
    self.assertEqual(daemon.bind(sock, 5), 0)

  def test_of_a_bound_socket_keeps_its_port(self):
    _, daemon, _ = self.play()
    sock = daemon.socket()
    self.assertEqual(daemon.bind(sock, 77), 0)
    self.assertEqual(daemon.bind(sock, 77, 22), 0)  # the same again, in a longer address
    self.assert_error('EINVAL', daemon.bind(sock, 78))

  def test_gives_a_port_to_one_socket_at_a_time(self):
    _, daemon, control = self.play()
    port = daemon.call('getppid')
    first, second = daemon.channel(), daemon.socket()
    self.assert_error('EADDRINUSE', daemon.bind(second, port))
    self.assert_error('EADDRINUSE', daemon.call('in-child', 'bind-netlink', second, port, 12, AF_NETLINK))
    control.do('event 1')
    self.assertEqual(daemon.receive(first), datagram(1))
    daemon.call('close', first)
    self.assertEqual(daemon.bind(second, port), 0)
    control.do('event 2')
    self.assertEqual(daemon.receive(second), datagram(2))

  def test_to_port_0_finds_a_free_one(self):
    _, daemon, control = self.play()
    socks = [daemon.call('socket', AF_NETLINK, kind, CHANNEL) for kind in (socket.SOCK_RAW, socket.SOCK_DGRAM)]
    for sock in socks:
      self.assertEqual(daemon.bind(sock, 0), 0)
    self.assertEqual(daemon.bind(daemon.socket(), 5), 0)
    self.assert_error('EINVAL', daemon.bind(socks[0], 6))
    self.assertFalse(control.status()['channel']['bound'])


class Channel(SimTest):

  def test_is_that_of_the_port_that_the_driver_was_given(self):
    _, daemon, control = self.play()
    sock, other = daemon.channel(), daemon.socket()
    port = daemon.call('getppid')
    self.assertEqual((control.status()['channel']['port'], control.status()['channel']['destination']), (port, port))
    self.assertEqual(daemon.bind(other, 77), 0)
    self.assertEqual(daemon.set_destination(77), 0)
    control.do('event 1')
    self.assertEqual(daemon.receive(other), datagram(1))
    self.assertFalse(daemon.has_more(sock))
    self.assertEqual(daemon.set_destination(78), 0)
    before = control.status()['channel']
    control.do('event 2 3 times', 'raw-datagram 00')
    after = control.status()['channel']
    self.assertEqual((after['sent'] - before['sent'], after['no_listener'] - before['no_listener']), (0, 4))
    self.assertEqual([daemon.has_more(one) for one in (sock, other)], [False, False])

  def test_is_one_socket_for_children_and_threads(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1 3 times')
    for where in (('thread',), ('in-child',), ()):
      self.assertEqual(daemon.ask(*where, 'recvfrom', sock, 99, 0), (24, datagram(1)))

  def test_ends_when_it_is_closed(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()
    daemon.call('close', sock)
    sim.until(lambda: not control.status()['channel']['bound'], 'the end of the channel')
    control.do('event 1')
    self.assertEqual(control.status()['channel']['no_listener'], 1)

  def test_is_closed_for_whoever_asks_next(self):
    sim, daemon, control = self.play()
    control.status()
    sock = daemon.channel()
    sim.process.send_signal(signal.SIGSTOP)
    self.assertEqual(daemon.call('close', sock), 0)
    control.sock.sendall(b'event 1\nstatus\n')  # so that it receives both together
    sim.process.send_signal(signal.SIGCONT)
    self.assertEqual(control.answer(), ['ok'])
    channel = json.loads(control.answer()[0])['channel']
    self.assertEqual((channel['bound'], channel['no_listener'], channel['lost']), (False, 1, 0))

  def test_is_waited_for_with_select(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    other = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.ask('select', sock, other, 0), (0, b'\0'))
    before = time.monotonic()
    self.assertEqual(daemon.ask('select', sock, other, 200), (0, b'\0'))
    self.assertGreaterEqual(time.monotonic() - before, 0.2)
    control.do('event 1')
    self.assertEqual(daemon.ask('select', sock, other, -1), (1, b'\1'))
    self.assertEqual(daemon.ask('select', other, sock, -1), (1, b'\2'))
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertEqual(daemon.ask('select', sock, other, 0), (0, b'\0'))
    self.assertEqual(daemon.call('close', other), 0)
    self.assert_error('EBADF', daemon.ask('select', sock, other, -1)[0])


if __name__ == '__main__':
  fixture.main()
