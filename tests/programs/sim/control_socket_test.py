# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The control socket: lines, answers, the status, and clients of every kind. See fixture.py."""

import json
import os
import re
import select
import signal
import socket
import time

import fixture
from fixture import LONG_MS, RECORD, SET, Client, SimTest, datagram


class Lines(SimTest):

  def test_are_answered_each(self):
    sim, _, control = self.play()
    for line, answer in (('# comment', 'ok'), ('', 'ok'), ('   ', 'ok'),
                         ('foo', "error: column 1: 'foo' is not a command"),
                         ('at 5ms dump', "error: column 4: '5ms' is not a multiple of 10 ms"),
                         ('await channel', 'error: column 1: only a script can await'),
                         ('status now', "error: column 1: 'status' is not a command"), ('say hello', 'ok')):
      self.assertEqual(control.ask(line), [answer])
    sim.until_said('tarn-sim: hello\n')

  def test_that_are_faulty_are_refused_and_the_next_one_is_done(self):
    sim, _, control = self.play()
    for line in ('bogus', 'event 20', 'kmsg "open', 'at 15ms event 1', 'at 10ms status', '\x01\xff', 'event 1 \x00'):
      answer = control.ask(line)
      self.assertEqual(len(answer), 1)
      self.assertRegex(answer[0], '^error: .')
    control.do('say fine')
    sim.until_said('tarn-sim: fine\n')

  def test_may_come_in_pieces_and_many_at_once(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for byte in b'event 1\n':
      control.sock.sendall(bytes([byte]))
    self.assertEqual(control.answer(), ['ok'])
    control.sock.sendall(b'name 9 nine\nevent nine\nbogus\nevent 3\nsta')
    self.assertEqual([control.answer()[0] for _ in range(4)],
                     ['ok', 'ok', "error: column 1: 'bogus' is not a command", 'ok'])
    control.sock.sendall(b'tus\n')
    self.assertEqual(json.loads(control.answer()[0])['events'][9]['name'], 'nine')
    self.assertEqual([daemon.receive(sock) for _ in range(3)], [datagram(1), datagram(9), datagram(3)])

  def test_without_an_end_are_answered_when_the_client_ends(self):
    _, _, control = self.play()
    control.sock.sendall(b'name 5 five\nfoo')
    control.sock.shutdown(socket.SHUT_WR)
    self.assertEqual(control.answer(), ['ok'])
    self.assertEqual(control.answer(), ["error: column 1: 'foo' is not a command"])
    self.assertEqual(control.lines.read(), b'')

  def test_have_at_most_65536_bytes(self):
    sim, _, control = self.play()
    control.do('#' + 'x' * 65535)
    for line in ('#' + 'x' * 65536, 'x' * 1000000, 'say ' + 'x' * (1 << 20)):
      self.assertEqual(control.ask(line), ['error: the line is longer than 65536 bytes'])
    control.do('name 5 five')
    self.assertNotIn('xxxx', sim.errors())

  def test_have_numbers_within_their_ranges(self):
    _, _, control = self.play()
    for line, column in (('at 99999999999999999999s event 1', 4), ('at 9999999999m event 1', 4), ('at -1s event 1', 4),
                         ('event 1 99999999999999999999 times', 9), ('event 18446744073709551617', 7),
                         ('event 4294967297', 7), ('event 1 device 65537', 16), ('event +1', 7), ('event 0x1', 7),
                         ('fail ioctl 18446744073709551617 times', 12), ('kmsg 256 1 x', 6), ('kmsg 1 257 x', 8)):
      with self.subTest(line=line):
        self.assertRegex(control.ask(line)[0], '^error: column %d: .' % column)


class ClientCommands(SimTest):

  def test_are_done_before_the_answer(self):
    _, _, control = self.play()
    for number in range(1, 10):
      control.do('event 3')
      self.assertEqual(control.status()['events'][3]['count'], number)
    self.assertEqual(control.status()['script'], {'pending': 0, 'done': 9})

  def test_dump_the_table_on_the_console(self):
    sim, _, control = self.play('--events', '2')
    control.do('event 1 2 times', 'dump')
    sim.until(lambda: sim.output().endswith('\n\n'), 'the table')
    self.assertEqual([line.split()[:3] for line in sim.output().split('\n')[3:5]],
                     [['0', '0', 'Disable'], ['1', '2', 'Disable']])

  def test_count_their_times_from_the_arrival(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    before = time.monotonic()
    control.do('at 100ms event 1', 'every 50ms event 2 3 times')
    received = [daemon.receive(sock) for _ in range(4)]
    self.assertEqual(sorted(received), sorted([datagram(1)] + [datagram(2)] * 3))
    self.assertGreaterEqual(time.monotonic() - before + 0.02, 0.1)

  def test_may_be_due_at_after_and_every_time(self):
    sim, _, control = self.play()
    control.do('at 10ms say at', 'after 10ms say after', 'every 10ms say every 3 times', 'at 1m say never')
    sim.until(lambda: control.status()['script']['pending'] == 1, 'all but one')
    control.do('after 10ms stop')
    self.assertEqual(sim.wait(), 128 + signal.SIGTERM)
    said = re.findall(r'(?m)^tarn-sim: (at|after|every|never)$', sim.errors())
    self.assertEqual(sorted(said), ['after', 'at'] + ['every'] * 3)


class Status(SimTest):

  def test_of_a_new_simulation(self):
    _, daemon, control = self.play('--events', '2')
    status = control.status()
    self.assertEqual(list(status), ['time_ms', 'daemon', 'channel', 'events', 'modules', 'kmsg', 'collector', 'script',
                                    'failures'])
    self.assertEqual(status['time_ms'] % 10, 0)
    self.assertEqual(status['daemon'], {'pid': daemon.call('getpid'), 'running': True})
    self.assertEqual(status['channel'], {'bound': False, 'port': 0, 'destination': 0, 'sent': 0, 'lost': 0,
                                         'no_listener': 0})
    quiet = {'count': 0, 'suppression': False, 'suppressed': False, 'suppressed_count': 0, 'threshold': 0,
             'period_ms': 0}
    self.assertEqual(status['events'], [{'type': 0, 'name': '', **quiet}, {'type': 1, 'name': 'link-up', **quiet}])
    self.assertEqual(status['modules'], [])
    self.assertEqual(status['kmsg'], {'written': 0, 'withheld': 0, 'lost': 0})
    self.assertEqual((status['collector']['how'], status['collector']['received']), ('shim', 0))
    self.assertEqual(status['script'], {'pending': 0, 'done': 0})
    self.assertEqual(status['failures'], {'ioctl': 0, 'open': 0, 'bind': 0, 'socket': 0})

  def test_has_every_field_of_what_happened(self):
    sim, daemon, control = self.play(script='name 6 door\nat 10m say late\n')
    daemon.channel()
    daemon.configure(SET, 6, 1, 2, LONG_MS)
    daemon.set_level(9, RECORD, 4)
    control.do('event 6 4 times', 'event 0', 'kmsg 9 5 no', 'kmsg 9 4 yes', 'fail bind 3 times')
    state = control.status()
    port = daemon.call('getppid')
    self.assertEqual(state['channel'], {'bound': True, 'port': port, 'destination': port, 'sent': 3, 'lost': 0,
                                        'no_listener': 0})
    self.assertEqual(state['events'][6], {'type': 6, 'name': 'door', 'count': 2, 'suppression': True,
                                          'suppressed': True, 'suppressed_count': 2, 'threshold': 2,
                                          'period_ms': LONG_MS})
    self.assertEqual(state['modules'], [{'id': 9, 'enabled': True, 'print': 8, 'record': 4}])
    self.assertEqual(state['kmsg'], {'written': 1, 'withheld': 1, 'lost': 0})
    self.assertEqual(state['script']['pending'], 1)
    self.assertGreaterEqual(state['script']['done'], 5)
    self.assertEqual(state['failures'], {'ioctl': 0, 'open': 0, 'bind': 3, 'socket': 0})
    sim.until(lambda: control.status()['time_ms'] > state['time_ms'], 'a later time')


class Clients(SimTest):

  def assert_small(self, sim):
    with open('/proc/%d/statm' % sim.process.pid, encoding='ascii') as sizes:
      self.assertLess(int(sizes.read().split()[1]) * os.sysconf('SC_PAGESIZE'), 128 << 20)

  def flood(self, client, data, most):
    """Sends until the launcher reads no more; returns the number of bytes."""
    client.sock.setblocking(False)
    sent = 0
    while sent < most:
      _, writable, _ = select.select([], [client.sock], [], 1)
      if not writable:
        break
      sent += client.sock.send(data)
    client.sock.setblocking(True)
    return sent

  def test_that_send_a_line_without_an_end_disturb_nobody(self):
    sim, _, control = self.play()
    self.flood(sim.control(), b'x' * 65536, 3072 * 65536)
    control.do('say fine')
    self.assert_small(sim)

  def test_that_do_not_read_disturb_nobody_and_find_their_answers(self):
    sim, daemon, control = self.play()
    hanging, flooding = sim.control(), sim.control()
    hanging.sock.sendall(b'sta')
    sent = self.flood(flooding, b'status\n' * 10000, 10 * 70000)
    control.do('name 5 five')
    self.assert_small(sim)
    self.assertEqual(daemon.configure(fixture.GET, 1)[0], 0)
    flooding.sock.shutdown(socket.SHUT_WR)
    for _ in range(min(sent // 7, 300)):
      self.assertEqual(flooding.answer()[-1], 'ok')
    hanging.sock.sendall(b'tus\n')
    self.assertEqual(hanging.answer()[-1], 'ok')

  def test_that_go_without_reading_disturb_nobody(self):
    sim, _, control = self.play()
    for line in (b'', b'status\n', b'half', b'status\n' * 100):
      for _ in range(5):
        client = Client(os.path.join(sim.root, 'control'))
        client.sock.sendall(line)
        client.close()
    control.do('say fine')
    self.assertIsNone(sim.process.poll())

  def test_may_be_many_at_once(self):
    sim, _, _ = self.play()
    clients = [sim.control() for _ in range(30)]
    for client in clients:
      client.sock.sendall(b'status\n')
    for client in reversed(clients):
      self.assertEqual(client.answer()[-1], 'ok')

  def test_beyond_32_are_turned_away_until_one_goes(self):
    sim = self.sim()
    sim.meet()
    clients = [sim.control() for _ in range(32)]
    for client in clients:
      client.do('name 5 five')
    self.assertEqual(sim.control().answer(), ['error: too many clients'])
    clients[0].close()

    def is_taken():
      try:
        return sim.control().ask('name 5 five') == ['ok']
      except (EOFError, OSError):  # the launcher has not noticed the end yet
        return False

    sim.until(is_taken, 'a free place')


if __name__ == '__main__':
  fixture.main()
