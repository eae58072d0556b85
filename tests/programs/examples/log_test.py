# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""gatewayd's log: its file, the lines of the kernel, the collector. See fixture.py."""

import os
import re
import signal
import socket

import fixture
from fixture import OK, GatewaydTest, image


class Log(GatewaydTest):

  def test_is_kept_over_a_restart(self):
    self.run_once()
    saved = self.read_below_root('overlay/mu_log.txt')
    self.assertRegex(saved, r'^SysLog:\n[^\n]+first start\n(?s:.*)\[Notice\]main:gateway: started, boot count 1\n')
    # The timers' thread may have something to log after it.
    self.assertRegex(saved, r'\n[^\n]+\[Notice\]main:gateway: ends, SIGTERM\n')
    shown = self.run_once()
    # Read from the file: without line numbers, and before what this run has logged.
    self.assertRegex(shown, r'\]-\[Notice\]main: gateway: started, boot count 1\r\n(?s:.*)'
                            r'\]-\[Notice \d+\]main: gateway: started, boot count 2\r\n')

  def test_describes_the_device_in_the_user_log(self):
    self.write_fields({image.HOST_NAME: image.text(b'box'), image.UPLINK: image.text(b'lo')})
    self.run_until(' checks,')
    self.assertRegex(self.read_below_root('overlay/user_log.txt'),
                     r'^Manufacturer:tarn;\nProductClass:gatewayd;\nSerialNumber:box;\nIP:127\.0\.0\.1;\n'
                     r'HWVer:example;\nSWVer:\d+\.\d+\.\d+;\n\n[^\n]+\[Info\]traffic:lo: \d+ checks')

  def test_takes_in_what_kernel_drivers_log(self):
    self.write_below_root('proc/kmsg', '<6>[1.0] boot\n<6>[2.0] <jxlog-05:6:port 3 is up<jxlog>\n')
    daemon = self.start()
    # A message after the frame, in a later round of the bridge, shows that the frame was logged.
    self.write_below_root('proc/kmsg', '<6>[3.0] <jxlog-99:6:<jxlog>\n', 'a')
    daemon.wait_for('unknow module id:99')
    daemon.end()
    self.assertRegex(daemon.output, r'\]-\[Notice\]switch: port 3 is up')
    self.assertNotIn('boot\n', daemon.output)

  def test_keeps_debugging_messages_while_it_is_asked_to(self):
    frame = '<7>[%d.0] <jxlog-05:8:details %d<jxlog>\n<6>[%d.0] <jxlog-99:6:<jxlog>\n'
    daemon = self.start()

    def driver_logs(number):
      self.write_below_root('proc/kmsg', frame % (number, number, number), 'a')
      daemon.wait_for('unknow module id:99')  # the bridge has handled the frame

    driver_logs(1)
    daemon.process.send_signal(signal.SIGUSR1)
    daemon.wait_for(r'\[main-Notice: \d+\]: debugging messages are kept')
    driver_logs(2)
    daemon.process.send_signal(signal.SIGUSR2)
    daemon.wait_for(r'\[main-Notice: \d+\]: debugging messages are dropped')
    driver_logs(3)
    daemon.end()
    self.assertEqual(re.findall(r'\]-\[Debug\]switch: details (\d)', daemon.output), ['2'])

  def test_goes_on_without_the_kernel_s_stream_and_device(self):
    os.remove(os.path.join(self.root, 'proc/kmsg'))
    os.remove(os.path.join(self.root, 'dev/mulog-ioctl-dev'))
    daemon = self.start()
    daemon.wait_until_printed('Open kmsg fail! \n')
    self.assertEqual(daemon.end(), (OK, ''))
    self.assertIn('Device open failure /dev/mulog-ioctl-dev\n', daemon.output)

  def test_leaves_the_kernel_to_its_own_daemon(self):
    self.write_below_root('overlay/klogd', '')
    daemon = self.start()
    daemon.wait_until_printed('Klogd enable!!\n')
    self.assertEqual(daemon.end(), (OK, ''))


class Collector(GatewaydTest):

  def setUp(self):
    super().setUp()
    self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    self.addCleanup(self.socket.close)
    self.socket.bind(('127.0.0.1', 0))
    port = self.socket.getsockname()[1]
    self.popen = {'env': {'TARN_SIM_COLLECTOR_PORT': str(port)}}

  def received(self):
    """The datagrams since the last call. On loopback a datagram has arrived when its sender's call returns."""
    texts = []
    while True:
      try:
        texts.append(self.socket.recv(1024, socket.MSG_DONTWAIT).decode())
      except BlockingIOError:
        return texts

  def test_gets_the_messages_that_are_kept(self):
    daemon = self.start('--set-collector', '127.0.0.1', **self.popen)
    daemon.wait_for(' checks,')
    daemon.end()
    texts = self.received()
    self.assertIn('gateway: started, boot count 1', texts)
    self.assertIn('gateway: ends, SIGTERM', texts)
    self.assertTrue([text for text in texts if re.fullmatch('lo: counting from [0-9]+ bytes', text)], texts)
    # They are stored too.
    self.assertRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[Notice \d+\]main: gateway: started')

  def test_is_stored_and_used_until_it_is_unset(self):
    for args, stored in (
        ((), 0),
        (('--set-collector', '127.0.0.1'), 0x7F000001),
        ((), 0x7F000001),
        (('--set-collector', '0.0.0.0'), 0),
        ((), 0),
    ):
      with self.subTest(args=args, stored=stored):
        self.run_once(*args, **self.popen)
        self.assertEqual(self.fields()[image.COLLECTOR], image.number_of(stored))
        texts = self.received()
        self.assertEqual([text for text in texts if 'started' in text],
                         ['gateway: started, boot count %d' % self.boot_count()] if stored else [])
        self.assertEqual(bool(texts), bool(stored), texts)


if __name__ == '__main__':
  fixture.main()
