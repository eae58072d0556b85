# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""gatewayd's events and timers. See fixture.py."""

import re
import socket

import fixture
from fixture import OK, GatewaydTest, image


class Events(GatewaydTest):

  ROW = r'\n%d +(\d+) +(\w+) +(\S+) +(\S+) +(\S+) +(\S+)\n'

  def test_link_events_reach_their_subscriber_and_the_table(self):
    output = self.run_until(' checks,')
    self.assertIn('no platform driver: only events of this process', output)
    self.assertRegex(output, r'\[uplink-Notice: \d+\]: device 0: link up')
    self.assertRegex(output, self.ROW % 1)
    self.assertEqual(re.search(self.ROW % 1, output).groups(), ('1', 'Disable', '-', '-', '-', '-'))
    self.assertEqual(re.search(self.ROW % 2, output).group(1), '0')
    self.assertEqual(re.search(self.ROW % 3, output).groups()[1:3] + re.search(self.ROW % 3, output).groups()[4:],
                     ('Enable', 'No', '3', '100'))

  def test_a_missing_uplink_is_a_link_that_is_down(self):
    self.write_fields({image.UPLINK: image.text(b'nosuch0'), image.UPLINK_CHECK_MS: image.number_of(100),
                       image.STATISTICS_S: image.number_of(1)})
    daemon = self.start()
    daemon.wait_for(r'\[uplink-Notice: \d+\]: device 0: link down')
    daemon.wait_for(r': [2-9]\d* checks')
    daemon.end()
    self.assertEqual(re.search(self.ROW % 2, daemon.output).group(1), '1', 'reported once, not at each check')

  def test_a_storm_of_traffic_is_suppressed(self):
    self.write_fields({image.UPLINK_CHECK_MS: image.number_of(100), image.STATISTICS_S: image.number_of(1)})
    daemon = self.start()
    daemon.wait_for(' lo: [1-9][0-9]* checks')
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
      receiver.bind(('127.0.0.1', 0))
      for _ in range(12):  # a separate check sees each; a window lasts 10 polls, which are fewer than the checks
        receiver.sendto(b'x', receiver.getsockname())
        daemon.wait_for('bytes received')
    daemon.end()
    count, enabled, _, dropped, threshold, period = re.search(self.ROW % 3, daemon.output).groups()
    self.assertEqual((enabled, threshold, period), ('Enable', '3', '100'))
    self.assertGreater(int(dropped), 0)
    reports = len(re.findall(r'\]: lo: \d+ bytes received', daemon.output))
    self.assertIn(int(count) + int(dropped), (reports - 1, reports), 'the last one may have come between the two')

  def test_with_the_device_the_platform_is_asked(self):
    # An ordinary file replaces the device: it can be opened, but refuses every command.
    self.write_below_root('dev/mu_pal_ioctl', '')
    # The event thread ends here: there is no netlink protocol 19. The library does not join or detach it.
    output = self.run_once(env={'TSAN_OPTIONS': 'report_thread_leaks=0:atexit_sleep_ms=0'})
    self.assertIn('mu-event: init OK (max_event_num 20)\n', output)
    self.assertIn("Can not run command '1', ret=-1.\n", output)
    self.assertNotIn('Suprs-en', output, 'the table is the driver\'s to show')


class Timers(GatewaydTest):

  def write_settings(self, uplink):
    self.write_fields({image.UPLINK: image.text(uplink), image.UPLINK_CHECK_MS: image.number_of(100),
                       image.STATISTICS_S: image.number_of(1)})

  def test_traffic_of_the_uplink_is_logged(self):
    self.write_settings(b'lo')
    daemon = self.start()
    daemon.wait_for(' lo: [1-9][0-9]* checks')  # it has the value from which it counts
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
      receiver.bind(('127.0.0.1', 0))
      for _ in range(20):
        receiver.sendto(b'x' * 1000, receiver.getsockname())
    seen = 0
    while seen < 20 * (1000 + 8 + 20):  # each with a UDP and an IP header
      seen += int(daemon.wait_for(r'\[uplink-Notice: \d+\]: lo: (\d+) bytes received').group(1))
    self.assertEqual(daemon.end()[0], OK)

  def test_uplink_without_counters_is_an_error(self):
    for uplink in ('nosuch0', 'l', 'loo', 'o', ''):  # a part of a name, or a longer name, is another interface
      with self.subTest(uplink=uplink):
        self.write_settings(uplink.encode())
        self.assertRegex(self.run_until('checks,'), r'\[uplink-Error: \d+\]: %s: no counters\r' % uplink)

  def test_every_timer_goes_on(self):
    # The first scan calls every timer at once. Later output comes from timers that were restarted.
    self.write_settings(b'nosuch0')
    output = self.run_until('silent for')
    silences = re.findall(r'\[uplink-Warning: \d+\]: nosuch0: silent for (\d+) s', output)
    self.assertGreaterEqual(int(silences[0]), 3, 'reported before it has lasted')
    checks = [int(number) for number in re.findall(r' nosuch0: (\d+) checks', output)]
    self.assertGreaterEqual(len(checks), 3, 'statistics')
    self.assertEqual(checks, sorted(set(checks)), 'the number of checks grows')
    # After 1 and 2 seconds.
    self.assertGreaterEqual(len(re.findall(r'\]memory: [1-9]\d* KiB free', output)), 2, 'memory reports')
    self.assertEqual(len(re.findall(r' OneShot ', output)), 2, 'the one-shots are armed')


if __name__ == '__main__':
  fixture.main()
