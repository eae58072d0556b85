# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The shim without a launcher, as its page shows it. See fixture.py."""

import os
import socket
import subprocess

import fixture
from fixture import AF_NETLINK, CHANNEL, HANG_S, KMSG, LOG_DEVICE, PAL, SET_LEVEL, SOCK_RAW, Daemon, SimTest


class Preloaded(SimTest):

  def preloaded(self, **env):
    self.natively()
    clean = {name: value for name, value in os.environ.items() if not name.startswith('TARN_SIM_')}
    shim = os.path.join(os.path.dirname(fixture.tarn_sim), 'tarn-sim-shim.so')
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    self.addCleanup(listener.close)
    listener.bind(self.path('talk'))
    listener.listen()
    listener.settimeout(HANG_S)
    process = subprocess.Popen([fixture.caller(), self.path('talk')], env={**clean, 'LD_PRELOAD': shim, **env})
    daemon = Daemon(listener)

    def end():
      daemon.end()
      process.wait(timeout=HANG_S)
      daemon.close()

    self.addCleanup(end)
    return daemon

  def make_root(self):
    for folder in ('overlay', 'proc', 'dev'):
      os.makedirs(self.below_root(folder))
    return self.root

  def test_leads_paths_below_the_root(self):
    daemon = self.preloaded(TARN_SIM_ROOT=self.make_root())
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertTrue(os.path.exists(self.below_root('overlay/file')))
    for path in (PAL, LOG_DEVICE, KMSG):
      self.assert_error('ENOENT', daemon.open(path))
      self.write(self.root + path, 'content')
      self.assertEqual(daemon.ask('read', daemon.open(path, os.O_RDONLY), 99), (7, b'content'))
    self.assert_error('ENOTTY', daemon.call('ioctl-null', daemon.open(PAL), SET_LEVEL))

  def test_compares_paths_as_they_are_given(self):
    daemon = self.preloaded(TARN_SIM_ROOT=self.make_root())
    self.assert_error('ENOENT', daemon.open('/overlay/../etc/passwd', os.O_RDONLY))
    self.write('root/outside', 'content')
    self.assertEqual(daemon.ask('read', daemon.open('/overlay/../outside', os.O_RDONLY), 99), (7, b'content'))

  def test_hides_the_paths_without_a_root(self):
    daemon = self.preloaded()
    for path in ('/overlay', '/overlay/file', PAL, LOG_DEVICE, KMSG):
      self.assert_error('ENOENT', daemon.open(path, os.O_RDONLY))
      self.assert_error('ENOENT', daemon.call('access', path, os.F_OK))
      self.assert_error('ENOENT', daemon.call('unlink', path))

  def test_sends_datagrams_to_the_collectors_port(self):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
      own.bind(('127.0.0.1', 0))
      own.settimeout(HANG_S)
      daemon = self.preloaded(TARN_SIM_COLLECTOR_PORT=str(own.getsockname()[1]))
      self.assertEqual(daemon.send_datagram('10.0.0.1', 514, b'line'), 4)
      self.assertEqual(own.recv(99), b'line')

  def test_binds_a_collector_to_that_port(self):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
      free.bind(('127.0.0.1', 0))
      port = free.getsockname()[1]
    daemon = self.preloaded(TARN_SIM_COLLECTOR_PORT=str(port))
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('bind-inet', udp, '00000000', 514), 0)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
      sender.sendto(b'to 514', ('127.0.0.1', port))
    self.assertEqual(daemon.ask('recvfrom', udp, 99, 0), (6, b'to 514'))

  def test_swallows_datagrams_without_a_collector(self):
    daemon = self.preloaded()
    self.assertEqual(daemon.send_datagram('127.0.0.1', 514, b'line'), 4)

  def test_leaves_the_channel_to_the_machine(self):
    daemon = self.preloaded(TARN_SIM_ROOT=self.make_root())
    try:
      socket.socket(AF_NETLINK, SOCK_RAW, CHANNEL).close()
      expected = 0
    except OSError as refusal:
      expected = -refusal.errno
    self.assertEqual(min(0, daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)), expected)


if __name__ == '__main__':
  fixture.main()
