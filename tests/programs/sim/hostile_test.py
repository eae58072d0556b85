# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Clients and surroundings that misbehave: junk, floods, no descriptors, no console. See fixture.py."""

import os
import resource
import signal
import socket

import fixture
from fixture import PAL, SimTest, datagram


class Hostile(SimTest):

  def test_junk_on_the_devices_harms_nobody(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for device in ('dev/mu_pal_ioctl', 'dev/mulog-ioctl-dev', 'dev/netlink-19'):
      for junk in (b'', b'x', b'\xff' * 4, b'\xff' * 8, bytes(64), b'\xff' * 6000):
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as other:
          other.connect(self.below_root(device))
          try:
            other.send(junk)
          except OSError:
            pass  # the connection was closed
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as other:
      other.connect(self.below_root('proc/kmsg'))
      other.send(b'junk' * 1000)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertEqual(control.status()['channel']['destination'], daemon.call('getppid'))

  def test_descriptors_that_come_with_junk_are_closed(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()

    def open_descriptors():
      control.status()  # the earlier messages have been handled
      return len(os.listdir('/proc/%d/fd' % sim.process.pid))

    # The connection stays open, so that its end does not close anything.
    for device in ('dev/mu_pal_ioctl', 'dev/mulog-ioctl-dev', 'dev/netlink-19'):
      with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as other:
        other.connect(self.below_root(device))
        other.send(b'\xff' * 8)  # refused, and answered
        other.recv(8)
        before = open_descriptors()
        for size in (1, 4, 7, 8):
          for count in (1, 2):  # no message may have two
            with self.subTest(device=device, size=size, count=count):
              socket.send_fds(other, [b'\xff' * size], [0] * count)
              if size == 8:
                other.recv(8)
              sim.until(lambda wanted=before: open_descriptors() == wanted, 'the end of the descriptor')
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))

  def test_more_clients_than_descriptors(self):
    sim, daemon, control = self.play(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (40, 40)))
    clients = [socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) for _ in range(100)]
    for client in clients:
      client.setblocking(False)
      try:
        client.connect(self.below_root('control'))
      except BlockingIOError:
        pass
    control.do('say fine')
    for client in clients:
      client.close()
    control.do('say fine')
    sim.until(lambda: daemon.open(PAL) >= 0, 'a free descriptor')

  def test_a_console_that_is_gone(self):
    reader, writer = os.pipe()
    os.close(reader)
    script = self.write('dump.sim', 'dump\nsay after\nstop\n')
    status, _, errors = self.run_to_end('--no-namespace', '--script', script, '--', 'sleep', '1000', stdout=writer)
    os.close(writer)
    self.assertEqual(status, 128 + signal.SIGTERM)
    self.assertIn('tarn-sim: after\n', errors)

  def test_a_long_burst_lets_others_through(self):
    _, daemon, control = self.play()
    daemon.channel()
    control.do('event 1 100000000 times', 'say fine')
    self.assertGreater(control.status()['script']['pending'], 0)
    control.do('stop')


if __name__ == '__main__':
  fixture.main()
