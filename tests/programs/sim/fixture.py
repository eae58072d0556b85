# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Runs tarn-sim for its tests: a launcher, its daemon, and clients of its control socket.

A test file of this folder is run as

  FILE_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN_SIM

The environment names the other programs: TARN_TEST_CALLER, the daemon (caller.c), and, if they are built,
TARN_TEST_EVENT_TOOL and TARN_TEST_GATEWAYD. Tests wait for events; a clock only shows that nothing was early.
"""

import errno
import json
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True
sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

HANG_S = 120
SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', '..')
NOBODY = programs.NOBODY

PAL, LOG_DEVICE, KMSG = '/dev/mu_pal_ioctl', '/dev/mulog-ioctl-dev', '/proc/kmsg'
AF_NETLINK, SOCK_RAW, CHANNEL, ADDRESS_SIZE = 16, 3, 19, 12
CONFIGURE, DESTINATION, SET_LEVEL = 0x4301, 0x4302, 0x4300
COUNTER_GET, COUNTER_CLEAR, CLEAR_ALL, SET, GET, DUMP = range(6)
PRINT, RECORD, ENABLE = range(3)
LONG_MS = 1000000  # of suppression windows that never end during a test
TYPES = 20         # of the simulated driver, unless it is given another number

# The daemon's byte order; an emulated daemon may differ from this machine.
ORDER = {'little': '<', 'big': '>'}[os.environ.get('TARN_TEST_BYTE_ORDER', sys.byteorder)]
HEADER = struct.Struct(ORDER + 'HHHHHH8xI')
MESSAGE = struct.Struct(ORDER + '8I')

emulator = []
tarn_sim = ''


def caller():
  return os.environ['TARN_TEST_CALLER']


def header(length=0, event_type=0, device=0, destination=0):
  """The header of 24 bytes of each argument of the platform's device, and of each datagram."""
  return HEADER.pack(0, length, 0, event_type, 0, device, destination)


def datagram(event_type, device=0, payload=b''):
  return header(len(payload), event_type, device) + payload


def message(operation, event_type=0, enabled=0, threshold=0, period=0, count=0, clear=0):
  """An event configuration message."""
  return MESSAGE.pack(operation, event_type, 0, enabled, threshold, period, count, clear)


def level_message(module, setting, value, command=3):
  """The argument of the log device."""
  return bytes(10) + struct.pack(ORDER + 'HBBB', command, module, setting, value) + bytes(241)


class Daemon:
  """The daemon. Each method lets it make a call, and returns the result or the negative errno."""

  def __init__(self, listener):
    self.talk, _ = listener.accept()
    self.talk.settimeout(HANG_S)
    self.lines = self.talk.makefile('rb')

  def send(self, *words):
    self.talk.sendall(' '.join(str(word) for word in words).encode() + b'\n')

  def ask(self, *words):
    """The result of a call, and the bytes that it returned."""
    self.send(*words)
    return self.answer()

  def answer(self):
    line = self.lines.readline()
    if not line:
      raise EOFError('the daemon has ended')
    result, error, rest = line.decode().rstrip('\n').split(' ')
    return int(result) if int(result) != -1 else -int(error), bytes.fromhex(rest)

  def call(self, *words):
    return self.ask(*words)[0]

  def read_to(self, file, end):
    """Reads until the bytes so far end with `end`: a stream may arrive in any pieces."""
    got = b''
    while not got.endswith(end):
      got += self.ask('read', file, 8000)[1]
    return got

  def open(self, path, flags=os.O_RDWR, variant='open'):
    return self.call('open', variant, path, flags)

  def ioctl(self, file, request, argument, *at_start):
    return self.ask('ioctl', file, request, argument.hex(), *at_start)

  def once(self, path, request, argument):
    """Opens a device, makes one request, and closes it again."""
    file = self.open(path)
    result = self.ioctl(file, request, argument)
    self.call('close', file)
    return result

  def configure(self, operation, *numbers, **named):
    """Command 1 of the platform's device: its result and the eight numbers of the answer."""
    result, got = self.once(PAL, CONFIGURE, header(32) + message(operation, *numbers, **named))
    return result, MESSAGE.unpack(got[24:])

  def count(self, event_type, clear=0):
    return self.configure(COUNTER_GET, event_type, clear=clear)[1][6]

  def set_destination(self, port):
    return self.once(PAL, DESTINATION, header(destination=port))[0]

  def set_level(self, module, setting, value, command=3):
    return self.once(LOG_DEVICE, SET_LEVEL, level_message(module, setting, value, command))[0]

  def socket(self, flags=0):
    """A socket of the event channel, not bound."""
    return self.call('socket', AF_NETLINK, SOCK_RAW | flags, CHANNEL)

  def bind(self, sock, port, size=ADDRESS_SIZE, family=AF_NETLINK):
    return self.call('bind-netlink', sock, port, size, family)

  def channel(self, port=None):
    """A bound event channel whose port the driver knows, made in the way of the library."""
    sock = self.socket()
    port = self.call('getppid') if port is None else port
    assert self.set_destination(port) == 0
    assert self.bind(sock, port) == 0
    return sock

  def receive(self, sock):
    self.ask('select', sock, -1, -1)
    return self.ask('recvfrom', sock, 8000, 0)[1]

  def has_more(self, sock):
    return self.ask('select', sock, -1, 0)[0] > 0

  def send_datagram(self, address, port, data):
    """The result of sendto, to an IPv4 address in text."""
    udp = self.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    result = self.call('sendto', udp, socket.inet_aton(address).hex(), port, data.hex())
    self.call('close', udp)
    return result

  def end(self, status=0):
    self.send('exit', status)

  def close(self):
    self.lines.close()
    self.talk.close()


class Client:
  """A client of the control socket."""

  def __init__(self, path):
    self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    self.sock.settimeout(HANG_S)
    self.sock.connect(path)
    self.lines = self.sock.makefile('rb')

  def ask(self, line):
    """The lines of the answer; the last one is "ok" or an error."""
    self.sock.sendall(line.encode('latin-1') + b'\n')
    return self.answer()

  def answer(self):
    lines = []
    while not lines or not (lines[-1] == 'ok' or lines[-1].startswith('error: ')):
      line = self.lines.readline()
      if not line.endswith(b'\n'):
        raise EOFError('the control socket was closed after %r' % lines)
      lines.append(line.decode(errors='replace').rstrip('\n'))
    return lines

  def do(self, *lines):
    for line in lines:
      answer = self.ask(line)
      assert answer == ['ok'], (line, answer)

  def status(self):
    line, ok = self.ask('status')
    assert ok == 'ok', ok
    return json.loads(line)

  def wait_until_done(self):
    """Waits until every command of scripts and clients has run."""
    while self.status()['script']['pending'] > 0:
      pass

  def close(self):
    self.lines.close()
    self.sock.close()


class Simulation:
  """A running launcher. `meet` sets `daemon`."""

  def __init__(self, folder, root, options, command=None, before=(), launcher=None, **popen):
    self.root = root
    self.output_file, self.error_file = (tempfile.TemporaryFile() for _ in range(2))
    self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    talk = os.path.join(tempfile.mkdtemp(dir=folder), 'talk')
    self.listener.bind(talk)
    os.chmod(os.path.dirname(talk), 0o755)
    os.chmod(talk, 0o777)
    self.listener.listen()
    command = emulator + [caller(), talk] if command is None else command(talk) if callable(command) else command
    # pylint: disable=consider-using-with
    self.process = subprocess.Popen([*before, *emulator, launcher or tarn_sim, *options, '--', *command],
                                    stdout=self.output_file, stderr=self.error_file,
                                    **{'stdin': subprocess.DEVNULL, **popen})
    self.daemon = None
    self.clients = []

  def meet(self):
    self.listener.settimeout(0.05)
    limit = time.monotonic() + HANG_S
    while self.daemon is None:
      try:
        self.daemon = Daemon(self.listener)
      except socket.timeout:
        if self.process.poll() is not None or time.monotonic() > limit:
          raise AssertionError('no daemon: %r %s' % (self.process.poll(), self.errors())) from None
    return self.daemon

  @staticmethod
  def text(file):
    return os.pread(file.fileno(), 1 << 24, 0).decode(errors='replace')

  def output(self):
    return self.text(self.output_file)

  def errors(self):
    return self.text(self.error_file)

  def control(self, path=None):
    self.clients.append(Client(path or os.path.join(self.root, 'control')))
    return self.clients[-1]

  def wait(self):
    return self.process.wait(timeout=HANG_S)

  def until(self, condition, what='a condition'):
    limit = time.monotonic() + HANG_S
    while True:
      result = condition()
      if result:
        return result
      if time.monotonic() > limit:
        raise AssertionError('%s never came\n%s\n%s' % (what, self.output(), self.errors()))
      time.sleep(0.01)

  def until_said(self, *texts):
    """Waits until the launcher or the shim has printed all of these texts."""
    for text in texts:
      self.until(lambda wanted=text: wanted in self.errors(), text)

  def kill(self):
    """Kills the launcher; the daemon continues."""
    assert self.daemon.call('ignore', int(signal.SIGTERM)) == 0
    self.process.kill()
    self.wait()

  def close(self):
    if self.process.poll() is None:
      self.process.kill()
    self.process.wait()
    for each in self.clients + ([self.daemon] if self.daemon else []):
      each.close()
    self.listener.close()
    self.output_file.close()
    self.error_file.close()


class SimTest(unittest.TestCase):
  """A folder that other users may enter, and ways to run the launcher. `root` is the default root."""

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='tarn-sim-test-', dir='/tmp')
    os.chmod(self.folder, 0o755)
    self.root = os.path.join(self.folder, 'root')
    self.addCleanup(shutil.rmtree, self.folder)

  def sim(self, *options, script=None, namespace=False, root=None, **run):
    options = [*options, '--root', root or self.root, *([] if namespace else ['--no-namespace'])]
    if script is not None:
      options += ['--script', self.write('script.sim', script)]
    started = Simulation(self.folder, root or self.root, options, **run)
    self.addCleanup(started.close)
    return started

  def play(self, *options, **run):
    """A simulation, its daemon, and a client of its control socket."""
    started = self.sim(*options, **run)
    return started, started.meet(), started.control()

  def run_to_end(self, *args, launcher=None, **run):
    """Runs the launcher with only these arguments; returns its status, its output and its standard error."""
    done = subprocess.run([*emulator, launcher or tarn_sim, *args], check=False, timeout=HANG_S,
                          **{'input': b'', 'stdout': subprocess.PIPE, 'stderr': subprocess.PIPE, **run})
    return done.returncode, (done.stdout or b'').decode(errors='replace'), done.stderr.decode(errors='replace')

  def assert_refused(self, reason, *args, status=2, **run):
    """The launcher ends at once, with one reason on standard error and nothing on standard output."""
    got, output, errors = self.run_to_end(*args, **run)
    self.assertEqual((got, output), (status, ''), errors)
    self.assertRegex(errors, '^tarn-sim: .')
    if reason:
      self.assertRegex(errors, reason)
    return errors

  def path(self, name):
    return os.path.join(self.folder, name)

  def write(self, name, text):
    with open(self.path(name), 'wb') as file:
      file.write(text if isinstance(text, bytes) else text.encode())
    return self.path(name)

  def read(self, path):
    with open(path, encoding='utf-8', errors='replace') as file:
      return file.read()

  def below_root(self, name):
    return os.path.join(self.root, name)

  def natively(self):
    if emulator:
      self.skipTest('the emulator stands between the processes here')

  def assert_error(self, expected, result):
    self.assertEqual(errno.errorcode.get(-result, result), expected)


def main():
  global tarn_sim  # pylint: disable=global-statement
  *words, path = programs.given()
  emulator.extend(words)
  tarn_sim = os.path.abspath(path)
  programs.run_tests()
