# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of tarn-log: records as the daemon writes them, and ways to run the tool.

Log files are made here from the description of their format, in the way of the daemon: whole and in place.
"""

import calendar
import fcntl
import json
import os
import signal
import struct
import subprocess
import sys
import termios
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

ROOT = os.path.join(HERE, '..', '..', '..')
TOOLS = os.path.join(ROOT, 'tools')
PAGE = os.path.join(TOOLS, 'tarn-log', 'tarn-log.1')
COMPLETION = os.path.join(TOOLS, 'tarn-log', 'tarn-log.bash')
DONE, NOT_SO, WRONG = 0, 1, 2
LEVELS = ['Off', 'Emergency', 'Alert', 'Critical', 'Error', 'Warning', 'Notice', 'Info', 'Debug']
DEVICE = [('Manufacturer', 'tarn'), ('ProductClass', 'gatewayd'), ('SerialNumber', 'g:1;2'), ('IP', '192.168.1.1'),
          ('HWVer', ''), ('SWVer', '0.1.0')]
HEAD = (b'Manufacturer:tarn;\nProductClass:gatewayd;\nSerialNumber:gateway;\nIP:192.168.1.1;\nHWVer:example;\n'
        b'SWVer:1.0.0;\n\n')
MARK = b'SysLog:\n'
CENTRAL_EUROPE = 'CET-1CEST,M3.5.0,M10.5.0/3'

# The program under test and its emulator: filled by programs.main.
command_line = []


def seconds(text):
  """The Unix time of "2026-01-02 03:04:05" in UTC."""
  return calendar.timegm(time.strptime(text, '%Y-%m-%d %H:%M:%S'))


START = seconds('2026-01-02 03:04:05')


class Record:
  """A record, as the daemon writes it and as tarn-log shows it."""

  def __init__(self, when=START, level='Notice', module='switch', text='port 3 is up'):
    self.when, self.level, self.module = when, level, module
    self.text = text.encode() if isinstance(text, str) else text

  def stamp(self):
    return '%04d-%02d-%02d %02d:%02d:%02d' % time.gmtime(self.when)[:6]

  def line(self):
    return ('%s[%s]%s:' % (self.stamp(), self.level, self.module)).encode() + self.text + b'\n'

  def shown(self, stamp=None):
    text = '%s %-9s %s: ' % (stamp or self.stamp(), self.level, self.module)
    return text.encode() + self.text + b'\n'


def record(*args, **fields):
  """A record's line in a file."""
  return Record(*args, **fields).line()


def shown(*args, time_text=None, **fields):
  """The same as it is shown."""
  return Record(*args, **fields).shown(time_text)


def some_records(count, first=0, module='switch'):
  return [Record(START + i, 'Notice', module, 'message %d' % i) for i in range(first, first + count)]


def lines(records):
  return b''.join(one.line() for one in records)


def all_shown(records):
  return b''.join(one.shown() for one in records)


def system_log(records):
  return MARK + lines(records)


def device_head(fields=None):
  return ''.join('%s:%s;\n' % field for field in (DEVICE if fields is None else fields)).encode() + b'\n'


def user_log(records, device=None):
  return device_head(device) + lines(records)


class LogTest(programs.ProgramTest):
  """A folder with the two files, and ways to run tarn-log on them."""

  command = command_line

  def setUp(self):
    super().setUp()
    self.system = self.path('mu_log.txt')
    self.user = self.path('user_log.txt')

  def run_tool(self, *args, env=None, **popen):
    """Runs it; returns its status, its output as bytes and what it reported as a text."""
    status, output, errors = self.run_program(*args, env=self.environment(env), **popen)
    return status, output, errors.decode()

  def environment(self, changes=None):
    return {'LC_ALL': 'C.UTF-8', 'TZ': 'UTC', 'TERM': 'xterm', 'NO_COLOR': '', **(changes or {})}

  def do(self, *args, **popen):
    """Runs it; it must succeed without a message. Returns its output."""
    status, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((status, errors), (DONE, ''), args)
    return output

  def refuse(self, *args, says='', matches='.{3,300}', **popen):
    """Wrong use: nothing is shown, and one line is reported. It must contain `says`, and after the program's name match
    the expression `matches`."""
    status, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((status, output), (WRONG, b''), args)
    self.assertRegex(errors, r'\Atarn-log: .*%s.*\n\Z' % matches)
    self.assertEqual(errors.count('\n'), 1, errors)
    self.assertIn(says, errors)

  def texts(self, *args, **popen):
    """The texts of the records that are shown."""
    return [json.loads(line)['text'] for line in self.do('--json', *args, **popen).splitlines()]

  def assert_shows(self, expected, *args, **popen):
    self.assertEqual(self.do(*args, **popen).decode(errors='replace'), all_shown(expected).decode(errors='replace'))

  def on_terminal(self, *args, columns=60, env=None):
    """The output on a terminal with this number of columns, without reports; None for a terminal without a size."""
    ours, theirs = programs.open_terminal(self)
    if columns is not None:
      fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack('HHHH', 24, columns, 0, 0))
    with subprocess.Popen(self.line(args), cwd=self.folder, env={**os.environ, **self.environment(env)},
                          stdin=subprocess.DEVNULL, stdout=theirs, stderr=subprocess.PIPE) as running:
      os.close(theirs)
      output = programs.read_terminal(ours)
      self.assertEqual((running.stderr.read(), running.wait()), (b'', DONE))
    return output.decode().replace('\r\n', '\n')


class Follower:
  """A running tarn-log --follow."""

  def __init__(self, line, env, folder):
    # Unbuffered: the tests wait for lines. pylint: disable=consider-using-with
    self.process = subprocess.Popen(line, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.PIPE, bufsize=0, env=env)

  def read_until(self, one):
    """Reads up to this record's line; returns all lines since the last call."""
    got = b''
    while not got.endswith(one.shown()):
      line = self.process.stdout.readline()
      if not line:
        raise AssertionError('ended: %r %r' % (got, self.process.stderr.read()))
      got += line
    return got

  def error_line(self):
    return self.process.stderr.readline().decode()

  def end(self):
    self.process.send_signal(signal.SIGTERM)
    output, errors = self.process.communicate()
    return output, errors.decode()

  def kill(self):
    if self.process.poll() is None:
      self.process.kill()
    self.process.communicate()


class FollowTest(LogTest):
  """Ways to follow the two files. The tests wait for what is printed, never for a time; the hang limit is CTest's."""

  def setUp(self):
    super().setUp()
    self.marks = []

  def follow(self, *args, last=None):
    arguments = ['--follow', '--interval=0.01', *args] + ([] if last is None else ['-n', str(last)])
    follower = Follower(self.line(arguments), {**os.environ, **self.environment()}, self.folder)
    self.addCleanup(follower.kill)
    return follower

  def follow_new(self, *args):
    """Follows from the present state on. The files are read in order: the missing one is the last."""
    follower = self.follow(*args, self.folder + '/missing', last=0)
    self.assertIn('waiting for it', follower.error_line())
    return follower

  def expect_end(self, follower):
    self.assertEqual(follower.end(), (b'', ''), 'nothing more')

  def look_twice(self, follower):
    """Returns when `follower` has read the present system log. It reads the system log before the user log, and the
    second new record of the user log is written after the first was found. So when the second is found, the system log
    was read. Returns the other output."""
    printed = b''
    for _ in range(2):
      self.marks.append(Record(START + 10**6, 'Debug', 'mark', str(len(self.marks))))
      self.write(self.user, user_log(self.marks))
      printed += follower.read_until(self.marks[-1]).replace(self.marks[-1].shown(), b'')
    return printed
