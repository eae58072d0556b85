# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-event status and watch.

Usage: event_status_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-EVENT
"""

import json
import os
import re
import signal
import subprocess
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from event_fixture import (DONE, EventTest, NOT_SO, Simulation, WRONG, command_line, event, state)
import programs


class Status(EventTest):
  def test_shows_events_levels_and_counters(self):
    simulation = self.simulate_state(state())
    status, output, errors = self.run_tool('status')
    self.assertEqual((status, errors), (DONE, ''))
    self.assertEqual(simulation.lines, ['status\n'])
    self.assertEqual(re.sub(' +', ' ', output).replace(' \n', '\n').split('\n'), [
        '12.30 s: daemon 4711 runs, events go to port 4710',
        'datagrams 15 sent, 2 lost, 1 without a listener',
        'kernel log 4 lines, 1 withheld by level, 0 lost',
        'script 9 commands done, 0 to come',
        '',
        'Type Name Count Storms Dropped Threshold Period',
        '1 link-up 3 - - - -',
        '3 traffic 6 suppressed 12 3 100 ms',
        '',
        'Module Drivers Print Record',
        '5 log Notice Warning',
        ''])

  def test_columns_line_up(self):
    self.simulate_state(state())
    _, output, _ = self.run_tool('status')
    head, first, second = output.split('\n')[5:8]
    self.assertEqual({len(first), len(second)}, {len(head)})
    self.assertEqual(head.index('Storms'), second.index('suppressed'))

  def test_a_type_that_is_not_in_use_is_left_out_unless_all_are_wanted(self):
    self.simulate_state(state())
    self.assertNotRegex(self.run_tool('status')[1], '(?m)^0 ')
    self.assertRegex(self.run_tool('status', '--all')[1], '(?m)^0 ')

  def test_a_type_without_a_name_that_is_in_use_is_shown(self):
    self.simulate_state(state(events=[event(8, count=1), event(9, suppression=True), event(10, suppressed_count=2),
                                      event(11)], modules=[]))
    self.assertEqual(re.findall(r'(?m)^(\d+) {2,}', self.run_tool('status')[1]), ['8', '9', '10'])

  def test_suppression_that_is_not_at_work(self):
    self.simulate_state(state(events=[event(8, suppression=True, threshold=9, period_ms=20)]))
    self.assertRegex(self.run_tool('status')[1], r'(?m)^8 +0 +open +0 +9 +20 ms$')

  def test_without_levels_there_is_no_table_of_modules(self):
    self.simulate_state(state(modules=[]))
    self.assertNotIn('Module', self.run_tool('status')[1])

  def test_a_silent_module_and_a_level_without_a_name(self):
    self.simulate_state(state(modules=[{'id': 16, 'enabled': False, 'print': 9, 'record': 0}]))
    self.assertRegex(self.run_tool('status')[1], r'(?m)^16 +silent +\? +Off$')

  def test_a_daemon_that_does_not_wait_for_events(self):
    self.simulate_state(state(channel={**state()['channel'], 'bound': False}))
    status, output, errors = self.run_tool('status')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertIn('daemon 4711 runs, it does not wait for events\n', output)

  def test_a_daemon_that_has_ended(self):
    self.simulate_state(state(daemon={'pid': 4711, 'running': False},
                              channel={**state()['channel'], 'bound': False}))
    status, output, _ = self.run_tool('status')
    self.assertEqual(status, NOT_SO)
    self.assertIn('the daemon has ended', output)

  def test_json_is_the_simulations_own(self):
    self.simulate_state(state())
    status, output, errors = self.run_tool('status', '--json')
    self.assertEqual((status, errors, output.count('\n')), (DONE, '', 1))
    self.assertEqual(json.loads(output), state())

  def test_what_is_not_a_state(self):
    for answer in (b'ok\n', b'{}\nok\n', b'[]\nok\n', b'nonsense\nok\n', b'{"time_ms":"x"}\nok\n'):
      with self.subTest(answer=answer):
        simulation = Simulation(self.control, lambda line, reply=answer: reply)
        status, output, errors = self.run_tool('status')
        simulation.close()
        os.unlink(self.control)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertRegex(errors, "^tarn-event: the simulation's state is not understood: ")

  def test_large_numbers(self):
    self.simulate_state(state(events=[event(3, count=2**32 - 1)]))
    self.assertIn(' 4294967295 ', self.run_tool('status')[1])


class Watch(EventTest):
  def test_looks_so_often(self):
    simulation = self.simulate_state(state())
    status, output, errors = self.run_tool('watch', '--count=3', '--interval=0.01')
    self.assertEqual((status, errors), (DONE, ''))
    self.assertEqual(simulation.lines, ['status\n'] * 3)
    self.assertEqual(output.count('Type '), 3)

  def test_shows_what_has_come_since(self):
    later = state(events=[event(1, name='link-up', count=3),
                          event(3, name='traffic', count=10, suppression=True, suppressed_count=21, threshold=3,
                                period_ms=100)])
    self.simulate_state(state(), later)
    _, output, _ = self.run_tool('watch', '--count=2', '--interval=0.01')
    first, second = output.split('\n\n12.30', 1)
    self.assertNotIn('+', first)
    self.assertRegex(second, r'(?m)^3 +traffic +10 +\+4 +open +21 +\+9 +3 +100 ms$')
    self.assertRegex(second, r'(?m)^1 +link-up +3 +- +- +- +-$')

  def test_a_counter_that_was_cleared_has_not_grown(self):
    self.simulate_state(state(), state(events=[event(3, name='traffic', count=1)]))
    _, output, _ = self.run_tool('watch', '--count=2', '--interval=0.01')
    self.assertNotIn('+', output)

  def test_json_is_one_line_a_look(self):
    self.simulate_state(state())
    status, output, _ = self.run_tool('watch', '--json', '--count=2', '--interval=0.01')
    self.assertEqual((status, [json.loads(line) for line in output.splitlines()]), (DONE, [state(), state()]))

  def test_ends_with_the_simulation(self):
    answers = [json.dumps(state()).encode() + b'\nok\n', None]
    self.simulate(lambda line: answers.pop(0))
    status, output, errors = self.run_tool('watch', '--interval=0.01')
    self.assertEqual((status, output.count('Type ')), (DONE, 1))
    self.assertEqual(errors, 'tarn-event: %s: the simulation has ended\n' % self.control)

  def test_goes_on_until_interrupted(self):
    simulation = self.simulate_state(state())
    with subprocess.Popen(command_line + ['--root', self.folder, 'watch', '--json', '--interval=0.01'],
                          stdout=subprocess.PIPE, stdin=subprocess.DEVNULL) as process:
      for _ in range(5):
        self.assertEqual(json.loads(process.stdout.readline()), state())
      process.send_signal(signal.SIGINT)
      process.stdout.read()
      self.assertEqual(process.wait(), -signal.SIGINT)
    self.assertGreaterEqual(len(simulation.lines), 5)

  def test_ends_when_nobody_reads_any_more(self):
    self.simulate_state(state())
    with subprocess.Popen(command_line + ['--root', self.folder, 'watch', '--json', '--interval=0.01'],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL) as process:
      process.stdout.readline()
      process.stdout.close()
      self.assertIn(process.wait(), (DONE, WRONG))

  def test_each_look_takes_the_place_of_the_last_on_a_terminal(self):
    self.simulate_state(state())
    ours, theirs = programs.open_terminal(self)
    with subprocess.Popen(self.line(['--root', self.folder, 'watch', '--count=2', '--interval=0.01']),
                          stdout=theirs, stdin=subprocess.DEVNULL) as process:
      os.close(theirs)
      output = programs.read_terminal(ours)
      self.assertEqual(process.wait(), DONE)
    self.assertEqual(output.count(b'\033[H\033[2J'), 2)

  def test_intervals_have_bounds(self):
    self.assert_wrong('.*--interval', 'watch', '--interval=0')

  def test_no_look_at_all_is_refused(self):
    self.assert_wrong('.*--count', 'watch', '--count=0')


if __name__ == '__main__':
  programs.main(command_line)
