# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The records that tarn-log shows, and their order.

Usage: log_show_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import os
import random
import re
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (DONE, HEAD, LEVELS, LogTest, MARK, NOT_SO, Record, START, WRONG, all_shown, command_line,
                         record, seconds, shown, some_records, system_log, user_log)
import programs


class Show(LogTest):
  def test_system_log(self):
    records = [Record(START, 'Notice', 'switch', 'port 3 is up')]
    self.write(self.system, b'SysLog:\n2026-01-02 03:04:05[Notice]switch:port 3 is up\n')
    self.assertEqual(self.do(self.system), b'2026-01-02 03:04:05 Notice    switch: port 3 is up\n')
    self.assert_shows(records, '-', input=system_log(records))

  def test_user_log(self):
    records = [Record(START, 'Info', 'traffic', 'lo: 1 checks, 0 with traffic')]
    self.write(self.user, user_log(records))
    self.assert_shows(records, self.user)

  def test_every_level_and_the_longest_names_and_texts(self):
    records = [Record(START + i, level, 'm' * (15 - i), 'x' * (255 - i)) for i, level in enumerate(LEVELS)]
    records.append(Record(seconds('9999-12-31 23:59:59'), 'Debug', 'a b]', '[Error]b:c'))
    records.append(Record(seconds('2024-02-29 00:00:00'), 'Info', '[', ' : '))
    records.append(Record(0, 'Info', 'm', 'x' * 5000))
    self.write(self.system, system_log(records))
    self.assert_shows(records, self.system)

  def test_full_rings_merged_by_time(self):
    system, user = some_records(1024), [Record(START + 2 * i, 'Info', 'user', str(i)) for i in range(512)]
    self.write(self.system, system_log(system))
    self.write(self.user, user_log(user))
    # sorted() is stable: with equal times, the first file comes first.
    self.assert_shows(sorted(system + user, key=lambda record: record.when), self.system, self.user)
    self.assert_shows(sorted(user + system, key=lambda record: record.when), self.user, self.system)

  def test_a_clock_that_was_set_back_leaves_the_order_of_a_file(self):
    system = [Record(START + t, 'Info', 'a', str(t)) for t in (10, 0, 20)]
    user = [Record(START + t, 'Info', 'b', str(t)) for t in (5, 15)]
    self.write(self.system, system_log(system))
    self.write(self.user, user_log(user))
    self.assert_shows([user[0], system[0], system[1], user[1], system[2]], self.system, self.user)

  def test_fresh_files_hold_nothing(self):
    for data in (b'SysLog:\n\0', b'SysLog:\n', b'', user_log([])):
      self.write(self.system, data)
      self.assert_shows([], self.system, '--strict')

  def test_control_characters_cannot_command_a_terminal(self):
    text = b'\x1b[2J\r\x7f\ttab \xc2\x9b \x9b \xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80'
    self.write(self.system, system_log([Record(START, 'Info', 'm\x07', text)]))
    self.assertEqual(self.do(self.system),
                     b'2026-01-02 03:04:05 Info      m\\x07: \\x1b[2J\\x0d\\x7f\ttab \\xc2\\x9b \\x9b '
                     b'\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\n')

  def test_the_gateways_files_unless_others_are_named(self):
    for path in ('/overlay/mu_log.txt', '/overlay/user_log.txt'):
      if os.path.exists(path):
        self.skipTest(path + ' is there')
    status, output, errors = self.run_tool()
    self.assertEqual((status, output), (WRONG, b''))
    self.assertEqual(errors, 'tarn-log: /overlay/mu_log.txt: No such file or directory\n'
                     'tarn-log: /overlay/user_log.txt: No such file or directory\n')

  def test_last_and_reverse(self):
    records = some_records(5)
    self.write(self.system, system_log(records))
    for count in (0, 1, 4, 5, 6):
      self.assert_shows(records[max(5 - count, 0):], self.system, '-n', str(count))
    self.assert_shows(records[::-1], self.system, '--reverse')
    self.assert_shows(records[:2:-1], self.system, '-r', '--lines=2')

  def test_header(self):
    records = some_records(1)
    self.write(self.user, user_log(records))
    self.write(self.system, system_log([]))
    self.assertEqual(self.do('--header', self.system, self.user).decode(),
                     'Manufacturer: tarn\nProductClass: gatewayd\nSerialNumber: g:1;2\nIP:           192.168.1.1\n'
                     'HWVer:        \nSWVer:        0.1.0\n\n' + all_shown(records).decode())

  def test_merged_by_time_each_file_in_its_order(self):
    rand = random.Random(9)
    for _ in range(8):
      whole = {}
      for name in ('a', 'b', 'c'):
        times = sorted(START + rand.randrange(30) for _ in range(rand.randrange(12)))
        whole[name] = [(when, name, i) for i, when in enumerate(times)]
        self.write(name, MARK + b''.join(record(when, text=letter + str(i)) for when, letter, i in whole[name]))
      found = [(seconds(r['time'].replace('T', ' ')[:-1]), r['text'][0], int(r['text'][1:]))
               for r in map(json.loads, self.do('--json', 'a', 'b', 'c').splitlines())]
      self.assertEqual(sorted(found), sorted(sum(whole.values(), [])))
      self.assertEqual([when for when, *_ in found], sorted(when for when, *_ in found))
      for name, records in whole.items():
        self.assertEqual([entry for entry in found if entry[1] == name], records)
      last = self.texts('-n', '5', 'a', 'b', 'c')
      self.assertEqual(last, [r[1] + str(r[2]) for r in found][-5:])
      self.assertEqual(self.texts('-n', '5', '-r', 'a', 'b', 'c'), last[::-1])

  def test_both_forms_and_fresh_ones(self):
    for data, count in ((b'', 0), (MARK, 0), (MARK + b'\0', 0), (HEAD, 0), (MARK + record(), 1),
                        (HEAD + record(), 1)):
      self.write('log', data)
      self.assertEqual(self.do('--strict', 'log'), shown() * count, data)
      self.assertEqual(self.do('--strict', '-', input=data), shown() * count, data)

  def test_large_ones(self):
    # Far more than a ring holds, and a line longer than any buffer.
    self.write('log', MARK + b''.join(record(START + i, text=str(i)) for i in range(20000)))
    self.assertEqual(self.texts('-n', '2', 'log'), ['19998', '19999'])
    self.assertEqual(self.do('--count',
                             '--json',
                             'log'), b'{"records":20000,"levels":{"Notice":20000},"modules":{"switch":20000}}\n')
    self.write('log', MARK + b'x' * (1 << 20) + b'\n' + record())
    status, output, errors = self.run_program('log')
    self.assertEqual((status, output), (DONE, shown()))
    self.assertIn(b'log: line 2, byte 8: ', errors)
    self.write('log', bytes(1 << 20))
    self.assertEqual(self.run_program('--strict', 'log')[:2], (NOT_SO, b''))

  def test_control_characters_are_shown_as_hexadecimal(self):
    for code in [*range(1, 9), *range(11, 32), 127]:
      text = b'a' + bytes([code]) + b'b'
      self.write('log', MARK + record(text='@').replace(b'@', text))
      self.assertEqual(self.do('log'), shown(text='a\\x%02xb' % code), code)
    self.write('log', MARK + record(text='a\tb é €'))
    self.assertEqual(self.do('log'), shown(text='a\tb é €'))

  def test_header_and_records(self):
    self.write('user', HEAD + record())
    self.write('log', MARK + record(level='Error'))
    output = self.do('--header', 'user').decode()
    head, rest = output.split('\n\n')
    self.assertEqual([re.split(': +', line) for line in head.splitlines()],
                     [['Manufacturer', 'tarn'], ['ProductClass', 'gatewayd'], ['SerialNumber', 'gateway'],
                      ['IP', '192.168.1.1'], ['HWVer', 'example'], ['SWVer', '1.0.0']])
    self.assertEqual(rest.encode(), shown())
    self.assertEqual(self.do('user'), shown())
    self.assertEqual(self.do('--header', 'log'), self.do('log'))
    self.assertEqual(len(self.do('--header', '-n', '0', '--json', 'user').splitlines()), 1)


if __name__ == '__main__':
  programs.main(command_line)
