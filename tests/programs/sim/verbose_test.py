# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The messages of tarn-sim: hints, and the details of --verbose. See fixture.py.

hints_test.cpp tests when a hint is due.
"""

import os
import re

import fixture
from fixture import KMSG, SET, SimTest

UNREAD = 'hint: kernel lines wait, but nobody has opened /proc/kmsg: '
SETTINGS = 'hint: the script waits for the settings of an event (await settings): '
OPENED = "hint: the script waits for the daemon's event channel (await channel): "
TAKEN = 'hint: a second event channel wants port 77. '


class SaidHints(SimTest):

  def test_come_while_the_daemon_runs(self):
    sim, _, _ = self.play(script='kmsg line\nawait settings\n')
    sim.until_said(UNREAD, SETTINGS)

  def test_come_at_the_latest_when_the_daemon_ends(self):
    for script, hint in (('kmsg line\n', UNREAD), ('await settings\n', SETTINGS), ('await channel\n', OPENED)):
      with self.subTest(script=script):
        _, _, errors = self.run_to_end('--no-namespace', '--script', self.write('script.sim', script), '--', 'sleep',
                                       '0.1')
        self.assertEqual(errors.count('tarn-sim: ' + hint), 1, errors)

  def test_do_not_come_where_all_was_found(self):
    sim, daemon, control = self.play(script='kmsg line\nawait channel\nawait settings\nsay ready\n')
    daemon.open(KMSG, os.O_RDONLY)
    daemon.channel()
    daemon.configure(SET, 1, 1, 3, 100)
    sim.until_said('tarn-sim: ready\n')
    control.do('kmsg more')
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    self.assertNotIn('hint', sim.errors())

  def test_do_not_come_when_the_user_ends_it(self):
    sim, _, _ = self.play(script='await settings\n')
    sim.process.terminate()
    sim.wait()
    self.assertNotIn('hint', sim.errors())

  def test_of_a_taken_port_comes_once(self):
    sim, daemon, _ = self.play()
    self.assertEqual(daemon.bind(daemon.socket(), 77), 0)
    for _ in range(2):
      self.assert_error('EADDRINUSE', daemon.bind(daemon.socket(), 77))
    self.assertEqual(sim.errors().count('tarn-sim: ' + TAKEN), 1, sim.errors())

  def test_of_a_taken_port_does_not_come_for_a_failure_that_was_asked_for(self):
    sim, daemon, control = self.play()
    control.do('fail bind')
    self.assert_error('EADDRINUSE', daemon.bind(daemon.socket(), 77))
    self.assertNotIn('hint', sim.errors())


class Verbose(SimTest):

  TIME = r'^tarn-sim: \[ *(\d+\.\d{3})\] '

  def test_lines_have_their_time(self):
    sim, _, control = self.play('--verbose', script='at 100ms say later\n')
    sim.until_said('later')
    before = control.status()['time_ms']
    control.do('say now')
    times = {word: float(re.search(self.TIME + word + '$', sim.errors(), re.MULTILINE)[1]) for word in ('later', 'now')}
    self.assertGreaterEqual(times['later'] + 0.01, 0.1)  # a tick
    self.assertGreaterEqual(times['now'] + 0.01, before / 1000)

  def test_events_have_their_names(self):
    sim, daemon, control = self.play('--verbose')
    daemon.configure(SET, 7, 1, 0, fixture.LONG_MS)
    control.do('event link-down port 3', 'event 8', 'name 7 door', 'event door')
    sim.until_said('] events: set, type 7\n', '] event 2 (link-down), device 3, 0 bytes\n',
                   '] event 8, device 0, 0 bytes\n', '] event 7 (door): suppression begins\n', '] event 7 (door): suppressed\n')

  def test_without_it_lines_have_no_time_and_there_are_no_details(self):
    sim, _, control = self.play()
    control.do('event 1', 'say fine')
    sim.until_said('tarn-sim: fine\n')
    self.assertNotIn('event 1', sim.errors())


if __name__ == '__main__':
  fixture.main()
