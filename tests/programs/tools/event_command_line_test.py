# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The command line of tarn-event, and its documentation.

Usage: event_command_line_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-EVENT
"""

import os
import re
import shutil
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from event_fixture import (DONE, EventTest, TOOLS, WRONG, command_line, state)
import programs


class CommandLine(EventTest):
  def test_help(self):
    status, output, errors = self.run_bare('--help')
    self.assertEqual((status, errors), (DONE, ''))
    self.assertTrue(output.startswith('Usage: tarn-event '))

  def test_help_of_a_command_is_the_same(self):
    self.assertEqual(self.run_bare('send', '--help'), self.run_bare('--help'))

  def test_version(self):
    self.assertRegex(self.run_bare('--version')[1], r'^tarn-event \d+\.\d+\.\d+\n$')

  def test_no_command(self):
    self.assert_wrong('a command is needed')

  def test_an_unknown_command(self):
    self.assert_wrong('unknown command "explode"', 'explode')

  def test_an_unknown_option(self):
    self.assert_wrong('unknown option "--loud"', 'dump', '--loud')

  def test_output_that_cannot_be_written(self):
    self.simulate_state(state())
    with open('/dev/full', 'wb') as full:
      clean = {name: value for name, value in os.environ.items() if not name.startswith('TARN_SIM_')}
      done = subprocess.run(command_line + ['--root', self.folder, 'status'], stdout=full, check=False,
                            stderr=subprocess.PIPE, env=clean)
    self.assertEqual((done.returncode, done.stderr),
                     (WRONG, b'tarn-event: standard output: No space left on device\n'))

  def test_help_and_man_page_know_the_same_options(self):
    with open(os.path.join(TOOLS, 'tarn-event', 'tarn-event.1'), encoding='ascii') as page:
      paged = set(re.findall(r'--[a-z]+', page.read().replace('\\-', '-')))
    self.assertEqual(paged, set(re.findall(r'--[a-z]+', self.run_bare('--help')[1])))

  @unittest.skipUnless(shutil.which('bash'), 'no bash')
  def test_completion(self):
    script = os.path.join(TOOLS, 'tarn-event', 'tarn-event.bash')
    for words, expected in ((['st'], {'storm', 'stop', 'status'}), (['send', 'link'], {'link-up', 'link-down'}),
                            (['watch', '--in'], {'--interval='}), (['--root', 'x', 'send', '7', '--p'], {'--port='}),
                            (['dump', '-'], set())):
      with self.subTest(words=words):
        line = ['tarn-event'] + words
        command = 'source %s; COMP_WORDS=(%s); COMP_CWORD=%d; _tarn_event; printf "%%s\\n" "${COMPREPLY[@]}"' % (
            script, ' '.join(line), len(line) - 1)
        done = subprocess.run(['bash', '-c', command], capture_output=True, check=True)
        self.assertEqual(set(done.stdout.decode().split()), expected)


if __name__ == '__main__':
  programs.main(command_line)
