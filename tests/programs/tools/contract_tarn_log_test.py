"""tarn-log against its man page and the description of the log files. What is expected is worked out here.

Usage: contract_tarn_log_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG

Tests that follow a file wait for what is printed, never for a time; the hang limit is CTest's.
"""

import calendar
import fcntl
import json
import os
import pty
import random
import re
import resource
import select
import signal
import struct
import subprocess
import sys
import termios
import time

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

ROOT = os.path.join(HERE, '..', '..', '..')
TOOLS = os.path.join(ROOT, 'tools')
PAGE = os.path.join(TOOLS, 'tarn-log', 'tarn-log.1')
COMPLETION = os.path.join(TOOLS, 'tarn-log', 'tarn-log.bash')
DONE, FAULTY, WRONG = 0, 1, 2
LEVELS = ('Off', 'Emergency', 'Alert', 'Critical', 'Error', 'Warning', 'Notice', 'Info', 'Debug')
DEVICE = (b'Manufacturer:tarn;\nProductClass:gatewayd;\nSerialNumber:gateway;\nIP:192.168.1.1;\nHWVer:example;\n'
          b'SWVer:1.0.0;\n\n')
MARK = b'SysLog:\n'
CENTRAL_EUROPE = 'CET-1CEST,M3.5.0,M10.5.0/3'

command_line = []


def at(text):
  """The Unix time of a time in UTC."""
  return calendar.timegm(time.strptime(text, '%Y-%m-%d %H:%M:%S'))


def stamp(when):
  return '%04d-%02d-%02d %02d:%02d:%02d' % time.gmtime(when)[:6]


START = at('2026-01-02 03:04:05')


def record(when=START, level='Notice', module='switch', text='port 3 is up'):
  return ('%s[%s]%s:%s\n' % (stamp(when), level, module, text)).encode()


def shown(when=START, level='Notice', module='switch', text='port 3 is up', time_text=None):
  return ('%s %-9s %s: %s\n' % (time_text or stamp(when), level, module, text)).encode()


class LogTest(programs.ProgramTest):
  """Ways to run tarn-log."""

  command = command_line

  def do(self, *args, **popen):
    """Runs it where it must succeed and complain of nothing; returns its output."""
    status, output, errors = self.run_program(*args, **popen)
    self.assertEqual((status, errors), (DONE, b''), args)
    return output

  def refuse(self, *args, says='', **popen):
    """Wrong use: one line, and nothing is shown."""
    status, output, errors = self.run_program(*args, **popen)
    self.assertEqual((status, output), (WRONG, b''), args)
    self.assertRegex(errors.decode(), r'\Atarn-log: [^\n]{3,200}\n\Z')
    self.assertIn(says, errors.decode())

  def texts(self, *args, **popen):
    """The texts of the records that are shown."""
    return [json.loads(line)['text'] for line in self.do('--json', *args, **popen).splitlines()]


class Files(LogTest):
  """Which files, which records, in which order."""

  def test_merged_by_time_each_file_in_its_order(self):
    rand = random.Random(9)
    for _ in range(8):
      whole = {}
      for name in ('a', 'b', 'c'):
        times = sorted(START + rand.randrange(30) for _ in range(rand.randrange(12)))
        whole[name] = [(when, name, i) for i, when in enumerate(times)]
        self.write(name, MARK + b''.join(record(when, text=letter + str(i)) for when, letter, i in whole[name]))
      found = [(at(r['time'].replace('T', ' ')[:-1]), r['text'][0], int(r['text'][1:]))
               for r in map(json.loads, self.do('--json', 'a', 'b', 'c').splitlines())]
      self.assertEqual(sorted(found), sorted(sum(whole.values(), [])))
      self.assertEqual([when for when, *_ in found], sorted(when for when, *_ in found))
      for name, records in whole.items():
        self.assertEqual([entry for entry in found if entry[1] == name], records)
      last = self.texts('-n', '5', 'a', 'b', 'c')
      self.assertEqual(last, [r[1] + str(r[2]) for r in found][-5:])
      self.assertEqual(self.texts('-n', '5', '-r', 'a', 'b', 'c'), last[::-1])

  def test_clock_that_went_back_leaves_the_order_of_the_file(self):
    self.write('a', MARK + record(START, text='1') + record(START - 999, text='2') + record(START + 5, text='3'))
    self.assertEqual(self.texts('a'), ['1', '2', '3'])

  def test_both_forms_and_fresh_ones(self):
    for data, count in ((b'', 0), (MARK, 0), (MARK + b'\0', 0), (DEVICE, 0), (MARK + record(), 1),
                        (DEVICE + record(), 1)):
      self.write('log', data)
      self.assertEqual(self.do('--strict', 'log'), shown() * count, data)
      self.assertEqual(self.do('--strict', '-', input=data), shown() * count, data)

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
    self.assertEqual(self.run_program('--strict', 'log')[:2], (FAULTY, b''))


class Lines(LogTest):
  """What is no record, and what is shown of one."""

  def test_a_malformed_line_is_told_with_its_place_and_left_out(self):
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
        self.assertEqual((status, output), (FAULTY if strict else DONE, shown() * 2), line)
        self.assertRegex(errors, rb'\Atarn-log: log: line 3, byte %d: [^\n]+\n\Z' % len(MARK + good), line)
    self.write('log', MARK + good + good[:-1])  # the daemon died in the middle
    self.assertEqual(self.run_program('--strict', 'log')[:2], (FAULTY, shown()))

  def test_control_characters_are_shown_as_hexadecimal(self):
    for code in [*range(1, 9), *range(11, 32), 127]:
      text = b'a' + bytes([code]) + b'b'
      self.write('log', MARK + record(text='@').replace(b'@', text))
      self.assertEqual(self.do('log'), shown(text='a\\x%02xb' % code), code)
    self.write('log', MARK + record(text='a\tb é €'))
    self.assertEqual(self.do('log'), shown(text='a\tb é €'))

  def test_json_is_utf_8_whatever_the_text(self):
    rand = random.Random(10)
    for _ in range(30):
      text = bytes(rand.choice([rand.randrange(256), 97, 0xc3, 0xa9]) for _ in range(rand.randrange(1, 30)))
      text = text.replace(b'\n', b' ').replace(b'\0', b' ')
      self.write('log', MARK + record(text='@').replace(b'@', text))
      line = self.do('--json', 'log')
      found = json.loads(line.decode('utf-8'))
      self.assertEqual(line.count(b'\n'), 1)
      valid = text.decode('utf-8', 'ignore')
      self.assertEqual(found['text'].replace('\ufffd', ''), valid.replace('\ufffd', ''))
      self.assertEqual('\ufffd' in found['text'], valid.encode() != text)

  def test_a_record_has_these_members(self):
    self.write('log', DEVICE + record(level='Error') + record(text='"\\'))
    device, first, second = self.do('--json', 'log').splitlines()
    self.assertEqual(list(json.loads(device).items()),
                     [('file', 'log'), ('device', {'Manufacturer': 'tarn', 'ProductClass': 'gatewayd', 'SerialNumber':
                                                   'gateway', 'IP': '192.168.1.1', 'HWVer': 'example',
                                                   'SWVer': '1.0.0'})])
    self.assertEqual(list(json.loads(first).items()),
                     [('file', 'log'), ('line', 8), ('time', '2026-01-02T03:04:05Z'), ('level', 'Error'),
                      ('severity', 4),
                      ('module', 'switch'), ('text', 'port 3 is up')])
    self.assertEqual(json.loads(second)['text'], '"\\')


class Selection(LogTest):
  """Options that choose records."""

  ALL = [(START + i, level, module, '%s says %s' % (module, word)) for i, (level, module, word) in enumerate(
      (level, module, word) for level in LEVELS for module in ('switch', 'uplink', 'Switch') for word in ('up',
                                                                                                          'DOWN'))]

  def setUp(self):
    super().setUp()
    self.write('log', MARK + b''.join(record(*one) for one in self.ALL))

  def expect(self, args, keeps):
    expected = b''.join(shown(*one) for one in self.ALL if keeps(*one))
    self.assertEqual(self.do(*args, 'log'), expected, args)

  def test_levels(self):
    for number, name in enumerate(LEVELS):
      short = next(name[:n] for n in range(1, 10) if sum(other.startswith(name[:n]) for other in LEVELS) == 1)
      for word in (str(number), name, name.upper(), name.lower(), short):
        self.expect(('-l', word), lambda when, level, module, text, most=number: LEVELS.index(level) <= most)
        self.expect(('--level=%s..%s' % (word, word),), lambda when, level, module, text, it=name: level == it)
    for word in ('error..info', 'info..error', '4..7', 'er..I', '7..error'):
      self.expect(('--level', word), lambda when, level, module, text: 4 <= LEVELS.index(level) <= 7)
    for word in ('', 'e', '9', '-1', '04', '1.5', 'errors', 'x', '..', 'error..', '..error', 'a..b..c', 'error...info',
                 ' 4'):
      self.refuse('--level', word, 'log', says='--level')

  def test_modules_and_texts(self):
    self.expect(('-m', 'switch'), lambda when, level, module, text: module == 'switch')
    self.expect(('-m', 'switch', '--module=Switch'), lambda when, level, module, text: module.lower() == 'switch')
    self.expect(('-m', 'swit'), lambda *_: False)
    self.expect(('-g', 'up'), lambda when, level, module, text: 'up' in text)
    self.expect(('-g', 's up', '--grep', 'DO'), lambda when, level, module, text: 's up' in text or 'DO' in text)
    self.expect(('-ig', 's UP'), lambda when, level, module, text: 's up' in text)
    self.expect(('-g', '.'), lambda *_: False)
    self.expect(('-e', '^[us].*(N|p)$'), lambda when, level, module, text: text[0] in 'us')
    self.expect(('-e', '^u', '-e', 'N$'), lambda when, level, module, text: text[0] == 'u' or text[-1] == 'N')
    self.expect(('-i', '-e', '^s.*n$'), lambda when, level, module, text: text[0] in 'sS' and text[-1] == 'N')
    self.expect(('-m', 'switch', '-g', 'up', '-e', 's', '-l', 'error', '--since', '2026-01-02'),
                lambda when, level, module, text: module == 'switch' and 'up' in text and LEVELS.index(level) <= 4)
    for word in ('(', '[', 'a{2,1}', '\\'):
      self.refuse('-e', word, 'log', says='--regex')

  def test_last(self):
    everything = self.do('log').splitlines(True)
    for word, count in (('0', 0), ('1', 1), ('007', 7), ('53', 53), ('54', 54), ('55', 54), ('9' * 30, 54)):
      self.assertEqual(self.do('-n', word, 'log').splitlines(True), everything[len(everything) - count:], word)
      self.assertEqual(self.do('-rn' + word, 'log').splitlines(True), everything[len(everything) - count:][::-1], word)
    for word in ('-1', '', 'x', '1.5', '1e1', '0x1', '+1', ' 1', '1k'):
      self.refuse('-n', word, 'log', says='"%s" is no number' % word)
    self.assertEqual(len(self.texts('-n', '3', '-m', 'uplink', 'log')), 3)  # of these records


class Clock(LogTest):
  """Times and zones."""

  def around(self, point, *args, **popen):
    """Whether the second before, the second itself and the one after it are shown with `args`."""
    self.write('log', MARK + b''.join(record(point + i, text=str(i)) for i in (-1, 0, 1)))
    return self.texts(*args, 'log', **popen)

  def test_since_and_until_include_their_second(self):
    for word in ('2026-01-02 03:04:05', '2026-01-02T03:04:05', '2026-01-02 03:04:05Z', '2026-01-02T03:04:05Z',
                 '2026-01-02 05:04:05+02:00', '2026-01-01T21:34:05-05:30'):
      self.assertEqual(self.around(START, '--since', word), ['0', '1'], word)
      self.assertEqual(self.around(START, '--until=' + word), ['-1', '0'], word)
      self.assertEqual(self.around(START, '--since', word, '--until', word), ['0'], word)
      # An offset of its own goes before the zone that is shown.
      if re.search('Z$|[+-]..:..$', word):
        self.assertEqual(self.around(START, '--local', '--since', word, env={'TZ': 'XYZ-3'}), ['0', '1'], word)
    self.assertEqual(self.around(at('2026-01-02 03:04:00'), '--since', '2026-01-02 03:04'), ['0', '1'])
    self.assertEqual(self.around(at('2026-01-02 00:00:00'), '--since', '2026-01-02'), ['0', '1'])
    self.assertEqual(self.around(at('2024-02-29 00:00:00'), '--since', '2024-02-29'), ['0', '1'])

  def test_what_is_no_time(self):
    self.write('log', MARK + record())
    for word in ('', 'x', '1', 's', '1y', '-1h', '1.5h', '1h ', 'tomorrow', '2026', '2026-01', '2026-1-2', '2026-02-29',
                 '2026-13-01', '2026-00-01', '2026-01-00', '2026-01-32', '2026-01-02 24:00', '2026-01-02 03:60',
                 '2026-01-02 3:04', '2026-01-02 03:04:60', '2026-01-02 03:04:05 x', '2026-01-02  03:04',
                 '2026-01-02 03',
                 '2026-01-02 03:04:05+2', '9' * 40 + 's', '26-01-02'):
      for option in ('--since', '--until'):
        self.refuse(option, word, 'log', says=option)

  def test_ago(self):
    # Two hours and more between the record and the limit: no clock of a test is that slow.
    now = int(time.time())
    for word, seconds in (('7200s', 7200), ('7200sec', 7200), ('600m', 36000), ('600min', 36000), ('9h', 32400),
                          ('3d', 259200), ('1w', 604800), ('1d12h', 129600), ('1w2d3h4m5s', 788645)):
      self.write('log', MARK + record(now - seconds - 3600, text='old') + record(now - seconds + 3600, text='new'))
      self.assertEqual(self.texts('--since', word, 'log'), ['new'], word)
      self.assertEqual(self.texts('--until', word, 'log'), ['old'], word)
    self.write('log', MARK + record(now - 3600, text='old') + record(now + 86400, text='new'))
    self.assertEqual(self.texts('--since', 'now', 'log'), ['new'])
    self.write('log', MARK + b''.join(record(now - now % 86400 - 86400 * i, text=str(i)) for i in (2, 1, 0)))
    found = self.texts('--since', 'today', 'log'), self.texts('--since', 'yesterday', 'log')
    if now // 86400 == int(time.time()) // 86400:
      self.assertEqual(found, (['0'], ['1', '0']))

  def test_zones(self):
    self.write('log', MARK + record())
    for zone, expected in (('UTC0', '2026-01-02 03:04:05+00:00'), ('XYZ-5:30', '2026-01-02 08:34:05+05:30'),
                           ('XYZ+3:30', '2026-01-01 23:34:05-03:30'), ('<+13>-13:45', '2026-01-02 16:49:05+13:45'),
                           (CENTRAL_EUROPE, '2026-01-02 04:04:05+01:00'), ('XYZ24', '2026-01-01 03:04:05-24:00')):
      self.assertEqual(self.do('--local', 'log', env={'TZ': zone}), shown(time_text=expected), zone)
      self.assertEqual(json.loads(self.do('--local', '--json', 'log', env={'TZ': zone}))['time'],
                       expected.replace(' ', 'T'))
      for args in ((), ('--utc',)):
        self.assertEqual(self.do(*args, 'log', env={'TZ': zone}), shown())
    self.refuse('--utc', '--local', 'log')

  def test_daylight_saving(self):
    # Spring: 02:00 is followed by 03:00 at 01:00 UTC; autumn: 03:00 by 02:00, at 01:00 UTC.
    zone = {'TZ': CENTRAL_EUROPE}
    for utc, local in (('2026-03-29 00:59:59', '2026-03-29 01:59:59+01:00'),
                       ('2026-03-29 01:00:00', '2026-03-29 03:00:00+02:00'),
                       ('2026-10-25 00:59:59', '2026-10-25 02:59:59+02:00'),
                       ('2026-10-25 01:00:00', '2026-10-25 02:00:00+01:00'),
                       ('2026-07-01 22:30:00', '2026-07-02 00:30:00+02:00')):
      self.write('log', MARK + record(at(utc)))
      self.assertEqual(self.do('--local', 'log', env=zone), shown(time_text=local))
    for word, utc in (('2026-03-29 01:59', '2026-03-29 00:59:00'), ('2026-03-29 03:00', '2026-03-29 01:00:00'),
                      ('2026-03-30', '2026-03-29 22:00:00'), ('2026-10-25 03:00', '2026-10-25 02:00:00'),
                      ('2026-10-25 01:59', '2026-10-24 23:59:00'), ('2026-07-01', '2026-06-30 22:00:00'),
                      ('2026-10-25 02:30+01:00', '2026-10-25 01:30:00'),
                      ('2026-10-25 02:30+02:00', '2026-10-25 00:30:00')):
      self.assertEqual(self.around(at(utc), '--local', '--since', word, env=zone), ['0', '1'], word)
    # An hour that is there twice, and one that is not there at all: one of the two that it may mean.
    for word, first, second in (('2026-10-25 02:30', '2026-10-25 00:30:00', '2026-10-25 01:30:00'),
                                ('2026-03-29 02:30', '2026-03-29 00:30:00', '2026-03-29 01:30:00')):
      found = [self.around(at(utc), '--local', '--since', word, env=zone) for utc in (first, second)]
      self.assertIn(found, ([['0', '1'], ['-1', '0', '1']], [[], ['0', '1']]))


class Screen(LogTest):
  """Header, counts, colours."""

  def setUp(self):
    super().setUp()
    self.write('log', MARK + record(level='Error') + record(START + 1, 'Info', 'uplink', 'a') * 3 + record(START + 2,
                                                                                                           'Debug'))

  def on_a_terminal(self, *args, env=None, columns=None):
    """What it prints on a terminal, and nothing else."""
    main, side = pty.openpty()
    if columns is not None:
      fcntl.ioctl(side, termios.TIOCSWINSZ, struct.pack('HHHH', 24, columns, 0, 0))
    env = {'TERM': 'xterm', 'NO_COLOR': '', 'LC_ALL': 'C', **(env or {})}
    with subprocess.Popen(self.line(args), cwd=self.folder, env={**os.environ, **env}, stdin=subprocess.DEVNULL,
                          stdout=side, stderr=subprocess.PIPE) as running:
      os.close(side)
      output = b''
      while True:
        try:
          block = os.read(main, 65536)
        except OSError:  # nobody holds the other side any more
          block = b''
        if not block:
          break
        output += block
      self.assertEqual((running.stderr.read(), running.wait()), (b'', DONE))
    os.close(main)
    return output.replace(b'\r\n', b'\n')

  def test_colour_on_a_terminal_alone(self):
    plain = self.do('log')
    self.assertNotIn(b'\x1b', plain)
    for args, env, coloured in ((('log',), {}, True), (('log',), {'NO_COLOR': '1'}, False),
                                (('log',), {'TERM': 'dumb'}, False),
                                (('--color=never', 'log'), {}, False),
                                (('--color=always', 'log'), {'NO_COLOR': '1'}, True),
                                (('--color=auto', 'log'), {}, True), (('--json', 'log'), {}, False)):
      output = self.on_a_terminal(*args, env=env)
      self.assertEqual(b'\x1b' in output, coloured, (args, env))
      if '--json' not in args:
        self.assertEqual(re.sub(rb'\x1b\[[0-9;]*m', b'', output), plain)
    piped = self.do('--color', 'always', 'log', env={'NO_COLOR': '1'})
    self.assertIn(b'\x1b', piped)
    for line in piped.splitlines():  # no colour beyond its line, none in the text
      self.assertNotIn(b'\x1b', line.split(b': ')[1])
      self.assertEqual(2 * line.count(b'\x1b[0m'), line.count(b'\x1b['))
    for word in ('', 'yes', 'ALWAYS'):
      self.refuse('--color', word, 'log', says='--color')

  def test_count(self):
    expected = [['5', 'records'], [], ['By', 'level'], ['Error', '1'], ['Info', '3'], ['Debug', '1'], [],
                ['By', 'module'], ['switch', '2'], ['uplink', '3']]
    found = [line.split() for line in self.do('--count', 'log').decode().splitlines()]
    self.assertEqual((found[:6], sorted(found[8:])), (expected[:6], expected[8:]))
    self.assertEqual(json.loads(self.do('--count', '--json', 'log')),
                     {'records': 5, 'levels': {'Error': 1, 'Info': 3, 'Debug': 1},
                      'modules': {'switch': 2, 'uplink': 3}})
    self.assertEqual(json.loads(self.do('--count', '--json', '-l', 'er', 'log')),
                     {'records': 1, 'levels': {'Error': 1}, 'modules': {'switch': 1}})
    self.assertEqual(json.loads(self.do('--count', '--json', '-m', 'none', 'log'))['records'], 0)

  def test_bars_on_a_terminal(self):
    for columns in (40, 80, 200):
      output = self.on_a_terminal('--count', 'log', columns=columns).decode()
      bars = dict(re.findall(r'^  (\w+) +\d+  (\S+)$', output, re.MULTILINE))
      self.assertEqual(set(bars), {'Error', 'Info', 'Debug', 'switch', 'uplink'})
      lengths = {name: len(bar) for name, bar in bars.items()}
      self.assertEqual(lengths['Info'], lengths['uplink'])  # the longest of each
      self.assertEqual(lengths['Error'], max(lengths['Info'] // 3, 1))
      self.assertEqual(lengths['switch'], max(2 * lengths['uplink'] // 3, 1))
      self.assertLess(max(map(len, output.splitlines())), columns + 1)
      if columns > 40:
        self.assertGreater(lengths['Info'], columns // 2)

  def test_header(self):
    self.write('user', DEVICE + record())
    output = self.do('--header', 'user').decode()
    head, rest = output.split('\n\n')
    self.assertEqual([re.split(': +', line) for line in head.splitlines()],
                     [['Manufacturer', 'tarn'], ['ProductClass', 'gatewayd'], ['SerialNumber', 'gateway'],
                      ['IP', '192.168.1.1'], ['HWVer', 'example'], ['SWVer', '1.0.0']])
    self.assertEqual(rest.encode(), shown())
    self.assertEqual(self.do('user'), shown())
    self.assertEqual(self.do('--header', 'log'), self.do('log'))
    self.assertEqual(len(self.do('--header', '-n', '0', '--json', 'user').splitlines()), 1)

  def test_output_that_cannot_be_written(self):
    for args in (('log',), ('--json', 'log'), ('--count', 'log'), ('-f', 'log'), ('--help',), ('--version',)):
      with open('/dev/full', 'wb') as full:
        status, _, errors = self.run_program(*args, stdout=full)
      self.assertEqual((status, errors), (WRONG, b'tarn-log: standard output: No space left on device\n'), args)

  def test_output_that_may_not_grow_is_told(self):
    # The signal that comes with it must not end tarn-log without a word.
    with open(self.path('out'), 'wb') as out:
      status, _, errors = self.run_program(
          'log', stdout=out, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10)))
    self.assertEqual((status, errors), (WRONG, b'tarn-log: standard output: File too large\n'))


class Following(LogTest):
  """--follow: each record once, however the file is written."""

  def follow(self, *args, **popen):
    # pylint: disable=consider-using-with
    running = subprocess.Popen(self.line(('-f', '--interval=0.01', *args)), cwd=self.folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0, **popen)
    self.addCleanup(self.end, running)
    return running

  def end(self, running):
    if running.poll() is None:
      running.kill()
    running.wait()
    running.stdout.close()
    running.stderr.close()

  def until(self, running, text):
    """The texts of the records up to that one."""
    found = []
    while not found or found[-1] != text:
      line = running.stdout.readline().decode()
      self.assertTrue(line.endswith('\n'), 'ended before "%s", behind %s' % (text, found))
      found.append(line.rstrip('\n').split(': ', 1)[1])
    return found

  def put(self, texts, head=MARK, name='log', first=0):
    """The file whole, written anew in place, as the daemon does."""
    with open(self.path(name), 'wb') as file:
      file.write(head + b''.join(record(START + first + i, text=text) for i, text in enumerate(texts)))

  def test_a_ring_that_turns(self):
    rand = random.Random(11)
    texts = ['0']
    self.put(texts)
    running = self.follow('log')
    self.assertEqual(self.until(running, '0'), ['0'])
    for _ in range(40):
      new = [str(len(texts) + i) for i in range(rand.randrange(1, 15))]
      texts += new
      self.put(texts[-16:], first=len(texts[:-16]))  # at most 15 are new: one of the old stays, to know them by
      self.assertEqual(self.until(running, new[-1]), new)

  def test_the_same_again_is_nothing_new(self):
    self.put(['a', 'b'])
    running = self.follow('log')
    self.until(running, 'b')
    for _ in range(3):
      self.put(['a', 'b'])
    os.utime(self.path('log'))
    self.put(['a', 'b', 'b', 'b', 'c'])  # alike, but new
    self.assertEqual(self.until(running, 'c'), ['b', 'b', 'c'])

  def test_a_write_in_pieces(self):
    self.put(['a'])
    running = self.follow('log')
    self.until(running, 'a')
    whole = MARK + b''.join(record(START + i, text=text) for i, text in enumerate(('a', 'b', 'c', 'd')))
    for name in ('b', 'c', 'd'):
      end = whole.index(b':' + name.encode() + b'\n') + 2
      with open(self.path('log'), 'wb') as file:
        for at_byte in range(0, end, 7):
          file.write(whole[at_byte:min(at_byte + 7, end)])
          file.flush()
        file.write(b'\n')  # the line feed of the last record
      self.assertEqual(self.until(running, name), [name])

  def test_removed_and_made_again(self):
    self.put(['a'])
    running = self.follow('log')
    self.until(running, 'a')
    os.remove(self.path('log'))
    self.assertIn(b'log: ', running.stderr.readline())
    self.put(['b', 'c'], first=100)
    self.assertEqual(self.until(running, 'c'), ['b', 'c'])
    self.put(['d'], name='other', first=200)
    os.rename(self.path('other'), self.path('log'))
    self.assertEqual(self.until(running, 'd'), ['d'])

  def test_a_missing_file_is_waited_for(self):
    self.put(['a'], name='here')
    running = self.follow('here', 'late')
    self.assertIn(b'late: ', running.stderr.readline())
    self.assertEqual(self.until(running, 'a'), ['a'])
    self.put(['b'], name='late', first=50)
    self.assertEqual(self.until(running, 'b'), ['b'])

  def test_how_many_of_the_old(self):
    texts = [str(i) for i in range(30)]
    for args, first in (((), 20), (('-n', '3'), 27), (('--lines=100',), 0), (('--since', '2026-01-01'), 0),
                        (('--since', '2026-01-01', '-n', '2'), 28), (('-n', '0', '--since=1970-01-01'), 30)):
      self.put(texts)
      running = self.follow(*args, 'log')
      if first < 30:
        self.assertEqual(self.until(running, '29'), texts[first:], args)
      else:
        while not select.select([running.stdout], [], [], 0.02)[0]:  # it has looked when it shows what is new
          texts = texts + ['x']
          self.put(texts)
        self.assertIn('x', self.until(running, 'x'))
        texts = texts[:30]
      self.end(running)

  def test_a_selection_and_json(self):
    self.write('log', MARK + record())
    running = self.follow('--json', '-m', 'uplink', 'log')
    self.write('log', MARK + record() + record(START + 1) + record(START + 2, module='uplink', text='it'))
    self.assertEqual(json.loads(running.stdout.readline())['text'], 'it')

  def test_a_malformed_line_is_told_once(self):
    self.put(['a'])
    running = self.follow('--strict', 'log')
    self.until(running, 'a')
    for end in ('b', 'c', 'd'):
      self.write('log', MARK + record(text='a') + b'no record\n' +
                 b''.join(record(START + 1 + i, text=text) for i, text in enumerate('bcd'[:'bcd'.index(end) + 1])))
      self.assertEqual(self.until(running, end), [end])
    running.send_signal(signal.SIGINT)
    running.wait()
    self.assertEqual(running.stderr.read().count(b'\n'), 1)

  def test_ends_when_nobody_reads(self):
    self.put(['a'])
    running = self.follow('log')
    self.until(running, 'a')
    running.stdout.close()
    running.wait()

  def test_ends_when_interrupted(self):
    for how in (signal.SIGINT, signal.SIGTERM):
      self.put(['a'])
      running = self.follow('log')
      self.until(running, 'a')
      running.send_signal(how)
      self.assertIn(running.wait(), (-how, 128 + how, DONE))

  def test_what_cannot_be(self):
    self.put(['a'])
    for args in (('-',), ('log', '-'), ('-r', 'log'), ('--count', 'log'), ('--interval=0', 'log'),
                 ('--interval=0.009', 'log'),
                 ('--interval=3601', 'log'), ('--interval=x', 'log'), ('--interval=nan', 'log'),
                 ('--interval=inf', 'log'),
                 ('--interval=-1', 'log')):
      self.refuse('-f', *args, says='--')


class Documents(LogTest):
  """The man page, the help, the README and the completion say the same, and it is so."""

  def options(self):
    with open(PAGE, encoding='ascii') as file:
      text = file.read().replace('\\-', '-')
    return set(re.findall(r'--[a-z-]+', text[text.index('.SH OPTIONS'):text.index('.SH TIMES')])) - {'--'}

  def test_options(self):
    self.assertEqual(set(re.findall(r'--[a-z]+(?:-[a-z]+)?',
                                    self.do('--help').decode().split('Options of different')[0])), self.options())
    self.assertEqual(self.do('-h'), self.do('--help'))
    for word in ('--nothing', '-x', '--line', '-N', '---'):
      self.refuse(word)
    self.write('-f', MARK + record())
    self.write('log', MARK + record())
    self.assertEqual(self.do('--', '-f'), shown())
    self.assertEqual(self.do('log', '-n', '1', './-f'), shown())

  def test_completion(self):
    self.write('file', b'')
    offer = lambda *words: self.complete(COMPLETION, '_tarn_log', 'tarn-log', *words)
    self.assertEqual({word.rstrip('=') for word in offer('--')}, self.options())
    self.assertEqual(offer('-l', ''), list(LEVELS))
    self.assertEqual(offer('--color', '=', ''), ['auto', 'always', 'never'])
    for word in offer('--since', '') + offer('--until', '=', ''):
      self.write('log', MARK + record())
      self.do('--since', word, 'log')

  def test_readme(self):
    with open(os.path.join(TOOLS, 'README.md'), encoding='utf-8') as file:
      page = file.read()
    rows = [row.replace('\\|', '|') for row in re.findall(r'^\| `(.*?)` \|', page, re.MULTILINE)]
    self.assertEqual(len(rows), 9)
    env = self.on_the_path('tarn-log')
    now = int(time.time())
    self.write('mu_log.txt', MARK + record(START, 'Error', 'uplink', 'link lost') + record(START + 67, 'Warning',
                                                                                           'dhcp',
                                                                                           'no answer from the server')
               + record(START + 68, text='port up') + record(now, 'Info', 'uplink', 'now'))
    self.write('user_log.txt', DEVICE + record(START + 69, 'Info', 'traffic', 'port down'))
    # ssh as it is shown, here with the file of this folder.
    with open(self.path('bin/ssh'), 'w', encoding='ascii') as script:
      script.write('#!/bin/sh\ntest "$1" = gateway && cat mu_log.txt\n')
    os.chmod(self.path('bin/ssh'), 0o755)
    expected = {'-g port': ['port up', 'port down'], '2026-01-02 03:00': ['port down', 'port up', 'no answer',
                                                                          'link lost'],
                '-n 20': ['link lost', 'no answer', 'port up', 'port down', 'now'], '--count': ['5 records'],
                '--json': ['device', 'link lost'], '--header': ['Manufacturer'], 'ssh': ['link lost', 'now'],
                '--strict': []}
    for row in rows:
      if ' -f ' in row:  # until interrupted
        with subprocess.Popen(['sh', '-c', 'exec ' + row + ' mu_log.txt'], cwd=self.folder, env=env,
                              stdout=subprocess.PIPE) as running:
          self.assertIn(b'link lost', running.stdout.readline())
          self.assertIn(b'uplink: now', running.stdout.readline())
          running.terminate()
        continue
      line = row if 'mu_log.txt' in row else row + ' mu_log.txt user_log.txt'
      done = subprocess.run(['sh', '-c', line], cwd=self.folder, env=env, capture_output=True, text=True, check=False)
      self.assertEqual((done.returncode, done.stderr), (DONE, ''), row)
      words = next(words for start, words in expected.items() if start in row)
      places = [done.stdout.find(word) for word in words]
      self.assertEqual((places, -1 in places), (sorted(places), False), (row, done.stdout))
    # What the page shows of the last two hours, of records that are as old as that.
    block = next(block for block in programs.fenced(os.path.join(TOOLS, 'README.md'), 'console') if 'tarn-log' in block)
    command, *told = block.splitlines()
    self.assertEqual(command, '$ tarn-log --since 2h --level warning')
    self.assertEqual(self.do('--until', '2h', '--level', 'warning', 'mu_log.txt').decode().splitlines(), told)

  def test_man_page(self):
    lines = programs.man_examples(PAGE)
    self.assertEqual(len(lines), 3)
    env = self.on_the_path('tarn-log')
    now = int(time.time())
    self.write('log', MARK + record(now - 3 * 3600, 'Error', text='old') + record(now, 'Error',
                                                                                  text='bad') + record(now,
                                                                                                       text='good'))
    with open(self.path('bin/ssh'), 'w', encoding='ascii') as script:
      script.write('#!/bin/sh\ncat log\n')
    os.chmod(self.path('bin/ssh'), 0o755)
    run = lambda line: subprocess.run(['sh', '-c', line], cwd=self.folder, env=env, capture_output=True, text=True,
                                      check=True).stdout
    self.assertEqual(re.findall('old|bad|good', run(lines[0] + ' log')), ['bad'])
    self.assertIn(' -f -n 0 -m uplink', lines[1])
    self.assertIn('3 records', run(lines[2]))

  def test_the_worked_file_of_the_format(self):
    with open(os.path.join(ROOT, 'docs', 'log-files.md'), encoding='utf-8') as file:
      page = file.read()
    rows = re.findall(r'^    [0-9a-f]{5}  ((?:[0-9a-f]{2} +)+) \|', page, re.MULTILINE)
    data = bytes.fromhex(''.join(rows))
    self.assertEqual(len(data), 55)
    self.write('log', data)
    self.assertEqual(self.do('--strict', 'log'), shown())
    text = page[page.index('    Manufacturer:'):page.index('The values are those')]
    user = '\n'.join(line[4:] for line in text.splitlines()).rstrip('\n') + '\n'
    self.write('user', user.encode())
    self.assertEqual(self.do('--strict', 'user'), shown(level='Info', module='traffic',
                                                        text='lo: 1 checks, 0 with traffic'))


if __name__ == '__main__':
  programs.main(command_line)
