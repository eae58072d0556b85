# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Options, and how gatewayd ends. See fixture.py."""

import os
import re
import signal

import fixture
from fixture import BAD_OPTION, OK, GatewaydTest


class Options(GatewaydTest):

  def test_help(self):
    status, output, errors = self.refusal('--help')
    self.assertEqual((status, errors), (OK, ''))
    for word in ('--config FILE', '--run-for SECONDS', '--set-collector IP', '--help', 'SIGTERM'):
      self.assertIn(word, output)
    for code in ('0 ended in order', '2 bad option', '3 bad path', '4 image not readable', '5 image too large'):
      self.assertIn(code, output)

  def test_bad_options(self):
    config = ('--config', self.image)
    for args, message in (
        ((), '--config is missing'),
        (('--config',), 'requires an argument'),
        ((*config, '--no-such-option'), 'unrecognized option'),
        ((*config, '-x'), 'invalid option'),
        ((*config, 'more'), "'more' is not an option"),
        ((*config, '--run-for', ''), "'' is not a time"),
        ((*config, '--run-for', '0'), 'is not a time'),
        ((*config, '--run-for', '-1'), 'is not a time'),
        ((*config, '--run-for', '1s'), 'is not a time'),
        ((*config, '--run-for', '1000001'), 'is not a time'),
        ((*config, '--run-for', '99999999999999999999'), 'is not a time'),
        ((*config, '--set-collector', ''), 'is not an IPv4 address'),
        ((*config, '--set-collector', '10.0.0'), 'is not an IPv4 address'),
        ((*config, '--set-collector', '10.0.0.256'), 'is not an IPv4 address'),
        ((*config, '--set-collector', 'localhost'), 'is not an IPv4 address'),
    ):
      with self.subTest(args=args):
        status, output, errors = self.refusal(*args)
        self.assertEqual((status, output), (BAD_OPTION, ''))
        self.assertIn(message, errors)
    self.assertEqual(os.listdir(self.folder), [], 'a refused start makes no image')


class Ending(GatewaydTest):

  def test_signals_end_it_in_order_with_its_log(self):
    for how, name in ((signal.SIGTERM, 'SIGTERM'), (signal.SIGINT, 'SIGINT')):
      with self.subTest(signal=name):
        daemon = self.start()
        status, errors = daemon.end(how)
        self.assertEqual(status, OK, errors)
        for text in ('gateway: started', 'gateway: ends, ' + name):
          self.assertRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[Notice \d+\]main: ' + text)

  def test_ends_when_its_time_is_over_also_if_it_was_stopped_before(self):
    daemon = self.start('--run-for', '1')
    daemon.wait_for(' checks,')  # it waits for a signal by now
    daemon.process.send_signal(signal.SIGSTOP)
    os.waitpid(daemon.process.pid, os.WUNTRACED)  # a SIGCONT that came earlier would undo it
    daemon.process.send_signal(signal.SIGCONT)
    daemon.wait_for('gateway: ends, its time is over')
    rest, errors = daemon.process.communicate()
    self.assertEqual(daemon.process.returncode, OK, errors.decode())
    self.assertIn(b'Expired timer Number', rest)

  def test_prints_its_timers(self):
    output = self.run_until(r'\[traffic-Info: \d+\]: lo: \d+ checks')  # the first scan is over
    rows = re.findall(r'\n(\d+) +(\d+) +\d+ +(\d+) +(Circle|OneShot) ', output)
    # The one-shot timers of the first check and the first report, 7 and 8, may not have been removed yet.
    rows = [row for row in rows if int(row[1]) <= 6]
    # In the order in which they were added; the intervals of the one-shot timers vary.
    self.assertEqual([(row, timer_id, kind) for row, timer_id, _, kind in rows],
                     [('0', '1', 'Circle'), ('1', '2', 'Circle'), ('2', '3', 'Circle'), ('3', '4', 'Circle'),
                      ('4', '5', 'OneShot'), ('5', '6', 'OneShot')])
    # In ticks of 10 ms. The first saves the log's files, the second polls the events.
    self.assertEqual([interval for _, _, interval, kind in rows if kind == 'Circle'], ['300', '50', '100', '300'])
    self.assertRegex(output, r'\nExpired timer Number: \d+')
    self.assertNotRegex(output, r'\n\[[0-9/:-]+\]-\[Info \d+\]traffic: ', 'statistics have a ring of their own')

  def test_survives_a_reader_that_went_away(self):
    daemon = self.start()
    daemon.process.stdout.close()
    daemon.process.stderr.close()
    daemon.process.send_signal(signal.SIGTERM)
    self.assertEqual(daemon.process.wait(), OK)


if __name__ == '__main__':
  fixture.main()
