# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-log --follow of a full ring, and its end.

Usage: log_follow_ring_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import json
import os
import random
import select
import signal
import subprocess
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (DONE, LogTest, MARK, START, command_line, record)
import programs


class FollowRing(LogTest):
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
      self.assertTrue(line.endswith('\n'), 'ended before "%s", after %s' % (text, found))
      found.append(line.rstrip('\n').split(': ', 1)[1])
    return found

  def put(self, texts, head=MARK, name='log', first=0):
    """Rewrites the whole file in place, as the daemon does."""
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
      self.put(texts[-16:], first=len(texts[:-16]))  # at most 15 are new: one old record remains
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
        while not select.select([running.stdout], [], [], 0.02)[0]:  # it has read the file when it shows this
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

  def test_a_malformed_line_is_reported_once(self):
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


if __name__ == '__main__':
  programs.main(command_line)
