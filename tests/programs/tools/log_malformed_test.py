# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Malformed lines and files.

Usage: log_malformed_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import os
import random
import re
import resource
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (DEVICE, DONE, LogTest, MARK, NOT_SO, WRONG, all_shown, command_line, lines, record, shown,
                         some_records, system_log, user_log)
import programs


class Malformed(LogTest):
  ROWS = (
      (b'bad', 'no time'),
      (b'', 'no time'),
      (b'2026-01-02 03:04:05', r'no "\[LEVEL\]"'),
      (b'2026-01-02 03:04:0x[Info]m:x', 'no time'),
      (b'2026-01-02T03:04:05[Info]m:x', 'no time'),
      (b'2026-02-30 03:04:05[Info]m:x', 'no time'),
      (b'2026-01-02 24:04:05[Info]m:x', 'no time'),
      (b'2026-01-02 03:04:05 [Info]m:x', r'no "\[LEVEL\]"'),
      (b'2026-01-02 03:04:05[Info', r'no "\[LEVEL\]"'),
      (b'2026-01-02 03:04:05[info]m:x', 'unknown level "info"'),
      (b'2026-01-02 03:04:05[]m:x', 'unknown level ""'),
      (b'2026-01-02 03:04:05[\x1bInfo]m:x', r'unknown level "\\x1bInfo"'),
      (b'2026-01-02 03:04:05[Info]m', 'no ":" after the module'),
      (b'2026-01-02 03:04:05[Info]:x', 'a module without a name'),
      (b'2026-01-02 03:04:05[Info]1234567890123456:x', "a module's name of more than 15 bytes"),
      (b'2026-01-02 03:04:05[Info]m:', 'no text'),
      (b'2026-01-02 03:04:05[Info]m:a\0b', 'a NUL in column 29'),
      (b'\0' * 4096, 'a NUL in column 1'),
      (b'SysLog:', 'no time'),
  )

  def test_a_line_is_reported_and_left_out(self):
    records = some_records(2)
    for bad, reason in self.ROWS:
      with self.subTest(bad=bad):
        before = b'SysLog:\n' + records[0].line()
        self.write(self.system, before + bad + b'\n' + records[1].line())
        for args, expected in (((), DONE), (('--strict',), NOT_SO)):
          status, output, errors = self.run_tool(self.system, *args)
          self.assertEqual((status, output), (expected, all_shown(records)))
          self.assertRegex(errors, r'\Atarn-log: %s: line 3, byte %d: %s[^\n]*\n\Z'
                           % (re.escape(self.system), len(before), reason))

  def assert_told(self, data, records, *faults):
    """`faults` are pairs of a line's number and the reason."""
    starts = [0] + [match.end() for match in re.finditer(b'\n', data)]
    status, output, errors = self.run_tool('--strict', '-', input=data)
    self.assertEqual((status, output), (NOT_SO, all_shown(records)))
    self.assertEqual(len(errors.splitlines()), len(faults), errors)
    for line, (number, reason) in zip(errors.splitlines(), faults):
      self.assertRegex(line, r'^tarn-log: \(standard input\): line %d, byte %d: .*%s'
                       % (number, starts[number - 1], reason))

  def test_a_last_line_that_was_cut_off(self):
    records = some_records(3)
    data = system_log(records)
    for cut in (1, 2, len(records[2].line()) - 1):
      self.assert_told(data[:-cut], records[:2], (4, 'cut off'))

  def test_heads(self):
    records = some_records(2)
    self.assert_told(lines(records), records, (1, 'neither "SysLog:" nor the device'))
    self.assert_told(user_log(records).replace(b'\n\n', b'\n'), records, (7, 'no empty line'))
    self.assert_told(user_log(records, DEVICE[:4]), records, (5, '4 of 6 fields'))
    self.assert_told(b'\n' + lines(records), records, (1, '0 of 6 fields'))
    self.assert_told(user_log(records).replace(b'HWVer:;', b'HWVersion:;'), records,
                     (5, 'nor a field'), (7, '5 of 6 fields'))
    self.assert_told(user_log(records).replace(b'HWVer:;', b'HWVer:'), records,
                     (5, 'nor a field'), (7, '5 of 6 fields'))
    self.assert_told(b'\n' + system_log(records), records, (1, '0 of 6 fields'), (2, 'no time'))

  def test_files_that_cannot_be_read(self):
    records = some_records(1)
    self.write(self.system, system_log(records))
    for path, reason in ((self.user, 'No such file or directory'), (self.folder, 'Is a directory'),
                         (self.system + '/x', 'Not a directory')):
      status, output, errors = self.run_tool(path, self.system, '--strict')
      self.assertEqual((status, output, errors), (WRONG, all_shown(records), 'tarn-log: %s: %s\n' % (path, reason)))

  def test_a_malformed_line_is_reported_with_its_place_and_left_out(self):
    good = record()
    for line in (b'x', b'', b'2026-01-02 03:04:05', b'2026-01-02 03:04:05[Notice]switch',
                 b'2026-01-02 03:04:05[Notice]:a',
                 b'2026-01-02 03:04:05[Notice]switch:', b'2026-01-02 03:04:05[notice]switch:a',
                 b'2026-01-02 03:04:05[]s:a',
                 b'2026-01-02 03:04:05[Loud]s:a', b'2026-13-02 03:04:05[Info]s:a', b'2026-02-29 03:04:05[Info]s:a',
                 b'2026-01-02 24:04:05[Info]s:a', b'2026-01-02T03:04:05[Info]s:a', b' 2026-01-02 03:04:05[Info]s:a',
                 b'2026-01-02 03:04:05[Info]sixteencharacters:a', b'2026-01-02 03:04:05[Info]s:a\0b', b'\0',
                 b'\xff' * 30,
                 b'SysLog:', b'+026-01-02 03:04:05[Info]s:a', b'2026-1-02 03:04:05[Info]s:a'):
      self.write('log', MARK + good + line + b'\n' + good)
      for strict in ((), ('--strict',)):
        status, output, errors = self.run_program(*strict, 'log')
        self.assertEqual((status, output), (NOT_SO if strict else DONE, shown() * 2), line)
        self.assertRegex(errors, rb'\Atarn-log: log: line 3, byte %d: [^\n]+\n\Z' % len(MARK + good), line)
    self.write('log', MARK + good + good[:-1])  # the daemon died in the middle
    self.assertEqual(self.run_program('--strict', 'log')[:2], (NOT_SO, shown()))

  def test_files_that_cannot_be_read_do_not_hide_the_others(self):
    self.write('log', MARK + record())
    os.mkdir(self.path('folder'))
    for name in ('missing', 'folder', '', 'log/x'):
      status, output, errors = self.run_program(name, 'log')
      self.assertEqual((status, output), (WRONG, shown()), name)
      self.assertRegex(errors, rb'\Atarn-log: ' + name.encode() + rb': [^\n]+\n\Z')
    status, output, errors = self.run_program('-', 'log', stdin=None, preexec_fn=lambda: os.close(0))
    self.assertEqual((status, output), (WRONG, shown()))
    self.assertIn(b'standard input', errors)


class NotALog(LogTest):
  """Files that are not log files: reported once, and the status is 1."""

  REASON = 'not a log file: it has no "SysLog:", no description of a device and no record'

  def test_noise_is_reported_once(self):
    noise = random.Random(1).randbytes(100000)
    for data in (noise, b'gateway\n', b'no line feed', b'\n', b'a\n' * 10000, bytes(1 << 20)):
      self.write('log', data)
      self.assertEqual(self.run_tool('log'), (NOT_SO, b'', 'tarn-log: log: %s\n' % self.REASON), data[:20])

  def test_it_does_not_hide_the_others(self):
    self.write('noise', b'gateway\n')
    self.write('log', MARK + record())
    self.assertEqual(self.run_tool('noise', 'log'), (NOT_SO, shown(), 'tarn-log: noise: %s\n' % self.REASON))

  def test_one_part_of_a_log_makes_it_one(self):
    for data in (MARK + b'x\n', record() + b'x\n', b'HWVer:1;\nx\n'):
      self.write('log', data)
      self.assertNotIn('not a log file', self.run_tool('log')[2], data)

  def test_a_file_that_is_too_large_is_refused_in_little_memory(self):
    self.skip_if_sanitized()
    self.write('log', MARK + record())
    os.truncate(self.path('log'), 1 << 40)  # a sparse file, which occupies no space
    most = 256 << 20
    limited = {'preexec_fn': lambda: resource.setrlimit(resource.RLIMIT_AS, (most, most))}
    too_large = 'not a log file: larger than 4194304 bytes\n'
    self.assertEqual(self.run_tool('log', **limited), (NOT_SO, b'', 'tarn-log: log: ' + too_large))
    self.assertEqual(self.run_tool('/dev/zero', **limited), (NOT_SO, b'', 'tarn-log: /dev/zero: ' + too_large))
    with open('/dev/zero', 'rb') as zeros:
      self.assertEqual(self.run_tool('-', stdin=zeros, **limited),
                       (NOT_SO, b'', 'tarn-log: (standard input): ' + too_large))

  def test_the_largest_file_is_read_in_a_fixed_amount_of_memory(self):
    self.skip_if_sanitized()
    line = record(text='x', module='m', level='Off')  # the shortest: the most lines
    self.write('log', (MARK + line * ((4 << 20) // len(line)))[:4 << 20])
    most = 256 << 20
    status, output, _ = self.run_tool('--count', '--json', 'log',
                                  preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (most, most)))
    self.assertEqual((status, json.loads(output)['records']), (DONE, ((4 << 20) - len(MARK)) // len(line)))


class HalfWritten(LogTest):

  def test_a_file_that_is_being_written_is_read_when_it_rests(self):
    # The preloaded library writes the rest of the file when its first part has been read.
    records = some_records(1000)
    whole = system_log(records)
    for size in (0, len(MARK), len(system_log(records[:300])), len(whole) - 5):
      self.write('log', whole[:size])
      self.write('whole', whole)
      output = self.do('log', preload=os.environ['TARN_TEST_STUMBLE'],
                       env={'TARN_STUMBLE_REWRITE': 'log', 'TARN_STUMBLE_REWRITE_AS': 'whole'})
      self.assertEqual(output, all_shown(records), size)


if __name__ == '__main__':
  programs.main(command_line)
