"""tarn-sim and tarn-event, held to what their pages say: a daemon that does what it is told runs under the launcher.

Usage: contract_sim_test.py [SUITE.TEST]... -- TARN_SIM CALLER TARN_EVENT GATEWAYD

Nothing here looks at a clock but to see that nothing came early; what is waited for has a hang limit. Exits with 77
when all that was to run was skipped.
"""

import errno
import fcntl
import json
import os
import random
import re
import resource
import shlex
import shutil
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

HANG_S = 120
SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', '..')
NOBODY = 65534

PAL, LOG_DEVICE, KMSG = '/dev/mu_pal_ioctl', '/dev/mulog-ioctl-dev', '/proc/kmsg'
AF_NETLINK, SOCK_RAW, CHANNEL = 16, 3, 19
CONFIGURE, DESTINATION, SET_LEVEL = 0x4301, 0x4302, 0x4300
COUNTER_GET, COUNTER_CLEAR, CLEAR_ALL, SET, GET, DUMP = range(6)
LONG_MS = 1000000  # of suppression windows that never end during a test
TYPES = 20         # of the simulated driver, unless told otherwise
HEADER = struct.Struct('=HHHHHH8xI')
MESSAGE = struct.Struct('=8I')

program = {}


def header(length, event_type=0, device=0, destination=0):
  return HEADER.pack(0, length, 0, event_type, 0, device, destination)


def datagram(event_type, device=0, payload=b''):
  return header(len(payload), event_type, device) + payload


class Caller:
  """The daemon: each method has it make one call, and gives its result, or the negative errno."""

  def __init__(self, listener):
    self.talk, _ = listener.accept()
    self.talk.settimeout(HANG_S)
    self.lines = self.talk.makefile('rb')

  def full(self, *words):
    self.talk.sendall(' '.join(str(word) for word in words).encode() + b'\n')
    return self.answer()

  def answer(self):
    line = self.lines.readline()
    if not line:
      raise EOFError('the daemon has ended')
    result, error, rest = line.decode().rstrip('\n').split(' ')
    return int(result) if int(result) != -1 else -int(error), bytes.fromhex(rest)

  def call(self, *words):
    return self.full(*words)[0]

  def read_to(self, file, end):
    """Reads until what has come ends so: a stream comes in whatever pieces it likes."""
    got = b''
    while not got.endswith(end):
      got += self.full('read', file, 8000)[1]
    return got

  def open(self, path, flags=os.O_RDWR, variant='open'):
    return self.call('open', variant, path, flags)

  def ioctl(self, file, request, argument, *at_start):
    return self.full('ioctl', file, request, argument.hex(), *at_start)

  def pal(self, request, argument):
    """Opens the platform device, asks, and closes it again."""
    file = self.open(PAL)
    result, got = self.ioctl(file, request, argument)
    self.call('close', file)
    return result, got

  def configure(self, operation, event_type=0, enabled=0, threshold=0, period=0, count=0, clear=0):
    """Command 1: its result and the eight numbers of the answer."""
    message = MESSAGE.pack(operation, event_type, 0, enabled, threshold, period, count, clear)
    result, got = self.pal(CONFIGURE, header(32) + message)
    return result, MESSAGE.unpack(got[24:])

  def count(self, event_type, clear=0):
    return self.configure(COUNTER_GET, event_type, clear=clear)[1][6]

  def set_level(self, module, setting, value, command=3):
    block = bytes(10) + struct.pack('=HBBB', command, module, setting, value) + bytes(241)
    file = self.open(LOG_DEVICE)
    result = self.ioctl(file, SET_LEVEL, block)
    self.call('close', file)
    return result

  def channel(self, port=None):
    """A bound event channel, whose port the driver knows, as the library makes it."""
    sock = self.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    port = self.call('getppid') if port is None else port
    assert self.pal(DESTINATION, header(0, destination=port))[0] == 0
    assert self.call('bind-netlink', sock, port, 12, 0) == 0
    return sock

  def receive(self, sock):
    self.full('select', sock, -1, -1)
    return self.full('recvfrom', sock, 4096, 0)[1]

  def has_more(self, sock):
    return self.full('select', sock, -1, 0)[0] > 0

  def end(self, status=0):
    self.talk.sendall(b'exit %d\n' % status)


class Control:
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
      if not line:
        raise EOFError('the control socket was closed after %r' % lines)
      lines.append(line.decode(errors='replace').rstrip('\n'))
    return lines

  def do(self, *lines):
    for line in lines:
      answer = self.ask(line)
      assert answer == ['ok'], (line, answer)

  def status(self):
    line, ok = self.ask('status')
    assert ok == 'ok'
    return json.loads(line)

  def close(self):
    self.lines.close()
    self.sock.close()


class Sim:
  """A running launcher. `daemon` is the Caller, once `meet` was called."""

  def __init__(self, folder, options, command=None, before=(), root=None, **run):
    self.folder, self.root = folder, root or os.path.join(folder, 'root')
    self.output_file, self.error_file = (tempfile.TemporaryFile() for _ in range(2))
    self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    self.talk = os.path.join(tempfile.mkdtemp(dir=folder), 'talk')
    self.listener.bind(self.talk)
    os.chmod(os.path.dirname(self.talk), 0o755)
    os.chmod(self.talk, 0o777)
    self.listener.listen()
    self.listener.settimeout(HANG_S)
    command = [program['caller'], self.talk] if command is None else command
    self.process = subprocess.Popen(list(before) + [program['tarn-sim']] + list(options) + ['--'] + command,
                                    stdout=self.output_file, stderr=self.error_file,
                                    **{'stdin': subprocess.DEVNULL, **run})
    self.daemon = None
    self.controls = []

  def meet(self):
    self.listener.settimeout(0.05)
    limit = time.monotonic() + HANG_S
    while self.daemon is None:
      try:
        self.daemon = Caller(self.listener)
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

  def control(self):
    self.controls.append(Control(os.path.join(self.root, 'control')))
    return self.controls[-1]

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

  def close(self):
    if self.process.poll() is None:
      self.process.kill()
    self.process.wait()
    for control in self.controls:
      control.close()
    if self.daemon:
      self.daemon.lines.close()
      self.daemon.talk.close()
    self.listener.close()
    self.output_file.close()
    self.error_file.close()


class SimTest(unittest.TestCase):

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='sim-')
    os.chmod(self.folder, 0o755)
    self.root = os.path.join(self.folder, 'root')
    self.addCleanup(shutil.rmtree, self.folder)

  def sim(self, *options, script=None, namespace=False, root=None, **run):
    options = list(options) + ([] if namespace else ['--no-namespace'])
    if root is None:
      options += ['--root', self.root]
    if script is not None:
      options += ['--script', self.write('script.sim', script)]
    started = Sim(self.folder, options, root=root or self.root, **run)
    self.addCleanup(started.close)
    return started

  def play(self, *options, **run):
    """A simulation, its daemon, and a client of its control socket."""
    started = self.sim(*options, **run)
    return started, started.meet(), started.control()

  def write(self, name, text):
    path = os.path.join(self.folder, name)
    with open(path, 'wb') as file:
      file.write(text if isinstance(text, bytes) else text.encode())
    return path

  def bare(self, *args, **run):
    """The launcher alone, to its end."""
    done = subprocess.run([program['tarn-sim']] + list(args), capture_output=True, check=False, timeout=HANG_S,
                          **{'input': b'', **run})
    return done.returncode, done.stdout.decode(errors='replace'), done.stderr.decode(errors='replace')

  def assert_error(self, expected, result):
    self.assertEqual(errno.errorcode.get(-result, result), expected)


class Redirection(SimTest):
  """Which calls lead to the simulation, and that they behave as the real ones."""

  VARIANTS = ('open', 'open64', 'openat', 'openat64', '__open_2', '__open64_2', '__openat_2', '__openat64_2')

  def test_every_way_to_open_reaches_every_device(self):
    _, daemon, control = self.play()
    control.do('kmsg "a line"')
    for path in (PAL, LOG_DEVICE, KMSG):
      for variant in self.VARIANTS:
        with self.subTest(path=path, variant=variant):
          file = daemon.open(path, os.O_RDONLY if path == KMSG else os.O_RDWR, variant)
          self.assertGreaterEqual(file, 0)
          self.assertEqual(daemon.call('close', file), 0)
      for variant in ('fopen', 'fopen64'):
        with self.subTest(path=path, variant=variant):
          self.assertGreaterEqual(daemon.call('fopen', variant, path, 'r' if path == KMSG else 'r+'), 0)

  def test_what_any_variant_opened_is_the_device(self):
    _, daemon, _ = self.play()
    for number, variant in enumerate(self.VARIANTS):
      with self.subTest(variant=variant):
        file = daemon.open(PAL, variant=variant)
        self.assertEqual(daemon.ioctl(file, DESTINATION, header(0, destination=100 + number))[0], 0)
    self.assertEqual(self.control_status()['channel']['destination'], 100 + len(self.VARIANTS) - 1)

  def control_status(self):
    client = Control(os.path.join(self.root, 'control'))
    self.addCleanup(client.close)
    return client.status()

  def test_the_overlay_is_a_folder_of_the_root(self):
    _, daemon, _ = self.play()
    for variant in self.VARIANTS[:4]:
      with self.subTest(variant=variant):
        file = daemon.open('/overlay/' + variant, os.O_CREAT | os.O_EXCL | os.O_WRONLY, variant)
        self.assertGreaterEqual(file, 0)
        self.assertEqual(daemon.call('write', file, b'kept'.hex()), 4)
        daemon.call('close', file)
        path = os.path.join(self.root, 'overlay', variant)
        with open(path, 'rb') as kept:
          self.assertEqual(kept.read(), b'kept')
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode) & ~0o640, 0)
    for variant in self.VARIANTS:
      file = daemon.open('/overlay/open', os.O_RDONLY, variant)
      self.assertEqual(daemon.full('read', file, 9), (4, b'kept'), variant)
      daemon.call('close', file)
    for variant in ('fopen', 'fopen64'):
      self.assertGreaterEqual(daemon.call('fopen', variant, '/overlay/' + variant, 'w'), 0)
      self.assertTrue(os.path.exists(os.path.join(self.root, 'overlay', variant)))
      self.assert_error('ENOENT', daemon.call('fopen', variant, '/overlay/missing', 'r'))
    self.assertEqual(daemon.call('access', '/overlay', os.R_OK), 0)
    self.assertEqual(daemon.call('access', '/overlay/open', os.F_OK), 0)
    self.assertEqual(daemon.call('unlink', '/overlay/open'), 0)
    self.assert_error('ENOENT', daemon.call('access', '/overlay/open', os.F_OK))
    self.assert_error('ENOENT', daemon.call('unlink', '/overlay/open'))
    self.assertFalse(os.path.exists(os.path.join(self.root, 'overlay', 'open')))

  def test_errors_are_those_of_the_calls(self):
    _, daemon, _ = self.play()
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_WRONLY), 0)
    os.mkdir(os.path.join(self.root, 'overlay', 'folder'))
    for expected, call in (('ENOENT', ('open', 'open', '/overlay/missing', os.O_RDONLY)),
                           ('EEXIST', ('open', 'open', '/overlay/file', os.O_CREAT | os.O_EXCL | os.O_RDWR)),
                           ('EISDIR', ('open', 'open', '/overlay/folder', os.O_WRONLY)),
                           ('ENOTDIR', ('open', 'open', '/overlay/file/below', os.O_RDONLY)),
                           ('ENOTDIR', ('access', '/overlay/file/below', os.F_OK)),
                           ('EISDIR', ('unlink', '/overlay/folder')),
                           ('EINVAL', ('access', '/overlay/file', 99)),
                           ('EINVAL', ('fopen', 'fopen', '/overlay/file', 'q')),
                           ('EBADF', ('close', 999)),
                           ('EBADF', ('ioctl-null', 999, SET_LEVEL))):
      with self.subTest(call=call):
        self.assert_error(expected, daemon.call(*call))

  def test_other_paths_are_left_alone(self):
    _, daemon, _ = self.play()
    outside = self.write('outside', 'text')
    for variant in self.VARIANTS:
      file = daemon.open(outside, os.O_RDONLY, variant)
      self.assertEqual(daemon.full('read', file, 9), (4, b'text'), variant)
      daemon.call('close', file)
    self.assertEqual(daemon.call('access', outside, os.R_OK), 0)
    for path in (PAL + '2', LOG_DEVICE + '/', '/proc/kmsg2', '/overlayer', '/overlayer/file', 'overlay/file',
                 '/dev/mu_pal_ioct'):
      with self.subTest(path=path):
        self.assertIn(-daemon.open(path, os.O_RDONLY), (errno.ENOENT, errno.ENOTDIR))
        self.assertIn(-daemon.call('access', path, os.F_OK), (errno.ENOENT, errno.ENOTDIR))
    self.assertEqual(daemon.call('unlink', outside), 0)
    self.assertFalse(os.path.exists(outside))

  def test_access_finds_the_devices(self):
    _, daemon, _ = self.play()
    for path in (PAL, LOG_DEVICE, KMSG):
      self.assertEqual(daemon.call('access', path, os.F_OK), 0, path)
      self.assertEqual(daemon.call('access', path, os.R_OK | os.W_OK), 0, path)

  def test_close_on_exec_is_as_was_asked_for(self):
    _, daemon, _ = self.play()
    for path in (PAL, LOG_DEVICE, KMSG):
      for flags, expected in ((0, 0), (os.O_CLOEXEC, 1)):
        self.assertEqual(daemon.call('cloexec', daemon.open(path, os.O_RDONLY | flags)), expected, (path, flags))
    for flags, expected in ((0, 0), (socket.SOCK_CLOEXEC, 1)):
      sock = daemon.call('socket', AF_NETLINK, SOCK_RAW | flags, CHANNEL)
      self.assertEqual(daemon.call('cloexec', sock), expected, flags)

  def test_what_was_opened_not_to_block_does_not(self):
    _, daemon, _ = self.play()
    self.assert_error('EAGAIN', daemon.call('read', daemon.open(KMSG, os.O_RDONLY | os.O_NONBLOCK), 9))
    sock = daemon.call('socket', AF_NETLINK, SOCK_RAW | socket.SOCK_NONBLOCK, CHANNEL)
    self.assertEqual(daemon.call('bind-netlink', sock, 5, 12, 0), 0)
    self.assert_error('EAGAIN', daemon.call('recvfrom', sock, 9, 0))

  def test_descriptors_may_be_the_standard_ones(self):
    _, daemon, _ = self.play()
    for descriptor in (0, 1, 2):
      self.assertEqual(daemon.call('close', descriptor), 0)
    self.assertEqual(daemon.open(PAL), 0)
    self.assertEqual(daemon.open(LOG_DEVICE), 1)
    self.assertEqual(daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL), 2)
    self.assertEqual(daemon.ioctl(0, DESTINATION, header(0, destination=7))[0], 0)
    self.assertEqual(daemon.ioctl(1, SET_LEVEL, bytes(10) + struct.pack('=HBBB', 3, 1, 1, 1) + bytes(241))[0], 0)
    self.assertEqual(daemon.call('bind-netlink', 2, 7, 12, 0), 0)
    self.assertEqual(daemon.configure(SET, 1, 1, 3, 1000)[0], 0)

  def test_calls_leave_no_descriptors_behind(self):
    _, daemon, _ = self.play()
    lowest = daemon.open('/dev/null', os.O_RDONLY)
    daemon.call('close', lowest)
    for _ in range(20):
      self.assertEqual(daemon.configure(SET, 1, 1, 3, 1000)[0], 0)
      self.assertEqual(daemon.configure(6)[0], -errno.EINVAL)
      self.assertEqual(daemon.set_level(1, 1, 1)[0], 0)
      daemon.open('/overlay/missing', os.O_RDONLY)
      sock = daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)
      self.assert_error('EINVAL', daemon.call('bind-netlink', sock, 5, 0, 0))
      self.assertEqual(daemon.call('close', sock), 0)
    self.assertEqual(daemon.open('/dev/null', os.O_RDONLY), lowest)

  def test_duplicates_are_the_device_too(self):
    _, daemon, control = self.play()
    file = daemon.open(PAL)
    copies = [daemon.call('dup', file), daemon.call('dup2', file, 0), daemon.call('dup2', file, 50)]
    daemon.call('close', file)
    for copy in copies:
      self.assertEqual(daemon.ioctl(copy, DESTINATION, header(0, destination=copy + 1))[0], 0)
      self.assertEqual(control.status()['channel']['destination'], copy + 1)
      daemon.call('close', copy)
    sock = daemon.channel()
    copy = daemon.call('dup', sock)
    daemon.call('close', sock)
    control.do('event 1')
    self.assertEqual(daemon.receive(copy), datagram(1))
    self.assertTrue(control.status()['channel']['bound'])
    daemon.call('close', copy)

  def test_a_forked_child_has_the_devices(self):
    sim, daemon, control = self.play()
    file, sock = daemon.open(PAL), daemon.channel()
    self.assertEqual(daemon.call('fork'), 0)  # the child's answer
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(0, destination=9))[0], 0)
    self.assertEqual(control.status()['channel']['destination'], 9)
    self.assertEqual(daemon.pal(DESTINATION, header(0, destination=sim.process.pid))[0], 0)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertEqual(daemon.set_level(1, 1, 1)[0], 0)
    daemon.end(42)
    self.assertEqual(daemon.answer()[0], 42)
    control.do('event 2')
    self.assertEqual(daemon.receive(sock), datagram(2))
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(0, destination=8))[0], 0)
    self.assertEqual(control.status()['channel']['destination'], 8)

  def test_an_executed_program_has_the_devices(self):
    _, daemon, control = self.play()
    file, sock = daemon.open(PAL), daemon.channel()
    daemon.talk.sendall(b'exec\n')
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(0, destination=9))[0], 0)
    self.assertEqual(daemon.pal(DESTINATION, header(0, destination=daemon.call('getppid')))[0], 0)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertGreaterEqual(daemon.open(KMSG, os.O_RDONLY), 0)

  def test_threads_have_the_devices(self):
    _, daemon, control = self.play()
    file = daemon.call('thread', 'open', 'open', PAL, os.O_RDWR)
    self.assertEqual(daemon.call('thread', 'ioctl', file, DESTINATION, header(0, destination=9).hex()), 0)
    sock = daemon.call('thread', 'socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    self.assertEqual(daemon.call('thread', 'bind-netlink', sock, 9, 12, 0), 0)
    control.do('event 1')
    self.assertEqual(daemon.full('thread', 'recvfrom', sock, 99, 0), (24, datagram(1)))

  def test_other_ioctls_are_left_alone(self):
    _, daemon, _ = self.play()
    self.assert_error('ENOTTY', daemon.call('ioctl-null', daemon.open('/dev/null', os.O_RDWR), SET_LEVEL))
    self.assert_error('ENOTTY', daemon.call('ioctl-none', daemon.open('/dev/null', os.O_RDWR), 0x4301))
    file = daemon.open(self.write('four', 'four'), os.O_RDONLY)
    self.assertEqual(daemon.call('fionread', file), 4)
    self.assertGreaterEqual(daemon.call('fionread', daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)), 0)

  def test_other_sockets_are_left_alone(self):
    _, daemon, _ = self.play()
    route = daemon.call('socket', AF_NETLINK, SOCK_RAW, 0)
    self.assertGreaterEqual(route, 0)
    self.assert_error('EINVAL', daemon.call('bind-netlink', route, 0, 11, 0))
    self.assertEqual(daemon.call('bind-netlink', route, 0, 12, 0), 0)
    self.assert_error('EPROTONOSUPPORT', daemon.call('socket', AF_NETLINK, SOCK_RAW, 31))
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('bind-inet', udp, '7f000001', 0), 0)
    self.assert_error('EAFNOSUPPORT', daemon.call('socket', 99, SOCK_RAW, CHANNEL))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
      receiver.bind(('127.0.0.1', 0))
      receiver.settimeout(HANG_S)
      self.assertEqual(daemon.call('sendto', udp, '7f000001', receiver.getsockname()[1], '0102'), 2)
      self.assertEqual(receiver.recv(9), b'\1\2')

  def test_without_an_argument_a_device_refuses(self):
    _, daemon, control = self.play()
    for path, request in ((PAL, CONFIGURE), (PAL, DESTINATION), (LOG_DEVICE, SET_LEVEL)):
      file = daemon.open(path)
      self.assertIn(-daemon.call('ioctl-null', file, request), (errno.EFAULT, errno.EINVAL), (path, request))
    self.assertEqual(control.status()['channel']['destination'], 0)

  def test_a_device_that_was_opened_is_none_for_another_request(self):
    _, daemon, _ = self.play()
    for path, requests in ((PAL, (0x4300, 0x4303, 0x43ff, 0x4201)), (LOG_DEVICE, (0x4301, 0x4302))):
      file = daemon.open(path)
      for request in requests:
        with self.subTest(path=path, request=hex(request)):
          self.assertIn(-daemon.ioctl(file, request, bytes(256))[0], (errno.EINVAL, errno.ENOTTY))

  def test_select_waits_as_it_does(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    other = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.full('select', sock, other, 0), (0, b'\0'))
    before = time.monotonic()
    self.assertEqual(daemon.full('select', sock, other, 200), (0, b'\0'))
    self.assertGreaterEqual(time.monotonic() - before, 0.2)
    control.do('event 1')
    self.assertEqual(daemon.full('select', sock, other, -1), (1, b'\1'))
    self.assertEqual(daemon.full('select', other, sock, -1), (1, b'\2'))
    self.assertEqual(daemon.call('close', other), 0)
    self.assert_error('EBADF', daemon.full('select', sock, other, -1)[0])


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

  def test_payloads_of_nothing_and_of_the_most(self):
    _, daemon, control = self.play()
    file = daemon.open(PAL)
    for number, length in enumerate((0, 1, 32, 1000, 4071, 4072)):
      for edge in ((), ('start',)):
        with self.subTest(length=length, edge=edge):
          argument = header(length, destination=1 + number) + bytes(i % 251 for i in range(length))
          self.assertEqual(daemon.ioctl(file, DESTINATION, argument, *edge), (0, argument))
          self.assertEqual(control.status()['channel']['destination'], 1 + number)

  def test_what_is_no_event_message_is_refused_and_left_alone(self):
    _, daemon, control = self.play()
    file = daemon.open(PAL)
    for length in (0, 1, 31):
      argument = header(length) + bytes(length)
      self.assertEqual(daemon.ioctl(file, CONFIGURE, argument), (-errno.EINVAL, argument), length)
    for operation, event_type in ((6, 1), (0xffffffff, 1), (COUNTER_GET, TYPES), (COUNTER_CLEAR, TYPES), (SET, TYPES),
                                  (GET, TYPES), (SET, 0xffffffff), (GET, 0xffffffff), (GET, 0x80000000)):
      with self.subTest(operation=operation, event_type=event_type):
        result, numbers = daemon.configure(operation, event_type, 1, 2, 3)
        self.assertEqual(result, -errno.EINVAL)
        self.assertEqual(numbers[:6], (operation, event_type, 0, 1, 2, 3))
    self.assertFalse(any(one['suppression'] for one in control.status()['events']))

  def test_periods_are_kept_in_units_of_ten(self):
    _, daemon, control = self.play()
    for given, kept in ((0, 10), (5, 10), (10, 10), (11, 10), (19, 10), (20, 20), (25, 20), (1000, 1000), (1009, 1000),
                        (0xffffffff, 0xfffffffa)):
      daemon.configure(SET, 3, 7, 4, given)
      self.assertEqual(daemon.configure(GET, 3)[1][3:6], (1, 4, kept), given)
      one = control.status()['events'][3]
      self.assertEqual((one['suppression'], one['threshold'], one['period_ms']), (True, 4, kept))
    daemon.configure(SET, 3, 0, 0, 0)
    self.assertEqual(daemon.configure(GET, 3)[1][3:6], (0, 0, 10))

  def test_counters_are_read_and_cleared(self):
    _, daemon, control = self.play()
    daemon.channel()
    control.do('event 1 5 times', 'event 2 3 times')
    self.assertEqual(daemon.configure(COUNTER_GET, 1), (0, (COUNTER_GET, 1, 0, 0, 0, 0, 5, 0)))
    self.assertEqual(daemon.configure(COUNTER_GET, 1, clear=1), (0, (COUNTER_GET, 1, 0, 0, 0, 0, 5, 1)))
    self.assertEqual((daemon.count(1), daemon.count(2)), (0, 3))
    self.assertEqual(daemon.configure(COUNTER_CLEAR, 2)[0], 0)
    self.assertEqual(daemon.count(2), 0)
    control.do('event 1', 'event 2', 'event 19')
    self.assertEqual(daemon.configure(CLEAR_ALL)[0], 0)
    self.assertEqual([daemon.count(one) for one in range(TYPES)], [0] * TYPES)

  def test_two_threads_get_each_its_own_answers(self):
    _, daemon, _ = self.play()
    self.assertEqual(daemon.call('hammer', 2, 300, -1), 0)

  def test_eight_threads_share_a_descriptor(self):
    _, daemon, _ = self.play()
    self.assertEqual(daemon.call('hammer', 8, 60, daemon.open(PAL)), 0)

  def test_suppression_is_the_stated_one(self):
    """Random calls of all operations and events, against the rules told anew; windows that do not end meanwhile."""
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
    sim.until(lambda: sim.output() == self.table(model), 'the table')

  @staticmethod
  def table(model):
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

  def test_a_suppressed_type_is_released_when_its_window_ends(self):
    sim, daemon, control = self.play('--verbose')
    sock = daemon.channel()
    self.assertEqual(daemon.configure(SET, 4, 1, 2, 10)[0], 0)
    # A window may end between them, but not twice as fast as an event comes.
    sim.until(lambda: control.ask('event storm 3 times') and control.status()['events'][4]['suppressed'], 'suppression')
    sim.until(lambda: not control.status()['events'][4]['suppressed'], 'release')
    while daemon.has_more(sock):
      daemon.receive(sock)
    # A poll releases it, and one more without an event between begins a new window.
    control.do('every 1.2s event storm')
    self.assertEqual(daemon.receive(sock), datagram(4))
    self.assertRegex(sim.errors(), r'event 4: suppressed')
    self.assertRegex(sim.errors(), r'event 4: released')

  def test_the_number_of_types_is_an_option(self):
    for number in (1, 3, 200):
      with self.subTest(number=number):
        sim, daemon, control = self.play('--events', str(number))
        self.assertEqual([one['type'] for one in control.status()['events']], list(range(number)))
        self.assertEqual(daemon.configure(GET, number - 1)[0], 0)
        self.assertEqual(daemon.configure(GET, number)[0], -errno.EINVAL)
        self.assertRegex(control.ask('event %d' % number)[0], '^error: ')
        daemon.end()
        sim.wait()


class LogDevice(SimTest):

  def test_settings_are_kept_by_module(self):
    _, daemon, control = self.play()
    self.assertEqual(control.status()['modules'], [])
    for module, setting, value in ((5, 1, 3), (5, 0, 7), (0, 2, 0), (255, 1, 0), (255, 2, 0), (255, 2, 1)):
      self.assertEqual(daemon.set_level(module, setting, value)[0], 0)
    self.assertEqual(control.status()['modules'], [{'id': 0, 'enabled': False, 'print': 8, 'record': 8},
                                                   {'id': 5, 'enabled': True, 'print': 7, 'record': 3},
                                                   {'id': 255, 'enabled': True, 'print': 8, 'record': 0}])

  def test_the_message_is_left_as_it_was_and_so_is_what_is_beside_it(self):
    _, daemon, _ = self.play()
    block = bytes(10) + struct.pack('=HBBB', 3, 1, 1, 1) + bytes(241)
    file = daemon.open(LOG_DEVICE)
    for edge in ((), ('start',)):
      self.assertEqual(daemon.ioctl(file, SET_LEVEL, block, *edge), (0, block))

  def test_other_messages_are_refused(self):
    _, daemon, control = self.play()
    for module, setting, value, command in ((1, 1, 1, 0), (1, 1, 1, 2), (1, 1, 1, 4), (1, 1, 1, 0x300), (1, 3, 1, 3),
                                            (1, 255, 1, 3)):
      with self.subTest(command=command, setting=setting):
        self.assertEqual(daemon.set_level(module, setting, value, command)[0], -errno.EINVAL)
    self.assertEqual(control.status()['modules'], [])

  def test_the_record_level_decides_and_the_print_level_does_not(self):
    _, daemon, control = self.play()
    kmsg = daemon.open(KMSG, os.O_RDONLY | os.O_NONBLOCK)
    written = withheld = 0
    for record in range(9):
      daemon.set_level(7, 1, record)
      daemon.set_level(7, 0, 8 - record)
      for level in range(1, 9):
        control.do('kmsg 7 %d "r%d l%d"' % (level, record, level))
        if level <= record:
          daemon.full('select', kmsg, -1, -1)
          self.assertIn(b'r%d l%d' % (record, level), daemon.full('read', kmsg, 200)[1])
        written, withheld = written + (level <= record), withheld + (level > record)
        self.assertFalse(daemon.has_more(kmsg))
    self.assertEqual(control.status()['kmsg'], {'written': written, 'withheld': withheld, 'lost': 0})

  def test_a_disabled_module_is_silent_and_others_are_not(self):
    _, daemon, control = self.play()
    daemon.set_level(7, 2, 0)
    control.do('kmsg 7 1 "not this"', 'kmsg 8 8 "this"', 'kmsg "plain"', r'raw-kmsg "<jxlog-07:8:raw<jxlog>\n"')
    daemon.set_level(7, 2, 1)
    control.do('kmsg 7 8 "again"')
    got = daemon.read_to(daemon.open(KMSG, os.O_RDONLY), b'again<jxlog>\n')
    self.assertEqual([word in got for word in (b'not this', b':this<', b'plain', b'raw<', b'again')],
                     [False, True, True, True, True], got)
    self.assertEqual(control.status()['kmsg'], {'written': 4, 'withheld': 1, 'lost': 0})


class KernelLog(SimTest):

  def test_lines_have_the_form_of_the_kernel(self):
    _, daemon, control = self.play()
    for level in range(1, 9):
      control.do('kmsg %d %d "level %d"' % (90 + level, level, level))
    control.do('kmsg "plain \\" \\\\ end"')
    lines = daemon.read_to(daemon.open(KMSG, os.O_RDONLY), b' end\n').decode().split('\n')
    self.assertEqual(lines.pop(), '')
    self.assertEqual(len(lines), 9)
    last = 0.0
    for level, line in enumerate(lines, 1):
      form = re.fullmatch(r'<(\d)>\[( {0,4}\d+)\.(\d{6})\] (.*)', line)
      self.assertTrue(form and len(form[2]) >= 5, line)
      self.assertGreaterEqual(float(form[2] + '.' + form[3]), last)
      last = float(form[2] + '.' + form[3])
      if level < 9:
        self.assertEqual(int(form[1]), level - 1)
        self.assertRegex(form[4], r'^<jxlog-%02d.%d.level %d<jxlog>$' % (90 + level, level, level))
      else:
        self.assertEqual((form[1], form[4]), ('6', 'plain " \\ end'))

  def test_module_numbers_have_two_digits(self):
    _, daemon, control = self.play()
    control.do('kmsg 0 1 x', 'kmsg 5 1 x', 'kmsg 99 1 x', 'kmsg 05 1 x', 'kmsg end')
    got = daemon.read_to(daemon.open(KMSG, os.O_RDONLY), b'end\n')
    self.assertEqual(re.findall(rb'<jxlog-(.*?).1.x<jxlog>\n', got), [b'00', b'05', b'99', b'05'])

  def test_raw_bytes_are_those_and_no_others(self):
    _, daemon, control = self.play()
    kmsg = daemon.open(KMSG, os.O_RDONLY)
    control.do(r'raw-kmsg "<jxlog-0"')
    self.assertEqual(daemon.full('read', kmsg, 99), (8, b'<jxlog-0'))
    control.do(r'raw-kmsg "5:6:up<jxlog>\n\x00\xfF\x7f\\\" #"')
    self.assertEqual(daemon.read_to(kmsg, b'#'), b'5:6:up<jxlog>\n\0\xff\x7f\\" #')

  def test_what_came_before_the_reader_is_kept(self):
    _, daemon, control = self.play()
    control.do(*('kmsg "line %d"' % number for number in range(100)))
    file = daemon.open(KMSG, os.O_RDONLY)
    got = b''
    while got.count(b'\n') < 100:
      got += daemon.full('read', file, 512)[1]
    self.assertEqual(re.findall(rb'line (\d+)\n', got), [b'%d' % number for number in range(100)])

  def drain(self, daemon, file, last):
    got = b''
    while last not in got:
      daemon.full('select', file, -1, -1)
      got += daemon.full('read', file, 8000)[1]
    return got

  def test_the_backlog_is_bounded_and_loses_its_oldest_whole_lines(self):
    sim, daemon, control = self.play()
    text = 'x' * 980
    control.do(*('kmsg "%04d %s"' % (number, text) for number in range(400)))
    lost = control.status()['kmsg']['lost']
    got = self.drain(daemon, daemon.open(KMSG, os.O_RDONLY), b'0399 ' + text.encode() + b'\n')
    numbers = [int(one) for one in re.findall(rb'^<6>\[ *\d+\.\d{6}\] (\d{4}) x{980}$', got, re.MULTILINE)]
    self.assertEqual(len(numbers), got.count(b'\n'))
    self.assertEqual(numbers, list(range(400 - len(numbers), 400)))
    self.assertEqual(lost, 400 - len(numbers))
    self.assertLessEqual(len(got), 256 * 1024)
    self.assertGreater(len(got), 200 * 1024)
    self.assertEqual(len(re.findall('tarn-sim: .*lost', sim.errors())), 1, sim.errors())

  def test_a_reader_that_does_not_read_stops_nobody(self):
    _, daemon, control = self.play()
    file = daemon.open(KMSG, os.O_RDONLY)
    text = 'x' * 980
    control.do(*('kmsg "%04d %s"' % (number, text) for number in range(1500)))
    state = control.status()['kmsg']
    self.assertGreater(state['lost'], 0)
    got = self.drain(daemon, file, b'1499 ' + text.encode() + b'\n')
    numbers = [int(one) for one in re.findall(rb'^<6>\[ *\d+\.\d{6}\] (\d{4}) x{980}$', got, re.MULTILINE)]
    self.assertEqual(len(numbers), got.count(b'\n'), 'lines are whole')
    self.assertEqual(numbers, sorted(set(numbers)))
    self.assertEqual(len(numbers) + state['lost'], 1500)

  def test_readers_share_the_stream(self):
    sim, daemon, control = self.play()
    files = [daemon.open(KMSG, os.O_RDONLY | os.O_NONBLOCK) for _ in range(3)]
    control.do(*('kmsg "line %03d"' % number for number in range(200)))
    parts = [b''] * 3

    def read_all():
      for number, file in enumerate(files):
        parts[number] += daemon.full('read', file, 8000)[1]
      return sum(part.count(b'\n') for part in parts) >= 200

    sim.until(read_all, 'all lines')
    got = b''.join(parts)
    self.assertEqual(sorted(re.findall(rb'line (\d+)\n', got)), [b'%03d' % number for number in range(200)])

  def test_a_reader_may_go_and_another_come(self):
    _, daemon, control = self.play()
    for number in range(3):
      file = daemon.open(KMSG, os.O_RDONLY)
      control.do('kmsg "line %d"' % number)
      self.assertIn(b'line %d\n' % number, daemon.full('read', file, 999)[1])
      daemon.call('close', file)


class Channel(SimTest):

  def test_datagrams_to_the_byte(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for line, expected in (('event 7 device 2 data 010203', datagram(7, 2, b'\1\2\3')),
                           ('event 7 device 2 data 01 02 03', datagram(7, 2, b'\1\2\3')),
                           ('event link-up', datagram(1)), ('event link-down port 65535', datagram(2, 65535)),
                           ('event traffic device 0', datagram(3)), ('event storm', datagram(4)),
                           (r'event 19 text "a\x00\n\"\\ #"', datagram(19, 0, b'a\0\n"\\ #')),
                           ('event 1 text word', datagram(1, 0, b'word')), ('event 1 text ""', datagram(1)),
                           ('event 0 data aAfF', datagram(0, 0, b'\xaa\xff')),
                           ('event 1 data ' + '5a' * 2024, datagram(1, 0, b'Z' * 2024)),
                           ('raw-datagram 01', b'\1'), ('raw-datagram ' + '00 ' * 23, bytes(23)),
                           ('raw-datagram ' + '11' * 24, b'\x11' * 24), ('raw-datagram ' + '22' * 2048, b'\x22' * 2048),
                           ('raw-datagram ' + '33' * 3000, b'\x33' * 3000)):
      with self.subTest(line=line[:40]):
        control.do(line)
        self.assertEqual(daemon.receive(sock), expected)
    self.assertFalse(daemon.has_more(sock))

  def test_the_worked_datagram(self):
    if sys.byteorder == 'little':
      _, daemon, control = self.play()
      sock = daemon.channel()
      control.do('event 7 device 2 data 010203')
      self.assertEqual(daemon.receive(sock).hex(' '), '00 00 03 00 00 00 07 00 00 00 02 00 00 00 00 00 '
                                                      '00 00 00 00 00 00 00 00 01 02 03')

  def test_a_small_buffer_gets_the_beginning_and_the_rest_is_gone(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('raw-datagram ' + '44' * 2049, 'event 1')
    self.assertEqual(daemon.full('recvfrom', sock, 2048, 0), (2048, b'\x44' * 2048))
    self.assertEqual(daemon.full('recvfrom', sock, 2048, 0), (24, datagram(1)))

  def test_the_order_is_that_of_the_commands(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for first in range(0, 600, 60):
      control.do(*('event %d device %d' % (number % TYPES, number) for number in range(first, first + 60)))
      for number in range(first, first + 60):
        self.assertEqual(daemon.receive(sock), datagram(number % TYPES, number))

  def test_a_port_belongs_to_one_socket_at_a_time(self):
    _, daemon, control = self.play()
    first = daemon.channel()
    second = daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    port = daemon.call('getppid')
    self.assert_error('EADDRINUSE', daemon.call('bind-netlink', second, port, 12, 0))
    control.do('event 1')
    self.assertEqual(daemon.receive(first), datagram(1))
    daemon.call('close', first)
    self.assertEqual(daemon.call('bind-netlink', second, port, 12, 0), 0)
    control.do('event 2')
    self.assertEqual(daemon.receive(second), datagram(2))

  def test_an_address_must_be_whole(self):
    _, daemon, control = self.play()
    sock = daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    for length in (0, 1, 2, 8, 11):
      self.assert_error('EINVAL', daemon.call('bind-netlink', sock, 5, length, 0))
    self.assertFalse(control.status()['channel']['bound'])
    self.assertEqual(daemon.call('bind-netlink', sock, 5, 12, 0), 0)

  def test_port_0_is_a_free_one_and_a_bound_socket_stays(self):
    _, daemon, control = self.play()
    socks = [daemon.call('socket', AF_NETLINK, kind, CHANNEL) for kind in (SOCK_RAW, socket.SOCK_DGRAM)]
    for sock in socks:
      self.assertEqual(daemon.call('bind-netlink', sock, 0, 12, 0), 0)
    self.assertEqual(daemon.call('bind-netlink', daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL), 5, 12, 0), 0)
    self.assert_error('EINVAL', daemon.call('bind-netlink', socks[0], 6, 12, 0))
    self.assertFalse(control.status()['channel']['bound'])

  def test_events_go_to_the_port_that_the_driver_was_told(self):
    sim, daemon, control = self.play()
    self.assertEqual(daemon.call('getppid'), sim.process.pid)
    sock = daemon.channel()
    other = daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    self.assertEqual(daemon.call('bind-netlink', other, 77, 12, 0), 0)
    self.assertEqual(daemon.pal(DESTINATION, header(0, destination=77))[0], 0)
    control.do('event 1')
    self.assertEqual(daemon.receive(other), datagram(1))
    self.assertFalse(daemon.has_more(sock))
    self.assertEqual(daemon.pal(DESTINATION, header(0, destination=78))[0], 0)
    before = control.status()['channel']
    control.do('event 2 3 times', 'raw-datagram 00')
    after = control.status()['channel']
    self.assertEqual((after['sent'] - before['sent'], after['no_listener'] - before['no_listener']), (0, 4))
    self.assertEqual([daemon.has_more(one) for one in (sock, other)], [False, False])

  def test_without_a_listener_events_are_counted(self):
    _, daemon, control = self.play()
    control.do('event 1 3 times')
    channel = control.status()['channel']
    self.assertEqual(channel, {'bound': False, 'port': 0, 'destination': 0, 'sent': 0, 'lost': 0, 'no_listener': 3})
    self.assertEqual(daemon.count(1), 3)
    sock = daemon.channel()
    self.assertFalse(daemon.has_more(sock))

  def test_a_full_socket_loses_and_goes_on(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()
    payload = '00' * 1000
    for _ in range(4):
      control.do('event 1 data %s 500 times' % payload)
    sim.until(lambda: control.status()['script']['pending'] == 0, 'the last event')
    channel = control.status()['channel']
    self.assertGreater(channel['lost'], 0)
    self.assertEqual(channel['sent'] + channel['lost'], 2000)
    received = 0
    while daemon.has_more(sock):
      self.assertEqual(daemon.receive(sock), datagram(1, 0, bytes(1000)))
      received += 1
    self.assertEqual(received, channel['sent'])
    control.do('event 2')
    self.assertEqual(daemon.receive(sock), datagram(2))
    self.assertEqual(len(re.findall('tarn-sim: .*(?:full|lost)', sim.errors())), 1, sim.errors())

  def test_a_closed_channel_is_gone(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()
    self.assertEqual(control.status()['channel']['port'], daemon.call('getppid'))
    daemon.call('close', sock)
    sim.until(lambda: not control.status()['channel']['bound'], 'the end of the channel')
    control.do('event 1')
    self.assertEqual(control.status()['channel']['no_listener'], 1)


class Script(SimTest):

  def sequence(self, script, count):
    """The first datagrams that a script sends to a daemon that binds the channel first of all, and when they came."""
    sim = self.sim(script=script)
    daemon = sim.meet()
    before = time.monotonic()
    sock = daemon.channel()
    received = []
    for _ in range(count):
      received.append((daemon.receive(sock), time.monotonic() - before))
    return received, sim.control()

  def whole_sequence(self, script, count):
    """The same of a script that ends, and sends no more than that."""
    received, control = self.sequence(script, count)
    self.assertEqual(control.status()['channel']['sent'], count)
    self.assertEqual(control.status()['script']['pending'], 0)
    return received, control

  def assert_never_early(self, received, due_ms):
    self.assertEqual(len(received), len(due_ms))
    for (_, came_s), due in zip(received, due_ms):
      self.assertGreaterEqual(came_s + 0.02, due / 1000)  # two ticks

  def test_each_way_to_say_when(self):
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

  def test_every_without_an_end_goes_on(self):
    received, control = self.sequence('await channel\nevery 10ms event 1\nat 500ms say done\n', 20)
    self.assert_never_early(received, [10 * number for number in range(20)])
    self.assertGreater(control.status()['script']['pending'], 0)

  def test_times_count_from_the_last_await(self):
    received, _ = self.whole_sequence('at 300ms say "later"\nawait channel\nat 50ms event 1\n', 1)
    self.assert_never_early(received, [50])

  def test_await_waits_for_the_channel(self):
    sim = self.sim(script='at 0ms kmsg first\nawait channel\nkmsg second\n')
    daemon = sim.meet()
    file = daemon.open(KMSG, os.O_RDONLY)
    self.assertIn(b'first', daemon.full('read', file, 999)[1])
    self.assertEqual(daemon.full('select', file, -1, 100)[0], 0)
    daemon.channel()
    self.assertIn(b'second', daemon.full('read', file, 999)[1])

  def test_names_hold_for_the_lines_that_follow(self):
    received, control = self.whole_sequence('name 9 door\nawait channel\nevent door port 4 data 01\nevent 9\n', 2)
    self.assertEqual([data for data, _ in received], [datagram(9, 4, b'\1'), datagram(9)])
    self.assertEqual([one['name'] for one in control.status()['events']],
                     ['', 'link-up', 'link-down', 'traffic', 'storm'] + [''] * 4 + ['door'] + [''] * 10)

  def test_each_kind_of_call_can_fail(self):
    _, daemon, control = self.play()
    expected = {'ioctl': errno.EIO, 'open': errno.ENODEV, 'bind': errno.EADDRINUSE, 'socket': errno.EPROTONOSUPPORT}
    file, sock = daemon.open(PAL), daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)
    calls = {'ioctl': lambda: daemon.ioctl(file, DESTINATION, header(0, destination=1))[0],
             'open': lambda: daemon.open(LOG_DEVICE),
             'bind': lambda: daemon.call('bind-netlink', sock, 5, 12, 0),
             'socket': lambda: daemon.call('socket', AF_NETLINK, SOCK_RAW, CHANNEL)}
    for kind, call in calls.items():
      with self.subTest(kind=kind):
        control.do('fail %s 2 times' % kind)
        self.assertEqual(control.status()['failures'][kind], 2)
        self.assertEqual(call(), -expected[kind])
        self.assertEqual(control.status()['failures'], {**dict.fromkeys(expected, 0), kind: 1})
        self.assertEqual(call(), -expected[kind])
        self.assertGreaterEqual(call(), 0)
        self.assertEqual(control.status()['failures'][kind], 0)
    control.do('fail open 1 times')
    self.assertGreaterEqual(daemon.open('/dev/null'), 0)
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertEqual(control.status()['failures']['open'], 1)

  def test_say_dump_and_stop(self):
    sim = self.sim('--events', '1', script='say "hello there"\ndump\nat 10ms stop\n')
    self.assertEqual(sim.wait(), 128 + signal.SIGTERM)
    self.assertIn('tarn-sim: hello there\n', sim.errors())
    self.assertEqual(sim.output().count('Suprs-en'), 1)
    self.assertEqual(sim.output().count('\n'), 5)

  def test_faults_are_told_with_their_place_and_nothing_is_started(self):
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
        started = os.path.join(self.folder, 'started')
        shutil.rmtree(started, ignore_errors=True)
        path = self.write('bad.sim', 'say fine\n\n' + line + '\n')
        status, output, errors = self.bare('--no-namespace', '--root', self.root, '--script', path, '--', 'mkdir',
                                           started)
        self.assertEqual((status, output), (2, ''))
        self.assertRegex(errors, r'^tarn-sim: %s:3:%d: .' % (re.escape(path), column))
        self.assertFalse(os.path.exists(started))

  def test_a_script_that_cannot_be_read(self):
    for path in (os.path.join(self.folder, 'missing'), self.folder):
      status, _, errors = self.bare('--script', path, '--', 'true')
      self.assertEqual(status, 2)
      self.assertRegex(errors, '^tarn-sim: .*%s' % re.escape(path))

  def test_a_last_line_needs_no_end(self):
    sim = self.sim(script='say one\r\nsay two')
    sim.meet()
    sim.until(lambda: 'tarn-sim: two\n' in sim.errors(), 'the last line')


class ControlSocket(SimTest):

  def test_status_field_by_field(self):
    sim, daemon, control = self.play(script='name 6 door\nat 10m say late\n')
    daemon.channel()
    daemon.configure(SET, 6, 1, 2, LONG_MS)
    daemon.set_level(9, 1, 4)
    control.do('event 6 4 times', 'event 0', 'kmsg 9 5 no', 'kmsg 9 4 yes', 'fail bind 3 times')
    state = control.status()
    self.assertEqual(list(state), ['time_ms', 'daemon', 'channel', 'events', 'modules', 'kmsg', 'collector', 'script',
                                   'failures'])
    port = sim.process.pid
    self.assertEqual(state['daemon'], {'pid': daemon.call('getpid'), 'running': True})
    self.assertEqual(state['channel'], {'bound': True, 'port': port, 'destination': port, 'sent': 3, 'lost': 0,
                                        'no_listener': 0})
    self.assertEqual(state['events'][6], {'type': 6, 'name': 'door', 'count': 2, 'suppression': True,
                                          'suppressed': True, 'suppressed_count': 2, 'threshold': 2,
                                          'period_ms': LONG_MS})
    self.assertEqual(state['modules'], [{'id': 9, 'enabled': True, 'print': 8, 'record': 4}])
    self.assertEqual(state['kmsg'], {'written': 1, 'withheld': 1, 'lost': 0})
    self.assertEqual((state['collector']['how'], state['collector']['received']), ('shim', 0))
    self.assertEqual(state['script']['pending'], 1)
    self.assertGreaterEqual(state['script']['done'], 5)
    self.assertEqual(state['failures'], {'ioctl': 0, 'open': 0, 'bind': 3, 'socket': 0})
    sim.until(lambda: control.status()['time_ms'] > state['time_ms'], 'a later time')

  def test_a_fault_is_told_and_the_next_line_is_done(self):
    sim, _, control = self.play()
    for line in ('bogus', 'event 20', 'kmsg "open', 'at 15ms event 1', 'await channel', 'status now', 'at 10ms status',
                 '\x01\xff', 'event 1 \x00'):
      answer = control.ask(line)
      self.assertEqual(len(answer), 1)
      self.assertRegex(answer[0], '^error: .')
    control.do('', '   ', '# nothing', 'say fine')
    sim.until(lambda: 'tarn-sim: fine\n' in sim.errors(), 'the line')

  def test_times_count_from_the_arrival(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    before = time.monotonic()
    control.do('at 100ms event 1', 'every 50ms event 2 3 times')
    received = [daemon.receive(sock) for _ in range(4)]
    self.assertEqual(sorted(received), sorted([datagram(1)] + [datagram(2)] * 3))
    self.assertGreaterEqual(time.monotonic() - before + 0.02, 0.1)

  def test_lines_may_come_in_pieces_and_many_at_once(self):
    _, daemon, control = self.play()
    sock = daemon.channel()
    for byte in b'event 1\n':
      control.sock.sendall(bytes([byte]))
    self.assertEqual(control.answer(), ['ok'])
    control.sock.sendall(b'event 2\nbogus\nevent 3\nsta')
    self.assertEqual(control.answer(), ['ok'])
    self.assertRegex(control.answer()[0], '^error')
    self.assertEqual(control.answer(), ['ok'])
    control.sock.sendall(b'tus\n')
    self.assertEqual(control.answer()[-1], 'ok')
    self.assertEqual([daemon.receive(sock) for _ in range(3)], [datagram(1), datagram(2), datagram(3)])

  def assert_small(self, sim):
    with open('/proc/%d/statm' % sim.process.pid, encoding='ascii') as sizes:
      self.assertLess(int(sizes.read().split()[1]) * os.sysconf('SC_PAGESIZE'), 128 << 20)

  def test_a_line_without_an_end_is_bounded_and_disturbs_nobody(self):
    sim, _, control = self.play()
    flood = sim.control()
    flood.sock.settimeout(2)
    try:
      for _ in range(3072):
        flood.sock.sendall(b'x' * 65536)
    except (socket.timeout, OSError):
      pass
    control.do('say fine')
    self.assert_small(sim)

  def test_a_line_too_long_is_refused(self):
    sim, _, control = self.play()
    control.sock.sendall(b'say ' + b'x' * (1 << 20) + b'\n')
    self.assertRegex(control.answer()[0], '^error: ')
    self.assertNotIn('xxxx', sim.errors())

  def test_a_client_that_does_not_read_disturbs_nobody(self):
    sim, _, control = self.play()
    deaf = sim.control()
    deaf.sock.settimeout(2)
    try:
      for _ in range(20000):
        deaf.sock.sendall(b'status\n' * 10)
    except (socket.timeout, OSError):
      pass
    control.do('say fine')
    self.assertTrue(control.status()['daemon']['running'])
    self.assert_small(sim)

  def test_clients_that_go_disturb_nobody(self):
    sim, _, control = self.play()
    for line in (b'', b'status\n', b'half', b'status\n' * 50):
      client = Control(os.path.join(self.root, 'control'))
      client.sock.sendall(line)
      client.close()
    control.do('say fine')
    self.assertIsNone(sim.process.poll())

  def test_many_clients_at_once(self):
    sim, _, _ = self.play()
    clients = [sim.control() for _ in range(30)]
    for client in clients:
      client.sock.sendall(b'status\n')
    for client in reversed(clients):
      self.assertEqual(client.answer()[-1], 'ok')

  def test_it_may_be_elsewhere(self):
    path = os.path.join(self.folder, 'elsewhere')
    sim = self.sim('--control', path)
    daemon = sim.meet()
    client = Control(path)
    self.addCleanup(client.close)
    client.do('say fine')
    self.assertFalse(os.path.exists(os.path.join(self.root, 'control')))
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    self.assertFalse(os.path.exists(path))


class Ends(SimTest):

  def test_the_exit_status_is_the_daemons(self):
    for status in (0, 1, 42, 255):
      self.assertEqual(self.bare('--no-namespace', '--', 'sh', '-c', 'exit %d' % status)[0], status)
    for number in (signal.SIGTERM, signal.SIGKILL, signal.SIGSEGV):
      code, _, errors = self.bare('--no-namespace', '--', 'sh', '-c', 'kill -%d $$' % number)
      self.assertEqual(code, 128 + number)
      self.assertRegex(errors, r'tarn-sim: .*sh .*%d' % number)

  def test_a_daemon_that_cannot_be_executed(self):
    self.assertEqual(self.bare('--no-namespace', '--', os.path.join(self.folder, 'missing'))[0], 127)
    self.assertEqual(self.bare('--no-namespace', '--', 'no-such-program-here')[0], 127)
    self.assertEqual(self.bare('--no-namespace', '--', self.write('plain', 'text'))[0], 126)
    self.assertEqual(self.bare('--no-namespace', '--', self.folder)[0], 126)

  def test_wrong_use(self):
    for args in ((), ('--',), ('--bogus', '--', 'true'), ('--root', '--', 'true'), ('--events', '0', '--', 'true'),
                 ('--events', 'x', '--', 'true'), ('--events', '-1', '--', 'true'), ('--collector', '0', '--', 'true'),
                 ('--collector', '65536', '--', 'true'), ('--collector', 'x', '--', 'true'),
                 ('--root', '/proc/none', '--', 'true'), ('--root', '/dev/null', '--', 'true')):
      with self.subTest(args=args):
        status, output, errors = self.bare(*args)
        self.assertEqual((status, output), (2, ''), errors)
        self.assertRegex(errors, '^tarn-sim: .')

  def test_help_and_version(self):
    status, text, errors = self.bare('--help')
    self.assertEqual((status, errors), (0, ''))
    with open(os.path.join(SOURCES, 'sim', 'tarn-sim.1'), encoding='ascii') as page:
      paged = page.read().replace('\\-', '-')
    paged = paged[paged.index('.SH OPTIONS'):paged.index('.SH SCRIPTS')]
    self.assertEqual(set(re.findall(r'--[a-z]+(?:-[a-z]+)*', paged)), set(re.findall(r'--[a-z]+(?:-[a-z]+)*', text)))
    self.assertRegex(self.bare('--version')[1], r'\d+\.\d+')

  def test_the_daemon_ends_when_the_launcher_dies(self):
    sim, daemon, _ = self.play()
    sim.process.kill()
    sim.wait()
    self.assertEqual(daemon.lines.read(), b'')  # SIGTERM has ended it

  def test_a_daemon_that_stays_is_told_once_that_the_kernel_is_gone(self):
    sim, daemon, _ = self.play()
    sock, file = daemon.channel(), daemon.open(PAL)
    self.assertEqual(daemon.call('ignore', signal.SIGTERM), 0)
    sim.process.kill()
    sim.wait()
    self.assertEqual(daemon.full('select', sock, -1, 100)[0], 0)
    self.assertEqual(daemon.ioctl(file, DESTINATION, header(0))[0], -errno.ENODEV)
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.full('select', sock, udp, 0)[0], 0)
    self.assertEqual(len(re.findall('simulated kernel', sim.errors())), 1, sim.errors())
    daemon.end()

  def test_signals_are_passed_on_and_the_second_one_kills(self):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
      with self.subTest(number=number):
        sim, daemon, _ = self.play()
        self.assertEqual(daemon.call('catch', number), 0)
        sim.process.send_signal(number)
        sim.until(lambda d=daemon: d.call('signals') == 1, 'the signal')
        sim.process.send_signal(number)
        self.assertEqual(sim.wait(), 128 + signal.SIGKILL)

  def test_the_terminals_interrupt_reaches_the_daemon_once(self):
    outer, inner = os.openpty()
    self.addCleanup(os.close, outer)

    def take_terminal():
      os.setsid()
      fcntl.ioctl(inner, termios.TIOCSCTTY, 0)

    sim, daemon, control = self.play('--verbose', stdin=inner, preexec_fn=take_terminal)
    os.close(inner)
    self.assertEqual(daemon.call('catch', signal.SIGINT), 0)
    os.write(outer, b'\x03')
    sim.until(lambda: 'the daemon gets' in sim.errors() and daemon.call('signals') > 0, 'the signal')
    control.do('say fine')
    self.assertEqual(daemon.call('signals'), 1)

  def test_one_launcher_at_a_time_in_a_folder(self):
    sim, _, control = self.play()
    status, _, errors = self.bare('--no-namespace', '--root', self.root, '--', 'true')
    self.assertEqual(status, 2)
    self.assertRegex(errors, '^tarn-sim: .*%s' % re.escape(self.root))
    control.do('say fine')
    self.assertIsNone(sim.process.poll())

  def test_what_a_dead_launcher_left_is_replaced(self):
    sim, _, _ = self.play()
    sim.process.kill()
    sim.wait()
    self.assertTrue(stat.S_ISSOCK(os.lstat(os.path.join(self.root, 'control')).st_mode))
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))

  def test_a_root_too_long_for_a_socket(self):
    status, _, errors = self.bare('--no-namespace', '--root', os.path.join(self.folder, 'x' * 100), '--', 'true')
    self.assertEqual(status, 2)
    self.assertRegex(errors, '^tarn-sim: .*long')

  def test_a_named_root_is_kept_and_another_is_not(self):
    self.assertEqual(self.bare('--no-namespace', '--root', self.root, '--', 'sh', '-c', 'true')[0], 0)
    self.assertTrue(os.path.isdir(os.path.join(self.root, 'overlay')))
    status, output, _ = self.bare('--no-namespace', '--', 'sh', '-c', 'echo $TARN_SIM_ROOT; test -d $TARN_SIM_ROOT')
    self.assertEqual(status, 0)
    self.assertTrue(output.startswith('/tmp/'))
    self.assertFalse(os.path.exists(output.strip()))

  def test_a_root_may_be_relative_to_the_folder(self):
    status, output, errors = self.bare('--no-namespace', '--root', 'rel', '--', 'sh', '-c',
                                       'cd /; test -S $TARN_SIM_ROOT/dev/mu_pal_ioctl && echo there', cwd=self.folder)
    self.assertEqual((status, output), (0, 'there\n'), errors)

  def test_closed_standard_descriptors(self):
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

  def test_an_earlier_preload_is_kept(self):
    sim = self.sim(env={**os.environ, 'LD_PRELOAD': '/nonexistent/other.so'})
    parts = re.split('[: ]', sim.meet().full('env', 'LD_PRELOAD')[1].decode())
    self.assertEqual((os.path.basename(parts[0]), parts[-1]), ('tarn-sim-shim.so', '/nonexistent/other.so'))


class Hostile(SimTest):
  """Neighbours that do what they should not."""

  def test_files_in_the_way_are_kept(self):
    for place in ('control', 'dev/mu_pal_ioctl', 'dev/mulog-ioctl-dev', 'dev/netlink-19', 'proc/kmsg'):
      with self.subTest(place=place):
        path = os.path.join(self.root, place)
        os.makedirs(os.path.dirname(path))
        self.write(path, 'precious')
        status, _, errors = self.bare('--no-namespace', '--root', self.root, '--', 'true')
        self.assertEqual(status, 2)
        self.assertRegex(errors, '^tarn-sim: ' + re.escape(path))
        with open(path, encoding='ascii') as kept:
          self.assertEqual(kept.read(), 'precious')
        shutil.rmtree(self.root)

  def test_the_control_socket_of_another_is_kept(self):
    path = os.path.join(self.folder, 'elsewhere')
    sim = self.sim('--control', path)
    sim.meet()
    status, _, errors = self.bare('--no-namespace', '--control', path, '--', 'true')
    self.assertEqual(status, 2)
    self.assertRegex(errors, '^tarn-sim: ' + re.escape(path))
    client = Control(path)
    self.addCleanup(client.close)
    client.do('say fine')

  def test_junk_on_the_devices_harms_nobody(self):
    sim, daemon, control = self.play()
    sock = daemon.channel()
    for device in ('dev/mu_pal_ioctl', 'dev/mulog-ioctl-dev', 'dev/netlink-19'):
      for junk in (b'', b'x', b'\xff' * 4, b'\xff' * 8, bytes(64), b'\xff' * 6000):
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as other:
          other.connect(os.path.join(sim.root, device))
          try:
            other.send(junk)
          except OSError:
            pass  # hung up on
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as other:
      other.connect(os.path.join(sim.root, 'proc/kmsg'))
      other.send(b'junk' * 1000)
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertEqual(control.status()['channel']['destination'], sim.process.pid)

  def test_more_clients_than_descriptors(self):
    sim, daemon, control = self.play(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (40, 40)))
    clients = [socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) for _ in range(100)]
    for client in clients:
      client.setblocking(False)
      try:
        client.connect(os.path.join(sim.root, 'control'))
      except BlockingIOError:
        pass
    control.do('say fine')
    for client in clients:
      client.close()
    control.do('say fine')
    sim.until(lambda: daemon.open(PAL) >= 0, 'a free descriptor')

  def test_a_console_that_is_gone(self):
    reader, writer = os.pipe()
    os.close(reader)
    script = self.write('dump.sim', 'dump\nsay after\nstop\n')
    done = subprocess.run([program['tarn-sim'], '--no-namespace', '--script', script, '--', 'sleep', '1000'],
                          stdin=subprocess.DEVNULL, stdout=writer, stderr=subprocess.PIPE, check=False, timeout=HANG_S)
    os.close(writer)
    self.assertEqual(done.returncode, 128 + signal.SIGTERM)
    self.assertIn(b'tarn-sim: after\n', done.stderr)

  def test_a_long_burst_lets_others_through(self):
    _, daemon, control = self.play()
    daemon.channel()
    control.do('event 1 100000000 times', 'say fine')
    self.assertGreater(control.status()['script']['pending'], 0)
    control.do('stop')

  def test_numbers_out_of_all_range(self):
    _, _, control = self.play()
    for line, column in (('at 99999999999999999999s event 1', 4), ('at 9999999999m event 1', 4), ('at -1s event 1', 4),
                         ('event 1 99999999999999999999 times', 9), ('event 18446744073709551617', 7),
                         ('event 4294967297', 7), ('event 1 device 65537', 16), ('event +1', 7), ('event 0x1', 7),
                         ('fail ioctl 18446744073709551617 times', 12), ('kmsg 256 1 x', 6), ('kmsg 1 257 x', 8)):
      with self.subTest(line=line):
        self.assertRegex(control.ask(line)[0], '^error: column %d: .' % column)


class Surroundings(SimTest):
  """What the daemon is given, and where it may run."""

  def test_signals_and_descriptors_are_as_without(self):
    _, daemon, _ = self.play()
    pid = daemon.call('getpid')
    with open('/proc/%d/status' % pid, encoding='ascii') as state:
      self.assertEqual(re.findall(r'^(?:SigBlk|SigIgn):\s*(\w+)', state.read(), re.MULTILINE), ['0' * 16] * 2)
    self.assertEqual(sorted(os.listdir('/proc/%d/fd' % pid)), ['0', '1', '2', '3'])  # 3 is the caller's own

  def test_the_input_is_the_daemons(self):
    status, output, _ = self.bare('--no-namespace', '--', 'cat', input=b'typed\n')
    self.assertEqual((status, output), (0, 'typed\n'))

  def test_sanitizers_are_told_of_the_shim(self):
    sim = self.sim(env={**os.environ, 'ASAN_OPTIONS': 'halt_on_error=1'})
    self.assertEqual(sim.meet().full('env', 'ASAN_OPTIONS'), (0, b'verify_asan_link_order=0:halt_on_error=1'))

  def test_a_root_with_blanks_and_colons(self):
    self.root = os.path.join(self.folder, 'a b:c')
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertTrue(os.path.exists(os.path.join(self.root, 'overlay', 'file')))

  def test_where_namespaces_are_not_permitted_the_shim_redirects(self):
    forbid = ['unshare', '-Ur', 'sh', '-c', 'echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"', 'sh',
              'setpriv', '--bounding-set=-all', '--inh-caps=-all']
    if not shutil.which('setpriv') or subprocess.run(forbid + ['true'], check=False, capture_output=True).returncode:
      self.skipTest('needs a user namespace of its own, to forbid another one')
    sim, daemon, control = self.play(namespace=True, before=forbid)
    self.assertEqual(control.status()['collector']['how'], 'shim')
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('sendto', udp, '0a000001', 514, b'line'.hex()), 4)
    sim.until(lambda: control.status()['collector']['received'] == 1, 'the datagram')

  def test_arguments_are_the_daemons_own(self):
    status, output, _ = self.bare('--no-namespace', '--', 'printf', '%s,', '--root', '--', '-h', '', 'a b')
    self.assertEqual((status, output), (0, '--root,--,-h,,a b,'))


class Preloaded(SimTest):
  """The shim without a launcher, as its page shows it."""

  def preloaded(self, **env):
    clean = {name: value for name, value in os.environ.items() if not name.startswith('TARN_SIM_')}
    shim = os.path.join(os.path.dirname(program['tarn-sim']), 'tarn-sim-shim.so')
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    self.addCleanup(listener.close)
    path = os.path.join(self.folder, 'talk')
    listener.bind(path)
    listener.listen()
    listener.settimeout(HANG_S)
    process = subprocess.Popen([program['caller'], path], env={**clean, 'LD_PRELOAD': shim, **env})
    daemon = Caller(listener)

    def end():
      daemon.end()
      process.wait(timeout=HANG_S)
      daemon.lines.close()
      daemon.talk.close()

    self.addCleanup(end)
    return daemon

  def make_root(self):
    for folder in ('overlay', 'proc', 'dev'):
      os.makedirs(os.path.join(self.root, folder))
    return self.root

  def test_paths_lead_below_the_root(self):
    daemon = self.preloaded(TARN_SIM_ROOT=self.make_root())
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertTrue(os.path.exists(os.path.join(self.root, 'overlay/file')))
    for path in (PAL, LOG_DEVICE, KMSG):
      self.assert_error('ENOENT', daemon.open(path))
      self.write(self.root + path, 'content')
      self.assertEqual(daemon.full('read', daemon.open(path, os.O_RDONLY), 99), (7, b'content'))
    self.assert_error('ENOENT', daemon.open('/overlay/../etc/passwd', os.O_RDONLY))
    self.write('root/outside', 'content')
    self.assertEqual(daemon.full('read', daemon.open('/overlay/../outside', os.O_RDONLY), 99), (7, b'content'))
    self.assert_error('ENOTTY', daemon.call('ioctl-null', daemon.open(PAL), SET_LEVEL))

  def test_without_a_root_nothing_is_there(self):
    daemon = self.preloaded()
    for path in ('/overlay', '/overlay/file', PAL, LOG_DEVICE, KMSG):
      self.assert_error('ENOENT', daemon.open(path, os.O_RDONLY))
      self.assert_error('ENOENT', daemon.call('access', path, os.F_OK))
      self.assert_error('ENOENT', daemon.call('unlink', path))

  def test_the_collectors_port(self):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
      own.bind(('127.0.0.1', 0))
      own.settimeout(HANG_S)
      daemon = self.preloaded(TARN_SIM_COLLECTOR_PORT=str(own.getsockname()[1]))
      udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
      self.assertEqual(daemon.call('sendto', udp, '0a000001', 514, b'line'.hex()), 4)
      self.assertEqual(own.recv(99), b'line')
      port = own.getsockname()[1]
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('bind-inet', udp, '00000000', 514), 0)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
      sender.sendto(b'to 514', ('127.0.0.1', port))
    self.assertEqual(daemon.full('recvfrom', udp, 99, 0), (6, b'to 514'))

  def test_without_a_collector_datagrams_are_swallowed(self):
    daemon = self.preloaded()
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    self.assertEqual(daemon.call('sendto', udp, '7f000001', 514, b'line'.hex()), 4)

  def test_the_channel_is_the_machines_own(self):
    daemon = self.preloaded(TARN_SIM_ROOT=self.make_root())
    plain = socket.AF_NETLINK
    try:
      socket.socket(plain, socket.SOCK_RAW, CHANNEL).close()
      expected = 0
    except OSError as refusal:
      expected = -refusal.errno
    self.assertEqual(min(0, daemon.call('socket', plain, SOCK_RAW, CHANNEL)), expected)


class Unprivileged(SimTest):

  @staticmethod
  def as_nobody():
    return ['setpriv', '--reuid=%d' % NOBODY, '--regid=%d' % NOBODY, '--clear-groups', '--inh-caps=-all']

  def nobody(self, *options, **run):
    if os.geteuid() != 0 or not shutil.which('setpriv'):
      self.skipTest('takes root, to give it up')
    os.mkdir(self.root)
    os.chown(self.root, NOBODY, NOBODY)
    for path in (program['tarn-sim'], program['caller']):
      if subprocess.run(self.as_nobody() + ['test', '-x', path], check=False).returncode != 0:
        self.skipTest('the build is in a folder that others may not enter')
    return self.play(*options, before=self.as_nobody(), **run)

  def test_everything_works_without_rights(self):
    for namespace in (False, True):
      with self.subTest(namespace=namespace):
        sim, daemon, control = self.nobody(namespace=namespace)
        sock = daemon.channel()
        control.do('event 1', 'kmsg line')
        self.assertEqual(daemon.receive(sock), datagram(1))
        self.assertIn(b'line', daemon.full('read', daemon.open(KMSG, os.O_RDONLY), 99)[1])
        self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
        daemon.end()
        self.assertEqual(sim.wait(), 0)
        shutil.rmtree(self.root)

  def test_a_real_time_thread_becomes_an_ordinary_one(self):
    sim, daemon, _ = self.nobody()
    for _ in range(2):
      result, text = daemon.full('realtime', 1 << 20, 2, 0)
      self.assertEqual((result, text), (0, b'%d 8192' % (1 << 20)))
    self.assertEqual(len(re.findall('real.?time', sim.errors())), 1, sim.errors())

  def test_a_folder_that_may_not_be_written(self):
    if os.geteuid() != 0 or not shutil.which('setpriv'):
      self.skipTest('takes root, to give it up')
    os.mkdir(self.root, 0o555)
    done = subprocess.run(self.as_nobody() + [program['tarn-sim'], '--no-namespace', '--root', self.root, '--', 'true'],
                          capture_output=True, check=False, timeout=HANG_S)
    self.assertEqual(done.returncode, 2, done.stderr)
    self.assertRegex(done.stderr.decode(), '^tarn-sim: .*%s' % re.escape(self.root))


class Collector(SimTest):

  def assert_collects(self, sim, daemon, control, how):
    udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
    addresses = ('7f000001', '0a000001', 'c0a80101')
    for number, address in enumerate(addresses):
      self.assertEqual(daemon.call('sendto', udp, address, 514, (b'line %d' % number).hex()), 6)
    sim.until(lambda: control.status()['collector']['received'] == len(addresses), 'the datagrams')
    self.assertEqual(control.status()['collector']['how'], how)
    path = os.path.join(self.root, 'collector.log')
    def lines():
      with open(path, 'rb') as file:
        return file.read()
    sim.until(lambda: lines() == b'line 0\nline 1\nline 2\n', 'the lines')

  def test_without_a_namespace_the_shim_redirects(self):
    sim, daemon, control = self.play()
    self.assert_collects(sim, daemon, control, 'shim')
    self.assertEqual(int(daemon.full('env', 'TARN_SIM_COLLECTOR_PORT')[1]), control.status()['collector']['port'])

  def test_in_a_namespace_the_port_is_the_real_one(self):
    sim, daemon, control = self.play(namespace=True)
    if control.status()['collector']['how'] != 'namespace':
      self.skipTest('no network namespace is permitted')
    self.assert_collects(sim, daemon, control, 'namespace')
    self.assertEqual(control.status()['collector']['port'], 514)
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))

  def test_ones_own_collector(self):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
      own.bind(('127.0.0.1', 0))
      own.settimeout(HANG_S)
      port = own.getsockname()[1]
      _, daemon, control = self.play('--collector', str(port), namespace=True)
      udp = daemon.call('socket', socket.AF_INET, socket.SOCK_DGRAM, 0)
      self.assertEqual(daemon.call('sendto', udp, '0a000001', 514, b'line'.hex()), 4)
      self.assertEqual(own.recv(99), b'line')
      self.assertEqual((control.status()['collector']['how'], control.status()['collector']['port']), ('own', port))


class EventTool(SimTest):
  """tarn-event against a simulation: the lines of its pages."""

  def tool(self, line, *args):
    words = [self.root if word == '/tmp/gateway' else word.replace('/tmp/gateway', self.root)
             for word in shlex.split(line, comments=True)]
    self.assertEqual(words[0], 'tarn-event')
    done = subprocess.run([program['tarn-event']] + words[1:] + list(args), capture_output=True, check=False,
                          timeout=HANG_S, stdin=subprocess.DEVNULL)
    return done.returncode, done.stdout.decode(), done.stderr.decode()

  @staticmethod
  def shown(path):
    with open(os.path.join(SOURCES, 'tools', path), encoding='utf-8') as page:
      text = page.read().replace('\\-', '-')
    return [line for line in re.findall(r'^(?:\$ )?(tarn-event --root.*)$', text, re.MULTILINE)]

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
                           (daemon.call('getpid'), sim.process.pid))
        daemon.end()
        sim.wait()

  def test_every_command(self):
    sim, daemon, control = self.play()
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway status')[0], 1)
    sock = daemon.channel()
    self.assertEqual(self.tool('tarn-event status --root /tmp/gateway')[0], 0)
    for line, expected in (('send 7 -p 3 --data=0102', [datagram(7, 3, b'\1\2')]),
                           ('send link-up --text="a b"', [datagram(1, 0, b'a b')]),
                           ('send 7 -n 3', [datagram(7)] * 3), ('send 7 -n 2 --every=10ms', [datagram(7)] * 2),
                           ('storm 5 -n 4', [datagram(5)] * 4), ('storm storm --device=9 -n 2', [datagram(4, 9)] * 2),
                           ('run "event 1" "event 2 device 5"', [datagram(1), datagram(2, 5)])):
      with self.subTest(line=line):
        self.assertEqual(self.tool('tarn-event --root=/tmp/gateway ' + line), (0, '', ''))
        self.assertEqual([daemon.receive(sock) for _ in expected], expected)
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway kmsg 5 3 "a text"'), (0, '', ''))
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway kmsg plain'), (0, '', ''))
    self.assertEqual(control.status()['kmsg']['written'], 2)
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway dump'), (0, '', ''))
    sim.until(lambda: 'Suprs-en' in sim.output(), 'the table')
    state = json.loads(self.tool('tarn-event --root=/tmp/gateway status --json --all')[1])
    self.assertEqual(state['channel'], control.status()['channel'])
    self.assertEqual(len(state['events']), TYPES)
    status, _, errors = self.tool('tarn-event --root=/tmp/gateway run "say one" bogus "say two"')
    self.assertEqual(status, 2)
    self.assertRegex(errors, "tarn-event: .*bogus")
    sim.until(lambda: 'tarn-sim: one\n' in sim.errors(), 'the line before')
    self.assertNotIn('tarn-sim: two\n', sim.errors())
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway send bogus')[0], 2)
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway stop'), (0, '', ''))
    self.assertEqual(sim.wait(), 128 + signal.SIGTERM)
    self.assertEqual(self.tool('tarn-event --root=/tmp/gateway status')[0], 2)

  def test_a_watch_ends_with_the_simulation(self):
    sim, daemon, _ = self.play()
    daemon.channel()
    with subprocess.Popen([program['tarn-event'], '--root', self.root, 'watch', '--json', '--interval=0.01'],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as watch:
      self.assertTrue(json.loads(watch.stdout.readline())['daemon']['running'])
      daemon.end()
      sim.wait()
      watch.stdout.read()
      self.assertIsNotNone(watch.wait(timeout=HANG_S))

  def test_the_example_of_the_launchers_page(self):
    with open(os.path.join(SOURCES, 'sim', 'tarn-sim.1'), encoding='ascii') as page:
      example = page.read().replace('\\-', '-').replace('\\(dq', '"').split('.EX\n')[2].split('.EE')[0]
    self.assertTrue(example.endswith('at 10s stop\n'), example)
    endless = example.removesuffix('at 10s stop\n')  # this test stops it when it has seen all
    sim = self.sim('--verbose', script=endless, command=[program['gatewayd'], '--config=gatewayd.cfg'], cwd=self.folder)
    sim.until(lambda: 'event 1, device 3' in sim.errors() or sim.process.poll() is not None, 'the events')
    self.assertIsNone(sim.process.poll(), sim.errors())
    control = sim.control()
    sim.until(lambda: control.status()['kmsg']['written'] == 1, 'the kernel line')
    sim.until(lambda: control.status()['events'][4]['count'] > 0, 'the storm')
    self.assertEqual(control.status()['channel']['no_listener'], 0)
    control.do('stop')
    self.assertEqual(sim.wait(), 0, sim.errors())


def main():
  for name, path in zip(('tarn-sim', 'caller', 'tarn-event', 'gatewayd'), programs.given()):
    program[name] = os.path.abspath(path)
  programs.run_tests()


if __name__ == '__main__':
  main()
