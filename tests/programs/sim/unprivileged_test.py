# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-sim and its daemon as a user without rights. See fixture.py.

If root runs these tests, they drop its rights; another user has none.
"""

import os
import re
import resource

import fixture
from fixture import KMSG, NOBODY, SimTest, datagram, programs

SCHED_OTHER, SCHED_RR = 0, 2
STACK = 1 << 20


class UnprivilegedTest(SimTest):

  def setUp(self):
    super().setUp()
    os.mkdir(self.root)
    self.user = {}
    self.launcher, self.caller = fixture.tarn_sim, fixture.caller()
    self.gatewayd = os.environ.get('TARN_TEST_GATEWAYD')
    if os.geteuid() != 0:
      return
    os.chown(self.root, NOBODY, NOBODY)
    shim = os.path.join(os.path.dirname(fixture.tarn_sim), 'tarn-sim-shim.so')
    library = os.environ['TARN_TEST_LIBRARY']
    daemons = [self.caller] + ([self.gatewayd] if self.gatewayd else [])
    self.launcher, _, library, self.caller, *rest = programs.copy_for_others(self, self.launcher, shim, library,
                                                                            *daemons)
    self.gatewayd = rest[0] if rest else None
    self.user = {'user': NOBODY, 'group': NOBODY, 'extra_groups': [], 'cwd': '/',
                 'env': {**os.environ, 'LD_LIBRARY_PATH': os.path.dirname(library)}}

  def unprivileged(self, *options, command=None, **run):
    command = command or (lambda talk: [*fixture.emulator, self.caller, talk])
    return self.sim(*options, launcher=self.launcher, command=command, **{**self.user, **run})


class Unprivileged(UnprivilegedTest):

  def assert_everything_works(self, sim):
    daemon, control = sim.meet(), sim.control()
    sock = daemon.channel()
    control.do('event 1', 'kmsg line')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertIn(b'line', daemon.ask('read', daemon.open(KMSG, os.O_RDONLY), 99)[1])
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertEqual(daemon.send_datagram('192.168.1.254', 514, b'hello'), 5)
    sim.until(lambda: control.status()['collector']['received'] == 1, 'the datagram')
    how = control.status()['collector']['how']
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    return how

  def test_everything_works(self):
    self.assertEqual(self.assert_everything_works(self.unprivileged()), 'shim')

  def test_everything_works_in_a_network_of_its_own(self):
    if self.assert_everything_works(self.unprivileged(namespace=True)) != 'namespace':
      self.skipTest('no network namespace is permitted here')

  def test_a_folder_that_may_not_be_written_is_refused(self):
    closed = self.path('closed')
    os.mkdir(closed, 0o555)
    for root in (closed, closed + '/new'):
      self.assert_refused('^tarn-sim: %s: Permission denied\n' % re.escape(root), '--no-namespace', '--root', root,
                          '--', 'true', launcher=self.launcher, **self.user)


class RealTime(UnprivilegedTest):

  def test_threads_become_ordinary_ones_where_the_right_is_missing(self):
    sim = self.unprivileged(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_RTPRIO, (0, 0)))
    daemon = sim.meet()
    expected = (0, b'%d 8192 %d' % (STACK, SCHED_OTHER))
    for where in ((), (), ('in-child',)):
      self.assertEqual(daemon.ask(*where, 'realtime', STACK, SCHED_RR, 0), expected)

  def test_that_is_said_once(self):
    sim = self.unprivileged(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_RTPRIO, (0, 0)))
    daemon = sim.meet()
    for _ in range(3):
      daemon.ask('realtime', STACK, SCHED_RR, 0)
    self.assertEqual(sim.errors().count('no right to real-time scheduling'), 1, sim.errors())

  def test_threads_keep_it_where_the_right_is_there(self):
    sim, daemon, _ = self.play()
    result, state = daemon.ask('realtime', STACK, SCHED_RR, 0)
    if state.endswith(b' %d' % SCHED_OTHER):
      self.skipTest('no right to real-time scheduling here')
    self.assertEqual((result, state), (0, b'%d 8192 %d' % (STACK, SCHED_RR)))
    self.assertNotIn('real-time', sim.errors())


class Gatewayd(UnprivilegedTest):

  def test_runs_without_rights(self):
    if self.gatewayd is None:
      self.skipTest('gatewayd is not built')
    sim = self.unprivileged(command=[*fixture.emulator, self.gatewayd, '--config', self.below_root('cfg'),
                                     '--set-collector', '192.168.1.254'])
    sim.until(lambda: 'started, boot count 1' in sim.output(), 'the start')  # it has subscribed and set its levels
    control = sim.control()
    sim.until(lambda: control.status()['channel']['bound'], 'the channel')  # by a separate thread
    control.do('event link-down port 3', 'kmsg 5 6 "port 3 is down"', 'kmsg "other"', 'event traffic device 8 10 times')
    sim.until(lambda: 'device 3: link down' in sim.output(), 'the event')
    # Three in a window are enough for it.
    sim.until(lambda: control.status()['events'][3]['suppressed_count'] >= 7, 'the suppression')
    status = control.status()
    self.assertEqual(status['channel']['lost'], 0)
    self.assertEqual([module['record'] for module in status['modules'] if module['id'] == 5], [7])
    sim.until(lambda: 'port 3 is down\n' in self.read(self.below_root('collector.log')), 'the line at the collector')
    control.do('stop')
    self.assertEqual(sim.wait(), 0)
    self.assertIn('port 3 is down', self.read(self.below_root('overlay/mu_log.txt')))


if __name__ == '__main__':
  fixture.main()
