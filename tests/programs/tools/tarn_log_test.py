"""tarn-log, run as people run it.

Usage: tarn_log_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN_LOG

Log files are written here from the description of their format, in the way of the daemon: whole and in place. Tests that
follow a file wait for what is printed, never for a time; the hang limit is CTest's. Exits with 77 when all that was to
run was skipped.
"""

import datetime
import fcntl
import json
import os
import pty
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

DONE, FAULTY, WRONG = 0, 1, 2
LEVELS = ['Off', 'Emergency', 'Alert', 'Critical', 'Error', 'Warning', 'Notice', 'Info', 'Debug']
UTC = datetime.timezone.utc
SOURCES = os.path.join(HERE, '..', '..', '..', 'tools')
DEVICE = [('Manufacturer', 'tarn'), ('ProductClass', 'gatewayd'), ('SerialNumber', 'g:1;2'), ('IP', '192.168.1.1'),
          ('HWVer', ''), ('SWVer', '0.1.0')]

tarn_log_command = []


def seconds(text):
  """The Unix time of "2026-01-02 03:04:05" in UTC."""
  return int(datetime.datetime.strptime(text, '%Y-%m-%d %H:%M:%S').replace(tzinfo=UTC).timestamp())


START = seconds('2026-01-02 03:04:05')


class Record:
  """A record, as the daemon writes it and as tarn-log shows it."""

  def __init__(self, when, level, module, text):
    self.when, self.level, self.module = when, level, module
    self.text = text.encode() if isinstance(text, str) else text

  def stamp(self):
    return datetime.datetime.fromtimestamp(self.when, UTC).isoformat(' ')[:19]

  def line(self):
    return ('%s[%s]%s:' % (self.stamp(), self.level, self.module)).encode() + self.text + b'\n'

  def shown(self, stamp=None):
    text = '%s %-9s %s: ' % (stamp or self.stamp(), self.level, self.module)
    return text.encode() + self.text + b'\n'


def some_records(count, first=0, module='switch'):
  return [Record(START + i, 'Notice', module, 'message %d' % i) for i in range(first, first + count)]


def lines(records):
  return b''.join(record.line() for record in records)


def shown(records):
  return b''.join(record.shown() for record in records)


def system_log(records):
  return b'SysLog:\n' + lines(records)


def user_log(records, device=None):
  head = ''.join('%s:%s;\n' % field for field in (DEVICE if device is None else device))
  return head.encode() + b'\n' + lines(records)


def environment(changes=None):
  env = {**os.environ, 'LC_ALL': 'C.UTF-8', 'TZ': 'UTC', 'TERM': 'xterm', **(changes or {})}
  if 'NO_COLOR' not in (changes or {}):
    env.pop('NO_COLOR', None)
  return env


class LogTest(unittest.TestCase):
  """A folder with the two files, and ways to run tarn-log on them."""

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='tarn-log-')
    self.addCleanup(shutil.rmtree, self.folder)
    self.system = os.path.join(self.folder, 'mu_log.txt')
    self.user = os.path.join(self.folder, 'user_log.txt')

  def write(self, path, data):
    with open(path, 'wb') as file:  # truncates it and writes it anew, as the daemon does
      file.write(data)

  def run_tool(self, *args, given=b'', env=None, **popen):
    done = subprocess.run(tarn_log_command + list(args), input=given, capture_output=True, check=False,
                          env=environment(env), **popen)
    return done.returncode, done.stdout, done.stderr.decode()

  def output(self, *args, **run):
    status, output, errors = self.run_tool(*args, **run)
    self.assertEqual((status, errors), (DONE, ''))
    return output

  def assert_shows(self, expected, *args, **run):
    self.assertEqual(self.output(*args, **run).decode(errors='replace'),
                     shown(expected).decode(errors='replace'))

  def assert_refused(self, pattern, *args):
    status, output, errors = self.run_tool(*args)
    self.assertEqual((status, output), (WRONG, b''), errors)
    self.assertRegex(errors, '^tarn-log: .*' + pattern)
    self.assertEqual(errors.count('\n'), 1, errors)

  def on_terminal(self, *args, columns=60, env=None):
    """What is printed on a terminal of so many columns."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack('HHHH', 24, columns, 0, 0))
    with subprocess.Popen(tarn_log_command + list(args), stdin=subprocess.DEVNULL, stdout=theirs,
                          stderr=subprocess.PIPE, env=environment(env)) as process:
      os.close(theirs)
      output = b''
      while True:
        try:
          piece = os.read(ours, 4096)
        except OSError:  # no process has the terminal any more
          piece = b''
        if not piece:
          break
        output += piece
      errors = process.stderr.read().decode()
    os.close(ours)
    self.assertEqual((process.returncode, errors), (DONE, ''))
    return output.decode().replace('\r\n', '\n')


class Show(LogTest):

  def test_system_log(self):
    records = [Record(START, 'Notice', 'switch', 'port 3 is up')]
    self.write(self.system, b'SysLog:\n2026-01-02 03:04:05[Notice]switch:port 3 is up\n')
    self.assertEqual(self.output(self.system), b'2026-01-02 03:04:05 Notice    switch: port 3 is up\n')
    self.assert_shows(records, '-', given=system_log(records))

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
    # sorted() is stable: of one second the file that was given first.
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
    self.assertEqual(self.output(self.system),
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
    self.assertEqual(self.output('--header', self.system, self.user).decode(),
                     'Manufacturer: tarn\nProductClass: gatewayd\nSerialNumber: g:1;2\nIP:           192.168.1.1\n'
                     'HWVer:        \nSWVer:        0.1.0\n\n' + shown(records).decode())


class Select(LogTest):

  def setUp(self):
    super().setUp()
    self.records = [Record(START + i, level, module, text) for i, (level, module, text) in enumerate((
        ('Off', 'switch', 'Port 1 is up'),
        ('Emergency', 'uplink', 'port 2 is down'),
        ('Alert', 'switch', 'a.c'),
        ('Critical', 'Switch', 'abc'),
        ('Error', 'uplink', 'ABC'),
        ('Warning', 'dhcp', 'lease of \u00c4rger'),
        ('Notice', 'switch', 'Error in the text'),
        ('Info', 'uplink', 'switch'),
        ('Debug', 'dhcp', 'port 22 is up'),
    ))]
    self.write(self.system, system_log(self.records))

  def assert_selects(self, numbers, *args):
    with self.subTest(args=args):
      self.assert_shows([self.records[i] for i in numbers], *args, self.system)

  def test_module(self):
    self.assert_selects([0, 2, 6], '--module=switch')
    self.assert_selects([3, 5, 8], '-m', 'dhcp', '-m', 'Switch')
    self.assert_selects([], '-m', 'swi')

  def test_level(self):
    for last, name in enumerate(LEVELS):
      for word in (name, name.lower(), name.upper(), str(last), name[:3]):
        self.assert_selects(range(last + 1), '--level', word)
    self.assert_selects([4, 5, 6], '-l', 'error..notice')
    self.assert_selects([4, 5, 6], '-l', '6..4')
    self.assert_selects([4], '-l', 'err..err')

  def test_level_that_is_none(self):
    for word in ('', 'x', 'e', '9', '10', 'errors', '..', 'error..', '..error', 'a..b..c', ' error'):
      self.assert_refused('--level', '--level', word, self.system)

  def test_text(self):
    self.assert_selects([1, 8], '--grep=port')
    self.assert_selects([0, 1, 8], '-i', '-g', 'PORT')
    self.assert_selects([2], '-g', 'a.c')
    self.assert_selects([2, 7], '-g', 'a.c', '-g', 'switch')
    self.assert_selects([6], '-g', 'Error')

  def test_regular_expression(self):
    self.assert_selects([2, 3], '--regex', 'a.c')
    self.assert_selects([2, 3, 4], '-e', '^a.c$', '--ignore-case')
    self.assert_selects([0, 8], '-e', 'ort (1|[0-9]{2}) is up')
    self.assert_selects([3, 7], '-e', 'abc', '-e', '^switch')
    self.assert_refused('--regex: "\\(" is no regular expression: ', '-e', '(', self.system)

  def test_conditions_of_different_kinds_must_all_hold(self):
    self.assert_selects([8], '-g', 'port', '-m', 'dhcp')
    self.assert_selects([1], '-g', 'port', '-e', 'down|ABC', '-l', 'error')
    self.assert_selects([6], '-m', 'switch', '-m', 'dhcp', '--since', '2026-01-02 03:04:06', '-l', 'notice', '-g', 'Err')
    self.assert_selects([3, 6], '-e', 'text|abc', '-n', '2')


class Times(LogTest):

  def assert_between(self, records, expected, *args, **run):
    self.write(self.system, system_log(records))
    with self.subTest(args=args):
      self.assert_shows(expected, *args, self.system, **run)

  def test_both_ends_are_within(self):
    records = some_records(5)
    self.assert_between(records, records[1:], '--since', '2026-01-02 03:04:06')
    self.assert_between(records, records[:4], '--until', '2026-01-02 03:04:08')
    self.assert_between(records, records[1:4], '--since=2026-01-02T03:04:06', '--until=2026-01-02 03:04:08Z')
    self.assert_between(records, [], '--since=2026-01-02 03:04:08', '--until=2026-01-02 03:04:06')

  def test_absolute_times(self):
    for word, when in (
        ('2026-01-02', '2026-01-02 00:00:00'),
        ('2026-01-02 03:04', '2026-01-02 03:04:00'),
        ('2024-02-29T23:59:59', '2024-02-29 23:59:59'),
        ('2026-01-02 03:04:05Z', '2026-01-02 03:04:05'),
        ('2026-01-02 03:04Z', '2026-01-02 03:04:00'),
        ('2026-01-02T03:04:05+02:00', '2026-01-02 01:04:05'),
        ('2026-01-02 03:04:05-05:30', '2026-01-02 08:34:05'),
        ('1970-01-01', '1970-01-01 00:00:00'),
        ('0001-01-01', None),
    ):
      when = seconds(when) if when else seconds('0001-01-01 00:00:00')
      records = [Record(when + i, 'Info', 'm', 'x') for i in range(3)]
      self.assert_between(records, records, '--since', word)
      self.assert_between(records, records[:1], '--until', word)

  def test_local_time(self):
    # Central European time by its rule: summer from the last Sunday of March to that of October, at 01:00 UTC.
    zone = {'TZ': 'CET-1CEST,M3.5.0,M10.5.0/3'}
    for utc, local in (
        ('2026-01-02 03:04:05', '2026-01-02 04:04:05+01:00'),
        ('2026-03-29 00:59:59', '2026-03-29 01:59:59+01:00'),
        ('2026-03-29 01:00:00', '2026-03-29 03:00:00+02:00'),
        ('2026-10-25 00:30:00', '2026-10-25 02:30:00+02:00'),
        ('2026-10-25 01:30:00', '2026-10-25 02:30:00+01:00'),
        ('2025-12-31 23:30:00', '2026-01-01 00:30:00+01:00'),
    ):
      with self.subTest(utc=utc):
        records = [Record(seconds(utc) + i, 'Info', 'm', 'x') for i in (-1, 0)]
        self.write(self.system, system_log(records))
        self.assertEqual(self.output('--local', '-n1', self.system, env=zone), records[1].shown(local))
        # What is shown can be asked for.
        self.assertEqual(self.output('--local', '--since', local, self.system, env=zone), records[1].shown(local))
        data = json.loads(self.output('--local', '--json', '-n1', self.system, env=zone))
        self.assertEqual(data['time'], local.replace(' ', 'T'))
    self.assertEqual(self.output('--utc', self.system, env=zone), shown(records))

  def test_absolute_times_are_of_the_zone_that_is_shown(self):
    records = [Record(START + 3600 * i, 'Info', 'm', 'x') for i in range(4)]
    self.write(self.system, system_log(records))
    count = lambda *args: self.output(*args, self.system, env={'TZ': 'XYZ-2'}).count(b'\n')
    self.assertEqual(count('--since', '2026-01-02 05:04:05'), 2)
    self.assertEqual(count('--local', '--since', '2026-01-02 05:04:05'), 4)
    self.assertEqual(count('--local', '--since', '2026-01-02 05:04:06'), 3)
    self.assertEqual(count('--local', '--since', '2026-01-02 05:04:05Z'), 2)

  def test_durations_are_before_now(self):
    now = int(time.time())
    for word, ago in (('7200s', 7200), ('7200sec', 7200), ('120m', 7200), ('120min', 7200), ('2h', 7200), ('3d', 259200),
                      ('2w', 1209600), ('1d12h', 129600), ('1h30m1800s', 7200), ('0s', 0), ('now', 0),
                      ('999999999s', 999999999)):
      # An hour is more than the test takes.
      records = [Record(now - ago + distance, 'Info', 'm', 'x') for distance in (-3600, 3600)]
      self.assert_between(records, records[1:], '--since', word)
      self.assert_between(records, records[:1], '--until', word)

  def test_today_and_yesterday_begin_at_midnight(self):
    # In a zone where it is noon.
    hour = time.gmtime().tm_hour
    zone = {'TZ': 'XYZ%+d' % (hour - 12)}
    midnight = int(time.time()) // 3600 * 3600 - 12 * 3600
    for word, begin in (('today', midnight), ('yesterday', midnight - 86400)):
      records = [Record(begin + i, 'Info', 'm', str(i)) for i in (-1, 0, 1)]
      self.write(self.system, system_log(records))
      output = self.output('--local', '--since', word, self.system, env=zone)
      self.assertEqual(output.count(b'\n'), 2, word)
      self.assertIn(b' 00:00:00', output.splitlines()[0])

  def test_today_in_utc(self):
    now = int(time.time())
    records = [Record(now - 86400 - 600, 'Info', 'm', 'before'), Record(now + 3600, 'Info', 'm', 'after')]
    self.assert_between(records, records[1:], '--since', 'today')

  def test_what_is_no_time(self):
    self.write(self.system, system_log(some_records(1)))
    for word in ('', 'x', '2026', '2026-1-2', '2026-13-01', '2026-00-01', '2026-02-29', '2026-01-32', '2026-01-00',
                 '2026-01-02 24:00', '2026-01-02 03:60', '2026-01-02 03:04:60', '2026-01-02 03', '2026-01-02 03:04:',
                 '2026-01-02 03:04:05 ', '2026-01-02 03:04:05+2', '2026-01-02 03:04:05+02:60', '2026-01-02Z',
                 '2026-01-02 03:04:05+24:00', '2026-01-02 03:04:05ZZ', '2026/01/02', '10', 'h', '1h2', '1y', '1.5h',
                 '1 h', '1000000000s', '1h-1h', 'Now', 'tomorrow'):
      for option in ('--since', '--until'):
        self.assert_refused(option + ': "' + re.escape(word) + '" is no time', option, word, self.system)


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
      (b'2026-01-02 03:04:05[Info]m', 'no ":" behind the module'),
      (b'2026-01-02 03:04:05[Info]:x', 'a module without a name'),
      (b'2026-01-02 03:04:05[Info]1234567890123456:x', "a module's name of more than 15 bytes"),
      (b'2026-01-02 03:04:05[Info]m:', 'no text'),
      (b'2026-01-02 03:04:05[Info]m:a\0b', 'a NUL in column 29'),
      (b'\0' * 4096, 'a NUL in column 1'),
      (b'SysLog:', 'no time'),
  )

  def test_a_line_is_told_and_left_out(self):
    records = some_records(2)
    for bad, reason in self.ROWS:
      with self.subTest(bad=bad):
        before = b'SysLog:\n' + records[0].line()
        self.write(self.system, before + bad + b'\n' + records[1].line())
        for args, expected in (((), DONE), (('--strict',), FAULTY)):
          status, output, errors = self.run_tool(self.system, *args)
          self.assertEqual((status, output), (expected, shown(records)))
          self.assertRegex(errors, r'\Atarn-log: %s: line 3, byte %d: %s[^\n]*\n\Z'
                           % (re.escape(self.system), len(before), reason))

  def assert_told(self, data, records, *faults):
    """`faults` are pairs of a line's number and the reason."""
    starts = [0] + [match.end() for match in re.finditer(b'\n', data)]
    status, output, errors = self.run_tool('--strict', '-', given=data)
    self.assertEqual((status, output), (FAULTY, shown(records)))
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
      self.assertEqual((status, output, errors), (WRONG, shown(records), 'tarn-log: %s: %s\n' % (path, reason)))

  def test_output_that_cannot_be_written(self):
    self.write(self.system, system_log(some_records(1)))
    with open('/dev/full', 'wb') as full:
      for args in ((), ('--count',), ('-f',)):
        done = subprocess.run(tarn_log_command + [self.system, *args], stdout=full, stderr=subprocess.PIPE, check=False,
                              env=environment())
        self.assertEqual((done.returncode, done.stderr),
                         (WRONG, b'tarn-log: standard output: No space left on device\n'))


class Json(LogTest):

  def test_records_and_the_device(self):
    system = [Record(START, 'Notice', 'switch', 'say "hi" \\ \t\x1b \u20ac')]
    user = [Record(START + 1, 'Off', 'traffic', 'x')]
    self.write(self.system, system_log(system))
    self.write(self.user, user_log(user))
    output = self.output('--json', self.system, self.user).decode()
    self.assertEqual([json.loads(line) for line in output.splitlines()], [
        {'file': self.user, 'device': dict(DEVICE)},
        {'file': self.system, 'line': 2, 'time': '2026-01-02T03:04:05Z', 'level': 'Notice', 'severity': 6,
         'module': 'switch', 'text': 'say "hi" \\ \t\x1b \u20ac'},
        {'file': self.user, 'line': 8, 'time': '2026-01-02T03:04:06Z', 'level': 'Off', 'severity': 0,
         'module': 'traffic', 'text': 'x'},
    ])
    self.assertTrue(output.endswith('\n'))
    data = json.loads(self.output('--json', '-', given=system_log(system)))
    self.assertEqual(data['file'], '-')

  def test_text_that_was_cut_in_a_letter(self):
    text = ('x' * 254 + '\u20ac').encode()[:255]
    output = self.output('--json', '-', given=system_log([Record(START, 'Info', 'm', text)]))
    self.assertEqual(json.loads(output.decode())['text'], 'x' * 254 + '\ufffd')

  def test_every_selection(self):
    records = some_records(4)
    self.write(self.system, system_log(records))
    output = self.output('--json', '-r', '-n', '2', '-e', '[0-2]', self.system).decode()
    self.assertEqual([json.loads(line)['text'] for line in output.splitlines()], ['message 2', 'message 1'])

  def test_no_colour(self):
    self.write(self.system, system_log(some_records(1)))
    self.assertNotIn(b'\x1b', self.output('--json', '--color=always', self.system))


class Count(LogTest):

  def setUp(self):
    super().setUp()
    spread = [('Error', 'uplink', 1), ('Notice', 'switch', 40), ('Notice', 'dhcp', 10), ('Debug', 'arp', 10)]
    self.records = [Record(START, level, module, 'x') for level, module, count in spread for _ in range(count)]
    self.write(self.system, system_log(self.records))

  def test_plain_when_it_is_piped(self):
    self.assertEqual(self.output('--count', self.system).decode(), '''61 records

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
    output = self.output('--count', '--json', self.system, self.user).decode()
    self.assertEqual(output, '{"records":61,"levels":{"Error":1,"Notice":50,"Debug":10},'
                     '"modules":{"switch":40,"arp":10,"dhcp":10,"uplink":1}}\n')

  def test_of_a_selection(self):
    self.assertEqual(self.output('--count', '-m', 'uplink', self.system),
                     b'1 record\n\nBy level\n  Error   1\n\nBy module\n  uplink  1\n')
    self.assertEqual(self.output('--count', '-m', 'none', self.system), b'0 records\n')
    self.assertEqual(self.output('--count', '--json', '-m', 'none', self.system),
                     b'{"records":0,"levels":{},"modules":{}}\n')


class Colour(LogTest):

  def setUp(self):
    super().setUp()
    self.records = [Record(START + i, level, 'm', 'x') for i, level in enumerate(LEVELS)]
    self.write(self.system, system_log(self.records))
    self.plain = shown(self.records).decode()

  def without_colour(self, text):
    return re.sub('\x1b\\[[0-9;]*m', '', text)

  def test_on_a_terminal_alone(self):
    coloured = self.on_terminal(self.system)
    self.assertNotEqual(coloured, self.plain)
    self.assertEqual(self.without_colour(coloured), self.plain)
    self.assertEqual(self.output(self.system).decode(), self.plain)
    self.assertEqual(self.output('--color=always', self.system).decode(), coloured)
    self.assertEqual(self.on_terminal('--color=auto', self.system, env={'NO_COLOR': ''}), coloured)
    for args, env in ((('--color=never',), {}), ((), {'NO_COLOR': '1'}), ((), {'TERM': 'dumb'}), ((), {'TERM': ''})):
      self.assertEqual(self.on_terminal(*args, self.system, env=env), self.plain, (args, env))
    self.assertEqual(self.on_terminal('--color=always', self.system, env={'NO_COLOR': '1'}), coloured)

  def test_grave_levels_look_different_from_others(self):
    looks = {}
    for level, line in zip(LEVELS, self.output('--color=always', self.system).decode().splitlines()):
      looks[level] = re.search('((?:\x1b\\[[0-9;]*m)?)' + level, line).group(1)
      self.assertFalse(line.count('\x1b') % 2, 'each colour ends')
    self.assertEqual(looks['Info'], '')
    grave = ['Emergency', 'Critical', 'Error', 'Warning', 'Notice', 'Info', 'Debug']
    self.assertEqual(len({looks[level] for level in grave}), len(grave))


class Follower:
  """A running tarn-log --follow."""

  def __init__(self, *args, last=None):
    arguments = ['--follow', '--interval=0.01', *args] + ([] if last is None else ['-n', str(last)])
    # Unbuffered: the tests wait for lines. pylint: disable=consider-using-with
    self.process = subprocess.Popen(tarn_log_command + arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.PIPE, bufsize=0, env=environment())
    self.lines = []

  def read_until(self, record):
    """Reads up to this record's line; returns all lines since the last call."""
    got = b''
    while not got.endswith(record.shown()):
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


class Follow(LogTest):

  def setUp(self):
    super().setUp()
    self.marks = []

  def follow(self, *args, **more):
    follower = Follower(*args, **more)
    self.addCleanup(follower.kill)
    return follower

  def follow_new(self, *args):
    """Follows from the present state on. The files are read in order: when the missing one is, the others were."""
    follower = self.follow(*args, self.folder + '/missing', last=0)
    self.assertIn('waiting for it', follower.error_line())
    return follower

  def expect_end(self, follower):
    self.assertEqual(follower.end(), (b'', ''), 'nothing more')

  def test_what_is_added(self):
    self.write(self.system, system_log(some_records(2)))
    follower = self.follow(self.system)
    for count in range(2, 20):
      records = some_records(count)
      self.write(self.system, system_log(records))
      expected = records if count == 2 else records[-1:]
      self.assertEqual(follower.read_until(records[-1]), shown(expected))
    self.expect_end(follower)

  def test_begins_with_the_last_ten_unless_told(self):
    records = some_records(30)
    self.write(self.system, system_log(records))
    for args, first in (((), 20), (('-n', '3'), 27), (('-n', '40'), 0), (('--since=2026-01-01',), 0),
                        (('--since=2026-01-01', '-n1'), 29)):
      follower = self.follow(self.system, *args)
      self.assertEqual(follower.read_until(records[-1]), shown(records[first:]))
      self.expect_end(follower)

  def test_none_of_the_old(self):
    records = some_records(3)
    self.write(self.system, system_log(records[:2]))
    follower = self.follow_new(self.system)
    self.write(self.system, system_log(records))
    self.assertEqual(follower.read_until(records[2]), records[2].shown())
    self.expect_end(follower)

  def look_twice(self, follower):
    """Returns when `follower` has seen the system log as it is now, which stands before the user log: it was read for
    the look that finds the second new record of the user log, as that was written when the first had been found.
    Returns what was printed beside these."""
    printed = b''
    for _ in range(2):
      self.marks.append(Record(START + 10**6, 'Debug', 'mark', str(len(self.marks))))
      self.write(self.user, user_log(self.marks))
      printed += follower.read_until(self.marks[-1]).replace(self.marks[-1].shown(), b'')
    return printed

  def test_a_full_ring(self):
    capacity = 1024
    records = some_records(capacity)
    self.write(self.system, system_log(records))
    follower = self.follow(self.system, last=1)
    follower.read_until(records[-1])
    for added in (1, 2, 300, capacity - 1, capacity):
      records = records + some_records(added, len(records))
      self.write(self.system, system_log(records[-capacity:]))
      self.assertEqual(follower.read_until(records[-1]), shown(records[-added:]))
    # More than the ring holds have come: those that are left.
    records = records + some_records(3000, len(records))
    self.write(self.system, system_log(records[-capacity:]))
    self.assertEqual(follower.read_until(records[-1]), shown(records[-capacity:]))
    self.expect_end(follower)

  def test_lines_that_are_alike(self):
    # The same words in the same second are news as often as they are said.
    chance = random.Random(5)
    alike = [Record(START, 'Info', 'm', text) for text in ('this', 'that')]
    end = Record(START, 'Info', 'm', 'begin')
    ring = [alike[0], alike[0], alike[1], end]
    self.write(self.system, system_log(ring))
    follower = self.follow(self.system)
    follower.read_until(end)
    for number in range(50):
      end = Record(START, 'Info', 'm', 'end %d' % number)
      new = [chance.choice(alike) for _ in range(chance.randint(0, 4))] + [end]
      ring = ring[chance.randint(0, max(len(ring) - 4, 0)):] + new
      self.write(self.system, system_log(ring))
      self.assertEqual(follower.read_until(end), shown(new))
    self.expect_end(follower)

  def test_a_file_that_is_being_written(self):
    records = some_records(20)
    self.write(self.user, user_log([]))
    self.write(self.system, system_log(records))
    follower = self.follow(self.system, self.user)
    self.assertEqual(follower.read_until(records[-1]), shown(records[10:]))
    later = records[5:] + some_records(4, 20)
    whole = system_log(later)
    sizes = [0, 4, 8, 20, len(system_log(later[:7])), len(system_log(later[:15])), len(system_log(later[:15])) + 9]
    for size in sizes:
      self.write(self.system, whole[:size])
      self.assertEqual(self.look_twice(follower), b'', 'nothing of the first %d bytes is new' % size)
    self.write(self.system, system_log(later[:16]) + b'2026-')
    self.assertEqual(self.look_twice(follower), later[15].shown())
    self.write(self.system, b'')
    self.assertEqual(self.look_twice(follower), b'')
    self.write(self.system, whole)
    self.assertEqual(self.look_twice(follower), shown(later[16:]))
    self.expect_end(follower)

  def test_random_rewrites(self):
    chance = random.Random(20260102)
    capacity = 12
    records = some_records(capacity)
    self.write(self.system, system_log(records))
    follower = self.follow_new(self.system)
    for _ in range(60):
      added = chance.randint(1, capacity)
      records = records + some_records(added, len(records))
      whole = system_log(records[-capacity:])
      with open(self.system, 'wb', buffering=0) as file:  # in pieces, at any of which it may be read
        at = 0
        while at < len(whole):
          size = chance.randint(1, 200)
          file.write(whole[at:at + size])
          at += size
      self.assertEqual(follower.read_until(records[-1]), shown(records[-added:]))
    self.expect_end(follower)

  def test_a_log_that_was_cleared(self):
    records = some_records(5)
    self.write(self.user, user_log([]))
    self.write(self.system, system_log(records))
    follower = self.follow(self.system, self.user)
    follower.read_until(records[-1])
    for empty in (b'SysLog:\n', b'SysLog:\n\0', b''):
      self.write(self.system, empty)
      self.assertEqual(self.look_twice(follower), b'')
    later = some_records(2, 5)
    self.write(self.system, system_log(later))
    self.assertEqual(follower.read_until(later[-1]), shown(later))
    self.expect_end(follower)

  def test_a_restart_that_moves_the_times(self):
    # The daemon reads its times back as local time: each record has moved by the zone's offset.
    records = some_records(8)
    self.write(self.system, system_log(records))
    follower = self.follow(self.system)
    follower.read_until(records[-1])
    for shift in (-7200, 19800, 0):
      moved = [Record(record.when + shift, record.level, record.module, record.text) for record in records[2:]]
      records = moved + some_records(2, len(records) + abs(shift))
      self.write(self.system, system_log(records))
      self.assertEqual(follower.read_until(records[-1]), shown(records[-2:]))
    self.expect_end(follower)

  def test_a_restart_that_lost_the_end(self):
    records = some_records(8)
    self.write(self.system, system_log(records))
    follower = self.follow(self.system)
    follower.read_until(records[-1])
    later = some_records(2, 100)
    self.write(self.system, system_log(records[:5] + later))
    self.assertEqual(follower.read_until(later[-1]), shown(later))
    self.expect_end(follower)

  def test_a_file_that_comes_and_goes(self):
    follower = self.follow(self.system)
    waiting = 'tarn-log: %s: No such file or directory; waiting for it\n' % self.system
    self.assertEqual(follower.error_line(), waiting)
    records = some_records(20)
    self.write(self.system, system_log(records))
    self.assertEqual(follower.read_until(records[-1]), shown(records))
    os.unlink(self.system)
    self.assertEqual(follower.error_line(), waiting)
    records = records[3:] + some_records(1, 20)
    self.write(self.system, system_log(records))
    self.assertEqual(follower.read_until(records[-1]), records[-1].shown())
    self.expect_end(follower)

  def test_selection_and_order_of_what_is_new(self):
    self.write(self.system, system_log([]))
    self.write(self.user, user_log([]))
    follower = self.follow(self.system, self.user, '-l', 'notice', '--json', last=0)
    end = Record(START + 9, 'Error', 'm', 'end')
    self.assertEqual(json.loads(follower.process.stdout.readline()), {'file': self.user, 'device': dict(DEVICE)})
    self.write(self.system, system_log([Record(START, 'Info', 'm', 'no'), Record(START, 'Notice', 'm', 'yes'), end]))
    texts = [json.loads(follower.process.stdout.readline())['text'] for _ in range(2)]
    self.assertEqual(texts, ['yes', 'end'])
    self.expect_end(follower)

  def test_header_again_when_it_has_changed(self):
    records = some_records(3)
    self.write(self.user, user_log(records[:1]))
    follower = self.follow(self.user, '--header')
    self.assertIn(b'SWVer:        0.1.0\n\n', follower.read_until(records[0]))
    self.write(self.user, user_log(records[:2]))
    self.assertEqual(follower.read_until(records[1]), records[1].shown())
    self.write(self.user, user_log(records, DEVICE[:5] + [('SWVer', '0.2.0')]))
    self.assertIn(b'SWVer:        0.2.0\n\n', follower.read_until(records[2]))
    self.expect_end(follower)

  def test_malformed_lines_are_told_once(self):
    records = some_records(6)
    self.write(self.system, system_log(records[:2]) + b'bad\n')
    follower = self.follow(self.system)
    follower.read_until(records[1])
    begin = 'tarn-log: %s: line ' % self.system
    at = len(system_log(records[:2]))
    self.assertEqual(follower.error_line(), begin + '4, byte %d: no time "YYYY-MM-DD hh:mm:ss" at its beginning\n' % at)
    self.write(self.system, b'SysLog:\n' + records[1].line() + b'bad\n' + records[2].line() + b'worse\n' + records[3].line())
    self.assertEqual(follower.read_until(records[3]), shown(records[2:4]))
    self.assertRegex(follower.error_line(), '^' + re.escape(begin) + '5, byte ')
    self.expect_end(follower)

  def test_ends_when_nobody_reads(self):
    records = some_records(1)
    self.write(self.system, system_log(records))
    for args, expected in (((), DONE), (('--strict',), DONE)):
      follower = self.follow(self.system, *args)
      follower.read_until(records[0])
      follower.process.stdout.close()
      self.assertEqual(follower.process.wait(), expected)
    self.write(self.system, system_log(records) + b'bad\n')
    follower = self.follow(self.system, '--strict')
    follower.read_until(records[0])
    follower.process.stdout.close()
    self.assertEqual(follower.process.wait(), FAULTY)

  def test_what_cannot_be_followed(self):
    self.assert_refused('standard input', '-f', self.system, '-')
    self.assert_refused('--follow', '-f', '-r', self.system)
    self.assert_refused('--follow', '-f', '--count', self.system)


class CommandLine(LogTest):

  def test_wrong_use(self):
    for args in (('--foo',), ('-x',), ('-n', 'x'), ('-n', '-1'), ('-n', '1.5'), ('--lines',), ('-m',), ('--color=blue',),
                 ('--interval=0',), ('--interval=3601',), ('--interval=x',), ('--utc', '--local')):
      with self.subTest(args=args):
        self.assert_refused('see tarn-log --help', *args)

  def test_options_and_files_in_any_order(self):
    records = some_records(3, module='-m')
    self.write(self.system, system_log(records))
    self.assert_shows(records, '-m', 'x', self.system, '--module=-m')
    self.assert_shows(records, '-i', '-g', 'MESSAGE', '--', self.system)

  def help(self):
    output = self.output('--help').decode()
    self.assertEqual(self.output('-h').decode(), output)
    return output

  def test_help_names_each_option_that_the_man_page_and_the_completion_have(self):
    options = set(re.findall(r'(?<![\w-])--[a-z]+(?:-[a-z]+)*', self.help()))
    self.assertGreater(len(options), 15)
    with open(os.path.join(SOURCES, 'tarn-log', 'tarn-log.1'), encoding='ascii') as file:
      page = file.read().replace('\\-', '-')
    # The options that a paragraph is tagged with.
    tagged = re.findall(r'^\.TP\n\.BR? (?:-\w ", " )?(--[a-z]+(?:-[a-z]+)*)', page, re.MULTILINE)
    self.assertEqual(sorted(tagged), sorted(options))
    with open(os.path.join(SOURCES, 'tarn-log', 'tarn-log.bash'), encoding='ascii') as file:
      completion = file.read()
    self.assertEqual(set(re.findall(r'(?<![\w-])--[a-z]+(?:-[a-z]+)*', completion.split('words="--module')[1]))
                     | {'--module'}, options)
    self.assertTrue(all(len(line) <= 120 for line in self.help().splitlines()))

  def test_each_option_of_the_help_is_taken(self):
    self.write(self.system, system_log([]))
    for short, name, value in re.findall(r'^ +(?:(-\w), +)?(--[a-z-]+)(?:=([A-Z]+))?  ', self.help(), re.MULTILINE):
      if name in ('--help', '--version', '--follow'):
        continue
      word = {'': None, 'NAME': 'm', 'LEVEL': 'info', 'TIME': 'now', 'TEXT': 't', 'REGEX': 'r', 'N': '1', 'WHEN': 'auto',
              'S': '1'}[value]
      self.output(self.system, name + ('=' + word if word else ''))
      if short:
        self.output(self.system, *([short, word] if word else [short]))

  def test_version(self):
    header = os.path.join(SOURCES, '..', 'include', 'tarn', 'types.h')
    with open(header, encoding='ascii') as file:
      numbers = re.findall(r'#define TARN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)', file.read())
    self.assertEqual(self.output('--version').decode(), 'tarn-log ' + '.'.join(numbers) + '\n')

  def test_completion(self):
    bash = shutil.which('bash')
    if bash is None:
      self.skipTest('no bash')
    script = os.path.join(SOURCES, 'tarn-log', 'tarn-log.bash')
    for words, expected in (
        (['--co'], ['--color=', '--count']),
        (['--color', '=', 'a'], ['auto', 'always']),
        (['--color', '='], ['auto', 'always', 'never']),
        (['-l', 'E'], ['Emergency', 'Error']),
        (['file', '--since', '1'], ['10min', '1h', '1d', '1w']),
        (['-m', ''], []),
        (['fi'], []),  # left to bash: files
    ):
      line = ' '.join("'%s'" % word for word in ['tarn-log'] + words)
      done = subprocess.run([bash, '-c', 'source "$0"; COMP_WORDS=(%s); COMP_CWORD=%d; _tarn_log; echo "${COMPREPLY[@]}"'
                             % (line, len(words)), script], capture_output=True, text=True, check=True)
      self.assertEqual((done.stdout.split(), done.stderr), (expected, ''), words)


if __name__ == '__main__':
  programs.main(tarn_log_command)
