# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg is killed, or a call fails, at every call for a file.

Usage: cfg_power_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import json
import os
import re
import signal
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (CfgTest, DOCUMENT, DONE, LOST, SAMPLE, WRONG, built, command_line)
import image
import programs


class Stumbling(CfgTest):
  """Writes that are killed, or in which a call fails, at every call for the file. Each byte is a separate call."""

  OLD = image.image(image.record(1, b'old'.ljust(200, b'\0')))

  NEW = image.image(image.record(1, b'new'.ljust(200, b'\0')))

  SET = ('set', 'cfg', '1', 'text', 'new')

  def stumble(self, how, at, *args):
    return self.run_tool(*args, preload=os.environ['TARN_TEST_STUMBLE'],
                     env={'TARN_STUMBLE': how, 'TARN_STUMBLE_AT': str(at)})

  def stumble_everywhere(self, how, args, check):
    """Runs the command once for each of its calls, and stops it there; returns the number of calls."""
    for at in range(1, 1000):
      self.write('cfg', self.OLD)
      status, _, errors = self.stumble(how, at, *args)
      check(at, status, errors)
      if status == DONE and at > 200:
        return at
    self.fail('no end')

  def test_killed_at_any_call_it_leaves_the_old_or_the_new_image(self):
    seen = {self.OLD: 0, self.NEW: 0}

    def check(_, status, errors):
      self.assertIn(status, (-signal.SIGKILL, 128 + signal.SIGKILL, DONE), errors)
      seen[self.read('cfg')] += 1

    self.stumble_everywhere('kill', self.SET, check)
    self.assertGreater(seen[self.OLD], 200)
    self.assertGreater(seen[self.NEW], 1, 'killed after the rename, and not at all')
    # The next run removes the files that they left.
    self.write('cfg', self.OLD)
    self.write('cfg.tarn-cfg', b'left')
    self.do(*self.SET)
    self.assertEqual(self.names(), ['cfg'])

  def test_a_call_that_fails_leaves_the_old_image_or_is_reported(self):
    seen = set()

    def check(_, status, errors):
      self.assertEqual(self.names(), ['cfg'])
      if status == WRONG:
        self.assertRegex(errors, '^tarn-cfg: cfg: (not written|written, but a loss of power may undo it): .*\n$')
        self.assertEqual(self.read('cfg'), self.OLD if 'not written' in errors else self.NEW)
        seen.add(re.sub('cfg: (not )?written', r'\1', errors.split(': ', 1)[1]).strip())
      else:  # the unlink of a file that does not exist
        self.assertEqual((status, errors, self.read('cfg')), (DONE, '', self.NEW))

    self.stumble_everywhere('fail', self.SET, check)
    self.assertEqual(len(seen), 5, seen)  # temporary file made, its mode, its bytes, the rename, the folder

  def test_a_new_file_is_there_whole_or_not_at_all(self):
    self.write('json', json.dumps({**DOCUMENT, 'behind': {'size': 200, 'fill': 0}}).encode())
    expected = SAMPLE + bytes(200)
    for how in ('kill', 'fail'):
      for at in (*range(1, 6), 100, *range(248, 260)):
        for name in ('cfg', 'cfg.tarn-cfg'):
          if os.path.exists(self.path(name)):
            os.remove(self.path(name))
        status, _, errors = self.stumble(how, at, 'import', 'json', 'cfg')
        with self.subTest(how=how, at=at, errors=errors):
          if os.path.exists(self.path('cfg')):
            self.assertEqual(self.read('cfg'), expected)
          else:
            self.assertNotEqual(status, DONE)
    self.assertEqual(status, DONE)

  def test_the_bytes_are_on_the_disk_before_the_name(self):
    self.write('cfg', self.OLD)
    self.do(*self.SET, preload=os.environ['TARN_TEST_STUMBLE'], env={'TARN_STUMBLE_LOG': self.path('log')})
    calls = self.read('log').decode().split()
    self.assertEqual([call for call in calls if call != 'write'],
                     ['unlinkat', 'openat', 'fchmod', 'fsync', 'renameat', 'fsync'])
    self.assertEqual(calls[3:-3], ['write'] * len(self.NEW))


class Killed(CfgTest):
  """Killed at any call for a file, each command leaves the old image or the new one. Each byte is a separate call."""

  OLD = built((1, b'abcd'), (2, b'ef'), flag=1) + b'\xff' * 8

  SMALL = {'tarn-cfg': 1, 'active': 0, 'flag': 9, 'version': 0, 'sealed': True,
           'fields': [{'key': 1, 'type': 'text', 'length': 20, 'value': 'x'}]}

  def kill_everywhere(self, *args, old=OLD, expected=DONE):
    self.write('json', json.dumps(self.SMALL).encode())
    self.write('f', old)
    self.assertEqual(self.run_program(*args)[0], expected)
    new = self.read('f')
    self.assertNotEqual(new, old)
    self.fields()
    found = []
    for at in range(1, 400):
      for name in self.names():
        os.remove(self.path(name))
      self.write('json', json.dumps(self.SMALL).encode())
      self.write('f', old)
      status, _, errors = self.run_program(*args, preload=os.environ['TARN_TEST_STUMBLE'],
                                           env={'TARN_STUMBLE': 'kill', 'TARN_STUMBLE_AT': str(at)})
      self.assertIn(self.read('f'), (old, new), at)
      self.assertLessEqual(set(self.names()), {'f', 'f.bad', 'f.lost', 'f.tarn-cfg', 'json'})
      if 'f.bad' in self.names():
        self.assertEqual(self.read('f.bad'), old)
      found.append(self.read('f') == new)
      if status == expected:
        break
      self.assertIn(status, (-signal.SIGKILL, 128 + signal.SIGKILL), errors)
      if at % 8 == 0:  # remaining files do not disturb the next run
        self.assertEqual(self.run_program(*args)[0], expected)
        self.assertEqual(self.read('f'), new)
        self.assertNotIn('f.tarn-cfg', self.names())
    self.assertEqual(status, expected)
    self.assertEqual(found, sorted(found), 'the new image came back')
    self.assertIn(False, found)
    self.assertGreater(len(found), 20)
    self.assertTrue(found[-1] and found[-2], 'killed after the rename, and not at all')

  def test_set(self):
    self.kill_everywhere('set', 'f', '2', 'short', '7')

  def test_unset(self):
    self.kill_everywhere('unset', 'f', '1')

  def test_resize(self):
    self.kill_everywhere('resize', 'f', '2', '6')

  def test_create(self):
    self.kill_everywhere('create', '--force', 'f')

  def test_import(self):
    self.kill_everywhere('import', '--force', 'json', 'f')

  def test_repair(self):
    self.kill_everywhere('repair', 'f', old=built((1, b'abcd'), (2, b'efgh'))[:-2], expected=LOST)


if __name__ == '__main__':
  programs.main(command_line)
