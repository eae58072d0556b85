# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""/dev/mu_pal_ioctl: its two commands, and the driver's table of events. See fixture.py."""

import errno
import random

import fixture
from fixture import (CLEAR_ALL, CONFIGURE, COUNTER_CLEAR, COUNTER_GET, DESTINATION, DUMP, GET, HEADER, LONG_MS,
                     MESSAGE, PAL, SET, TYPES, SimTest, datagram, header, message)


class PlatformDevice(SimTest):

  def test_answers_in_place_and_touches_nothing_beside(self):
    _, daemon, _ = self.play()
    file = daemon.open(PAL)
    self.assertEqual(daemon.configure(SET, 7, 5, 3, 1000)[0], 0)
    question = bytearray(HEADER.pack(0x1111, 32, 0x2222, 0x3333, 0x4444, 0x5555, 0x66666666))
    question[12:20] = b'reserved'
    question += MESSAGE.pack(GET, 7, 0x77777777, 8, 9, 10, 11, 12)
    expected = bytes(question[:24]) + MESSAGE.pack(GET, 7, 0x77777777, 1, 3, 1000, 11, 12)
    for edge in ((), ('start',)):
      self.assertEqual(daemon.ioctl(file, CONFIGURE, bytes(question), *edge), (0, expected), edge)

  def test_takes_a_destination_with_a_payload_of_any_size(self):
    _, daemon, control = self.play()
    file = daemon.open(PAL)
    self.assertEqual(control.status()['channel']['destination'], 0)
    for number, length in enumerate((0, 1, 32, 1000, 4071, 4072)):
      for edge in ((), ('start',)):
        with self.subTest(length=length, edge=edge):
          argument = header(length, destination=0x12345678 + number) + bytes(i % 251 for i in range(length))
          self.assertEqual(daemon.ioctl(file, DESTINATION, argument, *edge), (0, argument))
          self.assertEqual(control.status()['channel']['destination'], 0x12345678 + number)

  def test_refuses_other_sizes_of_a_message_and_leaves_them_as_they_are(self):
    _, daemon, _ = self.play()
    file = daemon.open(PAL)
    for length in (0, 1, 31, 33, 4072):
      argument = header(length) + bytes(length)
      self.assertEqual(daemon.ioctl(file, CONFIGURE, argument), (-errno.EINVAL, argument), length)
    self.assertEqual(daemon.ioctl(file, CONFIGURE, header(4073)), (-errno.EINVAL, header(4073)))

  def test_refuses_unknown_operations_and_types_and_leaves_them_as_they_are(self):
    _, daemon, control = self.play()
    for operation, event_type in ((6, 1), (0xffffffff, 1), (COUNTER_GET, TYPES), (COUNTER_CLEAR, TYPES), (SET, TYPES),
                                  (GET, TYPES), (SET, 0xffffffff), (GET, 0xffffffff), (GET, 0x80000000)):
      with self.subTest(operation=operation, event_type=event_type):
        self.assertEqual(daemon.configure(operation, event_type, 1, 2, 3),
                         (-errno.EINVAL, (operation, event_type, 0, 1, 2, 3, 0, 0)))
    self.assertFalse(any(one['suppression'] for one in control.status()['events']))

  def test_refuses_other_requests(self):
    _, daemon, _ = self.play()
    file = daemon.open(PAL)
    for request, expected in ((0x4300, 'EINVAL'), (0x4303, 'EINVAL'), (0x43ff, 'EINVAL'), (0x4201, 'ENOTTY'),
                              (0x5401, 'ENOTTY')):  # the socket itself refuses requests of another driver
      with self.subTest(request=hex(request)):
        self.assert_error(expected, daemon.ioctl(file, request, bytes(256))[0])

  def test_refuses_a_null_argument(self):
    _, daemon, control = self.play()
    for request in (CONFIGURE, DESTINATION):
      self.assert_error('EFAULT', daemon.call('ioctl-null', daemon.open(PAL), request))
    self.assertEqual(control.status()['channel']['destination'], 0)

  def test_keeps_the_settings_of_an_event(self):
    _, daemon, control = self.play()
    self.assertEqual(daemon.configure(GET, 3), (0, (GET, 3, 0, 0, 0, 0, 0, 0)))
    self.assertEqual(daemon.configure(SET, 3, 7, 5, 1000), (0, (SET, 3, 0, 7, 5, 1000, 0, 0)))
    self.assertEqual(daemon.configure(GET, 3), (0, (GET, 3, 0, 1, 5, 1000, 0, 0)))
    self.assertEqual(control.status()['events'][3],
                     {'type': 3, 'name': 'traffic', 'count': 0, 'suppression': True, 'suppressed': False,
                      'suppressed_count': 0, 'threshold': 5, 'period_ms': 1000})

  def test_keeps_periods_in_units_of_ten(self):
    _, daemon, control = self.play()
    for given, kept in ((0, 10), (5, 10), (10, 10), (11, 10), (19, 10), (20, 20), (25, 20), (1000, 1000), (1009, 1000),
                        (0xffffffff, 0xfffffffa)):
      daemon.configure(SET, 3, 7, 4, given)
      self.assertEqual(daemon.configure(GET, 3)[1][3:6], (1, 4, kept), given)
      one = control.status()['events'][3]
      self.assertEqual((one['suppression'], one['threshold'], one['period_ms']), (True, 4, kept))
    daemon.configure(SET, 3, 0, 0, 0)
    self.assertEqual(daemon.configure(GET, 3)[1][3:6], (0, 0, 10))

  def test_reads_and_clears_counters(self):
    _, daemon, control = self.play()
    daemon.channel()
    control.do('event 1 5 times', 'event 2 3 times')
    self.assertEqual(daemon.configure(COUNTER_GET, 1), (0, (COUNTER_GET, 1, 0, 0, 0, 0, 5, 0)))
    self.assertEqual(daemon.configure(COUNTER_GET, 1, clear=1), (0, (COUNTER_GET, 1, 0, 0, 0, 0, 5, 1)))
    self.assertEqual((daemon.count(1), daemon.count(2)), (0, 3))
    self.assertEqual(daemon.configure(COUNTER_CLEAR, 2), (0, (COUNTER_CLEAR, 2, 0, 0, 0, 0, 0, 0)))
    self.assertEqual(daemon.count(2), 0)
    control.do('event 1', 'event 2', 'event 19')
    self.assertEqual(daemon.configure(CLEAR_ALL), (0, (CLEAR_ALL, 0, 0, 0, 0, 0, 0, 0)))
    self.assertEqual([daemon.count(one) for one in range(TYPES)], [0] * TYPES)
    self.assertEqual([one['count'] for one in control.status()['events']], [0] * TYPES)

  def test_dumps_the_table_before_it_answers(self):
    sim, daemon, control = self.play('--events', '2')
    control.do('event 1')
    self.assertEqual(daemon.once(PAL, CONFIGURE, header(32) + message(DUMP)), (0, header(32) + message(DUMP)))
    fresh = {'on': False}
    self.assertEqual(sim.output(), table([{**fresh, 'count': 0}, {**fresh, 'count': 1}]))

  def test_has_as_many_types_as_the_option_says(self):
    for number in (1, 3, 200, 65536):
      with self.subTest(number=number):
        sim, daemon, control = self.play('--events', str(number), script='event %d\n' % (number - 1))
        sim.until(lambda client=control: client.status()['script']['done'] == 1, 'the event')
        events = control.status()['events']
        self.assertEqual([one['type'] for one in events], list(range(number)))
        self.assertEqual(events[number - 1]['count'], 1)
        self.assertEqual(daemon.configure(GET, number - 1)[0], 0)
        self.assertEqual(daemon.configure(GET, number)[0], -errno.EINVAL)
        self.assertRegex(control.ask('event %d' % number)[0], '^error: ')
        daemon.end()
        sim.wait()


class Threads(SimTest):

  def test_get_each_its_own_answers(self):
    _, daemon, _ = self.play()
    self.assertEqual(daemon.call('hammer', 2, 300, -1), 0)

  def test_may_share_a_descriptor(self):
    _, daemon, _ = self.play()
    self.assertEqual(daemon.call('hammer', 8, 60, daemon.open(PAL)), 0)


def table(model):
  """The driver's table, as mu_event_dump prints it."""
  rows = ['=' * 63, '%-4s %-10s %-8s %-7s %-9s %-9s %-12s' % ('Type', 'Count', 'Suprs-en', 'Suprs-s', 'Suprs-cnt',
                                                            'Threshold', 'Period(ms)'), '-' * 63]
  for number, one in enumerate(model):
    if one['on']:
      rows.append('%-4d %-10d %-8s %-7s %-9d %-9d %d' %
                  (number, one['count'], 'Enable', 'Yes' if one['now'] else 'No', one['dropped'], one['threshold'],
                   one['period']))
    else:
      rows.append('%-4d %-10d %-8s %-7s %-9s %-9s %s' % (number, one['count'], 'Disable', '-', '-', '-', '-'))
  return '\n'.join(rows) + '\n\n'


class Suppression(SimTest):

  def test_follows_the_stated_rules(self):
    """Random calls of all operations and events, compared with a model. No window ends during the test."""
    choose = random.Random(4711)
    sim, daemon, control = self.play('--events', '4')
    sock = daemon.channel()
    fresh = {'count': 0, 'on': False, 'now': False, 'dropped': 0, 'threshold': 0, 'in_window': 0, 'period': 0}
    model = [dict(fresh) for _ in range(4)]
    for step in range(400):
      which = choose.randrange(4)
      one, action = model[which], choose.randrange(12)
      if action < 6:
        control.do('event %d device %d' % (which, step))
        if one['on'] and (one['now'] or one['in_window'] >= one['threshold']):
          one['now'] = True
          one['dropped'] += 1
        else:
          one['in_window'] += 1
          one['count'] += 1
          self.assertTrue(daemon.has_more(sock))
          self.assertEqual(daemon.receive(sock), datagram(which, step))
        self.assertFalse(daemon.has_more(sock))
      elif action < 8:
        enabled, threshold, period = choose.choice((0, 1, 2)), choose.randrange(8), LONG_MS + choose.randrange(99)
        self.assertEqual(daemon.configure(SET, which, enabled, threshold, period)[0], 0)
        one.update(on=enabled != 0, threshold=threshold, period=period // 10 * 10, dropped=0)
      elif action == 8:
        clear = choose.randrange(2)
        self.assertEqual(daemon.count(which, clear), one['count'])
        one['count'] *= 1 - clear
      elif action == 9:
        self.assertEqual(daemon.configure(COUNTER_CLEAR, which)[0], 0)
        one.update(count=0, dropped=0)
      elif action == 10 and choose.randrange(4) == 0:
        self.assertEqual(daemon.configure(CLEAR_ALL)[0], 0)
        for each in model:
          each.update(count=0, dropped=0)
      else:
        self.assertEqual(daemon.configure(GET, which, 9, 9, 9)[1][3:6], (one['on'], one['threshold'], one['period']))
      seen = control.status()['events'][which]
      self.assertEqual((seen['count'], seen['suppression'], seen['suppressed'], seen['suppressed_count'],
                        seen['threshold'], seen['period_ms']),
                       (one['count'], one['on'], one['now'], one['dropped'], one['threshold'], one['period']), step)
    self.assertEqual(daemon.configure(DUMP)[0], 0)
    self.assertEqual(sim.output(), table(model))

  def test_holds_back_what_exceeds_the_threshold(self):
    sim, daemon, control = self.play('--verbose')
    sock = daemon.channel()
    self.assertEqual(daemon.configure(SET, 4, 1, 3, LONG_MS)[0], 0)
    control.do('event storm 10 times', 'event 5')
    control.wait_until_done()
    self.assertEqual([daemon.receive(sock) for _ in range(4)], [datagram(4)] * 3 + [datagram(5)])
    event = control.status()['events'][4]
    self.assertEqual((event['count'], event['suppressed'], event['suppressed_count']), (3, True, 7))
    sim.until_said('event 4 (storm): suppression begins')

  def test_ends_with_its_window(self):
    sim, daemon, control = self.play('--verbose')
    sock = daemon.channel()
    self.assertEqual(daemon.configure(SET, 4, 1, 2, 10)[0], 0)
    # A window may end during a storm; then the next storm begins the suppression.
    sim.until(lambda: control.ask('event storm 3 times') and control.status()['events'][4]['suppressed'], 'suppression')
    sim.until(lambda: not control.status()['events'][4]['suppressed'], 'release')
    while daemon.has_more(sock):
      daemon.receive(sock)
    # A poll releases it, and one more without an event between begins a new window.
    control.do('every 1.2s event storm')
    self.assertEqual(daemon.receive(sock), datagram(4))
    self.assertIn('event 4 (storm): suppressed', sim.errors())

  def test_that_is_set_anew_releases_the_event(self):
    sim, daemon, control = self.play('--verbose')
    self.assertEqual(daemon.configure(SET, 4, 1, 0, 10)[0], 0)
    sim.until_said('event 4 (storm): released')
    control.do('event 4')
    sim.until_said('event 4 (storm): suppression begins')
    sim.until(lambda: not control.status()['events'][4]['suppressed'], 'release')
    sim.until(lambda: sim.errors().count('event 4 (storm): released') == 2, 'the second release')


if __name__ == '__main__':
  fixture.main()
