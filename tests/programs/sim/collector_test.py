# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The log collector: port 514 in a separate network, through the shim, or the user's own. See fixture.py."""

import shutil
import socket
import subprocess

import fixture
from fixture import HANG_S, SimTest, datagram

ADDRESSES = ('127.0.0.1', '192.168.1.254', '10.9.8.7', '8.8.8.8')


class Collector(SimTest):

  def collected(self):
    return self.read(self.below_root('collector.log'))

  def assert_collects(self, sim, daemon, control):
    """Datagrams to any address arrive, and are written down."""
    for address in ADDRESSES:
      self.assertEqual(daemon.send_datagram(address, 514, b'to ' + address.encode()), 3 + len(address))
    sim.until(lambda: control.status()['collector']['received'] == len(ADDRESSES), 'the datagrams')
    sim.until(lambda: self.collected() == ''.join('to %s\n' % address for address in ADDRESSES), 'the lines')

  def test_is_reached_through_the_shim(self):
    sim, daemon, control = self.play()
    self.assert_collects(sim, daemon, control)
    status = control.status()['collector']
    self.assertEqual(status['how'], 'shim')
    self.assertEqual(int(daemon.ask('env', 'TARN_SIM_COLLECTOR_PORT')[1]), status['port'])
    sim.until_said('collector: port %d of the loopback interface stands for port 514' % status['port'])

  def test_is_reached_in_a_network_of_its_own(self):
    sim, daemon, control = self.play(namespace=True)
    if control.status()['collector']['how'] != 'namespace':
      self.skipTest('no network namespace is permitted here')
    self.assert_collects(sim, daemon, control)
    self.assertEqual(control.status()['collector'], {'how': 'namespace', 'port': 514, 'received': len(ADDRESSES)})
    sim.until_said('collector: port 514 of every address, in a network of the simulation')
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))

  def test_is_reached_through_the_shim_where_namespaces_are_not_permitted(self):
    forbid = ['unshare', '-Ur', 'sh', '-c', 'echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"', 'sh',
              'setpriv', '--bounding-set=-all', '--inh-caps=-all']
    if not shutil.which('setpriv') or subprocess.run(forbid + ['true'], check=False, capture_output=True).returncode:
      self.skipTest('needs a user namespace of its own, to forbid another one')
    sim, daemon, control = self.play(namespace=True, before=forbid)
    self.assertEqual(control.status()['collector']['how'], 'shim')
    self.assertEqual(daemon.send_datagram('10.0.0.1', 514, b'line'), 4)
    sim.until(lambda: control.status()['collector']['received'] == 1, 'the datagram')

  def test_may_be_ones_own(self):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
      own.bind(('127.0.0.1', 0))
      own.settimeout(HANG_S)
      port = own.getsockname()[1]
      sim, daemon, control = self.play('--collector', str(port), namespace=True)
      self.assertEqual(daemon.send_datagram('192.168.1.254', 514, b'hello'), 5)
      self.assertEqual(own.recv(99), b'hello')
      self.assertEqual(control.status()['collector'], {'how': 'own', 'port': port, 'received': 0})
      sim.until_said('collector: yours, on port %d' % port)

  def test_writes_control_characters_readably_and_drops_line_ends(self):
    sim, daemon, control = self.play()
    self.assertEqual(daemon.send_datagram('10.0.0.1', 514, b'a\\b\x01c\r'), 6)
    sim.until(lambda: control.status()['collector']['received'] == 1, 'the datagram')
    sim.until(lambda: self.collected() == 'a\\\\b\\x01c\n', 'the line')

  def test_has_all_that_came_when_the_daemon_ends(self):
    sim, daemon, _ = self.play()
    for number in range(50):
      self.assertEqual(daemon.send_datagram('10.0.0.1', 514, b'datagram%02d' % number), 10)
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    self.assertEqual(self.collected(), ''.join('datagram%02d\n' % number for number in range(50)))


if __name__ == '__main__':
  fixture.main()
