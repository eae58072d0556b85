"""tarn-event, run as people run it, against a simulation's control socket that the tests play.

Usage: tarn_event_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN_EVENT

What a real simulation makes of the lines is shown by the tests of tarn-sim. Exits with 77 when all that was to run was
skipped.
"""

import json
import os
import pty
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

sys.dont_write_bytecode = True
sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

DONE, NOT_LISTENING, WRONG = 0, 1, 2
SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', '..', 'tools')

tarn_event_command = []


def event(number, **changes):
  return {'type': number, 'name': '', 'count': 0, 'suppression': False, 'suppressed': False, 'suppressed_count': 0,
          'threshold': 0, 'period_ms': 0, **changes}


def state(**changes):
  return {'time_ms': 12300, 'daemon': {'pid': 4711, 'running': True},
          'channel': {'bound': True, 'port': 4710, 'destination': 4710, 'sent': 15, 'lost': 2, 'no_listener': 1},
          'events': [event(0), event(1, name='link-up', count=3),
                     event(3, name='traffic', count=6, suppression=True, suppressed=True, suppressed_count=12,
                           threshold=3, period_ms=100)],
          'modules': [{'id': 5, 'enabled': True, 'print': 6, 'record': 5}],
          'kmsg': {'written': 4, 'withheld': 1, 'lost': 0},
          'collector': {'how': 'shim', 'port': 5514, 'received': 9},
          'script': {'pending': 0, 'done': 9}, 'failures': {'ioctl': 0, 'open': 0, 'bind': 0, 'socket': 0}, **changes}


class Simulation:
  """A control socket. `lines` are those that came; `answer` gives the bytes for each, or None to hang up."""

  def __init__(self, path, answer):
    self.lines, self.answer = [], answer
    self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    self.listener.bind(path)
    self.listener.listen()
    self.thread = threading.Thread(target=self.serve, daemon=True)
    self.thread.start()

  def serve(self):
    while True:
      try:
        client, _ = self.listener.accept()
      except OSError:
        return
      with client, client.makefile('rb') as lines:
        for line in lines:
          self.lines.append(line.decode())
          reply = self.answer(line.decode())
          if reply is None:
            break
          client.sendall(reply)

  def close(self):
    self.listener.shutdown(socket.SHUT_RDWR)
    self.listener.close()
    self.thread.join()


class EventTest(unittest.TestCase):
  """A folder with a control socket, and ways to run tarn-event on it."""

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='tarn-event-')
    self.addCleanup(shutil.rmtree, self.folder)
    self.control = os.path.join(self.folder, 'control')

  def simulate(self, answer=lambda line: b'ok\n'):
    simulation = Simulation(self.control, answer)
    self.addCleanup(simulation.close)
    return simulation

  def simulate_state(self, *states):
    rest = list(states)
    return self.simulate(lambda line: (json.dumps(rest.pop(0) if len(rest) > 1 else rest[0]) + '\nok\n').encode())

  @staticmethod
  def run_bare(*args, env=None, **run):
    clean = {name: value for name, value in os.environ.items() if not name.startswith('TARN_SIM_')}
    done = subprocess.run(tarn_event_command + list(args), capture_output=True, check=False, env={**clean, **(env or {})},
                          **{'input': b'', **run})
    return done.returncode, done.stdout.decode(), done.stderr.decode()

  def run_tool(self, *args, **run):
    return self.run_bare('--root', self.folder, *args, **run)

  def assert_sends(self, expected, *args, **run):
    """Against a simulation that accepts all, the tool sends exactly these lines, says nothing and ends with 0."""
    simulation = self.simulate()
    self.assertEqual(self.run_tool(*args, **run), (DONE, '', ''))
    self.assertEqual(simulation.lines, [line + '\n' for line in expected])

  def assert_wrong(self, pattern, *args, **run):
    """Wrong use: told, and nothing is sent."""
    simulation = self.simulate()
    status, output, errors = self.run_tool(*args, **run)
    self.assertEqual((status, output), (WRONG, ''), errors)
    self.assertRegex(errors, '^tarn-event: ' + pattern)
    self.assertEqual(simulation.lines, [])


class Send(EventTest):

  def test_an_event_by_its_name(self):
    self.assert_sends(['event link-down'], 'send', 'link-down')

  def test_an_event_by_its_number_from_a_port(self):
    self.assert_sends(['event 7 device 3'], 'send', '7', '--port', '3')

  def test_device_means_the_same_as_port(self):
    self.assert_sends(['event 7 device 65535'], 'send', '--device=65535', '7')

  def test_data(self):
    self.assert_sends(['event 7 data 00fFa9'], 'send', '7', '--data=00fFa9')

  def test_a_text_is_quoted(self):
    self.assert_sends([r'event 7 text "a \"b\" \\ # c\x0ad\x09"'], 'send', '7', '--text', 'a "b" \\ # c\nd\t')

  def test_bytes_above_ascii_are_left_alone(self):
    self.assert_sends(['event 7 text "gr\u00fc\u00df"'], 'send', '7', '--text', 'gr\u00fc\u00df')

  def test_a_number_of_times_at_once(self):
    self.assert_sends(['event 7 50 times'], 'send', '7', '-n', '50')

  def test_at_intervals(self):
    self.assert_sends(['every 1.5s event 7 device 2 text "x" 5 times'],
                      'send', '7', '--every=1.5s', '-n5', '-p2', '--text=x')

  def test_at_intervals_for_ever(self):
    self.assert_sends(['every 20ms event 7'], 'send', '7', '--every', '20ms')

  def test_a_storm(self):
    self.assert_sends(['every 10ms event traffic 100 times'], 'storm', 'traffic')

  def test_a_storm_of_another_size(self):
    self.assert_sends(['every 20ms event traffic device 1 500 times'],
                      'storm', 'traffic', '--times=500', '--every=20ms', '--port=1')

  def test_needs_a_type(self):
    self.assert_wrong('TYPE is required', 'send')

  def test_a_type_is_one_word(self):
    for word in ('link down', '', 'a"b', '#7', 'a\nb'):
      with self.subTest(word=word):
        status, output, errors = self.run_tool('send', word)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertIn('is no number and no name', errors)

  def test_a_port_has_16_bits(self):
    self.assert_wrong('.*65536', 'send', '7', '--port=65536')

  def test_a_port_is_not_negative(self):
    self.assert_wrong('.*-1', 'send', '7', '--port=-1')

  def test_data_is_hexadecimal(self):
    self.assert_wrong('--data: "12g4" is not hexadecimal', 'send', '7', '--data=12g4')

  def test_data_or_text(self):
    self.assert_wrong('.*excludes', 'send', '7', '--data=12', '--text=x')

  def test_zero_times_are_refused(self):
    self.assert_wrong('.*--times', 'send', '7', '--times=0')

  def test_an_interval_is_one_word(self):
    self.assert_wrong('--every: "20 ms" is no time', 'send', '7', '--every=20 ms')


class Kmsg(EventTest):

  def test_a_framed_line(self):
    self.assert_sends(['kmsg 5 6 "port 3 is up"'], 'kmsg', '5', '6', 'port 3 is up')

  def test_a_plain_line(self):
    self.assert_sends(['kmsg "eth0: \\"up\\""'], 'kmsg', 'eth0: "up"')

  def test_the_last_module_and_level(self):
    self.assert_sends(['kmsg 99 8 ""'], 'kmsg', '99', '8', '')

  def test_a_module_out_of_range(self):
    self.assert_wrong('MODULE: "100" is no number from 0 to 99', 'kmsg', '100', '6', 'x')

  def test_a_level_out_of_range(self):
    self.assert_wrong('LEVEL: "9" is no number from 0 to 8', 'kmsg', '5', '9', 'x')

  def test_a_module_that_is_no_number(self):
    self.assert_wrong('MODULE: "5x" is no number', 'kmsg', '5x', '6', 'x')

  def test_two_words(self):
    self.assert_wrong('kmsg takes MODULE LEVEL TEXT, or TEXT alone', 'kmsg', '5', 'x')


class Run(EventTest):

  def test_lines_of_the_command_line(self):
    self.assert_sends(['fail ioctl 2 times', 'at 1s kmsg "x"'], 'run', 'fail ioctl 2 times', 'at 1s kmsg "x"')

  def test_lines_of_standard_input(self):
    self.assert_sends(['# a comment', 'event 1', '', 'event 2'], 'run', input=b'# a comment\nevent 1\n\nevent 2')

  def test_a_dash_is_standard_input(self):
    self.assert_sends(['event 1'], 'run', '-', input=b'event 1\n')

  def test_a_line_end_within_a_line(self):
    self.assert_wrong('LINE: ', 'run', 'event 1\nstop')

  def test_dump(self):
    self.assert_sends(['dump'], 'dump')

  def test_stop(self):
    self.assert_sends(['stop'], 'stop')

  def test_what_is_answered_is_printed(self):
    self.simulate(lambda line: b'one\ntwo\nok\n')
    self.assertEqual(self.run_tool('run', 'status'), (DONE, 'one\ntwo\n', ''))

  def test_a_refused_line_ends_it(self):
    simulation = self.simulate(lambda line: b'error: no event is called "x"\n' if ' x' in line else b'ok\n')
    self.assertEqual(self.run_tool('run', 'event 1', 'event x', 'event 2'),
                     (WRONG, '', 'tarn-event: no event is called "x"\n'))
    self.assertEqual(simulation.lines, ['event 1\n', 'event x\n'])

  def test_a_refused_line_of_standard_input_is_numbered(self):
    self.simulate(lambda line: b'error: what?\n' if 'x' in line else b'ok\n')
    self.assertEqual(self.run_tool('run', input=b'event 1\nx\nevent 2\n'),
                     (WRONG, '', 'tarn-event: standard input: line 2: what?\n'))


class Socket(EventTest):

  def test_by_its_path(self):
    simulation = self.simulate()
    self.assertEqual(self.run_bare('--control', self.control, 'dump'), (DONE, '', ''))
    self.assertEqual(simulation.lines, ['dump\n'])

  def test_options_behind_the_command(self):
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


class Status(EventTest):

  def test_shows_events_levels_and_counters(self):
    simulation = self.simulate_state(state())
    status, output, errors = self.run_tool('status')
    self.assertEqual((status, errors), (DONE, ''))
    self.assertEqual(simulation.lines, ['status\n'])
    self.assertEqual(re.sub(' +', ' ', output).replace(' \n', '\n').split('\n'), [
        '12.30 s: daemon 4711 runs, events go to port 4710',
        'datagrams 15 sent, 2 lost, 1 without a listener',
        'kernel log 4 lines, 1 withheld by level, 0 lost',
        'script 9 commands done, 0 to come',
        '',
        'Type Name Count Storms Dropped Threshold Period',
        '1 link-up 3 - - - -',
        '3 traffic 6 suppressed 12 3 100 ms',
        '',
        'Module Drivers Print Record',
        '5 log Notice Warning',
        ''])

  def test_columns_line_up(self):
    self.simulate_state(state())
    _, output, _ = self.run_tool('status')
    head, first, second = output.split('\n')[5:8]
    self.assertEqual({len(first), len(second)}, {len(head)})
    self.assertEqual(head.index('Storms'), second.index('suppressed'))

  def test_a_type_that_is_not_in_use_is_left_out_unless_all_are_wanted(self):
    self.simulate_state(state())
    self.assertNotRegex(self.run_tool('status')[1], '(?m)^0 ')
    self.assertRegex(self.run_tool('status', '--all')[1], '(?m)^0 ')

  def test_a_type_without_a_name_that_is_in_use_is_shown(self):
    self.simulate_state(state(events=[event(8, count=1), event(9, suppression=True), event(10, suppressed_count=2),
                                      event(11)], modules=[]))
    self.assertEqual(re.findall(r'(?m)^(\d+) {2,}', self.run_tool('status')[1]), ['8', '9', '10'])

  def test_suppression_that_is_not_at_work(self):
    self.simulate_state(state(events=[event(8, suppression=True, threshold=9, period_ms=20)]))
    self.assertRegex(self.run_tool('status')[1], r'(?m)^8 +0 +open +0 +9 +20 ms$')

  def test_without_levels_there_is_no_table_of_modules(self):
    self.simulate_state(state(modules=[]))
    self.assertNotIn('Module', self.run_tool('status')[1])

  def test_a_silent_module_and_a_level_without_a_name(self):
    self.simulate_state(state(modules=[{'id': 16, 'enabled': False, 'print': 9, 'record': 0}]))
    self.assertRegex(self.run_tool('status')[1], r'(?m)^16 +silent +\? +Off$')

  def test_a_daemon_that_does_not_wait_for_events(self):
    self.simulate_state(state(channel={**state()['channel'], 'bound': False}))
    status, output, errors = self.run_tool('status')
    self.assertEqual((status, errors), (NOT_LISTENING, ''))
    self.assertIn('daemon 4711 runs, it does not wait for events\n', output)

  def test_a_daemon_that_has_ended(self):
    self.simulate_state(state(daemon={'pid': 4711, 'running': False},
                              channel={**state()['channel'], 'bound': False}))
    status, output, _ = self.run_tool('status')
    self.assertEqual(status, NOT_LISTENING)
    self.assertIn('the daemon has ended', output)

  def test_json_is_the_simulations_own(self):
    self.simulate_state(state())
    status, output, errors = self.run_tool('status', '--json')
    self.assertEqual((status, errors, output.count('\n')), (DONE, '', 1))
    self.assertEqual(json.loads(output), state())

  def test_what_is_no_state(self):
    for answer in (b'ok\n', b'{}\nok\n', b'[]\nok\n', b'nonsense\nok\n', b'{"time_ms":"x"}\nok\n'):
      with self.subTest(answer=answer):
        simulation = Simulation(self.control, lambda line, reply=answer: reply)
        status, output, errors = self.run_tool('status')
        simulation.close()
        os.unlink(self.control)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertRegex(errors, "^tarn-event: the simulation's state is not understood: ")

  def test_large_numbers(self):
    self.simulate_state(state(events=[event(3, count=2**32 - 1)]))
    self.assertIn(' 4294967295 ', self.run_tool('status')[1])


class Watch(EventTest):

  def test_looks_so_often(self):
    simulation = self.simulate_state(state())
    status, output, errors = self.run_tool('watch', '--count=3', '--interval=0.01')
    self.assertEqual((status, errors), (DONE, ''))
    self.assertEqual(simulation.lines, ['status\n'] * 3)
    self.assertEqual(output.count('Type '), 3)

  def test_shows_what_has_come_since(self):
    later = state(events=[event(1, name='link-up', count=3),
                          event(3, name='traffic', count=10, suppression=True, suppressed_count=21, threshold=3,
                                period_ms=100)])
    self.simulate_state(state(), later)
    _, output, _ = self.run_tool('watch', '--count=2', '--interval=0.01')
    first, second = output.split('\n\n12.30', 1)
    self.assertNotIn('+', first)
    self.assertRegex(second, r'(?m)^3 +traffic +10 +\+4 +open +21 +\+9 +3 +100 ms$')
    self.assertRegex(second, r'(?m)^1 +link-up +3 +- +- +- +-$')

  def test_a_counter_that_was_cleared_has_not_grown(self):
    self.simulate_state(state(), state(events=[event(3, name='traffic', count=1)]))
    _, output, _ = self.run_tool('watch', '--count=2', '--interval=0.01')
    self.assertNotIn('+', output)

  def test_json_is_one_line_a_look(self):
    self.simulate_state(state())
    status, output, _ = self.run_tool('watch', '--json', '--count=2', '--interval=0.01')
    self.assertEqual((status, [json.loads(line) for line in output.splitlines()]), (DONE, [state(), state()]))

  def test_ends_with_the_simulation(self):
    answers = [json.dumps(state()).encode() + b'\nok\n', None]
    self.simulate(lambda line: answers.pop(0))
    status, output, errors = self.run_tool('watch', '--interval=0.01')
    self.assertEqual((status, output.count('Type ')), (DONE, 1))
    self.assertEqual(errors, 'tarn-event: %s: the simulation has ended\n' % self.control)

  def test_goes_on_until_interrupted(self):
    simulation = self.simulate_state(state())
    with subprocess.Popen(tarn_event_command + ['--root', self.folder, 'watch', '--json', '--interval=0.01'],
                          stdout=subprocess.PIPE, stdin=subprocess.DEVNULL) as process:
      for _ in range(5):
        self.assertEqual(json.loads(process.stdout.readline()), state())
      process.send_signal(signal.SIGINT)
      process.stdout.read()
      self.assertEqual(process.wait(), -signal.SIGINT)
    self.assertGreaterEqual(len(simulation.lines), 5)

  def test_ends_when_nobody_reads_any_more(self):
    self.simulate_state(state())
    with subprocess.Popen(tarn_event_command + ['--root', self.folder, 'watch', '--json', '--interval=0.01'],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL) as process:
      process.stdout.readline()
      process.stdout.close()
      self.assertIn(process.wait(), (DONE, WRONG))

  def test_each_look_takes_the_place_of_the_last_on_a_terminal(self):
    self.simulate_state(state())
    ours, theirs = pty.openpty()
    with subprocess.Popen(tarn_event_command + ['--root', self.folder, 'watch', '--count=2', '--interval=0.01'],
                          stdout=theirs, stdin=subprocess.DEVNULL) as process:
      os.close(theirs)
      output = b''
      try:
        while True:
          part = os.read(ours, 4096)
          if not part:
            break
          output += part
      except OSError:  # EIO: the other end is closed
        pass
      self.assertEqual(process.wait(), DONE)
    os.close(ours)
    self.assertEqual(output.count(b'\033[H\033[2J'), 2)

  def test_intervals_have_bounds(self):
    self.assert_wrong('.*--interval', 'watch', '--interval=0')

  def test_no_look_at_all_is_refused(self):
    self.assert_wrong('.*--count', 'watch', '--count=0')


class Usage(EventTest):

  def test_help(self):
    status, output, errors = self.run_bare('--help')
    self.assertEqual((status, errors), (DONE, ''))
    self.assertTrue(output.startswith('Usage: tarn-event '))

  def test_help_of_a_command_is_the_same(self):
    self.assertEqual(self.run_bare('send', '--help'), self.run_bare('--help'))

  def test_version(self):
    self.assertRegex(self.run_bare('--version')[1], r'^tarn-event \d+\.\d+\.\d+\n$')

  def test_no_command(self):
    self.assert_wrong('.*subcommand is required')

  def test_an_unknown_command(self):
    self.assert_wrong('.*see tarn-event --help', 'explode')

  def test_an_unknown_option(self):
    self.assert_wrong('.*--loud', 'dump', '--loud')

  def test_output_that_cannot_be_written(self):
    self.simulate_state(state())
    with open('/dev/full', 'wb') as full:
      clean = {name: value for name, value in os.environ.items() if not name.startswith('TARN_SIM_')}
      done = subprocess.run(tarn_event_command + ['--root', self.folder, 'status'], stdout=full, check=False,
                            stderr=subprocess.PIPE, env=clean)
    self.assertEqual((done.returncode, done.stderr),
                     (WRONG, b'tarn-event: standard output: No space left on device\n'))

  def test_help_and_man_page_know_the_same_options(self):
    with open(os.path.join(SOURCES, 'tarn-event', 'tarn-event.1'), encoding='ascii') as page:
      paged = set(re.findall(r'--[a-z]+', page.read().replace('\\-', '-')))
    self.assertEqual(paged, set(re.findall(r'--[a-z]+', self.run_bare('--help')[1])))

  @unittest.skipUnless(shutil.which('bash'), 'no bash')
  def test_completion(self):
    script = os.path.join(SOURCES, 'tarn-event', 'tarn-event.bash')
    for words, expected in ((['st'], {'storm', 'stop', 'status'}), (['send', 'link'], {'link-up', 'link-down'}),
                            (['watch', '--in'], {'--interval='}), (['--root', 'x', 'send', '7', '--p'], {'--port='}),
                            (['dump', '-'], set())):
      with self.subTest(words=words):
        line = ['tarn-event'] + words
        command = 'source %s; COMP_WORDS=(%s); COMP_CWORD=%d; _tarn_event; printf "%%s\\n" "${COMPREPLY[@]}"' % (
            script, ' '.join(line), len(line) - 1)
        done = subprocess.run(['bash', '-c', command], capture_output=True, check=True)
        self.assertEqual(set(done.stdout.decode().split()), expected)


if __name__ == '__main__':
  programs.main(tarn_event_command)
