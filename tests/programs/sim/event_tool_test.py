# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-event against a simulation, and the examples of both programs' pages. See fixture.py."""

import json
import os
import re
import shlex
import signal
import subprocess

import fixture
from fixture import HANG_S, SOURCES, TYPES, SimTest, datagram


class EventTool(SimTest):

  def setUp(self):
    super().setUp()
    if 'TARN_TEST_EVENT_TOOL' not in os.environ:
      self.skipTest('tarn-event is not built')
    self.event_tool = fixture.emulator + [os.environ['TARN_TEST_EVENT_TOOL']]

  def tool(self, line, *args):
    words = [self.root if word == '/tmp/gateway' else word.replace('/tmp/gateway', self.root)
             for word in shlex.split(line, comments=True)]
    self.assertEqual(words[0], 'tarn-event')
    done = subprocess.run(self.event_tool + words[1:] + list(args), capture_output=True, check=False, timeout=HANG_S,
                          stdin=subprocess.DEVNULL)
    return done.returncode, done.stdout.decode(), done.stderr.decode()

  def assert_works(self, line):
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway ' + line), (0, '', ''))

  def shown(self, path):
    text = self.read(os.path.join(SOURCES, 'tools', path)).replace('\\-', '-')
    return re.findall(r'^(?:\$ )?(tarn-event --root.*)$', text, re.MULTILINE)

  def test_each_line_of_the_pages_does_what_it_says(self):
    lines = self.shown('README.md') + self.shown('tarn-event/tarn-event.1')
    self.assertEqual(len(lines), 10)
    for line in lines:
      with self.subTest(line=line):
        sim, daemon, control = self.play()
        sock = daemon.channel()
        watch = ('--count=2', '--interval=0.01') if ' watch' in line else ()
        before = control.status()
        status, output, errors = self.tool(line, *watch)
        self.assertEqual((status, errors), (0, ''))
        if ' link-down ' in line:
          self.assertEqual(daemon.receive(sock), datagram(2, 3))
        elif ' storm ' in line:
          self.assertEqual([daemon.receive(sock) for _ in range(3)], [datagram(3)] * 3)
          self.assertGreater(control.status()['script']['pending'], 0)
        elif ' kmsg ' in line:
          self.assertEqual(control.status()['kmsg']['written'], before['kmsg']['written'] + 1)
        elif ' run ' in line:
          self.assertEqual(control.status()['failures']['ioctl'], before['failures']['ioctl'] + 2)
        else:
          self.assertRegex(output, r'(?s)daemon %d runs, events go to port %d\n.*Type  Name .*traffic' %
                           (daemon.call('getpid'), daemon.call('getppid')))
        daemon.end()
        sim.wait()

  def test_sends_events(self):
    _, daemon, _ = self.play()
    sock = daemon.channel()
    for line, expected in (('send 7 -p 3 --data=0102', [datagram(7, 3, b'\1\2')]),
                           ('send link-up --text="a b"', [datagram(1, 0, b'a b')]),
                           ('send 7 -n 3', [datagram(7)] * 3), ('send 7 -n 2 --every=10ms', [datagram(7)] * 2),
                           ('storm 5 -n 4', [datagram(5)] * 4), ('storm storm --device=9 -n 2', [datagram(4, 9)] * 2),
                           ('run "event 1" "event 2 device 5"', [datagram(1), datagram(2, 5)])):
      with self.subTest(line=line):
        self.assert_works(line)
        self.assertEqual([daemon.receive(sock) for _ in expected], expected)

  def test_writes_kernel_lines(self):
    _, _, control = self.play()
    self.assert_works('kmsg 5 3 "a text"')
    self.assert_works('kmsg plain')
    self.assertEqual(control.status()['kmsg']['written'], 2)

  def test_dumps_and_shows_the_state(self):
    sim, daemon, control = self.play()
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway status')[0], 1)  # no channel yet
    daemon.channel()
    self.assertEqual(self.tool('tarn-event status --root /tmp/gateway')[0], 0)
    self.assert_works('dump')
    sim.until(lambda: 'Suprs-en' in sim.output(), 'the table')
    state = json.loads(self.tool('tarn-event --root=/tmp/gateway status --json --all')[1])
    self.assertEqual(state['channel'], control.status()['channel'])
    self.assertEqual(len(state['events']), TYPES)

  def test_stops_at_a_faulty_line(self):
    sim, _, _ = self.play()
    status, _, errors = self.tool('tarn-event --root=/tmp/gateway run "say one" bogus "say two"')
    self.assertEqual(status, 2)
    self.assertRegex(errors, 'tarn-event: .*bogus')
    sim.until_said('tarn-sim: one\n')
    self.assertNotIn('tarn-sim: two\n', sim.errors())
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway send bogus')[0], 2)

  def test_stops_the_simulation(self):
    sim, _, _ = self.play()
    self.assert_works('stop')
    self.assertEqual(sim.wait(), 128 + signal.SIGTERM)
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway status')[0], 2)

  def test_ends_a_watch_with_the_simulation(self):
    sim, daemon, _ = self.play()
    daemon.channel()
    with subprocess.Popen(self.event_tool + ['--root', self.root, 'watch', '--json', '--interval=0.01'],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as watch:
      self.assertTrue(json.loads(watch.stdout.readline())['daemon']['running'])
      daemon.end()
      sim.wait()
      watch.stdout.read()
      self.assertIsNotNone(watch.wait(timeout=HANG_S))


class Manual(SimTest):

  def test_has_an_example_that_works(self):
    if 'TARN_TEST_GATEWAYD' not in os.environ:
      self.skipTest('gatewayd is not built')
    page = self.read(os.path.join(SOURCES, 'sim/tarn-sim.1'))
    example = page.replace('\\-', '-').replace('\\(dq', '"').split('.EX\n')[2].split('.EE')[0]
    self.assertTrue(example.endswith('at 10s stop\n'), example)
    endless = example.removesuffix('at 10s stop\n')  # this test stops it at the end
    daemon = [*fixture.emulator, os.environ['TARN_TEST_GATEWAYD'], '--config=gatewayd.cfg']
    sim = self.sim('--verbose', script=endless, command=daemon, cwd=self.folder)
    sim.until(lambda: 'event 1 (link-up), device 3' in sim.errors() or sim.process.poll() is not None, 'the events')
    self.assertIsNone(sim.process.poll(), sim.errors())
    control = sim.control()
    sim.until(lambda: control.status()['kmsg']['written'] == 1, 'the kernel line')
    sim.until(lambda: control.status()['events'][4]['count'] > 0, 'the storm')
    self.assertEqual(control.status()['channel']['no_listener'], 0)
    control.do('stop')
    self.assertEqual(sim.wait(), 0, sim.errors())


if __name__ == '__main__':
  fixture.main()
