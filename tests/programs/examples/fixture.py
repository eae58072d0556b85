# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Runs gatewayd for its tests.

A test file of this folder is run as

  FILE_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] GATEWAYD

The tests wait for what gatewayd prints, never for a time; the hang limit is CTest's. TARN_TEST_SHIM names the desktop
shim, which prevents gatewayd from using the machine's own files and devices; TARN_TEST_LIBRARY names the library.
"""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'support'))
import image  # pylint: disable=wrong-import-position
import programs  # pylint: disable=wrong-import-position

OK, BAD_OPTION, BAD_PATH, UNREADABLE, TOO_LARGE = 0, 2, 3, 4, 5
DEFAULTS = {
    image.HOST_NAME: image.text(b'gateway'),
    image.UPLINK: image.text(b'lo'),
    image.UPLINK_CHECK_MS: image.number_of(1000),
    image.STATISTICS_S: image.number_of(3),
    image.COLLECTOR: image.number_of(0),
}
FIRST = {**DEFAULTS, image.BOOT_COUNT: image.number_of(1)}

gatewayd_command = []


def command(args, root, copies=()):
  """The command line and the changes of the environment that run gatewayd on the shim, its files below `root`.

  If `copies` is given, these three copies (gatewayd, shim, library) are used.
  """
  # The address sanitizer refuses a library that is preloaded before its own.
  env = {'TARN_SIM_ROOT': root, 'TSAN_OPTIONS': 'atexit_sleep_ms=0:' + os.environ.get('TSAN_OPTIONS', ''),
         'ASAN_OPTIONS': 'verify_asan_link_order=0:' + os.environ.get('ASAN_OPTIONS', '')}
  *emulator, program = gatewayd_command
  shim = os.environ['TARN_TEST_SHIM']
  if copies:
    program, shim, library = copies
    env['LD_LIBRARY_PATH'] = os.path.dirname(library)
  preload = 'LD_PRELOAD=' + shim
  # Only the program itself loads the shim: helper programs, such as unshare, do not need it.
  start = emulator + ['-E', preload] if emulator else ['env', preload]
  return start + [program] + args, env


class Daemon:
  """A running gatewayd. `output` is the part of its output that was read."""

  def __init__(self, args, root, env=None, copies=(), **popen):
    line, changes = command(args, root, copies)
    self.output = ''
    # Unbuffered: communicate() would not get bytes that were read ahead after a line.
    # pylint: disable=consider-using-with
    self.process = subprocess.Popen(line, env={**os.environ, **changes, **(env or {})}, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0, **popen)

  def wait_for(self, pattern):
    """Reads until a line matches; returns the match."""
    for raw in self.process.stdout:
      line = raw.decode()
      self.output += line
      match = re.search(pattern, line)
      if match:
        return match
    raise AssertionError('no line like %r before the end, but:\n%s%s'
                         % (pattern, self.output, self.process.stderr.read().decode()))

  def wait_until_printed(self, text):
    """Reads until gatewayd has printed the text, now or earlier: the order of its threads' output is not fixed."""
    if text not in self.output:
      self.wait_for(re.escape(text))

  def end(self, how=signal.SIGTERM):
    """Ends it and returns its status and what it wrote to standard error."""
    self.process.send_signal(how)
    rest, errors = self.process.communicate()
    self.output += rest.decode()
    return self.process.returncode, errors.decode()

  def kill(self):
    if self.process.poll() is None:
      self.process.kill()
    self.process.communicate()


class GatewaydTest(unittest.TestCase):
  """A folder with room for an image, and ways to run gatewayd on it."""

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='gatewayd-')
    self.addCleanup(shutil.rmtree, self.folder)
    self.image = os.path.join(self.folder, 'cfg')
    self.root = tempfile.mkdtemp(prefix='gatewayd-root-')
    self.addCleanup(shutil.rmtree, self.root)
    for path in ('overlay', 'proc', 'dev'):
      os.mkdir(os.path.join(self.root, path))
    for path in ('proc/kmsg', 'dev/mulog-ioctl-dev'):
      self.write_below_root(path, '')

  def write_below_root(self, path, text, mode='w'):
    with open(os.path.join(self.root, path), mode, encoding='ascii') as file:
      file.write(text)

  def read_below_root(self, path):
    with open(os.path.join(self.root, path), encoding='ascii') as file:
      return file.read()

  def write_fields(self, fields):
    self.write(image.image(b''.join(image.record(*field) for field in fields.items())))

  def write(self, data, name='cfg'):
    with open(os.path.join(self.folder, name), 'wb') as file:
      file.write(data)

  def read(self, name='cfg'):
    with open(os.path.join(self.folder, name), 'rb') as file:
      return file.read()

  def fields(self):
    return image.parse(self.read())

  def boot_count(self):
    return image.number(self.fields()[image.BOOT_COUNT])

  def start(self, *args, **popen):
    """Starts it and waits until it runs."""
    daemon = Daemon(['--config', self.image, *args], self.root, **popen)
    self.addCleanup(daemon.kill)
    daemon.wait_for('started, boot count')
    return daemon

  def run_once(self, *args, **popen):
    """Starts it, stops it by a signal, and returns its output."""
    daemon = self.start(*args, **popen)
    status, errors = daemon.end()
    self.assertEqual(status, OK, errors)
    return daemon.output

  def run_until(self, pattern):
    """Starts it, stops it by a signal when a line matches, and returns its output."""
    daemon = self.start()
    daemon.wait_for(pattern)
    status, errors = daemon.end()
    self.assertEqual(status, OK, errors)
    return daemon.output

  def refusal(self, *args, copies=(), **popen):
    """Runs gatewayd, which ends by itself; returns its status, output and standard error."""
    line, env = command(list(args), self.root, copies)
    done = subprocess.run(line, env={**os.environ, **env}, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          check=False, **popen)
    return done.returncode, done.stdout, done.stderr

  def assert_one_line(self, text, pattern):
    self.assertRegex(text, pattern)
    self.assertEqual(text.count('\n'), 1, text)

  def unprivileged(self):
    """Arguments that run gatewayd as a user who is not root."""
    if os.geteuid() != 0:
      return {}
    os.chmod(self.folder, 0o755)
    copies = programs.copy_for_others(self, gatewayd_command[-1], os.environ['TARN_TEST_SHIM'],
                                      os.environ['TARN_TEST_LIBRARY'])
    return {'copies': copies, 'user': programs.NOBODY, 'group': programs.NOBODY, 'extra_groups': [], 'cwd': '/'}


def main():
  programs.main(gatewayd_command)
