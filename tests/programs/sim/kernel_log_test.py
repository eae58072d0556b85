# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""/proc/kmsg: the form of its lines, and their readers. See fixture.py."""

import os
import re

import fixture
from fixture import KMSG, SimTest

LINE = rb'<(\d)>\[( {0,4}\d+)\.(\d{6})\] (.*)'


def numbers_of(got):
  """The numbers of the long lines "NNNN xxx..." in it."""
  return [int(one) for one in re.findall(rb'^<6>\[ *\d+\.\d{6}\] (\d{4}) x{980}$', got, re.MULTILINE)]


class KernelLines(SimTest):

  def read_lines(self, daemon, count):
    file, got = daemon.open(KMSG, os.O_RDONLY), b''
    while got.count(b'\n') < count:
      got += daemon.ask('read', file, 8000)[1]
    self.assertTrue(got.endswith(b'\n'))
    return got.split(b'\n')[:-1]

  def test_have_the_kernels_form_and_the_levels_priority(self):
    _, daemon, control = self.play()
    control.do(*('kmsg %d %d "level %d"' % (90 + level, level, level) for level in range(9)))
    last = 0.0
    for level, line in enumerate(self.read_lines(daemon, 9)):
      form = re.fullmatch(LINE, line)
      self.assertTrue(form and len(form[2]) >= 5, line)
      self.assertGreaterEqual(float(form[2] + b'.' + form[3]), last)
      last = float(form[2] + b'.' + form[3])
      self.assertEqual(int(form[1]), max(level - 1, 0))  # the log's levels count from 1, priorities from 0
      self.assertEqual(form[4], b'<jxlog-%02d:%d:level %d<jxlog>' % (90 + level, level, level))

  def test_that_are_plain_have_priority_6(self):
    _, daemon, control = self.play()
    control.do('kmsg "plain \\" \\\\ end"', 'kmsg "usb 1-1: new device"')
    forms = [re.fullmatch(LINE, line) for line in self.read_lines(daemon, 2)]
    self.assertEqual([(form[1], form[4]) for form in forms],
                     [(b'6', b'plain " \\ end'), (b'6', b'usb 1-1: new device')])

  def test_have_modules_of_two_digits(self):
    _, daemon, control = self.play()
    control.do('kmsg 0 1 x', 'kmsg 5 1 x', 'kmsg 99 1 x', 'kmsg 05 1 x')
    self.assertEqual([re.search(rb'<jxlog-(.*?):1:x<jxlog>$', line)[1] for line in self.read_lines(daemon, 4)],
                     [b'00', b'05', b'99', b'05'])

  def test_begin_anew_at_each_line_of_a_text(self):
    _, daemon, control = self.play()
    control.do('kmsg 99 3 "a\\nb"')
    self.assertEqual([re.fullmatch(LINE, line)[4] for line in self.read_lines(daemon, 2)],
                     [b'<jxlog-99:3:a', b'b<jxlog>'])
    self.assertEqual(control.status()['kmsg'], {'written': 2, 'withheld': 0, 'lost': 0})

  def test_that_are_raw_are_those_bytes_and_no_others(self):
    _, daemon, control = self.play()
    kmsg = daemon.open(KMSG, os.O_RDONLY)
    control.do(r'raw-kmsg "<jxlog-0"')
    self.assertEqual(daemon.ask('read', kmsg, 99), (8, b'<jxlog-0'))
    control.do(r'raw-kmsg "5:6:up<jxlog>\n\x00\xfF\x7f\\\" #"')
    self.assertEqual(daemon.read_to(kmsg, b'#'), b'5:6:up<jxlog>\n\0\xff\x7f\\" #')


class Readers(SimTest):

  def drain(self, daemon, file, last):
    got = b''
    while last not in got:
      daemon.ask('select', file, -1, -1)
      got += daemon.ask('read', file, 8000)[1]
    return got

  def test_get_what_came_before_them(self):
    _, daemon, control = self.play()
    control.do(*('kmsg "line %d"' % number for number in range(100)))
    file, got = daemon.open(KMSG, os.O_RDONLY), b''
    while got.count(b'\n') < 100:
      got += daemon.ask('read', file, 512)[1]
    self.assertEqual(re.findall(rb'line (\d+)\n', got), [b'%d' % number for number in range(100)])

  def test_may_read_by_a_stream(self):
    for variant in ('fopen', 'fopen64'):
      sim, daemon, control = self.play()
      control.do('kmsg first', 'kmsg second')
      self.assertRegex(daemon.ask('first-line', variant, KMSG)[1], b'first\n$')
      sim.close()

  def test_find_the_newest_256_kib_in_whole_lines(self):
    sim, daemon, control = self.play()
    text = 'x' * 980
    control.do(*('kmsg "%04d %s"' % (number, text) for number in range(400)))
    lost = control.status()['kmsg']['lost']
    got = self.drain(daemon, daemon.open(KMSG, os.O_RDONLY), b'0399 ' + text.encode() + b'\n')
    numbers = numbers_of(got)
    self.assertEqual(len(numbers), got.count(b'\n'))
    self.assertEqual(numbers, list(range(400 - len(numbers), 400)))
    self.assertEqual(lost, 400 - len(numbers))
    self.assertLessEqual(len(got), 256 * 1024)
    self.assertEqual(sim.errors().count('kmsg: nobody reads: the oldest lines are lost'), 1)

  def test_lose_lines_from_the_first_byte_beyond_256_kib(self):
    _, daemon, control = self.play()
    control.do('raw-kmsg "%s\\n" 300 times' % ('x' * 1023))
    control.wait_until_done()
    control.do('raw-kmsg "last\\n"')
    # 262144 bytes are 256 of these lines; the last line replaces one more.
    self.assertEqual(control.status()['kmsg'], {'written': 301, 'withheld': 0, 'lost': 45})
    self.assertEqual(daemon.ask('first-line', 'fopen', KMSG)[1], b'x' * 1023 + b'\n')

  def test_that_do_not_read_stop_nobody(self):
    _, daemon, control = self.play()
    file = daemon.open(KMSG, os.O_RDONLY)
    text = 'x' * 980
    control.do(*('kmsg "%04d %s"' % (number, text) for number in range(1500)))
    state = control.status()['kmsg']
    self.assertGreater(state['lost'], 0)
    got = self.drain(daemon, file, b'1499 ' + text.encode() + b'\n')
    numbers = numbers_of(got)
    self.assertEqual(len(numbers), got.count(b'\n'), 'lines are whole')
    self.assertEqual(numbers, sorted(set(numbers)))
    self.assertEqual(len(numbers) + state['lost'], 1500)

  def test_that_are_slow_get_everything(self):
    _, daemon, control = self.play()
    file = daemon.open(KMSG, os.O_RDONLY)
    total = 200 * 1024
    control.do('raw-kmsg "%s" 200 times' % ('y' * 1024))
    control.wait_until_done()
    self.assertEqual(control.status()['kmsg'], {'written': 200, 'withheld': 0, 'lost': 0})
    got = 0
    while got < total:
      got += daemon.ask('read', file, min(8000, total - got))[0]
    control.do('kmsg end')
    self.assertRegex(daemon.read_to(file, b'\n'), b'end\n$')

  def test_share_the_stream(self):
    sim, daemon, control = self.play()
    files = [daemon.open(KMSG, os.O_RDONLY | os.O_NONBLOCK) for _ in range(3)]
    control.do(*('kmsg "line %03d"' % number for number in range(200)))
    parts = [b''] * 3

    def read_all():
      for number, file in enumerate(files):
        parts[number] += daemon.ask('read', file, 8000)[1]
      return sum(part.count(b'\n') for part in parts) >= 200

    sim.until(read_all, 'all lines')
    self.assertTrue(all(part.count(b'\n') > 0 for part in parts), 'each has its turn')
    self.assertEqual(sorted(re.findall(rb'line (\d+)\n', b''.join(parts))), [b'%03d' % number for number in range(200)])

  def test_may_go_and_others_come(self):
    _, daemon, control = self.play()
    for number in range(3):
      file = daemon.open(KMSG, os.O_RDONLY)
      control.do('kmsg "line %d"' % number)
      self.assertIn(b'line %d\n' % number, daemon.ask('read', file, 999)[1])
      daemon.call('close', file)

  def test_that_go_in_the_middle_of_a_line_harm_nobody(self):
    _, daemon, control = self.play()
    file = daemon.open(KMSG, os.O_RDONLY)
    control.do('raw-kmsg "%s\\n" 20 times' % ('z' * 4000))
    control.wait_until_done()
    daemon.call('close', file)
    control.do('kmsg end')
    self.assertIn(b'end', self.drain(daemon, daemon.open(KMSG, os.O_RDONLY), b'end\n'))


if __name__ == '__main__':
  fixture.main()
