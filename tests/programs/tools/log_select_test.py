# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Which records tarn-log selects.

Usage: log_select_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (DONE, LEVELS, LogTest, MARK, Record, START, command_line, record, shown, system_log)
import programs


class Select(LogTest):
  def setUp(self):
    super().setUp()
    self.records = [Record(START + i, level, module, text) for i, (level, module, text) in enumerate((
        ('Off', 'switch', 'Port 1 is up'),
        ('Emergency', 'uplink', 'port 2 is down'),
        ('Alert', 'switch', 'a.c'),
        ('Critical', 'Switch', 'abc'),
        ('Error', 'uplink', 'ABC'),
        ('Warning', 'dhcp', 'lease of \u00c4rger'),
        ('Notice', 'switch', 'Error in the text'),
        ('Info', 'uplink', 'switch'),
        ('Debug', 'dhcp', 'port 22 is up'),
    ))]
    self.write(self.system, system_log(self.records))

  def assert_selects(self, numbers, *args):
    with self.subTest(args=args):
      self.assert_shows([self.records[i] for i in numbers], *args, self.system)

  def test_module(self):
    self.assert_selects([0, 2, 6], '--module=switch')
    self.assert_selects([3, 5, 8], '-m', 'dhcp', '-m', 'Switch')

  def test_a_module_without_records_is_reported_with_those_that_there_are(self):
    # Only the whole name is one.
    for name in ('swi', 'nosuch', ''):
      self.assertEqual(self.run_tool('-m', name, '-m', 'dhcp', '-n', '1', self.system),
                       (DONE, self.records[8].shown(),
                        'tarn-log: no record is of the module "%s"; there are Switch, dhcp, switch, uplink\n' % name))

  def test_a_module_is_not_reported_where_there_is_no_record(self):
    self.write(self.system, MARK)
    self.assert_shows([], '-m', 'nosuch', self.system)

  def test_level(self):
    for last, name in enumerate(LEVELS):
      for word in (name, name.lower(), name.upper(), str(last), name[:3]):
        self.assert_selects(range(last + 1), '--level', word)
    self.assert_selects([4, 5, 6], '-l', 'error..notice')
    self.assert_selects([4, 5, 6], '-l', '6..4')
    self.assert_selects([4], '-l', 'err..err')

  def test_what_is_not_a_level(self):
    for word in ('', 'x', 'e', '9', '10', 'errors', '..', 'error..', '..error', 'a..b..c', ' error'):
      self.refuse('--level', word, self.system, matches='--level')

  def test_text(self):
    self.assert_selects([1, 8], '--grep=port')
    self.assert_selects([0, 1, 8], '-i', '-g', 'PORT')
    self.assert_selects([2], '-g', 'a.c')
    self.assert_selects([2, 7], '-g', 'a.c', '-g', 'switch')
    self.assert_selects([6], '-g', 'Error')

  def test_regular_expression(self):
    self.assert_selects([2, 3], '--regex', 'a.c')
    self.assert_selects([2, 3, 4], '-e', '^a.c$', '--ignore-case')
    self.assert_selects([0, 8], '-e', 'ort (1|[0-9]{2}) is up')
    self.assert_selects([3, 7], '-e', 'abc', '-e', '^switch')
    self.refuse('-e', '(', self.system, matches='--regex: "\\(" is not a regular expression: ')

  def test_conditions_of_different_kinds_must_all_hold(self):
    self.assert_selects([8], '-g', 'port', '-m', 'dhcp')
    self.assert_selects([1], '-g', 'port', '-e', 'down|ABC', '-l', 'error')
    self.assert_selects([6], '-m', 'switch', '-m', 'dhcp', '--since', '2026-01-02 03:04:06', '-l', 'notice', '-g',
                        'Err')
    self.assert_selects([3, 6], '-e', 'text|abc', '-n', '2')


class SelectFromAll(LogTest):
  """Options that choose records of every level, module and text."""

  ALL = [(START + i, level, module, '%s says %s' % (module, word)) for i, (level, module, word) in enumerate(
      (level, module, word) for level in LEVELS for module in ('switch', 'uplink', 'Switch') for word in ('up',
                                                                                                          'DOWN'))]

  def setUp(self):
    super().setUp()
    self.write('log', MARK + b''.join(record(*one) for one in self.ALL))

  def expect(self, args, keeps):
    expected = b''.join(shown(*one) for one in self.ALL if keeps(*one))
    self.assertEqual(self.do(*args, 'log'), expected, args)

  def test_levels(self):
    for number, name in enumerate(LEVELS):
      short = next(name[:n] for n in range(1, 10) if sum(other.startswith(name[:n]) for other in LEVELS) == 1)
      for word in (str(number), name, name.upper(), name.lower(), short):
        self.expect(('-l', word), lambda when, level, module, text, most=number: LEVELS.index(level) <= most)
        self.expect(('--level=%s..%s' % (word, word),), lambda when, level, module, text, it=name: level == it)
    for word in ('error..info', 'info..error', '4..7', 'er..I', '7..error'):
      self.expect(('--level', word), lambda when, level, module, text: 4 <= LEVELS.index(level) <= 7)
    for word in ('', 'e', '9', '-1', '04', '1.5', 'errors', 'x', '..', 'error..', '..error', 'a..b..c', 'error...info',
                 ' 4'):
      self.refuse('--level', word, 'log', says='--level')

  def test_modules_and_texts(self):
    self.expect(('-m', 'switch'), lambda when, level, module, text: module == 'switch')
    self.expect(('-m', 'switch', '--module=Switch'), lambda when, level, module, text: module.lower() == 'switch')
    self.expect(('-g', 'up'), lambda when, level, module, text: 'up' in text)
    self.expect(('-g', 's up', '--grep', 'DO'), lambda when, level, module, text: 's up' in text or 'DO' in text)
    self.expect(('-ig', 's UP'), lambda when, level, module, text: 's up' in text)
    self.expect(('-g', '.'), lambda *_: False)
    self.expect(('-e', '^[us].*(N|p)$'), lambda when, level, module, text: text[0] in 'us')
    self.expect(('-e', '^u', '-e', 'N$'), lambda when, level, module, text: text[0] == 'u' or text[-1] == 'N')
    self.expect(('-i', '-e', '^s.*n$'), lambda when, level, module, text: text[0] in 'sS' and text[-1] == 'N')
    self.expect(('-m', 'switch', '-g', 'up', '-e', 's', '-l', 'error', '--since', '2026-01-02'),
                lambda when, level, module, text: module == 'switch' and 'up' in text and LEVELS.index(level) <= 4)
    for word in ('(', '[', 'a{2,1}', '\\'):
      self.refuse('-e', word, 'log', says='--regex')

  def test_last(self):
    everything = self.do('log').splitlines(True)
    for word, count in (('0', 0), ('1', 1), ('007', 7), ('53', 53), ('54', 54), ('55', 54), ('9' * 30, 54)):
      self.assertEqual(self.do('-n', word, 'log').splitlines(True), everything[len(everything) - count:], word)
      self.assertEqual(self.do('-rn' + word, 'log').splitlines(True), everything[len(everything) - count:][::-1], word)
    for word in ('-1', '', 'x', '1.5', '1e1', '0x1', '+1', ' 1', '1k'):
      self.refuse('-n', word, 'log', says='"%s" is not a number' % word)
    self.assertEqual(len(self.texts('-n', '3', '-m', 'uplink', 'log')), 3)  # of these records


if __name__ == '__main__':
  programs.main(command_line)
