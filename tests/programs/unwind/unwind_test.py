# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Tests of backtraces after a crash in the library; the library is stripped, as it ships.

Usage: unwind_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] PROGRAM

PROGRAM is crash.c. In the environment: TARN_TEST_LIBRARY, the shared library; TARN_TEST_STRIP, the tool that strips it.
"""

import glob
import os
import re
import resource
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

STATUS = 3

# Where the crash is, and which function of the program must be seen beside `main`; None: another thread, without `main`.
IN_CALLBACK = ('list-compare', 'list-walk', 'hash', 'subscriber', 'send-hook', 'configuration', 'suppression', 'save',
               'level-hook')
ON_A_THREAD = ('timer', 'thread')
IN_A_TEXT = ('message', 'print')


class UnwindTest(programs.ProgramTest):

  def setUp(self):
    super().setUp()
    self.library = self.path('libtarn.so.1')
    subprocess.run([os.environ['TARN_TEST_STRIP'], '-o', self.library, os.environ['TARN_TEST_LIBRARY']], check=True)

  def assert_reaches(self, names, backtrace):
    """Each name has a separate frame, in this order."""
    # Before a function's name is a parenthesis or a blank, unlike before the name of a folder.
    found = re.findall(r'[( ](' + '|'.join(names) + r')\b', backtrace)
    places = [found.index(name) if name in found else -1 for name in names]
    self.assertNotIn(-1, places, backtrace)
    self.assertEqual(places, sorted(places), backtrace)


class CrashHandler(UnwindTest):
  """backtrace(3) in a handler of SIGSEGV."""

  def backtrace(self, place):
    status, output, errors = self.run_program(place, preload=self.library)
    self.assertEqual(status, STATUS, errors)
    return output.decode()

  def test_reaches_main_from_each_callback(self):
    for place in IN_CALLBACK:
      with self.subTest(place):
        self.assert_reaches(['culprit', 'main'], self.backtrace(place))

  def test_reaches_main_from_a_text_that_is_none(self):
    for place in IN_A_TEXT:
      with self.subTest(place):
        self.assert_reaches(['main'], self.backtrace(place))

  def test_reaches_the_start_of_the_thread(self):
    for place in ON_A_THREAD:
      with self.subTest(place):
        backtrace = self.backtrace(place)
        self.assert_reaches(['culprit'], backtrace)
        # The last frames are libc's, after the library's where its thread ran the callback.
        self.assertIn('libc.so', backtrace.splitlines()[-1], backtrace)


class Debugger(UnwindTest):
  """gdb, from the core of a crash."""

  def setUp(self):
    super().setUp()
    if self.command[:-1]:
      self.gdb = shutil.which('gdb-multiarch')
    else:
      self.gdb = shutil.which('gdb')
    if not self.gdb:
      self.skipTest('no gdb' + ('-multiarch' if self.command[:-1] else ''))

  def batch(self, *commands, args=()):
    words = [word for command in commands for word in ('-ex', command)]
    done = subprocess.run([self.gdb, '-nx', '-batch', *words, *args], cwd=self.folder, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return done.stdout.decode(errors='replace')

  def native_core(self, place):
    core = self.path('core-' + place)
    self.batch('set environment LD_PRELOAD ' + self.library, 'run', 'generate-core-file ' + core,
               args=['--args', self.command[-1], '--core', place])
    if not os.path.exists(core):
      self.skipTest('gdb may not trace here')
    return core

  def emulated_core(self, place):
    """The emulator writes the cores. Return addresses are not signed: these cores lack the mask that gdb needs."""
    emulator, *rest, program = self.command
    preload = 'LD_PRELOAD=' + self.library
    limit = (resource.RLIM_INFINITY, resource.RLIM_INFINITY)
    subprocess.run([emulator, '-cpu', 'cortex-a72', *rest, '-E', preload, program, '--core', place], cwd=self.folder,
                   check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, limit))
    cores = glob.glob(self.path('qemu_*.core'))
    if not cores:
      self.skipTest('the emulator wrote no core')
    core = self.path('core-' + place)
    os.rename(cores[0], core)
    return core

  def backtrace(self, place):
    *emulator, program = self.command
    core = self.emulated_core(place) if emulator else self.native_core(place)
    commands = ['set solib-search-path ' + self.folder]
    if '-L' in emulator:
      commands.insert(0, 'set sysroot ' + emulator[emulator.index('-L') + 1])
    return self.batch(*commands, 'file ' + program, 'core-file ' + core, 'backtrace 100')

  def test_reaches_main_from_each_callback(self):
    for place in IN_CALLBACK:
      with self.subTest(place):
        self.assert_reaches(['culprit', 'main'], self.backtrace(place))

  def test_reaches_main_from_a_text_that_is_none(self):
    for place in IN_A_TEXT:
      with self.subTest(place):
        self.assert_reaches(['in_' + place, 'main'], self.backtrace(place))

  def test_reaches_the_start_of_the_thread(self):
    for place in ON_A_THREAD:
      with self.subTest(place):
        backtrace = self.backtrace(place)
        self.assert_reaches(['culprit'], backtrace)
        self.assertRegex(backtrace.rstrip().splitlines()[-1], r'clone|thread_start|libc\.so', backtrace)


if __name__ == '__main__':
  programs.main(programs.ProgramTest.command)
