# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Scripts: when their lines are due, what each command does, and how a fault is reported. See fixture.py.

Every rule of the language itself is in script_test.cpp and schedule_test.cpp.
"""

import os
import re
import shutil
import signal
import time

import fixture
from fixture import HEADER, KMSG, SET, SimTest, datagram


class Times(SimTest):

  def sequence(self, script, count):
    """The first datagrams of a script to a daemon that binds the channel at once, and the times of their arrival."""
    sim = self.sim(script=script)
    daemon = sim.meet()
    before = time.monotonic()
    sock = daemon.channel()
    received = []
    for _ in range(count):
      received.append((daemon.receive(sock), time.monotonic() - before))
    return received, sim.control()

  def whole_sequence(self, script, count):
    """The same for a script that ends and sends no further datagrams."""
    received, control = self.sequence(script, count)
    self.assertEqual(control.status()['channel']['sent'], count)
    self.assertEqual(control.status()['script']['pending'], 0)
    return received, control

  def assert_never_early(self, received, due_ms):
    self.assertEqual(len(received), len(due_ms))
    for (_, came_s), due in zip(received, due_ms):
      self.assertGreaterEqual(came_s + 0.02, due / 1000)  # two ticks

  def test_of_each_kind_are_kept(self):
    script = """# a comment
        await channel   # and another

        event 1 device 1
      event 1 device 2 2 times
      at 100ms event 1 device 3
      after 0.05s event 1 device 4
      event 1 device 5
      every 20ms event 1 device 6 3 times
      after 200ms event 1 device 7
    """
    received, _ = self.whole_sequence(script, 10)
    self.assertEqual([HEADER.unpack(data)[5] for data, _ in received], [1, 2, 2, 3, 4, 5, 6, 6, 6, 7])
    self.assert_never_early(received, [0, 0, 0, 100, 150, 150, 150, 170, 190, 350])

  def test_order_the_lines(self):
    sim = self.sim(script='say a\nat 50ms say d\nat 20ms say b\nafter 10ms say c\nevery 20ms say e 2 times\n'
                          'at 100ms stop\n')
    self.assertEqual(sim.wait(), 128 + signal.SIGTERM)
    self.assertEqual(re.findall(r'(?m)^tarn-sim: (\w)$', sim.errors()), list('abcede'))

  def test_of_every_without_an_end_go_on(self):
    received, control = self.sequence('await channel\nevery 10ms event 1\nat 500ms say done\n', 20)
    self.assert_never_early(received, [10 * number for number in range(20)])
    self.assertGreater(control.status()['script']['pending'], 0)

  def test_count_from_the_last_await(self):
    received, _ = self.whole_sequence('at 300ms say "later"\nawait channel\nat 50ms event 1\n', 1)
    self.assert_never_early(received, [50])


class Awaits(SimTest):

  def test_of_the_channel_end_when_it_is_bound_to_the_destination(self):
    sim, daemon, control = self.play(script='say start\nawait channel\nsay bound\nevent 7\n')
    sim.until_said('tarn-sim: start\n')
    self.assertEqual(control.status()['script'], {'pending': 3, 'done': 1})
    self.assertEqual(daemon.receive(daemon.channel()), datagram(7))
    sim.until_said('tarn-sim: bound\n')
    self.assertEqual(control.status()['script'], {'pending': 0, 'done': 3})

  def test_hold_the_lines_that_follow(self):
    _, daemon, _ = self.play(script='at 0ms kmsg first\nawait channel\nkmsg second\n')
    file = daemon.open(KMSG, os.O_RDONLY)
    self.assertIn(b'first', daemon.ask('read', file, 999)[1])
    self.assertEqual(daemon.ask('select', file, -1, 100)[0], 0)
    daemon.channel()
    self.assertIn(b'second', daemon.ask('read', file, 999)[1])

  def test_of_settings_end_when_one_is_made(self):
    sim, daemon, control = self.play(script='await settings\nsay set\n')
    self.assertEqual(control.status()['script'], {'pending': 2, 'done': 0})
    daemon.configure(SET, 7, 1, 3, 100)
    sim.until_said('tarn-sim: set\n')
    self.assertEqual(control.status()['script'], {'pending': 0, 'done': 1})


class Commands(SimTest):

  def test_are_done_by_scripts(self):
    sim, daemon, control = self.play(script='name 7 door\nawait channel\nevent door device 9 data 01\n'
                                            'kmsg 5 6 "link up"\nkmsg plain\nraw-kmsg "raw\\n"\nraw-datagram 0102\n'
                                            'fail ioctl 1 times\nsay "a\\x07b"\n')
    sock = daemon.channel()
    self.assertEqual(daemon.receive(sock), datagram(7, 9, b'\1'))
    self.assertEqual(daemon.receive(sock), b'\1\2')
    text = daemon.read_to(daemon.open(KMSG, os.O_RDONLY), b'raw\n')
    self.assertRegex(text, rb'link up<jxlog>\n.*plain\nraw\n$')
    self.assert_error('EIO', daemon.set_destination(5))
    sim.until_said('tarn-sim: a\\x07b\n')
    self.assertEqual(control.status()['events'][7]['name'], 'door')

  def test_name_types_for_the_lines_that_follow(self):
    _, daemon, control = self.play(script='name 9 door\nawait channel\nevent door port 4 data 01\nevent 9\n')
    sock = daemon.channel()
    self.assertEqual([daemon.receive(sock) for _ in range(2)], [datagram(9, 4, b'\1'), datagram(9)])
    self.assertEqual([one['name'] for one in control.status()['events']],
                     ['', 'link-up', 'link-down', 'traffic', 'storm'] + [''] * 4 + ['door'] + [''] * 10)

  def test_say_dump_and_stop(self):
    sim = self.sim('--events', '1', script='say "hello there"\ndump\nat 10ms stop\n')
    self.assertEqual(sim.wait(), 128 + signal.SIGTERM)
    self.assertIn('tarn-sim: hello there\n', sim.errors())
    self.assertEqual(sim.output().count('Suprs-en'), 1)
    self.assertEqual(sim.output().count('\n'), 5)

  def test_of_a_thousand_million_times_leave_room_for_others(self):
    _, daemon, control = self.play(script='event 1 1000000000 times\n')
    self.assertEqual(daemon.configure(fixture.GET, 1)[0], 0)
    self.assertEqual(control.status()['script']['pending'], 1)


class Faults(SimTest):

  def test_are_reported_with_their_place_and_nothing_is_started(self):
    for line, column in (('bogus', 1), ('  bogus', 3), ('at 15ms event 1', 4), ('at 1 event 1', 4), ('at', 3),
                         ('at 1s', 6), ('after x event 1', 7), ('every 5ms event 1', 7), ('every 0ms event 1', 7),
                         ('event', 6), ('event 20', 7), ('event -1', 7), ('event nothing', 7), ('event 1 device', 15),
                         ('event 1 device 65536', 16), ('event 1 port x', 14), ('event 1 data', 13),
                         ('event 1 data 0', 14), ('event 1 data 0g', 14), ('event 1 text', 13), ('event 1 bogus', 9),
                         ('kmsg', 5), ('kmsg 100 1 x', 6), ('kmsg 1 9 x', 8), ('kmsg "open', 6), ('kmsg "\\q"', 7),
                         ('kmsg "\\x0"', 7), ('raw-datagram', 13), ('raw-datagram zz', 14), ('raw-kmsg', 9),
                         ('fail', 5), ('fail x 1 times', 6), ('fail ioctl x times', 12),
                         ('name', 5), ('name 20 x', 6), ('name 1', 7), ('await', 6), ('await ready', 7), ('say', 4),
                         ('dump now', 6), ('stop now', 6), ('status', 1)):
      with self.subTest(line=line):
        started = self.path('started')
        shutil.rmtree(started, ignore_errors=True)
        path = self.write('bad.sim', 'say fine\n\n' + line + '\n')
        self.assert_refused(r'^tarn-sim: %s:3:%d: .*\n$' % (re.escape(path), column), '--no-namespace', '--root',
                            self.root, '--script', path, '--', 'mkdir', started)
        self.assertFalse(os.path.exists(started))

  def test_are_all_reported_at_once(self):
    path = self.write('bad.sim', 'bogus\nsay fine\nevent\n')
    errors = self.assert_refused('', '--script', path, '--', 'true')
    self.assertEqual(errors, "tarn-sim: %s:1:1: 'bogus' is not a command\ntarn-sim: %s:3:6: an event type is missing\n"
                     % (path, path))

  def test_have_a_reason(self):
    for line, reason in (('at 1s foo', "'foo' is not a command"), ('at 15ms dump', "'15ms' is not a multiple of 10 ms"),
                         ('say "x', 'the string has no end'), ('event 20', "'20' is not an event type from 0 to 19")):
      path = self.write('bad.sim', line)
      self.assert_refused(': %s\n$' % re.escape(reason), '--script', path, '--', 'true')

  def test_of_the_file_are_reported(self):
    for path, reason in ((self.path('missing'), 'No such file or directory'), (self.folder, 'Is a directory')):
      self.assert_refused('^tarn-sim: %s: %s\n$' % (re.escape(path), reason), '--script', path, '--', 'true')

  def test_do_not_include_a_last_line_without_an_end(self):
    sim = self.sim(script='say one\r\nsay two')
    sim.meet()
    sim.until_said('tarn-sim: one\n', 'tarn-sim: two\n')


if __name__ == '__main__':
  fixture.main()
