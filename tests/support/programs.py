# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Tests of programs. A *_test.py runs a program as its users do; the command line is in its arguments.

Usage: FILE_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] PROGRAM
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77
NOBODY = 65534  # the user and the group that own nothing


def given():
  """The words of the command line after --."""
  return sys.argv[sys.argv.index('--') + 1:]


def run_tests():
  """Runs the tests of the main module that are named before --.

  Exits with 1 when one fails, with 77 when all of them were skipped.
  """
  result = unittest.main(argv=sys.argv[:sys.argv.index('--')], verbosity=2, exit=False).result
  if not result.wasSuccessful():
    sys.exit(1)
  if result.testsRun > 0 and len(result.skipped) == result.testsRun:
    sys.exit(SKIPPED)


def main(command):
  """Puts the words after -- into `command`, a list, and runs the tests."""
  command.extend(given())
  command[-1] = os.path.abspath(command[-1])
  run_tests()


def open_terminal(test):
  """Both ends of a terminal for the test, closed after it; skips if none can be made."""
  try:
    ours, theirs = os.openpty()
  except OSError as error:
    test.skipTest('no terminal can be made here: %s' % error)
  test.addCleanup(close_unless_closed, ours)
  return ours, theirs


def close_unless_closed(descriptor):
  """Ignores an end that the test has closed itself."""
  try:
    os.close(descriptor)
  except OSError:
    pass


def copy_for_others(test, *paths):
  """Copies of the files, in one folder that every user may enter; removed after the test.

  A checkout may be in a folder that other users may not enter, such as root's home.
  """
  folder = tempfile.mkdtemp(prefix='tarn-for-others-', dir='/tmp')
  test.addCleanup(shutil.rmtree, folder)
  os.chmod(folder, 0o755)
  copies = [shutil.copy(path, folder) for path in paths]
  for copy in copies:
    os.chmod(copy, 0o755)
  return copies


def needed_libraries(program):
  """The libraries that a program loads, except the system's own."""
  shown = subprocess.run(['ldd', program], stdout=subprocess.PIPE, text=True, check=True).stdout
  paths = re.findall(r'=> (/\S+)', shown)
  return [path for path in paths if not path.startswith(('/lib', '/usr/'))]


def read_terminal(ours):
  """All output of programs on a terminal, until the last of them ends; `ours` is closed."""
  output = b''
  while True:
    try:
      piece = os.read(ours, 65536)
    except OSError:  # no program has the other end any more
      piece = b''
    if not piece:
      return output
    output += piece


class ProgramTest(unittest.TestCase):
  """A private folder, and ways to run the program in it. `command` is the list that main filled."""

  command = []

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='tarn-')
    self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

  def path(self, name):
    return os.path.join(self.folder, name)

  def write(self, name, data):
    with open(self.path(name), 'wb') as file:
      file.write(data)

  def read(self, name):
    with open(self.path(name), 'rb') as file:
      return file.read()

  def names(self):
    return sorted(os.listdir(self.folder))

  def line(self, args, preload=None):
    """The command line that runs the program, on its emulator if it has one, with a library preloaded."""
    *emulator, program = self.command
    if not preload:
      return [*emulator, program, *args]
    load = 'LD_PRELOAD=' + preload
    return [*emulator, '-E', load, program, *args] if emulator else ['env', load, program, *args]

  def run_program(self, *args, preload=None, env=None, **popen):
    """Runs it; returns its status, its output and what it wrote to standard error, as bytes."""
    # The address sanitizer refuses a library that is preloaded before its own.
    env = {**os.environ, 'ASAN_OPTIONS': 'verify_asan_link_order=0:' + os.environ.get('ASAN_OPTIONS', ''),
           **(env or {})}
    popen.setdefault('stdout', subprocess.PIPE)
    popen.setdefault('stderr', subprocess.PIPE)
    if 'input' not in popen:
      popen.setdefault('stdin', subprocess.DEVNULL)
    done = subprocess.run(self.line(args, preload), cwd=self.folder, env=env, check=False, **popen)
    return done.returncode, done.stdout, done.stderr

  def skip_if_sanitized(self):
    """For tests that limit the address space: the address sanitizer reserves terabytes of it."""
    with open(self.command[-1], 'rb') as program:
      if b'__asan_init' in program.read():
        self.skipTest('the address sanitizer needs more address space')

  def as_other_user(self, user):
    """Arguments of run_program that run it as an unprivileged user if the tests run as root, else none. Files that this
    user needs are copied to a place that everybody can read: the program may be in a folder of root's."""
    if os.geteuid() != 0:
      return {}
    if len(self.command) > 1:
      self.skipTest('an emulated program is not run as another user')
    program, *_ = copy_for_others(self, self.command[-1], *needed_libraries(self.command[-1]))
    self.command = [program]
    os.chmod(self.folder, 0o777)
    other = {'user': user, 'group': user, 'extra_groups': [], 'env': {'LD_LIBRARY_PATH': os.path.dirname(program)}}
    try:
      status, _, errors = self.run_program('--version', **other)
    except OSError as error:
      status, errors = 1, error
    if status != 0:
      self.skipTest('the program cannot be run as another user: %s' % errors)
    return other

  def on_the_path(self, name):
    """The environment of a shell that finds the program under `name`."""
    os.mkdir(self.path('bin'))
    with open(self.path('bin/' + name), 'w', encoding='ascii') as script:
      script.write('#!/bin/sh\nexec %s "$@"\n' % ' '.join(shlex.quote(word) for word in self.command))
    os.chmod(self.path('bin/' + name), 0o755)
    return {**os.environ, 'PATH': self.path('bin') + ':' + os.environ['PATH']}

  def complete(self, script, function, *words):
    """The completions that bash offers for the last of `words`."""
    bash = shutil.which('bash')
    if not bash:
      self.skipTest('no bash')
    done = subprocess.run([bash,
                           '-c', 'source "$1"; shift; COMP_WORDS=("${@:2}"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1));'
                           ' "$1"; printf "%s\\n" "${COMPREPLY[@]}"', 'bash', script, function, *words],
                          cwd=self.folder, capture_output=True, text=True, check=True)
    self.assertEqual(done.stderr, '')
    return done.stdout.split()


def man_examples(page):
  """The literal lines of a man page's EXAMPLES, as they are displayed."""
  with open(page, encoding='ascii') as file:
    text = file.read()
  examples = text[text.index('.SH EXAMPLES'):]
  blocks = re.findall(r'^\.(?:nf|EX)\n(.*?)^\.(?:fi|EE)$', examples, re.MULTILINE | re.DOTALL)
  return [line.replace('\\-', '-') for block in blocks for line in block.splitlines()]


def fenced(page, language):
  """The blocks of a Markdown page between ```LANGUAGE and ```."""
  with open(page, encoding='utf-8') as file:
    return re.findall(r'^```%s\n(.*?)^```$' % language, file.read(), re.MULTILINE | re.DOTALL)
