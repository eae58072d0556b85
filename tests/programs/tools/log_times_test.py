# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Times and zones of tarn-log.

Usage: log_times_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import re
import sys
import time

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (CENTRAL_EUROPE, LogTest, MARK, Record, START, all_shown, command_line, record, seconds, shown,
                         some_records, system_log)
import programs


class Times(LogTest):
  def assert_between(self, records, expected, *args, **popen):
    self.write(self.system, system_log(records))
    with self.subTest(args=args):
      self.assert_shows(expected, *args, self.system, **popen)

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
    # Central European time: summer time from the last Sunday of March to the last of October, at 01:00 UTC.
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
        self.assertEqual(self.do('--local', '-n1', self.system, env=zone), records[1].shown(local))
        # A time in the form of the output is accepted as a limit.
        self.assertEqual(self.do('--local', '--since', local, self.system, env=zone), records[1].shown(local))
        data = json.loads(self.do('--local', '--json', '-n1', self.system, env=zone))
        self.assertEqual(data['time'], local.replace(' ', 'T'))
    self.assertEqual(self.do('--utc', self.system, env=zone), all_shown(records))

  def test_absolute_times_are_of_the_zone_that_is_shown(self):
    records = [Record(START + 3600 * i, 'Info', 'm', 'x') for i in range(4)]
    self.write(self.system, system_log(records))
    count = lambda *args: self.do(*args, self.system, env={'TZ': 'XYZ-2'}).count(b'\n')
    self.assertEqual(count('--since', '2026-01-02 05:04:05'), 2)
    self.assertEqual(count('--local', '--since', '2026-01-02 05:04:05'), 4)
    self.assertEqual(count('--local', '--since', '2026-01-02 05:04:06'), 3)
    self.assertEqual(count('--local', '--since', '2026-01-02 05:04:05Z'), 2)

  def test_durations_are_before_now(self):
    now = int(time.time())
    for word, ago in (('7200s', 7200), ('7200sec', 7200), ('120m', 7200), ('120min', 7200), ('2h', 7200),
                      ('3d', 259200),
                      ('2w', 1209600), ('1d12h', 129600), ('1h30m1800s', 7200), ('0s', 0), ('now', 0),
                      ('999999999s', 999999999)):
      # The test takes less than an hour.
      records = [Record(now - ago + distance, 'Info', 'm', 'x') for distance in (-3600, 3600)]
      self.assert_between(records, records[1:], '--since', word)
      self.assert_between(records, records[:1], '--until', word)

  def test_today_and_yesterday_begin_at_midnight(self):
    # In a zone in which it is noon.
    hour = time.gmtime().tm_hour
    zone = {'TZ': 'XYZ%+d' % (hour - 12)}
    midnight = int(time.time()) // 3600 * 3600 - 12 * 3600
    for word, begin in (('today', midnight), ('yesterday', midnight - 86400)):
      records = [Record(begin + i, 'Info', 'm', str(i)) for i in (-1, 0, 1)]
      self.write(self.system, system_log(records))
      output = self.do('--local', '--since', word, self.system, env=zone)
      self.assertEqual(output.count(b'\n'), 2, word)
      self.assertIn(b' 00:00:00', output.splitlines()[0])

  def test_today_in_utc(self):
    now = int(time.time())
    records = [Record(now - 86400 - 600, 'Info', 'm', 'before'), Record(now + 3600, 'Info', 'm', 'after')]
    self.assert_between(records, records[1:], '--since', 'today')

  def test_what_is_not_a_time(self):
    self.write(self.system, system_log(some_records(1)))
    for word in ('', 'x', '2026', '2026-1-2', '2026-13-01', '2026-00-01', '2026-02-29', '2026-01-32', '2026-01-00',
                 '2026-01-02 24:00', '2026-01-02 03:60', '2026-01-02 03:04:60', '2026-01-02 03', '2026-01-02 03:04:',
                 '2026-01-02 03:04:05 ', '2026-01-02 03:04:05+2', '2026-01-02 03:04:05+02:60', '2026-01-02Z',
                 '2026-01-02 03:04:05+24:00', '2026-01-02 03:04:05ZZ', '2026/01/02', '10', 'h', '1h2', '1y', '1.5h',
                 '1 h', '1000000000s', '1h-1h', 'Now', 'tomorrow'):
      for option in ('--since', '--until'):
        self.refuse(option, word, self.system, matches=option + ': "' + re.escape(word) + '" is not a time')


class Zones(LogTest):
  def around(self, point, *args, **popen):
    """Whether records of the second before, of this second and of the next one are shown with `args`."""
    self.write('log', MARK + b''.join(record(point + i, text=str(i)) for i in (-1, 0, 1)))
    return self.texts(*args, 'log', **popen)

  def test_since_and_until_include_their_second(self):
    for word in ('2026-01-02 03:04:05', '2026-01-02T03:04:05', '2026-01-02 03:04:05Z', '2026-01-02T03:04:05Z',
                 '2026-01-02 05:04:05+02:00', '2026-01-01T21:34:05-05:30'):
      self.assertEqual(self.around(START, '--since', word), ['0', '1'], word)
      self.assertEqual(self.around(START, '--until=' + word), ['-1', '0'], word)
      self.assertEqual(self.around(START, '--since', word, '--until', word), ['0'], word)
      # An offset in the time has precedence over the zone of the output.
      if re.search('Z$|[+-]..:..$', word):
        self.assertEqual(self.around(START, '--local', '--since', word, env={'TZ': 'XYZ-3'}), ['0', '1'], word)
    self.assertEqual(self.around(seconds('2026-01-02 03:04:00'), '--since', '2026-01-02 03:04'), ['0', '1'])
    self.assertEqual(self.around(seconds('2026-01-02 00:00:00'), '--since', '2026-01-02'), ['0', '1'])
    self.assertEqual(self.around(seconds('2024-02-29 00:00:00'), '--since', '2024-02-29'), ['0', '1'])

  def test_more_that_is_not_a_time(self):
    self.write('log', MARK + record())
    for word in ('', 'x', '1', 's', '1y', '-1h', '1.5h', '1h ', 'tomorrow', '2026', '2026-01', '2026-1-2', '2026-02-29',
                 '2026-13-01', '2026-00-01', '2026-01-00', '2026-01-32', '2026-01-02 24:00', '2026-01-02 03:60',
                 '2026-01-02 3:04', '2026-01-02 03:04:60', '2026-01-02 03:04:05 x', '2026-01-02  03:04',
                 '2026-01-02 03',
                 '2026-01-02 03:04:05+2', '9' * 40 + 's', '26-01-02'):
      for option in ('--since', '--until'):
        self.refuse(option, word, 'log', says=option)

  def test_ago(self):
    # At least two hours are between the record and the limit: no test takes so long.
    now = int(time.time())
    for word, ago in (('7200s', 7200), ('7200sec', 7200), ('600m', 36000), ('600min', 36000), ('9h', 32400),
                          ('3d', 259200), ('1w', 604800), ('1d12h', 129600), ('1w2d3h4m5s', 788645)):
      self.write('log', MARK + record(now - ago - 3600, text='old') + record(now - ago + 3600, text='new'))
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
      self.write('log', MARK + record(seconds(utc)))
      self.assertEqual(self.do('--local', 'log', env=zone), shown(time_text=local))
    for word, utc in (('2026-03-29 01:59', '2026-03-29 00:59:00'), ('2026-03-29 03:00', '2026-03-29 01:00:00'),
                      ('2026-03-30', '2026-03-29 22:00:00'), ('2026-10-25 03:00', '2026-10-25 02:00:00'),
                      ('2026-10-25 01:59', '2026-10-24 23:59:00'), ('2026-07-01', '2026-06-30 22:00:00'),
                      ('2026-10-25 02:30+01:00', '2026-10-25 01:30:00'),
                      ('2026-10-25 02:30+02:00', '2026-10-25 00:30:00')):
      self.assertEqual(self.around(seconds(utc), '--local', '--since', word, env=zone), ['0', '1'], word)
    # An hour that occurs twice, and one that does not occur: either of the two possible times.
    for word, first, second in (('2026-10-25 02:30', '2026-10-25 00:30:00', '2026-10-25 01:30:00'),
                                ('2026-03-29 02:30', '2026-03-29 00:30:00', '2026-03-29 01:30:00')):
      found = [self.around(seconds(utc), '--local', '--since', word, env=zone) for utc in (first, second)]
      self.assertIn(found, ([['0', '1'], ['-1', '0', '1']], [[], ['0', '1']]))


if __name__ == '__main__':
  programs.main(command_line)
