# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-event send, storm, kmsg and run: the lines that a simulation receives.

Usage: event_send_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-EVENT
"""

import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from event_fixture import (DONE, EventTest, WRONG, command_line)
import programs


class Send(EventTest):
  def test_an_event_by_its_name(self):
    self.assert_sends(['event link-down'], 'send', 'link-down')

  def test_an_event_by_its_number_from_a_port(self):
    self.assert_sends(['event 7 device 3'], 'send', '7', '--port', '3')

  def test_device_means_the_same_as_port(self):
    self.assert_sends(['event 7 device 65535'], 'send', '--device=65535', '7')

  def test_data(self):
    self.assert_sends(['event 7 data 00fFa9'], 'send', '7', '--data=00fFa9')

  def test_a_text_is_quoted(self):
    self.assert_sends([r'event 7 text "a \"b\" \\ # c\x0ad\x09"'], 'send', '7', '--text', 'a "b" \\ # c\nd\t')

  def test_bytes_above_ascii_are_not_changed(self):
    self.assert_sends(['event 7 text "gr\u00fc\u00df"'], 'send', '7', '--text', 'gr\u00fc\u00df')

  def test_a_number_of_times_at_once(self):
    self.assert_sends(['event 7 50 times'], 'send', '7', '-n', '50')

  def test_at_intervals(self):
    self.assert_sends(['every 1.5s event 7 device 2 text "x" 5 times'],
                      'send', '7', '--every=1.5s', '-n5', '-p2', '--text=x')

  def test_at_intervals_for_ever(self):
    self.assert_sends(['every 20ms event 7'], 'send', '7', '--every', '20ms')

  def test_a_storm(self):
    self.assert_sends(['every 10ms event traffic 100 times'], 'storm', 'traffic')

  def test_a_storm_of_another_size(self):
    self.assert_sends(['every 20ms event traffic device 1 500 times'],
                      'storm', 'traffic', '--times=500', '--every=20ms', '--port=1')

  def test_needs_a_type(self):
    self.assert_wrong('TYPE is required', 'send')

  def test_a_type_is_one_word(self):
    for word in ('link down', '', 'a"b', '#7', 'a\nb'):
      with self.subTest(word=word):
        status, output, errors = self.run_tool('send', word)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertIn('is neither a number nor a name', errors)

  def test_a_port_has_16_bits(self):
    self.assert_wrong('.*65536', 'send', '7', '--port=65536')

  def test_a_port_is_not_negative(self):
    self.assert_wrong('.*-1', 'send', '7', '--port=-1')

  def test_data_is_hexadecimal(self):
    self.assert_wrong('--data: "12g4" is not hexadecimal', 'send', '7', '--data=12g4')

  def test_data_or_text(self):
    self.assert_wrong('.*excludes', 'send', '7', '--data=12', '--text=x')

  def test_zero_times_are_refused(self):
    self.assert_wrong('.*--times', 'send', '7', '--times=0')

  def test_an_interval_is_one_word(self):
    self.assert_wrong('--every: "20 ms" is not a time', 'send', '7', '--every=20 ms')

  def test_half_a_byte_is_refused(self):
    self.assert_wrong('--data: "123" is not pairs of hexadecimal digits', 'send', '7', '--data=123')

  def test_an_empty_text_is_one(self):
    self.assert_sends(['event 7 device 3 text ""'], 'send', '--text=', '7', '-p', '3')

  def test_a_refusal_does_not_name_a_column_of_a_line_that_nobody_has_typed(self):
    self.simulate(lambda line: b"error: column 7: no event is called 'nosuch'\n")
    for command in ('send', 'storm'):
      self.assertEqual(self.run_tool(command, 'nosuch'), (WRONG, '', "tarn-event: no event is called 'nosuch'\n"))
    self.assertEqual(self.run_tool('run', 'event nosuch'),
                     (WRONG, '', "tarn-event: column 7: no event is called 'nosuch'\n"))


class Kmsg(EventTest):
  def test_a_framed_line(self):
    self.assert_sends(['kmsg 5 6 "port 3 is up"'], 'kmsg', '5', '6', 'port 3 is up')

  def test_a_plain_line(self):
    self.assert_sends(['kmsg "eth0: \\"up\\""'], 'kmsg', 'eth0: "up"')

  def test_the_last_module_and_level(self):
    self.assert_sends(['kmsg 99 8 ""'], 'kmsg', '99', '8', '')

  def test_a_module_out_of_range(self):
    self.assert_wrong('MODULE: "100" is not a number from 0 to 99', 'kmsg', '100', '6', 'x')

  def test_a_level_out_of_range(self):
    self.assert_wrong('LEVEL: "9" is not a number from 0 to 8', 'kmsg', '5', '9', 'x')

  def test_a_module_that_is_not_a_number(self):
    self.assert_wrong('MODULE: "5x" is not a number', 'kmsg', '5x', '6', 'x')

  def test_two_words(self):
    self.assert_wrong('kmsg takes MODULE LEVEL TEXT, or only TEXT', 'kmsg', '5', 'x')

  def test_a_text_that_is_called_like_a_command(self):
    self.assert_sends(['kmsg "stop"'], 'kmsg', 'stop')

  def test_a_text_that_looks_like_a_list(self):
    self.assert_sends(['kmsg "[a,b]"'], 'kmsg', '[a,b]')

  def test_no_word(self):
    self.assert_wrong('kmsg takes MODULE LEVEL TEXT, or only TEXT', 'kmsg')


class Run(EventTest):
  def test_lines_of_the_command_line(self):
    self.assert_sends(['fail ioctl 2 times', 'at 1s kmsg "x"'], 'run', 'fail ioctl 2 times', 'at 1s kmsg "x"')

  def test_lines_of_standard_input(self):
    self.assert_sends(['# a comment', 'event 1', '', 'event 2'], 'run', input=b'# a comment\nevent 1\n\nevent 2')

  def test_a_dash_is_standard_input(self):
    self.assert_sends(['event 1'], 'run', '-', input=b'event 1\n')

  def test_a_line_end_within_a_line(self):
    self.assert_wrong('LINE: ', 'run', 'event 1\nstop')

  def test_dump(self):
    self.assert_sends(['dump'], 'dump')

  def test_stop(self):
    self.assert_sends(['stop'], 'stop')

  def test_what_is_answered_is_printed(self):
    self.simulate(lambda line: b'one\ntwo\nok\n')
    self.assertEqual(self.run_tool('run', 'status'), (DONE, 'one\ntwo\n', ''))

  def test_a_refused_line_ends_it(self):
    simulation = self.simulate(lambda line: b'error: no event is called "x"\n' if ' x' in line else b'ok\n')
    self.assertEqual(self.run_tool('run', 'event 1', 'event x', 'event 2'),
                     (WRONG, '', 'tarn-event: no event is called "x"\n'))
    self.assertEqual(simulation.lines, ['event 1\n', 'event x\n'])

  def test_a_refused_line_of_standard_input_is_numbered(self):
    self.simulate(lambda line: b'error: what?\n' if 'x' in line else b'ok\n')
    self.assertEqual(self.run_tool('run', input=b'event 1\nx\nevent 2\n'),
                     (WRONG, '', 'tarn-event: standard input: line 2: what?\n'))


if __name__ == '__main__':
  programs.main(command_line)
