# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-log --follow: each record once, after any change of the file.

Usage: log_follow_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import os
import random
import re
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (DEVICE, DONE, FollowTest, MARK, NOT_SO, Record, START, all_shown, command_line, some_records,
                         system_log, user_log)
import programs


class Follow(FollowTest):
  def test_what_is_added(self):
    self.write(self.system, system_log(some_records(2)))
    follower = self.follow(self.system)
    for count in range(2, 20):
      records = some_records(count)
      self.write(self.system, system_log(records))
      expected = records if count == 2 else records[-1:]
      self.assertEqual(follower.read_until(records[-1]), all_shown(expected))
    self.expect_end(follower)

  def test_begins_with_the_last_ten_unless_told(self):
    records = some_records(30)
    self.write(self.system, system_log(records))
    for args, first in (((), 20), (('-n', '3'), 27), (('-n', '40'), 0), (('--since=2026-01-01',), 0),
                        (('--since=2026-01-01', '-n1'), 29)):
      follower = self.follow(self.system, *args)
      self.assertEqual(follower.read_until(records[-1]), all_shown(records[first:]))
      self.expect_end(follower)

  def test_none_of_the_old(self):
    records = some_records(3)
    self.write(self.system, system_log(records[:2]))
    follower = self.follow_new(self.system)
    self.write(self.system, system_log(records))
    self.assertEqual(follower.read_until(records[2]), records[2].shown())
    self.expect_end(follower)

  def test_a_full_ring(self):
    capacity = 1024
    records = some_records(capacity)
    self.write(self.system, system_log(records))
    follower = self.follow(self.system, last=1)
    follower.read_until(records[-1])
    for added in (1, 2, 300, capacity - 1, capacity):
      records = records + some_records(added, len(records))
      self.write(self.system, system_log(records[-capacity:]))
      self.assertEqual(follower.read_until(records[-1]), all_shown(records[-added:]))
    # More records than the ring holds were logged: those that remain are shown.
    records = records + some_records(3000, len(records))
    self.write(self.system, system_log(records[-capacity:]))
    self.assertEqual(follower.read_until(records[-1]), all_shown(records[-capacity:]))
    self.expect_end(follower)

  def test_lines_that_are_alike(self):
    # Equal messages in the same second are all new.
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
      self.assertEqual(follower.read_until(end), all_shown(new))
    self.expect_end(follower)

  def test_a_file_that_is_being_written(self):
    records = some_records(20)
    self.write(self.user, user_log([]))
    self.write(self.system, system_log(records))
    follower = self.follow(self.system, self.user)
    self.assertEqual(follower.read_until(records[-1]), all_shown(records[10:]))
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
    self.assertEqual(self.look_twice(follower), all_shown(later[16:]))
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
      with open(self.system, 'wb', buffering=0) as file:  # in pieces; it may be read after any of them
        at = 0
        while at < len(whole):
          size = chance.randint(1, 200)
          file.write(whole[at:at + size])
          at += size
      self.assertEqual(follower.read_until(records[-1]), all_shown(records[-added:]))
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
    self.assertEqual(follower.read_until(later[-1]), all_shown(later))
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
      self.assertEqual(follower.read_until(records[-1]), all_shown(records[-2:]))
    self.expect_end(follower)

  def test_a_restart_that_lost_the_end(self):
    records = some_records(8)
    self.write(self.system, system_log(records))
    follower = self.follow(self.system)
    follower.read_until(records[-1])
    later = some_records(2, 100)
    self.write(self.system, system_log(records[:5] + later))
    self.assertEqual(follower.read_until(later[-1]), all_shown(later))
    self.expect_end(follower)

  def test_a_file_that_comes_and_goes(self):
    follower = self.follow(self.system)
    waiting = 'tarn-log: %s: No such file or directory; waiting for it\n' % self.system
    self.assertEqual(follower.error_line(), waiting)
    records = some_records(20)
    self.write(self.system, system_log(records))
    self.assertEqual(follower.read_until(records[-1]), all_shown(records))
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

  def test_malformed_lines_are_reported_once(self):
    records = some_records(6)
    self.write(self.system, system_log(records[:2]) + b'bad\n')
    follower = self.follow(self.system)
    follower.read_until(records[1])
    begin = 'tarn-log: %s: line ' % self.system
    at = len(system_log(records[:2]))
    self.assertEqual(follower.error_line(), begin + '4, byte %d: no time "YYYY-MM-DD hh:mm:ss" at its beginning\n' % at)
    self.write(self.system, MARK + records[1].line() + b'bad\n' + records[2].line() + b'worse\n' + records[3].line())
    self.assertEqual(follower.read_until(records[3]), all_shown(records[2:4]))
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
    self.assertEqual(follower.process.wait(), NOT_SO)

  def test_what_is_not_a_log_is_reported_once_and_may_become_one(self):
    self.write(self.system, b'gateway\n')
    follower = self.follow(self.system)
    self.assertIn('not a log file: it has no', follower.error_line())
    self.write(self.system, b'other\n')
    records = some_records(2)
    self.write(self.system, system_log(records))
    self.assertEqual(follower.read_until(records[-1]), all_shown(records))
    self.expect_end(follower)

  def test_what_cannot_be_followed(self):
    self.refuse('-f', self.system, '-', matches='standard input')
    self.refuse('-f', '-r', self.system, matches='--follow')
    self.refuse('-f', '--count', self.system, matches='--follow')


if __name__ == '__main__':
  programs.main(command_line)
