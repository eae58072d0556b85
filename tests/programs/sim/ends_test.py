# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""How a simulation ends: with the daemon, by signals, by the launcher's death. See fixture.py."""

import fcntl
import os
import re
import signal
import socket
import termios

import fixture
from fixture import DESTINATION, KMSG, PAL, SimTest, datagram, header, programs


class Ends(SimTest):

  def test_the_exit_status_is_the_daemons(self):
    for status in (0, 1, 42, 255):
      got, _, errors = self.run_to_end('--no-namespace', '--', 'sh', '-c', 'exit %d' % status)
      self.assertEqual(got, status)
      self.assertIn('tarn-sim: sh ended with status %d\n' % status, errors)

  def test_a_signal_gives_128_and_its_number(self):
    for number, name in ((signal.SIGTERM, 'Terminated'), (signal.SIGKILL, 'Killed'),
                         (signal.SIGSEGV, 'Segmentation fault')):
      status, _, errors = self.run_to_end('--no-namespace', '--', 'sh', '-c', 'kill -%d $$' % number)
      self.assertEqual(status, 128 + number)
      self.assertIn('tarn-sim: sh was ended by signal %d (%s)\n' % (number, name), errors)

  def test_a_daemon_that_cannot_be_executed(self):
    for daemon, status, reason in ((self.path('missing'), 127, 'No such file or directory'),
                                   ('no-such-program-here', 127, 'No such file or directory'),
                                   (self.write('plain', 'text'), 126, 'Permission denied'),
                                   (self.folder, 126, 'Permission denied')):
      with self.subTest(daemon=daemon):
        got, output, errors = self.run_to_end('--no-namespace', '--', daemon)
        self.assertEqual((got, output), (status, ''))
        self.assertRegex(errors, r'(?m)^tarn-sim: %s: %s$' % (re.escape(daemon), reason))

  def test_the_daemon_is_found_as_a_shell_finds_it(self):
    status, _, errors = self.run_to_end('--no-namespace', '--', 'true')
    self.assertEqual(status, 0)
    self.assertIn('true ended with status 0', errors)


class Signals(SimTest):

  NUMBERS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

  def test_are_passed_on(self):
    for number in self.NUMBERS:
      sim = self.sim()
      sim.meet()
      sim.process.send_signal(number)
      self.assertEqual(sim.wait(), 128 + number)
      sim.close()

  def test_the_second_one_kills_after_the_grace_time(self):
    for number in self.NUMBERS:
      with self.subTest(number=number):
        sim, daemon, _ = self.play('--grace=0ms')
        self.assertEqual(daemon.call('catch', number), 0)
        sim.process.send_signal(number)
        sim.until(lambda d=daemon: d.call('signals') == 1, 'the signal')
        sim.process.send_signal(number)
        self.assertEqual(sim.wait(), 128 + signal.SIGKILL)
        self.assertIn('tarn-sim: again: the daemon is killed\n', sim.errors())

  def test_a_second_one_within_the_grace_time_does_nothing(self):
    sim, daemon, control = self.play('--grace=10m', '--verbose')
    self.assertEqual(daemon.call('catch', signal.SIGTERM), 0)
    sim.process.send_signal(signal.SIGTERM)
    sim.until(lambda: daemon.call('signals') == 1, 'the signal')
    for number in self.NUMBERS:
      sim.process.send_signal(number)
    sim.until(lambda: sim.errors().count('a signal within the grace time') == 3, 'the three signals')
    control.do('say fine')
    self.assertEqual(daemon.call('signals'), 1)
    daemon.end()
    self.assertEqual(sim.wait(), 0)

  def test_of_timeout_let_the_daemon_end_in_order(self):
    # It signals its child and at once its group, so the daemon gets the signal twice.
    sim = self.sim('--grace=10m', start_new_session=True)
    daemon = sim.meet()
    self.assertEqual(daemon.call('catch', signal.SIGTERM), 0)
    sim.process.send_signal(signal.SIGTERM)
    sim.until(lambda: daemon.call('signals') > 0, 'the signal')
    os.killpg(sim.process.pid, signal.SIGTERM)
    sim.until(lambda: daemon.call('signals') > 1, 'the signal of the group')
    sim.control().do('say fine')  # the launcher has had its own
    daemon.end(7)
    self.assertEqual(sim.wait(), 7)

  def test_need_a_grace_time_that_is_one(self):
    for time in ('1', '15ms', 'x', ''):
      self.assert_refused('--grace', '--grace', time, '--', 'true')

  def test_a_terminals_interrupt_reaches_the_daemon_once(self):
    self.natively()  # the emulator does not report the sender of a signal
    ours, theirs = programs.open_terminal(self)
    # On a separate terminal, which controls it and the daemon.
    sim, daemon, control = self.play('--verbose', stdin=theirs, before=('setsid', '--ctty', '--wait'))
    os.close(theirs)
    self.assertEqual(daemon.call('catch', signal.SIGINT), 0)
    os.write(ours, b'\x03')
    sim.until(lambda: 'the daemon gets' in sim.errors() and daemon.call('signals') > 0, 'the signal')
    control.do('say fine')
    self.assertEqual(daemon.call('signals'), 1)
    daemon.end()
    self.assertEqual(sim.wait(), 0)

  def test_a_hangup_that_is_ignored_stays_ignored(self):
    sim, _, control = self.play(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    sim.process.send_signal(signal.SIGHUP)
    control.do('say fine')
    self.assertIsNone(sim.process.poll())


class LauncherDeath(SimTest):

  def test_sends_sigterm_to_the_daemon(self):
    sim, daemon, _ = self.play()
    self.assertEqual(daemon.call('catch', signal.SIGTERM), 0)
    sim.process.kill()
    sim.wait()
    # The kernel may send it once for each thread of the launcher.
    sim.until(lambda: daemon.call('signals') > 0, 'the signal')

  def test_ends_a_daemon_that_does_not_catch_it(self):
    sim, daemon, _ = self.play()
    sim.process.kill()
    sim.wait()
    self.assertEqual(daemon.lines.read(), b'')

  def test_makes_the_devices_fail_and_is_reported_once(self):
    sim, daemon, _ = self.play()
    file, kmsg, sock = daemon.open(PAL), daemon.open(KMSG), daemon.channel()
    sim.kill()
    self.assert_error('ENODEV', daemon.ioctl(file, DESTINATION, header())[0])
    self.assert_error('ENODEV', daemon.open(PAL))
    self.assert_error('ENODEV', daemon.call('first-line', 'fopen', KMSG))
    self.assert_error('EPROTONOSUPPORT', daemon.socket())
    self.assert_error('ENODEV', daemon.bind(sock, 5))
    self.assertEqual(daemon.ask('read', kmsg, 10), (0, b''))
    self.assertEqual([line for line in sim.errors().splitlines() if 'gone' in line],
                     ['tarn-sim: the simulated kernel is gone, or does not answer'])
    daemon.end()

  def test_leaves_datagrams_that_had_come(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1')
    sim.kill()
    self.assertEqual(daemon.ask('select', sock, -1, -1), (1, b'\1'))
    self.assertEqual(daemon.receive(sock), datagram(1))
    daemon.end()

  def test_takes_the_channel_out_of_select(self):
    sim, daemon, _ = self.play()
    sock = daemon.channel()
    sim.kill()
    self.assertEqual(daemon.call('select', sock, -1, 100), 0)  # it waits for the time
    zero = daemon.open('/dev/zero', os.O_RDONLY)
    self.assertEqual(daemon.ask('select', sock, zero, -1), (1, b'\2'))
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('select', sock, udp, 0), 0)
    daemon.end()

  def test_ends_a_wait_that_goes_on(self):
    self.natively()  # the state of an emulated process is the emulator's
    sim, daemon, _ = self.play()
    sock = daemon.channel()
    pid = daemon.call('getpid')
    self.assertEqual(daemon.call('ignore', signal.SIGTERM), 0)
    daemon.send('select', sock, -1, -1)

    def is_in_the_call():
      if fcntl.ioctl(daemon.talk, termios.TIOCOUTQ, bytes(4)) != bytes(4):
        return False  # the daemon has not read the line yet
      with open('/proc/%d/stat' % pid, encoding='ascii') as file:
        return file.read().split(') ')[1][0] == 'S'

    sim.until(is_in_the_call, 'the wait')
    sim.process.kill()
    self.assert_error('EINTR', daemon.answer()[0])
    daemon.end()


if __name__ == '__main__':
  fixture.main()
