# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Calls of the daemon that a script or a client makes fail. See fixture.py."""

import errno
import os

import fixture
from fixture import DESTINATION, KMSG, LOG_DEVICE, PAL, RECORD, SET_LEVEL, SimTest, header, level_message


class Failures(SimTest):

  def test_of_each_kind_of_call_have_its_error_and_are_counted(self):
    _, daemon, control = self.play()
    expected = {'ioctl': errno.EIO, 'open': errno.ENODEV, 'bind': errno.EADDRINUSE, 'socket': errno.EPROTONOSUPPORT}
    file, sock = daemon.open(PAL), daemon.socket()
    calls = {'ioctl': lambda: daemon.ioctl(file, DESTINATION, header(destination=1))[0],
             'open': lambda: daemon.open(LOG_DEVICE),
             'bind': lambda: daemon.bind(sock, 5),
             'socket': daemon.socket}
    for kind, call in calls.items():
      with self.subTest(kind=kind):
        control.do('fail %s 2 times' % kind)
        self.assertEqual(control.status()['failures'][kind], 2)
        self.assertEqual(call(), -expected[kind])
        self.assertEqual(control.status()['failures'], {**dict.fromkeys(expected, 0), kind: 1})
        self.assertEqual(call(), -expected[kind])
        self.assertGreaterEqual(call(), 0)
        self.assertEqual(control.status()['failures'][kind], 0)

  def test_reach_every_device_and_leave_the_argument_as_it_was(self):
    _, daemon, control = self.play()
    log = daemon.open(LOG_DEVICE)
    block = level_message(1, RECORD, 1)
    control.do('fail ioctl')
    self.assertEqual(daemon.ioctl(log, SET_LEVEL, block), (-errno.EIO, block))
    control.do('fail open 3 times')
    for path in (PAL, LOG_DEVICE, KMSG):
      self.assert_error('ENODEV', daemon.open(path))
    self.assertGreaterEqual(daemon.open(PAL), 0)

  def test_can_be_taken_back(self):
    _, daemon, control = self.play()
    control.do('fail open 1 times', 'fail open 0 times')
    self.assertGreaterEqual(daemon.open(PAL), 0)

  def test_do_not_reach_other_files(self):
    _, daemon, control = self.play()
    control.do('fail open 1 times')
    self.assertGreaterEqual(daemon.open('/dev/null'), 0)
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertEqual(control.status()['failures']['open'], 1)


if __name__ == '__main__':
  fixture.main()
