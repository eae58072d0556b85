# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""/dev/mulog-ioctl-dev: the levels of the simulated drivers, and their effect on the drivers' lines. See fixture.py."""

import errno
import os

import fixture
from fixture import CONFIGURE, ENABLE, KMSG, LOG_DEVICE, PRINT, RECORD, SET_LEVEL, SimTest, level_message


class LogDevice(SimTest):

  def test_keeps_settings_by_module(self):
    _, daemon, control = self.play()
    self.assertEqual(control.status()['modules'], [])
    for module, setting, value in ((5, RECORD, 3), (5, PRINT, 7), (0, ENABLE, 0), (255, RECORD, 0), (255, ENABLE, 0),
                                   (255, ENABLE, 1)):
      self.assertEqual(daemon.set_level(module, setting, value), 0)
    self.assertEqual(control.status()['modules'], [{'id': 0, 'enabled': False, 'print': 8, 'record': 8},
                                                   {'id': 5, 'enabled': True, 'print': 7, 'record': 3},
                                                   {'id': 255, 'enabled': True, 'print': 8, 'record': 0}])

  def test_leaves_the_message_and_what_is_beside_it_as_it_was(self):
    _, daemon, _ = self.play()
    block = level_message(1, RECORD, 1)
    file = daemon.open(LOG_DEVICE)
    for edge in ((), ('start',)):
      self.assertEqual(daemon.ioctl(file, SET_LEVEL, block, *edge), (0, block))

  def test_refuses_other_messages_and_leaves_them_as_they_were(self):
    _, daemon, control = self.play()
    for module, setting, value, command in ((1, 1, 1, 0), (1, 1, 1, 2), (1, 1, 1, 4), (1, 1, 1, 0x300), (1, 3, 1, 3),
                                            (1, 255, 1, 3)):
      with self.subTest(command=command, setting=setting):
        block = level_message(module, setting, value, command)
        self.assertEqual(daemon.once(LOG_DEVICE, SET_LEVEL, block), (-errno.EINVAL, block))
    self.assertEqual(control.status()['modules'], [])

  def test_refuses_other_requests_and_a_null_argument(self):
    _, daemon, control = self.play()
    file = daemon.open(LOG_DEVICE)
    for request in (CONFIGURE, 0x4302):
      self.assert_error('EINVAL', daemon.ioctl(file, request, level_message(1, RECORD, 1))[0])
    self.assert_error('EFAULT', daemon.call('ioctl-null', file, SET_LEVEL))
    self.assertEqual(control.status()['modules'], [])


class LogDeviceValues(SimTest):
  """The same requests as the reference driver accepts."""

  def test_of_levels_are_at_most_8(self):
    _, daemon, control = self.play()
    for setting in (PRINT, RECORD):
      self.assertEqual(daemon.set_level(5, setting, 8), 0)
      for value in (9, 255):
        block = level_message(5, setting, value)
        self.assertEqual(daemon.once(LOG_DEVICE, SET_LEVEL, block), (-errno.EINVAL, block))
    self.assertEqual(control.status()['modules'], [{'id': 5, 'enabled': True, 'print': 8, 'record': 8}])

  def test_that_enable_are_only_1(self):
    _, daemon, control = self.play()
    for value, enabled in ((0, False), (1, True), (2, False), (255, False)):
      self.assertEqual(daemon.set_level(5, ENABLE, value), 0)
      self.assertEqual(control.status()['modules'][0]['enabled'], enabled, value)


class Levels(SimTest):

  def test_of_recording_decide_and_those_of_printing_do_not(self):
    _, daemon, control = self.play()
    kmsg = daemon.open(KMSG, os.O_RDONLY | os.O_NONBLOCK)
    written = withheld = 0
    for record in range(9):
      daemon.set_level(7, RECORD, record)
      daemon.set_level(7, PRINT, 8 - record)
      for level in range(1, 9):
        control.do('kmsg 7 %d "r%d l%d"' % (level, record, level))
        if level <= record:
          daemon.ask('select', kmsg, -1, -1)
          self.assertIn(b'r%d l%d' % (record, level), daemon.ask('read', kmsg, 200)[1])
        written, withheld = written + (level <= record), withheld + (level > record)
        self.assertFalse(daemon.has_more(kmsg))
    self.assertEqual(control.status()['kmsg'], {'written': written, 'withheld': withheld, 'lost': 0})

  def test_of_one_module_do_not_hold_for_others_nor_for_plain_and_raw_lines(self):
    _, daemon, control = self.play()
    daemon.set_level(7, RECORD, 4)
    control.do('kmsg 7 5 "not this"', 'kmsg 8 8 "this"', 'kmsg "plain"', r'raw-kmsg "<jxlog-07:8:raw<jxlog>\n"')
    control.do('kmsg 7 4 end')
    got = daemon.read_to(daemon.open(KMSG, os.O_RDONLY), b'end<jxlog>\n')
    self.assertEqual([word in got for word in (b'not this', b':this<', b'plain', b'raw<')],
                     [False, True, True, True], got)

  def test_do_not_matter_for_a_disabled_module(self):
    _, daemon, control = self.play()
    daemon.set_level(7, ENABLE, 0)
    control.do('kmsg 7 1 "not this"', 'kmsg 8 8 "this"')
    daemon.set_level(7, ENABLE, 1)
    control.do('kmsg 7 8 "again"')
    got = daemon.read_to(daemon.open(KMSG, os.O_RDONLY), b'again<jxlog>\n')
    self.assertEqual([word in got for word in (b'not this', b':this<')], [False, True], got)
    self.assertEqual(control.status()['kmsg'], {'written': 2, 'withheld': 1, 'lost': 0})


if __name__ == '__main__':
  fixture.main()
