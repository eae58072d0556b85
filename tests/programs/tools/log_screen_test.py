# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Colours and bars of tarn-log on a terminal, and output that cannot be written.

Usage: log_screen_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import re
import resource
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (LEVELS, LogTest, MARK, Record, START, WRONG, all_shown, command_line, record, system_log)
import programs


class Colour(LogTest):
  def setUp(self):
    super().setUp()
    self.records = [Record(START + i, level, 'm', 'x') for i, level in enumerate(LEVELS)]
    self.write(self.system, system_log(self.records))
    self.plain = all_shown(self.records).decode()

  def without_colour(self, text):
    return re.sub('\x1b\\[[0-9;]*m', '', text)

  def test_only_on_a_terminal(self):
    coloured = self.on_terminal(self.system)
    self.assertNotEqual(coloured, self.plain)
    self.assertEqual(self.without_colour(coloured), self.plain)
    self.assertEqual(self.do(self.system).decode(), self.plain)
    self.assertEqual(self.do('--color=always', self.system).decode(), coloured)
    self.assertEqual(self.on_terminal('--color=auto', self.system, env={'NO_COLOR': ''}), coloured)
    for args, env in ((('--color=never',), {}), ((), {'NO_COLOR': '1'}), ((), {'TERM': 'dumb'}), ((), {'TERM': ''})):
      self.assertEqual(self.on_terminal(*args, self.system, env=env), self.plain, (args, env))
    self.assertEqual(self.on_terminal('--color=always', self.system, env={'NO_COLOR': '1'}), coloured)

  def test_grave_levels_look_different_from_others(self):
    looks = {}
    for level, line in zip(LEVELS, self.do('--color=always', self.system).decode().splitlines()):
      looks[level] = re.search('((?:\x1b\\[[0-9;]*m)?)' + level, line).group(1)
      self.assertFalse(line.count('\x1b') % 2, 'each colour ends')
    self.assertEqual(looks['Info'], '')
    grave = ['Emergency', 'Critical', 'Error', 'Warning', 'Notice', 'Info', 'Debug']
    self.assertEqual(len({looks[level] for level in grave}), len(grave))


class Screen(LogTest):
  def setUp(self):
    super().setUp()
    self.write('log', MARK + record(level='Error') + record(START + 1, 'Info', 'uplink', 'a') * 3 + record(START + 2,
                                                                                                           'Debug'))

  def test_colour_only_on_a_terminal(self):
    plain = self.do('log')
    self.assertNotIn(b'\x1b', plain)
    for args, env, coloured in ((('log',), {}, True), (('log',), {'NO_COLOR': '1'}, False),
                                (('log',), {'TERM': 'dumb'}, False),
                                (('--color=never', 'log'), {}, False),
                                (('--color=always', 'log'), {'NO_COLOR': '1'}, True),
                                (('--color=auto', 'log'), {}, True), (('--json', 'log'), {}, False)):
      output = self.on_terminal(*args, env=env)
      self.assertEqual('\x1b' in output, coloured, (args, env))
      if '--json' not in args:
        self.assertEqual(re.sub('\x1b\\[[0-9;]*m', '', output), plain.decode())
    piped = self.do('--color', 'always', 'log', env={'NO_COLOR': '1'})
    self.assertIn(b'\x1b', piped)
    for line in piped.splitlines():  # colours end with the line, and the text has none
      self.assertNotIn(b'\x1b', line.split(b': ')[1])
      self.assertEqual(2 * line.count(b'\x1b[0m'), line.count(b'\x1b['))
    for word in ('', 'yes', 'ALWAYS'):
      self.refuse('--color', word, 'log', says='--color')

  def test_count(self):
    expected = [['5', 'records'], [], ['By', 'level'], ['Error', '1'], ['Info', '3'], ['Debug', '1'], [],
                ['By', 'module'], ['switch', '2'], ['uplink', '3']]
    found = [line.split() for line in self.do('--count', 'log').decode().splitlines()]
    self.assertEqual((found[:6], sorted(found[8:])), (expected[:6], expected[8:]))
    self.assertEqual(json.loads(self.do('--count', '--json', 'log')),
                     {'records': 5, 'levels': {'Error': 1, 'Info': 3, 'Debug': 1},
                      'modules': {'switch': 2, 'uplink': 3}})
    self.assertEqual(json.loads(self.do('--count', '--json', '-l', 'er', 'log')),
                     {'records': 1, 'levels': {'Error': 1}, 'modules': {'switch': 1}})
    self.assertEqual(json.loads(self.do('--count', '--json', '-g', 'none', 'log'))['records'], 0)

  def test_bars_on_a_terminal(self):
    for columns in (40, 80, 200):
      output = self.on_terminal('--count', 'log', columns=columns)
      bars = dict(re.findall(r'^  (\w+) +\d+  (\S+)$', output, re.MULTILINE))
      self.assertEqual(set(bars), {'Error', 'Info', 'Debug', 'switch', 'uplink'})
      lengths = {name: len(bar) for name, bar in bars.items()}
      self.assertEqual(lengths['Info'], lengths['uplink'])  # the longest of each
      self.assertEqual(lengths['Error'], max(lengths['Info'] // 3, 1))
      self.assertEqual(lengths['switch'], max(2 * lengths['uplink'] // 3, 1))
      self.assertLess(max(map(len, output.splitlines())), columns + 1)
      if columns > 40:
        self.assertGreater(lengths['Info'], columns // 2)

  def test_output_that_cannot_be_written(self):
    for args in (('log',), ('--json', 'log'), ('--count', 'log'), ('-f', 'log'), ('--help',), ('--version',)):
      with open('/dev/full', 'wb') as full:
        status, _, errors = self.run_program(*args, stdout=full)
      self.assertEqual((status, errors), (WRONG, b'tarn-log: standard output: No space left on device\n'), args)

  def test_output_that_may_not_grow_is_reported(self):
    # The signal that is sent then must not end tarn-log without a message.
    with open(self.path('out'), 'wb') as out:
      status, _, errors = self.run_program(
          'log', stdout=out, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10)))
    self.assertEqual((status, errors), (WRONG, b'tarn-log: standard output: File too large\n'))


if __name__ == '__main__':
  programs.main(command_line)
