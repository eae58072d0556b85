# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The surroundings of the daemon: descriptors, signals, input, environment, and its parent. See fixture.py."""

import os
import re

import fixture
from fixture import SimTest, datagram


class Surroundings(SimTest):

  def test_signals_and_descriptors_are_as_without(self):
    self.natively()  # an emulator has its own
    _, daemon, _ = self.play()
    pid = daemon.call('getpid')
    with open('/proc/%d/status' % pid, encoding='ascii') as state:
      self.assertEqual(re.findall(r'^(?:SigBlk|SigIgn):\s*(\w+)', state.read(), re.MULTILINE), ['0' * 16] * 2)
    self.assertEqual(sorted(os.listdir('/proc/%d/fd' % pid)), ['0', '1', '2', '3'])  # 3 is the caller's own

  def test_the_input_is_the_daemons(self):
    status, output, _ = self.run_to_end('--no-namespace', '--', 'cat', input=b'typed\n')
    self.assertEqual((status, output), (0, 'typed\n'))

  def test_standard_descriptors_may_be_closed(self):
    def close_all():
      for descriptor in (0, 1, 2):
        os.close(descriptor)

    for closing in (lambda: os.close(0), close_all):
      sim, daemon, control = self.play(preexec_fn=closing)
      sock = daemon.channel()
      control.do('event 1')
      self.assertEqual(daemon.receive(sock), datagram(1))
      daemon.end(5)
      self.assertEqual(sim.wait(), 5)

  def test_the_launcher_is_the_parent(self):
    self.natively()  # the process that the daemon sees is the emulator's
    sim, daemon, _ = self.play()
    self.assertEqual(daemon.call('getppid'), sim.process.pid)

  def test_the_root_is_in_the_environment(self):
    _, daemon, _ = self.play()
    self.assertEqual(daemon.ask('env', 'TARN_SIM_ROOT')[1].decode(), os.path.realpath(self.root))

  def test_an_earlier_preload_is_kept_after_the_shim(self):
    sim = self.sim(env={**os.environ, 'LD_PRELOAD': '/nonexistent/other.so'})
    self.assertRegex(sim.meet().ask('env', 'LD_PRELOAD')[1], rb'^/.*/tarn-sim-shim\.so:/nonexistent/other\.so$')

  def test_sanitizers_learn_of_the_shim(self):
    sim = self.sim(env={**os.environ, 'ASAN_OPTIONS': 'verify_asan_link_order=0:color=never'})
    self.assertEqual(sim.meet().ask('env', 'ASAN_OPTIONS'),
                     (0, b'verify_asan_link_order=0:verify_asan_link_order=0:color=never'))


if __name__ == '__main__':
  fixture.main()
