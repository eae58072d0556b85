# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The command line of tarn-sim: its options, its help, its completion. See fixture.py."""

import os
import re
import shutil
import subprocess

import fixture
from fixture import SOURCES, SimTest


class Options(SimTest):

  def test_wrong_use_is_refused_with_the_reason(self):
    for args, reason in (
        ((), 'the daemon is missing'),
        (('--',), 'the daemon is missing'),
        (('--nonsense', '--', 'true'), '--nonsense: there is no such option'),
        (('nonsense', '--', 'true'), "'nonsense' belongs to no option; see"),
        (('--root', '--', 'true'), '--root'),
        (('--collector', '0', '--', 'true'), '--collector'),
        (('--collector', '65536', '--', 'true'), '--collector'),
        (('--collector', 'x', '--', 'true'), '--collector'),
        (('--events', '0', '--', 'true'), '--events'),
        (('--events', '65537', '--', 'true'), '--events'),
        (('--events', 'x', '--', 'true'), '--events'),
        (('--events', '-1', '--', 'true'), '--events'),
    ):
      with self.subTest(args=args):
        self.assert_refused(reason, *args)

  def test_a_daemon_without_the_two_dashes_is_refused_with_them(self):
    for args in (('true',), ('--verbose', 'true'), ('true', '--help-me')):
      self.assert_refused("'true' belongs to no option: a daemon stands after --, as in tarn-sim -- true; see", *args)

  def test_what_follows_the_two_dashes_is_the_daemons_own(self):
    status, output, _ = self.run_to_end('--no-namespace', '--', 'printf', '%s,', '--root', '--', '-h', '', 'a b')
    self.assertEqual((status, output), (0, '--root,--,-h,,a b,'))

  def test_help_is_shown(self):
    for option in ('--help', '-h'):
      status, output, errors = self.run_to_end(option)
      self.assertEqual((status, errors), (0, ''))
      self.assertIn('Usage: tarn-sim [OPTION]... -- DAEMON [ARG]...', output)

  def test_version_is_shown(self):
    status, output, errors = self.run_to_end('--version')
    self.assertEqual((status, errors), (0, ''))
    self.assertRegex(output, r'^tarn-sim \d+\.\d+\.\d+\n$')

  def test_help_and_version_that_cannot_be_written_are_failures(self):
    for option in ('--help', '--version'):
      with open('/dev/full', 'wb') as full:
        status, _, errors = self.run_to_end(option, stdout=full)
      self.assertEqual((status, errors), (2, 'tarn-sim: standard output: No space left on device\n'))

  def test_help_manual_and_completion_have_the_same_options(self):
    option = r'--[a-z]+(?:-[a-z]+)*'
    helped = set(re.findall(r'(?m)^ +(?:-h, +)?(%s)' % option, self.run_to_end('--help')[1]))
    self.assertIn('--no-namespace', helped)
    page = self.read(os.path.join(SOURCES, 'sim/tarn-sim.1')).replace('\\-', '-')
    page = page[page.index('.SH OPTIONS'):page.index('.SH SCRIPTS')]
    self.assertEqual(set(re.findall(option, page)), helped)
    completion = self.read(os.path.join(SOURCES, 'sim/tarn-sim.bash'))
    self.assertEqual(set(re.findall(option, completion[completion.index('*) words='):])), helped)

  def test_completion_offers_options_before_the_daemon(self):
    bash = shutil.which('bash')
    if bash is None:
      self.skipTest('no bash')
    script = os.path.join(SOURCES, 'sim/tarn-sim.bash')
    for words, expected in (
        (['--no'], ['--no-namespace']),
        (['--ro'], ['--root=']),
        (['--events', '=', ''], []),
        (['--v'], ['--verbose', '--version']),
        (['--', '--no'], []),  # the daemon's
    ):
      line = ' '.join("'%s'" % word for word in ['tarn-sim'] + words)
      ask = ('source "$0"; COMP_WORDS=(%s); COMP_CWORD=%d; _tarn_sim; echo "${COMPREPLY[@]}"' % (line, len(words)))
      done = subprocess.run([bash, '-c', ask, script], capture_output=True, text=True, check=True)
      self.assertEqual((done.stdout.split(), done.stderr), (expected, ''), words)


if __name__ == '__main__':
  fixture.main()
