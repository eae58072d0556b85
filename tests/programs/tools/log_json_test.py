# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Records and counts of tarn-log as JSON, and counts as tables.

Usage: log_json_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import random
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (DEVICE, HEAD, LogTest, MARK, Record, START, command_line, record, some_records, system_log,
                         user_log)
import programs


class Json(LogTest):
  def test_records_and_the_device(self):
    system = [Record(START, 'Notice', 'switch', 'say "hi" \\ \t\x1b \u20ac')]
    user = [Record(START + 1, 'Off', 'traffic', 'x')]
    self.write(self.system, system_log(system))
    self.write(self.user, user_log(user))
    output = self.do('--json', self.system, self.user).decode()
    self.assertEqual([json.loads(line) for line in output.splitlines()], [
        {'file': self.user, 'device': dict(DEVICE)},
        {'file': self.system, 'line': 2, 'time': '2026-01-02T03:04:05Z', 'level': 'Notice', 'severity': 6,
         'module': 'switch', 'text': 'say "hi" \\ \t\x1b \u20ac'},
        {'file': self.user, 'line': 8, 'time': '2026-01-02T03:04:06Z', 'level': 'Off', 'severity': 0,
         'module': 'traffic', 'text': 'x'},
    ])
    self.assertTrue(output.endswith('\n'))
    data = json.loads(self.do('--json', '-', input=system_log(system)))
    self.assertEqual(data['file'], '-')

  def test_text_that_was_cut_in_a_letter(self):
    text = ('x' * 254 + '\u20ac').encode()[:255]
    output = self.do('--json', '-', input=system_log([Record(START, 'Info', 'm', text)]))
    self.assertEqual(json.loads(output.decode())['text'], 'x' * 254 + '\ufffd')

  def test_every_selection(self):
    records = some_records(4)
    self.write(self.system, system_log(records))
    output = self.do('--json', '-r', '-n', '2', '-e', '[0-2]', self.system).decode()
    self.assertEqual([json.loads(line)['text'] for line in output.splitlines()], ['message 2', 'message 1'])

  def test_no_colour(self):
    self.write(self.system, system_log(some_records(1)))
    self.assertNotIn(b'\x1b', self.do('--json', '--color=always', self.system))

  def test_json_is_utf_8_whatever_the_text(self):
    rand = random.Random(10)
    for _ in range(30):
      text = bytes(rand.choice([rand.randrange(256), 97, 0xc3, 0xa9]) for _ in range(rand.randrange(1, 30)))
      text = text.replace(b'\n', b' ').replace(b'\0', b' ')
      self.write('log', MARK + record(text='@').replace(b'@', text))
      line = self.do('--json', 'log')
      found = json.loads(line.decode('utf-8'))
      self.assertEqual(line.count(b'\n'), 1)
      valid = text.decode('utf-8', 'ignore')
      self.assertEqual(found['text'].replace('\ufffd', ''), valid.replace('\ufffd', ''))
      self.assertEqual('\ufffd' in found['text'], valid.encode() != text)

  def test_a_record_has_these_members(self):
    self.write('log', HEAD + record(level='Error') + record(text='"\\'))
    device, first, second = self.do('--json', 'log').splitlines()
    self.assertEqual(list(json.loads(device).items()),
                     [('file', 'log'), ('device', {'Manufacturer': 'tarn', 'ProductClass': 'gatewayd', 'SerialNumber':
                                                   'gateway', 'IP': '192.168.1.1', 'HWVer': 'example',
                                                   'SWVer': '1.0.0'})])
    self.assertEqual(list(json.loads(first).items()),
                     [('file', 'log'), ('line', 8), ('time', '2026-01-02T03:04:05Z'), ('level', 'Error'),
                      ('severity', 4),
                      ('module', 'switch'), ('text', 'port 3 is up')])
    self.assertEqual(json.loads(second)['text'], '"\\')


class Count(LogTest):
  def setUp(self):
    super().setUp()
    spread = [('Error', 'uplink', 1), ('Notice', 'switch', 40), ('Notice', 'dhcp', 10), ('Debug', 'arp', 10)]
    self.records = [Record(START, level, module, 'x') for level, module, count in spread for _ in range(count)]
    self.write(self.system, system_log(self.records))

  def test_plain_when_it_is_piped(self):
    self.assertEqual(self.do('--count', self.system).decode(), '''61 records

By level
  Error    1
  Notice  50
  Debug   10

By module
  switch  40
  arp     10
  dhcp    10
  uplink   1
''')

  def test_bars_on_a_terminal(self):
    # A blank of margin at the right: 60 - 2 - 6 - 2 - 2 - 2 - 1 = 45 columns for the longest bar.
    for env, block in (({}, '\u2588'), ({'LC_ALL': 'C'}, '#')):
      expected = '61 records\n\nBy level\n'
      for name, count, largest in (('Error', 1, 50), ('Notice', 50, 50), ('Debug', 10, 50), (None, 0, 0),
                                   ('switch', 40, 40), ('arp', 10, 40), ('dhcp', 10, 40), ('uplink', 1, 40)):
        expected += ('  %-6s  %2d  %s\n' % (name, count, block * max(45 * count // largest, 1)) if name
                     else '\nBy module\n')
      self.assertEqual(self.on_terminal('--count', self.system, env=env), expected)

  def test_a_narrow_terminal_still_has_bars(self):
    for columns in (1, 20):
      self.assertIn('  Notice  50  ' + '\u2588' * 8 + '\n', self.on_terminal('--count', self.system, columns=columns))

  def test_a_terminal_without_a_size_has_80_columns(self):
    self.assertIn('  Notice  50  ' + '\u2588' * 65 + '\n', self.on_terminal('--count', self.system, columns=0))

  def test_json(self):
    self.write(self.user, user_log([]))
    output = self.do('--count', '--json', self.system, self.user).decode()
    self.assertEqual(output, '{"records":61,"levels":{"Error":1,"Notice":50,"Debug":10},'
                     '"modules":{"switch":40,"arp":10,"dhcp":10,"uplink":1}}\n')

  def test_of_a_selection(self):
    self.assertEqual(self.do('--count', '-m', 'uplink', self.system),
                     b'1 record\n\nBy level\n  Error   1\n\nBy module\n  uplink  1\n')
    self.assertEqual(self.do('--count', '-g', 'none', self.system), b'0 records\n')
    self.assertEqual(self.do('--count', '--json', '-g', 'none', self.system),
                     b'{"records":0,"levels":{},"modules":{}}\n')


if __name__ == '__main__':
  programs.main(command_line)
