# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The control socket that tarn-event talks to.

Usage: event_socket_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-EVENT
"""

import socket
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from event_fixture import (DONE, EventTest, WRONG, command_line)
import programs


class Socket(EventTest):
  def test_by_its_path(self):
    simulation = self.simulate()
    self.assertEqual(self.run_bare('--control', self.control, 'dump'), (DONE, '', ''))
    self.assertEqual(simulation.lines, ['dump\n'])

  def test_options_after_the_command(self):
    simulation = self.simulate()
    self.assertEqual(self.run_bare('dump', '-c', self.control), (DONE, '', ''))
    self.assertEqual(simulation.lines, ['dump\n'])

  def test_by_the_environment(self):
    simulation = self.simulate()
    self.assertEqual(self.run_bare('dump', env={'TARN_SIM_CONTROL': self.control}), (DONE, '', ''))
    self.assertEqual(self.run_bare('stop', env={'TARN_SIM_ROOT': self.folder}), (DONE, '', ''))
    self.assertEqual(simulation.lines, ['dump\n', 'stop\n'])

  def test_the_command_line_goes_before_the_environment(self):
    simulation = self.simulate()
    self.assertEqual(self.run_tool('dump', env={'TARN_SIM_CONTROL': '/nowhere', 'TARN_SIM_ROOT': '/nowhere'}),
                     (DONE, '', ''))
    self.assertEqual(simulation.lines, ['dump\n'])

  def test_none_named(self):
    status, output, errors = self.run_bare('dump')
    self.assertEqual((status, output), (WRONG, ''))
    self.assertRegex(errors, '^tarn-event: --control or --root is required')

  def test_none_there(self):
    self.assertEqual(self.run_tool('dump'),
                     (WRONG, '', 'tarn-event: %s: No such file or directory\n' % self.control))

  def test_one_that_a_simulation_has_left(self):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as left:
      left.bind(self.control)
    self.assertEqual(self.run_tool('dump'), (WRONG, '', 'tarn-event: %s: no simulation runs there\n' % self.control))

  def test_a_path_that_is_too_long(self):
    path = '/' + 'x' * 107
    self.assertEqual(self.run_bare('-c', path, 'dump'), (WRONG, '', 'tarn-event: %s: File name too long\n' % path))

  def test_a_simulation_that_ends_before_it_answers(self):
    self.simulate(lambda line: None)
    status, output, errors = self.run_tool('dump')
    self.assertEqual((status, output), (WRONG, ''))
    self.assertEqual(errors, 'tarn-event: %s: the simulation has ended\n' % self.control)


if __name__ == '__main__':
  programs.main(command_line)
