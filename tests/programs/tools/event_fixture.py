# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of tarn-event: a control socket that the tests serve, and ways to run the tool.

The tests of tarn-sim show what a real simulation does with the lines.
"""

import json
import os
import socket
import sys
import threading

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

TOOLS = os.path.join(HERE, '..', '..', '..', 'tools')
PAGE = os.path.join(TOOLS, 'tarn-event', 'tarn-event.1')
COMPLETION = os.path.join(TOOLS, 'tarn-event', 'tarn-event.bash')
DONE, NOT_SO, WRONG = 0, 1, 2

# The program under test and its emulator: filled by programs.main.
command_line = []


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
  """A control socket. `lines` are those that it received; `answer` returns the bytes for each, or None to hang up."""

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


class EventTest(programs.ProgramTest):
  """A folder with a control socket, and ways to run tarn-event on it."""

  command = command_line

  def setUp(self):
    super().setUp()
    self.control = self.path('control')

  def simulate(self, answer=lambda line: b'ok\n'):
    simulation = Simulation(self.control, answer)
    self.addCleanup(simulation.close)
    return simulation

  def simulate_state(self, *states):
    rest = list(states)
    return self.simulate(lambda line: (json.dumps(rest.pop(0) if len(rest) > 1 else rest[0]) + '\nok\n').encode())

  def run_bare(self, *args, env=None, **popen):
    """Runs it without a control socket's name; returns its status, its output and what it reported, as texts."""
    none = {name: '' for name in ('TARN_SIM_CONTROL', 'TARN_SIM_ROOT')}
    status, output, errors = self.run_program(*args, env={**none, **(env or {})}, **popen)
    return status, output.decode() if output is not None else None, errors.decode()

  def run_tool(self, *args, **popen):
    return self.run_bare('--root', self.folder, *args, **popen)

  def assert_sends(self, expected, *args, **popen):
    """Against a simulation that accepts all, the tool sends exactly these lines, reports nothing and ends with 0."""
    simulation = self.simulate()
    self.assertEqual(self.run_tool(*args, **popen), (DONE, '', ''))
    self.assertEqual(simulation.lines, [line + '\n' for line in expected])

  def assert_wrong(self, pattern, *args, **popen):
    """Wrong use: reported on one line, and nothing is sent."""
    simulation = self.simulate()
    status, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((status, output), (WRONG, ''), errors)
    self.assertRegex(errors, r'\Atarn-event: %s.*; see tarn-event --help\n\Z' % pattern)
    self.assertEqual(simulation.lines, [])
