"""tarn-sim, run as people run it, with a daemon that knows nothing of it.

Usage: tarn_sim_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN_SIM

The daemon is tests/programs/sim/subject.c, named by TARN_TEST_SUBJECT: it makes the calls that these tests write to its standard
input. TARN_TEST_GATEWAYD names gatewayd where that is built. The tests wait for what happens, never for a time; the hang
limit is CTest's. Exits with 77 when all that was to run was skipped.
"""

import json
import os
import re
import resource
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(1, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

NOBODY = 65534
SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', '..', 'sim')
PAL, LOG, KMSG = '/dev/mu_pal_ioctl', '/dev/mulog-ioctl-dev', '/proc/kmsg'
AF_NETLINK, PROTOCOL, ADDRESS_SIZE = 16, 19, 12

emulator = []
tarn_sim = ''


def subject():
  return emulator + [os.environ['TARN_TEST_SUBJECT']]


# The daemon's byte order, which an emulated one may have for itself.
ORDER = {'little': '<', 'big': '>'}[os.environ.get('TARN_TEST_BYTE_ORDER', sys.byteorder)]


def pack(form, *values):
  return struct.pack(ORDER + form, *values)


def header(length=0, event_type=0, device=0, destination=0):
  """The 24 bytes in front of each argument and each datagram."""
  return pack('HHHHHH8xI', 0, length, 0, event_type, 0, device, destination)


def message(op, event_type=0, enabled=0, threshold=0, period=0, count=0, clear=0):
  """An event configuration message: 32 bytes."""
  return pack('8I', op, event_type, 0, enabled, threshold, period, count, clear)


class Output:
  """What a process writes to a pipe, read by a thread of its own so that the process never waits."""

  def __init__(self, pipe):
    self.lines = []
    self.ended = False
    self.seen = 0
    self.changed = threading.Condition()
    self.thread = threading.Thread(target=self.read, args=(pipe,), daemon=True)
    self.thread.start()

  def read(self, pipe):
    for line in pipe:
      with self.changed:
        self.lines.append(line.decode(errors='replace').rstrip('\n'))
        self.changed.notify_all()
    with self.changed:
      self.ended = True
      self.changed.notify_all()

  def next(self):
    """The next line that nobody has taken."""
    with self.changed:
      self.changed.wait_for(lambda: self.ended or len(self.lines) > self.seen)
      if len(self.lines) == self.seen:
        raise AssertionError('no more lines behind %r' % self.lines)
      self.seen += 1
      return self.lines[self.seen - 1]

  def wait_for(self, pattern):
    """Waits until a line, one that came before or a new one, matches; returns the match."""
    with self.changed:
      begin = 0
      while True:
        for line in self.lines[begin:]:
          match = re.search(pattern, line)
          if match:
            return match
        begin = len(self.lines)
        if self.ended:
          raise AssertionError('no line like %r in %r' % (pattern, self.lines))
        self.changed.wait()

  def text(self):
    """All of it, once it has ended."""
    self.thread.join()
    return ''.join(line + '\n' for line in self.lines)


class Client:
  """A client of the control socket."""

  def __init__(self, path):
    self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    self.sock.connect(path)
    self.file = self.sock.makefile('rb')

  def answer(self):
    """The lines of one answer, without the last one, and that."""
    lines = []
    while True:
      line = self.file.readline().decode()
      if not line.endswith('\n'):
        raise AssertionError('the connection ended behind %r' % lines)
      if line == 'ok\n' or line.startswith('error: '):
        return lines, line[:-1]
      lines.append(line)

  def ask(self, line):
    self.sock.sendall(line.encode() + b'\n')
    return self.answer()

  def do(self, *lines):
    for line in lines:
      answered, result = self.ask(line)
      if answered or result != 'ok':
        raise AssertionError('%s: %r %s' % (line, answered, result))

  def status(self):
    lines, result = self.ask('status')
    assert result == 'ok' and len(lines) == 1, (lines, result)
    return json.loads(lines[0])

  def close(self):
    self.file.close()
    self.sock.close()


class Simulation:
  """A running tarn-sim with the subject."""

  def __init__(self, test, *options, script=None, root=None, daemon=None, env=None, namespace=False, **popen):
    self.root = root or test.make_root()
    args = ['--root', self.root, *options]
    if script is not None:
      path = os.path.join(test.folder, 'script')
      with open(path, 'w', encoding='ascii') as file:
        file.write(script)
      args += ['--script', path]
    if not namespace:
      args.append('--no-namespace')
    # pylint: disable=consider-using-with
    self.process = subprocess.Popen(emulator + [tarn_sim] + args + ['--'] + (daemon or subject()), stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, env={**os.environ, **(env or {})},
                                    **popen)
    self.out, self.err = Output(self.process.stdout), Output(self.process.stderr)
    test.addCleanup(self.clean_up)
    if daemon is None:
      self.pid = self.process.pid
      line = self.out.next()
      test.assertEqual(line, 'ready', self.err.lines)
    self.clients = []

  def clean_up(self):
    self.process.stdin.close()
    for client in self.clients:
      client.close()
    if self.process.poll() is None:
      self.process.kill()  # the subject ends with its input
    self.process.wait()
    self.out.thread.join()
    self.err.thread.join()
    self.process.stdout.close()
    self.process.stderr.close()

  def send(self, *words):
    self.process.stdin.write(' '.join(map(str, words)).encode() + b'\n')
    self.process.stdin.flush()

  def ask(self, *words):
    """Has the subject make a call, and returns what came of it."""
    self.send(*words)
    return self.out.next()

  def client(self, path=None):
    client = Client(path or os.path.join(self.root, 'control'))
    self.clients.append(client)
    return client

  def end(self):
    """Lets the subject end. Returns the status and what tarn-sim said."""
    self.process.stdin.close()
    return self.process.wait(), self.err.text()

  def kill(self):
    """Kills tarn-sim; the subject goes on."""
    assert self.ask('ignore', int(signal.SIGTERM)) == '0'
    self.process.kill()
    self.process.wait()

  # ---- Calls of the subject ----

  def open(self, path, variant='open'):
    return int(self.ask('open', variant, path))

  def ioctl(self, file, request, argument):
    """The result or the error, and the argument as the call left it."""
    result, data = self.ask('ioctl', file, hex(request), argument.hex()).split(' ')
    return result, bytes.fromhex(data)

  def configure(self, message_bytes, device=0):
    file = self.open(PAL)
    result, data = self.ioctl(file, 0x4301, header(32, 0, device) + message_bytes)
    self.ask('close', file)
    assert data[:24] == header(32, 0, device), data
    return result, data[24:]

  def bind_channel(self, port=None):
    """A channel that is bound to the destination."""
    port = port or int(self.ask('ppid'))
    file = self.open(PAL)
    result, _ = self.ioctl(file, 0x4302, header(destination=port))
    assert result == '0', result
    self.ask('close', file)
    sock = int(self.ask('socket', AF_NETLINK, PROTOCOL, 0))
    result = self.ask('bind', sock, port, ADDRESS_SIZE, AF_NETLINK)
    assert result == '0', result
    return sock

  def recv(self, sock):
    """A datagram."""
    size, address_size, *data = self.ask('recv', sock).split(' ')
    assert address_size == '0', address_size  # no sender, so that its length cannot grow
    data = bytes.fromhex(data[0] if data else '')
    assert len(data) == int(size)
    return data


class SimTest(unittest.TestCase):
  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='tarn-sim-test-', dir='/tmp')
    self.addCleanup(shutil.rmtree, self.folder)

  def make_root(self):
    return tempfile.mkdtemp(prefix='r-', dir=self.folder)

  def start(self, *options, **more):
    return Simulation(self, *options, **more)

  def run_to_end(self, *args, env=None, **run):
    """Runs tarn-sim with just these arguments."""
    return subprocess.run(emulator + [tarn_sim, *args], capture_output=True, text=True, stdin=subprocess.DEVNULL,
                          env={**os.environ, **(env or {})}, check=False, **run)

  def expect(self, done, status, error_pattern='', out=''):
    self.assertEqual((done.returncode, done.stdout), (status, out), done.stderr)
    if error_pattern:
      self.assertRegex(done.stderr, error_pattern)


class Launcher(SimTest):
  def test_ends_with_the_status_of_the_daemon(self):
    for status in (0, 1, 42, 255):
      sim = self.start()
      sim.send('exit', status)
      self.assertEqual(sim.process.wait(), status)
      self.assertRegex(sim.err.text(), r'(?m)^tarn-sim: .*subject ended with status %d$' % status
                       if not emulator else 'ended with status %d' % status)

  def test_ends_with_128_and_the_signal_of_the_daemon(self):
    for number, name in ((signal.SIGKILL, 'Killed'), (signal.SIGTERM, 'Terminated')):
      sim = self.start()
      sim.send('kill', int(number))
      self.assertEqual(sim.process.wait(), 128 + number)
      self.assertRegex(sim.err.text(), r'was ended by signal %d \(%s\)\n' % (number, name))

  def test_tells_of_a_daemon_that_cannot_be_executed(self):
    self.expect(self.run_to_end('--no-namespace', '--', '/no/such/daemon'), 127,
                r'(?m)^tarn-sim: /no/such/daemon: No such file or directory$')
    self.expect(self.run_to_end('--no-namespace', '--', self.folder), 126,
                r'(?m)^tarn-sim: %s: Permission denied$' % self.folder)

  def test_finds_the_daemon_as_a_shell_does(self):
    self.expect(self.run_to_end('--no-namespace', '--', 'true'), 0, 'true ended with status 0')

  def test_hands_the_daemon_its_arguments(self):
    self.expect(self.run_to_end('--no-namespace', '--', 'sh', '-c', 'echo "$@"', 'sh', '--root', 'a b', '--'), 0,
                out='--root a b --\n')

  def test_tells_of_wrong_use(self):
    for args, reason in (
        ((), 'the daemon is missing'),
        (('--',), 'the daemon is missing'),
        (('true',), 'true'),
        (('--nonsense', '--', 'true'), '--nonsense'),
        (('--root', '--', 'true'), '--root'),
        (('--collector', '0', '--', 'true'), '--collector'),
        (('--collector', '65536', '--', 'true'), '--collector'),
        (('--collector', 'x', '--', 'true'), '--collector'),
        (('--events', '0', '--', 'true'), '--events'),
        (('--events', '65537', '--', 'true'), '--events'),
        (('--script', '/no/such/script', '--', 'true'), '^tarn-sim: /no/such/script: No such file or directory\n$'),
    ):
      with self.subTest(args=args):
        done = self.run_to_end(*args)
        self.expect(done, 2, reason)
        self.assertTrue(done.stderr.startswith('tarn-sim: '), done.stderr)

  def test_tells_of_a_faulty_script_before_the_daemon_starts(self):
    path = os.path.join(self.folder, 'day.sim')
    for script, fault in (
        ('at 1s foo\n', ':1:7: \'foo\' is no command'),
        ('# comment\n\nat 15ms dump\n', ':3:4: \'15ms\' is no multiple of 10 ms'),
        ('dump\nsay "x\n', ':2:5: the string has no end'),
        ('event 20\n', ':1:7: \'20\' is no event type from 0 to 19'),
    ):
      with self.subTest(script=script):
        with open(path, 'w', encoding='ascii') as file:
          file.write(script)
        done = self.run_to_end('--script', path, '--', 'echo', 'started')
        self.expect(done, 2)
        self.assertEqual(done.stderr, 'tarn-sim: %s%s\n' % (path, fault))

  def test_shows_help_and_version(self):
    for option in ('--help', '-h'):
      done = self.run_to_end(option)
      self.assertEqual((done.returncode, done.stderr), (0, ''))
      self.assertIn('Usage: tarn-sim [OPTION]... -- DAEMON [ARG]...', done.stdout)
    done = self.run_to_end('--version')
    self.assertEqual((done.returncode, done.stderr), (0, ''))
    self.assertRegex(done.stdout, r'^tarn-sim \d+\.\d+\.\d+\n$')

  def test_each_option_of_the_help_is_in_the_manual_and_in_the_completion(self):
    options = set(re.findall(r'(?m)^ +(?:-h, +)?(--[a-z-]+)', self.run_to_end('--help').stdout))
    self.assertEqual(options, {'--root', '--script', '--control', '--collector', '--no-namespace', '--events',
                               '--verbose', '--help', '--version'})
    with open(os.path.join(SOURCES, 'tarn-sim.1'), encoding='utf-8') as file:
      manual = file.read().replace('\\-', '-')
    with open(os.path.join(SOURCES, 'tarn-sim.bash'), encoding='utf-8') as file:
      completion = file.read()
    for option in options:
      self.assertIn(option, manual)
      self.assertIn(option, completion)

  def test_completion(self):
    bash = shutil.which('bash')
    if bash is None:
      self.skipTest('no bash')
    script = os.path.join(SOURCES, 'tarn-sim.bash')
    for words, expected in (
        (['--no'], ['--no-namespace']),
        (['--ro'], ['--root=']),
        (['--events', '=', ''], []),
        (['--v'], ['--verbose', '--version']),
        (['--', '--no'], []),  # the daemon's
    ):
      line = ' '.join("'%s'" % word for word in ['tarn-sim'] + words)
      done = subprocess.run([bash, '-c', 'source "$0"; COMP_WORDS=(%s); COMP_CWORD=%d; _tarn_sim; echo "${COMPREPLY[@]}"'
                             % (line, len(words)), script], capture_output=True, text=True, check=True)
      self.assertEqual((done.stdout.split(), done.stderr), (expected, ''), words)

  def test_prepares_the_environment(self):
    env = {'LD_PRELOAD': 'libm.so.6', 'ASAN_OPTIONS': 'verify_asan_link_order=0:color=never'}
    sim = self.start(env=env)
    self.assertRegex(sim.ask('env', 'LD_PRELOAD'), r'^/.*/tarn-sim-shim\.so:libm\.so\.6$')
    self.assertEqual(sim.ask('env', 'TARN_SIM_ROOT'), os.path.realpath(sim.root))
    self.assertEqual(sim.ask('env', 'TARN_SIM_COLLECTOR_PORT'), str(sim.client().status()['collector']['port']))
    self.assertEqual(sim.ask('env', 'ASAN_OPTIONS'),
                     'verify_asan_link_order=0:verify_asan_link_order=0:color=never')

  def test_is_the_parent_of_the_daemon(self):
    if emulator:
      self.skipTest('the process that the daemon sees is the emulator\'s')
    sim = self.start()
    self.assertEqual(sim.ask('ppid'), str(sim.pid))

  def test_passes_signals_on(self):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
      sim = self.start()
      sim.process.send_signal(number)
      self.assertEqual(sim.process.wait(), 128 + number)

  def test_kills_the_daemon_at_the_second_signal(self):
    sim = self.start()
    self.assertEqual(sim.ask('catch', int(signal.SIGTERM)), '0')
    sim.process.send_signal(signal.SIGTERM)
    self.assertEqual(sim.out.next(), 'caught')
    sim.process.send_signal(signal.SIGTERM)
    self.assertEqual(sim.process.wait(), 128 + signal.SIGKILL)
    self.assertIn('tarn-sim: again: the daemon is killed\n', sim.err.text())

  def test_does_not_pass_on_what_a_terminal_sent_to_both(self):
    if emulator:
      self.skipTest('the emulator does not tell where a signal came from')
    master, slave = os.openpty()
    self.addCleanup(os.close, master)
    root = self.make_root()
    # On a terminal of its own; the subject reads from that, too.
    process = subprocess.Popen(['setsid', '--ctty', '--wait', tarn_sim, '--root', root, '--no-namespace', '--', *subject()],
                               stdin=slave, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    os.close(slave)
    self.addCleanup(process.stderr.close)
    self.addCleanup(process.stdout.close)
    out = Output(process.stdout)
    self.assertEqual(out.next(), 'ready')
    os.write(master, b'catch 2\n')
    self.assertEqual(out.next(), '0')
    os.write(master, b'\x03')
    self.assertEqual(out.next(), 'caught')
    os.write(master, b'ppid\n')
    self.assertRegex(out.next(), r'^\d+$')  # and not caught once more
    os.write(master, b'exit 0\n')
    self.assertEqual(process.wait(), 0)

  def test_leaves_an_ignored_hangup_ignored(self):
    def ignore():
      signal.signal(signal.SIGHUP, signal.SIG_IGN)
    sim = self.start(preexec_fn=ignore)
    sim.process.send_signal(signal.SIGHUP)
    self.assertEqual(sim.client().ask('dump # it lives')[1], 'ok')

  def test_takes_the_daemon_along_when_it_dies(self):
    sim = self.start()
    self.assertEqual(sim.ask('catch', int(signal.SIGTERM)), '0')
    sim.process.kill()
    self.assertEqual(sim.out.next(), 'caught')


class Root(SimTest):
  def test_holds_the_overlay(self):
    sim = self.start()
    file = sim.ask('open', 'creat', '/overlay/file')
    self.assertRegex(file, r'^\d+$')
    self.assertTrue(os.path.exists(os.path.join(sim.root, 'overlay/file')))
    self.assertEqual(sim.ask('access', '/overlay/file'), '0')
    self.assertEqual(sim.ask('faccessat', '/overlay/file'), '0')
    self.assertEqual(sim.ask('unlink', '/overlay/file'), '0')
    self.assertEqual(sim.ask('faccessat', '/overlay/file'), 'ENOENT')
    self.assertRegex(sim.ask('open', 'creat64', '/overlay/file'), r'^\d+$')
    self.assertEqual(sim.ask('unlinkat', '/overlay/file'), '0')
    self.assertEqual(os.listdir(os.path.join(sim.root, 'overlay')), [])

  def test_is_made_and_kept_and_its_sockets_are_removed(self):
    root = os.path.join(self.folder, 'new/root')
    sim = self.start(root=root)
    sockets = {'control', 'dev/mu_pal_ioctl', 'dev/mulog-ioctl-dev', 'dev/netlink-19', 'proc/kmsg'}
    for name in sockets:
      self.assertTrue(os.path.exists(os.path.join(root, name)), name)
    self.assertEqual(sim.end()[0], 0)
    left = {os.path.relpath(os.path.join(folder, name), root)
            for folder, _, names in os.walk(root) for name in names}
    self.assertEqual(left, {'collector.log'})

  def test_is_removed_when_it_is_temporary(self):
    done = self.run_to_end('--no-namespace', '--', 'sh', '-c', 'echo "$TARN_SIM_ROOT"; ls "$TARN_SIM_ROOT/dev"')
    self.assertEqual(done.returncode, 0, done.stderr)
    root, *devices = done.stdout.splitlines()
    self.assertRegex(root, r'^/tmp/tarn-sim-\w{6}$')
    self.assertEqual(devices, ['mu_pal_ioctl', 'mulog-ioctl-dev', 'netlink-19'])
    self.assertFalse(os.path.exists(root))

  def test_takes_one_launcher_at_a_time(self):
    sim = self.start()
    self.expect(self.run_to_end('--root', sim.root, '--', 'true'), 2,
                '^tarn-sim: %s: another tarn-sim runs there\n$' % os.path.realpath(sim.root))
    self.assertEqual(sim.client().ask('status')[1], 'ok')

  def test_is_taken_over_from_a_launcher_that_was_killed(self):
    first = self.start()
    first.process.kill()
    first.process.wait()
    self.assertTrue(os.path.exists(os.path.join(first.root, 'control')))
    sim = self.start(root=first.root)
    self.assertGreater(sim.open(PAL), 2)
    self.assertEqual(sim.client().ask('status')[1], 'ok')

  def test_replaces_no_file_that_is_no_socket(self):
    root = self.make_root()
    os.mkdir(os.path.join(root, 'proc'))
    path = os.path.join(root, 'proc/kmsg')
    with open(path, 'w', encoding='ascii') as file:
      file.write('kept')
    self.expect(self.run_to_end('--root', root, '--', 'true'), 2, '/proc/kmsg: is in the way: it is no socket\n')
    with open(path, encoding='ascii') as file:
      self.assertEqual(file.read(), 'kept')

  def test_must_not_be_too_long_for_a_socket(self):
    base = os.path.realpath(self.make_root())
    longest = os.path.join(base, 'x' * (87 - len(base) - 1))
    self.assertEqual(self.run_to_end('--root', longest, '--no-namespace', '--', 'true').returncode, 0)
    self.expect(self.run_to_end('--root', longest + 'x', '--', 'true'), 2,
                'too long for the addresses of sockets below it: at most 87 bytes\n')

  def test_must_be_a_folder_that_can_be_used(self):
    path = os.path.join(self.folder, 'file')
    with open(path, 'w', encoding='ascii'):
      pass
    self.expect(self.run_to_end('--root', path, '--', 'true'), 2, 'tarn-sim: %s: Not a directory\n' % path)

  def test_control_socket_may_stand_elsewhere(self):
    path = os.path.join(self.folder, 'c')
    sim = self.start('--control', path)
    self.assertEqual(sim.client(path).ask('status')[1], 'ok')
    self.assertFalse(os.path.exists(os.path.join(sim.root, 'control')))
    # Another simulation does not take it away.
    self.expect(self.run_to_end('--control', path, '--', 'true'), 2, '%s: somebody else listens there\n' % path)
    self.assertEqual(sim.client(path).ask('status')[1], 'ok')
    self.expect(self.run_to_end('--control', '/tmp/' + 'x' * 103, '--', 'true'), 2, 'too long for a socket\'s address')

  def test_shim_path_must_be_one_that_can_be_preloaded(self):
    if emulator:
      self.skipTest('copies of the program are found natively')
    folder = os.path.join(self.folder, 'a b')
    os.mkdir(folder)
    shutil.copy(tarn_sim, folder)
    program = os.path.join(folder, 'tarn-sim')
    run = {'capture_output': True, 'text': True, 'check': False}
    done = subprocess.run([program, '--', 'true'], **run)
    self.expect(done, 2, 'tarn-sim-shim.so: is missing\n')
    shutil.copy(os.path.join(os.path.dirname(tarn_sim), 'tarn-sim-shim.so'), folder)
    done = subprocess.run([program, '--', 'true'], **run)
    self.expect(done, 2, 'a path with blanks or colons cannot be preloaded\n')


class Devices(SimTest):
  def test_are_opened_by_every_variant_of_open(self):
    sim = self.start()
    for path in (PAL, LOG, KMSG):
      for variant in ('open', 'open64', 'openat', 'openat64', '__open_2', '__open64_2', '__openat_2', '__openat64_2'):
        with self.subTest(path=path, variant=variant):
          file = int(sim.ask('open', variant, path))
          self.assertEqual(sim.ask('close', file), '0')
      self.assertEqual(sim.ask('access', path), '0')
      self.assertEqual(sim.ask('faccessat', path), '0')

  def test_keep_the_flags_of_open(self):
    sim = self.start()
    self.assertEqual(sim.ask('open', 'cloexec', PAL), '1')
    self.assertEqual(sim.ask('open', 'inherited', PAL), '0')
    self.assertEqual(sim.ask('read', sim.ask('open', 'nonblock', KMSG), 10), 'EAGAIN')

  def test_others_are_the_machines_own(self):
    sim = self.start()
    for path in ('/dev/null', '/dev/../dev/null'):
      file = sim.ask('open', 'open', path)
      self.assertRegex(file, r'^\d+$')
      self.assertEqual(sim.ask('ioctl', file, '0x4301', header(32).hex() + message(2).hex()).split(' ')[0], 'ENOTTY')
    self.assertEqual(sim.ask('open', 'open', '/dev/mu_pal_ioctl2'), 'ENOENT')

  def test_answer_from_a_thread_a_child_and_a_copy_of_the_descriptor(self):
    sim = self.start()
    file = sim.open(PAL)
    copy = int(sim.ask('dup', file))
    sim.ask('close', file)
    get = (header(32) + message(4, 7)).hex()
    expected = '0 ' + (header(32) + message(4, 7, 0, 0, 0)).hex()
    for words in ((), ('thread',), ('fork',), ('fork', 'thread'), ('thread', 'fork')):
      self.assertEqual(sim.ask(*words, 'ioctl', copy, '0x4301', get), expected, words)
    self.assertEqual(sim.ask('fork', 'open', 'open', PAL), str(file))
    # A descriptor that was closed and given anew is no device.
    sim.ask('close', copy)
    self.assertEqual(int(sim.ask('open', 'open', '/dev/null')), file)
    self.assertEqual(sim.ask('ioctl', file, '0x4301', get).split(' ')[0], 'ENOTTY')

  def test_platform_device_keeps_the_configuration_of_events(self):
    sim = self.start()
    self.assertEqual(sim.configure(message(4, 3)), ('0', message(4, 3, 0, 0, 0)))
    self.assertEqual(sim.configure(message(3, 3, 7, 5, 1000)), ('0', message(3, 3, 7, 5, 1000)))
    self.assertEqual(sim.configure(message(4, 3)), ('0', message(4, 3, 1, 5, 1000)))
    # The library's own rules: kept in 10 ms units, and 1 of them at least.
    for period, kept in ((5, 10), (25, 20), (11, 10)):
      sim.configure(message(3, 3, 0, 5, period))
      self.assertEqual(sim.configure(message(4, 3))[1], message(4, 3, 0, 5, kept))
    event = sim.client().status()['events'][3]
    self.assertEqual(event, {'type': 3, 'name': 'traffic', 'count': 0, 'suppression': False, 'suppressed': False,
                             'suppressed_count': 0, 'threshold': 5, 'period_ms': 10})

  def test_platform_device_counts_and_clears(self):
    sim = self.start()
    sim.client().do('event 3 4 times', 'event 5')
    sim.client().status()
    self.assertEqual(sim.configure(message(0, 3)), ('0', message(0, 3, count=4)))
    self.assertEqual(sim.configure(message(0, 3, clear=1)), ('0', message(0, 3, count=4, clear=1)))
    self.assertEqual(sim.configure(message(0, 3)), ('0', message(0, 3, count=0)))
    self.assertEqual(sim.configure(message(1, 5)), ('0', message(1, 5)))
    self.assertEqual(sim.configure(message(0, 5))[1], message(0, 5, count=0))
    sim.client().do('event 3', 'event 5')
    self.assertEqual(sim.configure(message(2)), ('0', message(2)))
    self.assertEqual([event['count'] for event in sim.client().status()['events']], [0] * 20)

  def test_platform_device_dumps_on_the_console(self):
    sim = self.start('--events', '2')
    sim.client().do('event 1')
    file = sim.open(PAL)
    sim.send('ioctl', file, '0x4301', (header(32) + message(5)).hex())
    lines = [sim.out.next() for _ in range(7)]
    # The driver's table first: the call returns behind it.
    self.assertEqual(lines[0], '=' * 63)
    self.assertEqual(lines[3].split(), ['0', '0', 'Disable', '-', '-', '-', '-'])
    self.assertEqual(lines[4].split(), ['1', '1', 'Disable', '-', '-', '-', '-'])
    self.assertEqual(lines[5], '')
    self.assertEqual(lines[6], '0 ' + (header(32) + message(5)).hex())

  def test_platform_device_refuses_what_it_does_not_know(self):
    sim = self.start()
    file = sim.open(PAL)
    for request, argument in (
        (0x4301, header(32) + message(6)),           # an unknown operation
        (0x4301, header(32) + message(3, 20)),       # no such type
        (0x4301, header(32) + message(3, 2**32 - 1)),  # nor a negative one
        (0x4301, header(31) + message(4)[:31]),
        (0x4301, header(33) + message(4) + b'x'),
        (0x4301, header(0)),
        (0x4301, header(4072) + bytes(4072)),
        (0x4301, header(4073)),
        (0x4300, header(32) + message(4)),
        (0x4303, header(0)),
    ):
      result, data = sim.ioctl(file, request, argument)
      self.assertEqual((result, data), ('EINVAL', argument), (hex(request), argument[:32]))
    self.assertEqual(sim.ask('ioctl', file, '0x4301', '-'), 'EFAULT')
    # Another driver's request is the socket's own to refuse.
    self.assertEqual(sim.ioctl(file, 0x5401, bytes(64))[0], 'ENOTTY')
    self.assertEqual(sim.ask('close', file), '0')
    self.assertEqual(sim.ask('ioctl', file, '0x4301', (header(32) + message(4)).hex()).split(' ')[0], 'EBADF')

  def test_platform_device_takes_the_destination(self):
    sim = self.start()
    file = sim.open(PAL)
    self.assertEqual(sim.client().status()['channel']['destination'], 0)
    argument = header(destination=0x12345678)
    self.assertEqual(sim.ioctl(file, 0x4302, argument), ('0', argument))
    self.assertEqual(sim.client().status()['channel']['destination'], 0x12345678)

  @staticmethod
  def control_message(command, module, kind, value):
    return bytes(10) + pack('H', command) + bytes([module, kind, value]) + bytes(241)

  def test_log_device_sets_the_modules_of_the_drivers(self):
    sim = self.start()
    file = sim.open(LOG)
    for module, kind, value in ((2, 1, 7), (2, 0, 3), (255, 2, 0), (255, 1, 255)):
      argument = self.control_message(3, module, kind, value)
      self.assertEqual(sim.ioctl(file, 0x4300, argument), ('0', argument))
    self.assertEqual(sim.client().status()['modules'],
                     [{'id': 2, 'enabled': True, 'print': 3, 'record': 7},
                      {'id': 255, 'enabled': False, 'print': 8, 'record': 255}])

  def test_log_device_refuses_what_it_does_not_know(self):
    sim = self.start()
    file = sim.open(LOG)
    for request, argument in ((0x4300, self.control_message(2, 0, 0, 0)), (0x4300, self.control_message(3, 0, 3, 0)),
                              (0x4301, self.control_message(3, 0, 0, 0))):
      self.assertEqual(sim.ioctl(file, request, argument), ('EINVAL', argument))
    self.assertEqual(sim.ask('ioctl', file, '0x4300', '-'), 'EFAULT')
    self.assertEqual(sim.client().status()['modules'], [])

  def test_fail_when_asked_to(self):
    sim = self.start()
    client = sim.client()
    pal, log = sim.open(PAL), sim.open(LOG)
    argument = header(32) + message(4)
    client.do('fail ioctl 2 times')
    self.assertEqual(client.status()['failures'], {'ioctl': 2, 'open': 0, 'bind': 0, 'socket': 0})
    self.assertEqual(sim.ioctl(pal, 0x4301, argument), ('EIO', argument))
    self.assertEqual(client.status()['failures']['ioctl'], 1)
    self.assertEqual(sim.ioctl(log, 0x4300, self.control_message(3, 0, 0, 0))[0], 'EIO')
    self.assertEqual(sim.ioctl(pal, 0x4301, argument)[0], '0')
    client.do('fail open 3 times')
    for path in (PAL, LOG, KMSG):
      self.assertEqual(sim.ask('open', 'open', path), 'ENODEV')
    self.assertGreater(sim.open(PAL), log)
    client.do('fail open 1 times', 'fail open 0 times')
    self.assertGreater(sim.open(PAL), log)

  def test_tell_once_that_the_launcher_is_gone(self):
    sim = self.start()
    pal = sim.open(PAL)
    kmsg = sim.open(KMSG)
    sim.kill()
    self.assertEqual(sim.ioctl(pal, 0x4301, header(32) + message(4))[0], 'ENODEV')
    self.assertEqual(sim.ask('open', 'open', PAL), 'ENODEV')
    self.assertEqual(sim.ask('fopen', 'fopen', KMSG), 'ENODEV')
    self.assertEqual(sim.ask('socket', AF_NETLINK, PROTOCOL, 0), 'EPROTONOSUPPORT')
    self.assertEqual(sim.ask('read', kmsg, 10).strip(), '0')
    self.assertEqual(sim.end()[0], -signal.SIGKILL)
    self.assertEqual([line for line in sim.err.lines if 'gone' in line],
                     ['tarn-sim: the simulated kernel is gone, or does not answer'])


class Channel(SimTest):
  def test_brings_events_with_their_header(self):
    sim = self.start()
    sock = sim.bind_channel()
    client = sim.client()
    client.do('event link-down port 3')
    self.assertEqual(sim.recv(sock), header(0, 2, 3))
    client.do('event 19 device 65535 data 0102ff')
    self.assertEqual(sim.recv(sock), header(3, 19, 65535) + b'\x01\x02\xff')
    client.do('event storm text "a b"')
    self.assertEqual(sim.recv(sock), header(3, 4) + b'a b')
    client.do('raw-datagram 00')
    self.assertEqual(sim.recv(sock), b'\0')
    client.do('raw-datagram ' + 'ab' * 3000)
    self.assertEqual(sim.recv(sock), b'\xab' * 3000)
    channel = client.status()['channel']
    port = int(sim.ask('ppid'))
    self.assertEqual(channel, {'bound': True, 'port': port, 'destination': port, 'sent': 5, 'lost': 0,
                               'no_listener': 0})

  def test_takes_the_flags_of_socket(self):
    sim = self.start()
    sock = sim.ask('socket', AF_NETLINK, PROTOCOL, os.O_NONBLOCK)
    self.assertEqual(sim.ask('recv', sock), 'EAGAIN')
    self.assertRegex(sim.ask('socket', AF_NETLINK, PROTOCOL, os.O_CLOEXEC), r'^\d+$')

  def test_is_waited_for_with_select(self):
    sim = self.start()
    sock = sim.bind_channel()
    self.assertEqual(sim.ask('select', 0, sock), '0')
    sim.client().do('event 1')
    self.assertEqual(sim.ask('select', -1, sock), '1 %d' % sock)
    sim.recv(sock)
    self.assertEqual(sim.ask('select', 0, sock), '0')

  def test_other_netlink_protocols_are_the_machines_own(self):
    sim = self.start()
    route = sim.ask('socket', AF_NETLINK, 0, 0)
    self.assertRegex(route, r'^\d+$')
    self.assertEqual(sim.ask('bind', route, 0, ADDRESS_SIZE, AF_NETLINK), '0')
    self.assertIn(sim.ask('socket', AF_NETLINK, 31, 0), ('EPROTONOSUPPORT', 'EAFNOSUPPORT'))

  def test_bind_answers_as_the_kernel_does(self):
    sim = self.start()
    first, second = (sim.ask('socket', AF_NETLINK, PROTOCOL, 0) for _ in range(2))
    self.assertEqual(sim.ask('bind', first, 77, ADDRESS_SIZE - 1, AF_NETLINK), 'EINVAL')
    self.assertEqual(sim.ask('bind', first, 77, 0, AF_NETLINK), 'EINVAL')
    self.assertEqual(sim.ask('bind', first, 77, ADDRESS_SIZE, socket.AF_INET), 'EINVAL')
    self.assertEqual(sim.ask('bind', first, 77, ADDRESS_SIZE, AF_NETLINK), '0')
    self.assertEqual(sim.ask('bind', first, 77, ADDRESS_SIZE + 10, AF_NETLINK), '0')  # the same again
    self.assertEqual(sim.ask('bind', first, 78, ADDRESS_SIZE, AF_NETLINK), 'EINVAL')  # it keeps its own
    self.assertEqual(sim.ask('bind', second, 77, ADDRESS_SIZE, AF_NETLINK), 'EADDRINUSE')
    self.assertEqual(sim.ask('fork', 'bind', second, 77, ADDRESS_SIZE, AF_NETLINK), 'EADDRINUSE')
    self.assertEqual(sim.ask('close', first), '0')
    self.assertEqual(sim.ask('bind', second, 77, ADDRESS_SIZE, AF_NETLINK), '0')
    third, fourth = (sim.ask('socket', AF_NETLINK, PROTOCOL, 0) for _ in range(2))
    self.assertEqual(sim.ask('bind', third, 0, ADDRESS_SIZE, AF_NETLINK), '0')   # some free port
    self.assertEqual(sim.ask('bind', fourth, 0, ADDRESS_SIZE, AF_NETLINK), '0')

  def test_is_one_socket_in_copies_children_and_threads(self):
    sim = self.start()
    sock = sim.bind_channel()
    copy = sim.ask('dup', sock)
    sim.ask('close', sock)
    sim.client().do('event 1 3 times')
    for words in (('thread',), ('fork',), ()):
      self.assertEqual(sim.ask(*words, 'recv', copy), '24 0 ' + header(0, 1).hex())
    other = sim.ask('socket', AF_NETLINK, PROTOCOL, 0)
    self.assertEqual(sim.ask('bind', other, sim.ask('ppid'), ADDRESS_SIZE, AF_NETLINK), 'EADDRINUSE')
    sim.ask('close', copy)
    self.assertEqual(sim.ask('bind', other, sim.ask('ppid'), ADDRESS_SIZE, AF_NETLINK), '0')

  def test_is_closed_for_whoever_asks_next(self):
    sim = self.start()
    client = sim.client()
    client.status()
    sock = sim.bind_channel()
    sim.process.send_signal(signal.SIGSTOP)
    self.assertEqual(sim.ask('close', sock), '0')
    client.sock.sendall(b'event 1\nstatus\n')  # and so it finds both at once
    sim.process.send_signal(signal.SIGCONT)
    self.assertEqual(client.answer()[1], 'ok')
    channel = json.loads(client.answer()[0][0])['channel']
    self.assertEqual((channel['bound'], channel['no_listener'], channel['lost']), (False, 1, 0))

  def test_takes_no_notice_of_what_a_program_sends(self):
    sim = self.start()
    sock = sim.bind_channel()
    self.assertEqual(sim.ask('send', sock, '00' * 24), '24')
    self.assertEqual(sim.ask('send', sock, pack('II', 3, 12).hex() + '00' * 12), '20')
    sim.client().do('event 1')
    self.assertEqual(sim.recv(sock), header(0, 1))

  def test_counts_datagrams_that_nobody_is_bound_for(self):
    sim = self.start()
    client = sim.client()
    client.do('event 1', 'raw-datagram 00')
    self.assertEqual(client.status()['channel'], {'bound': False, 'port': 0, 'destination': 0, 'sent': 0, 'lost': 0,
                                                  'no_listener': 2})
    sock = sim.ask('socket', AF_NETLINK, PROTOCOL, 0)
    self.assertEqual(sim.ask('bind', sock, 77, ADDRESS_SIZE, AF_NETLINK), '0')
    client.do('event 1')  # bound, but not to the destination
    self.assertEqual(client.status()['channel']['no_listener'], 3)
    self.assertEqual(client.status()['events'][1]['count'], 2)  # the driver has counted them

  def test_loses_datagrams_of_a_full_socket_and_says_so_once(self):
    sim = self.start()
    sock = sim.bind_channel()
    client = sim.client()
    client.do('event 5 text "%s" 2000 times' % ('x' * 1000))
    while client.status()['script']['pending'] > 0:
      pass
    channel = client.status()['channel']
    self.assertGreater(channel['sent'], 10)
    self.assertEqual(channel['sent'] + channel['lost'], 2000)
    for _ in range(channel['sent']):
      self.assertEqual(len(sim.recv(sock)), 1024)
    client.do('event 6')
    self.assertEqual(sim.recv(sock), header(0, 6))
    self.assertEqual(client.status()['channel']['lost'], channel['lost'])
    self.assertEqual(sim.end()[1].count('a datagram is lost'), 1)

  def test_events_are_suppressed_as_the_daemon_configured(self):
    sim = self.start('--verbose')
    sock = sim.bind_channel()
    self.assertEqual(sim.configure(message(3, 4, 1, 3, 1000))[0], '0')
    client = sim.client()
    client.do('event storm 10 times', 'event 5')
    while client.status()['script']['pending'] > 0:
      pass
    self.assertEqual([sim.recv(sock) for _ in range(4)].count(header(0, 4)), 3)
    event = client.status()['events'][4]
    self.assertEqual((event['count'], event['suppressed'], event['suppressed_count']), (3, True, 7))
    sim.err.wait_for('event 4: suppression begins')

  def test_a_suppression_ends(self):
    sim = self.start('--verbose')
    self.assertEqual(sim.configure(message(3, 4, 1, 0, 10))[0], '0')  # one poll of half a second
    sim.err.wait_for('event 4: released')  # setting it releases
    sim.client().do('event 4')
    sim.err.wait_for('event 4: suppression begins')
    client = sim.client()
    while client.status()['events'][4]['suppressed']:
      pass
    self.assertEqual(sim.end()[1].count('event 4: released'), 2)

  def test_fails_when_asked_to(self):
    sim = self.start()
    sim.client().do('fail socket 1 times', 'fail bind 1 times')
    self.assertEqual(sim.ask('socket', AF_NETLINK, PROTOCOL, 0), 'EPROTONOSUPPORT')
    sock = sim.ask('socket', AF_NETLINK, PROTOCOL, 0)
    self.assertEqual(sim.ask('bind', sock, 77, ADDRESS_SIZE, AF_NETLINK), 'EADDRINUSE')
    self.assertEqual(sim.ask('bind', sock, 77, ADDRESS_SIZE, AF_NETLINK), '0')

  def test_neither_spins_nor_hangs_when_the_launcher_dies(self):
    sim = self.start()
    sock = sim.bind_channel()
    sim.client().do('event 1')
    sim.kill()
    # What had come is there still; then the socket is left out, and other descriptors and the time are waited for.
    self.assertEqual(sim.ask('select', -1, sock), '1 %d' % sock)
    self.assertEqual(sim.recv(sock), header(0, 1))
    self.assertEqual(sim.ask('select', 20, sock), '0')
    null = sim.ask('open', 'open', '/dev/zero')
    self.assertEqual(sim.ask('select', -1, sock, null), '1 %s' % null)
    self.assertEqual(sim.ask('bind', sock, 5, ADDRESS_SIZE, AF_NETLINK), 'ENODEV')
    sim.process.stdin.close()
    self.assertEqual(sum('gone' in line for line in sim.err.text().splitlines()), 1)

  def test_a_wait_that_goes_on_ends_when_the_launcher_dies(self):
    if emulator:
      self.skipTest('the state of an emulated process is the emulator\'s')
    sim = self.start()
    sock = sim.bind_channel()
    daemon = sim.client().status()['daemon']['pid']
    sim.ask('ignore', int(signal.SIGTERM))
    sim.send('fork', 'select', -1, sock)
    child, state = '', ''
    while state != 'S':  # it waits
      with open('/proc/%d/task/%d/children' % (daemon, daemon), encoding='ascii') as file:
        child = file.read().strip()
      if child:
        with open('/proc/%s/stat' % child, encoding='ascii') as file:
          state = file.read().split(') ')[1][0]
    sim.process.kill()
    self.assertEqual(sim.out.next(), 'EINTR')


class KernelMessages(SimTest):
  LINE = r'^<(\d)>\[ *\d+\.\d{6}\] (.*)$'

  def read_line(self, sim, file):
    line = ''
    while not line.endswith('\n'):
      line += bytes.fromhex(sim.ask('read', file, 1).split(' ')[1]).decode()
    return line[:-1]

  def test_have_the_form_of_the_kernel(self):
    sim = self.start()
    file = sim.open(KMSG)
    client = sim.client()
    client.do('kmsg "usb 1-1: new device"')
    self.assertRegex(self.read_line(sim, file), r'^<6>\[ {4}\d\.\d{6}\] usb 1-1: new device$|^<6>\[ *\d+\.\d{6}\] usb')
    for level, priority in ((0, 0), (1, 0), (2, 1), (6, 5), (8, 7)):
      client.do('kmsg 5 %d "link up"' % level)
      match = re.match(self.LINE, self.read_line(sim, file))
      self.assertEqual(match.groups(), (str(priority), '<jxlog-05:%d:link up<jxlog>' % level))
    client.do('kmsg 99 3 "a\\nb"')  # each line of a text is one of the kernel's
    self.assertEqual(re.match(self.LINE, self.read_line(sim, file))[2], '<jxlog-99:3:a')
    self.assertEqual(re.match(self.LINE, self.read_line(sim, file))[2], 'b<jxlog>')
    client.do('raw-kmsg "half"', 'raw-kmsg " and\\x00half\\n"')
    self.assertEqual(self.read_line(sim, file), 'half and\0half')
    self.assertEqual(client.status()['kmsg'], {'written': 10, 'withheld': 0, 'lost': 0})

  def test_are_kept_until_a_reader_comes(self):
    sim = self.start()
    client = sim.client()
    client.do('kmsg first', 'kmsg second')
    self.assertRegex(sim.ask('fopen', 'fopen', KMSG), 'first$')
    sim2 = self.start()
    sim2.client().do('kmsg first')
    self.assertRegex(sim2.ask('fopen', 'fopen64', KMSG), 'first$')

  def test_oldest_are_lost_when_nobody_reads(self):
    sim = self.start()
    client = sim.client()
    client.do('raw-kmsg "%s\\n" 300 times' % ('x' * 1023))
    while client.status()['script']['pending'] > 0:
      pass
    client.do('raw-kmsg "last\\n"')
    # 262144 bytes are 256 of these lines; the last one takes the place of one more.
    self.assertEqual(client.status()['kmsg'], {'written': 301, 'withheld': 0, 'lost': 45})
    self.assertEqual(sim.ask('fopen', 'fopen', KMSG), 'x' * 1023)
    self.assertEqual(sim.end()[1].count('oldest lines are lost'), 1)

  def test_obey_the_levels_of_the_log_device(self):
    sim = self.start()
    file = sim.open(KMSG)
    log = sim.open(LOG)
    client = sim.client()
    sim.ioctl(log, 0x4300, Devices.control_message(3, 5, 1, 4))
    client.do('kmsg 5 5 five', 'kmsg 5 4 four', 'kmsg 6 8 other')
    self.assertRegex(self.read_line(sim, file), 'four')
    self.assertRegex(self.read_line(sim, file), 'other')
    sim.ioctl(log, 0x4300, Devices.control_message(3, 5, 2, 0))
    client.do('kmsg 5 1 one', 'kmsg plain')
    self.assertRegex(self.read_line(sim, file), 'plain')
    sim.ioctl(log, 0x4300, Devices.control_message(3, 5, 2, 1))
    sim.ioctl(log, 0x4300, Devices.control_message(3, 5, 0, 0))  # the print level is another one
    client.do('kmsg 5 4 again')
    self.assertRegex(self.read_line(sim, file), 'again')
    self.assertEqual(client.status()['kmsg'], {'written': 4, 'withheld': 2, 'lost': 0})

  def test_are_shared_by_several_readers(self):
    sim = self.start()
    files = [sim.open(KMSG), sim.open(KMSG)]
    client = sim.client()
    client.do(*['kmsg line%d' % i for i in range(4)])
    read = [re.match(self.LINE, self.read_line(sim, file))[2] for file in files + files]
    self.assertEqual(sorted(read), ['line0', 'line1', 'line2', 'line3'])  # each to one
    sim.ask('close', files[0])
    client.do('kmsg rest')
    self.assertRegex(self.read_line(sim, files[1]), 'rest')

  def test_wait_for_a_slow_reader_without_holding_others_up(self):
    sim = self.start()
    file = sim.open(KMSG)
    client = sim.client()
    total = 200 * 1024
    client.do('raw-kmsg "%s" 200 times' % ('y' * 1024))
    while client.status()['script']['pending'] > 0:
      pass
    self.assertEqual(client.status()['kmsg'], {'written': 200, 'withheld': 0, 'lost': 0})
    got = 0
    while got < total:
      got += int(sim.ask('read', file, min(65536, total - got)).split(' ')[0])
    client.do('kmsg end')
    self.assertRegex(self.read_line(sim, file), 'end')

  def test_are_unharmed_by_a_reader_that_goes(self):
    sim = self.start()
    client = sim.client()
    file = sim.open(KMSG)
    client.do('raw-kmsg "%s\\n" 20 times' % ('z' * 4000))
    while client.status()['script']['pending'] > 0:
      pass
    sim.ask('close', file)
    client.do('kmsg end')
    file = sim.open(KMSG)
    for _ in range(30):
      if 'end' in self.read_line(sim, file):
        break
    else:
      self.fail('no end')


class Scripts(SimTest):
  def test_run_in_order(self):
    sim = self.start(script='say a\nat 50ms say d\nat 20ms say b\nafter 10ms say c\nevery 20ms say e 2 times\n'
                            'at 100ms stop\n')
    sim.process.wait()
    self.assertEqual(re.findall(r'(?m)^tarn-sim: (\w)$', sim.err.text()), list('abcede'))
    self.assertEqual(sim.process.returncode, 128 + signal.SIGTERM)

  def test_await_the_channel(self):
    sim = self.start(script='say start\nawait channel\nsay bound\nevent 7\n')
    sim.err.wait_for('tarn-sim: start')
    self.assertEqual(sim.client().status()['script'], {'pending': 3, 'done': 1})
    sock = sim.bind_channel()
    self.assertEqual(sim.recv(sock), header(0, 7))
    sim.err.wait_for('tarn-sim: bound')
    self.assertEqual(sim.client().status()['script'], {'pending': 0, 'done': 3})

  def test_await_settings(self):
    sim = self.start(script='await settings\nsay set\n')
    self.assertEqual(sim.client().status()['script'], {'pending': 2, 'done': 0})
    sim.configure(message(3, 7, 1, 3, 100))
    sim.err.wait_for('tarn-sim: set')
    self.assertEqual(sim.client().status()['script'], {'pending': 0, 'done': 1})

  def test_do_every_command(self):
    sim = self.start(script='name 7 door\nawait channel\nevent door device 9 data 01\nkmsg 5 6 "link up"\nkmsg plain\n'
                            'raw-kmsg "raw\\n"\nraw-datagram 0102\nfail ioctl 1 times\nsay "a\\x07b"\n')
    sock = sim.bind_channel()
    self.assertEqual(sim.recv(sock), header(1, 7, 9) + b'\x01')
    self.assertEqual(sim.recv(sock), b'\x01\x02')
    file = sim.open(KMSG)
    text = ''
    while 'raw\n' not in text:
      text += bytes.fromhex(sim.ask('read', file, 512).split(' ')[1]).decode()
    self.assertRegex(text, r'link up<jxlog>\n.*plain\nraw\n$')
    self.assertEqual(sim.ioctl(sim.open(PAL), 0x4301, header(32) + message(4))[0], 'EIO')
    sim.err.wait_for(r'^tarn-sim: a\\x07b$')
    self.assertEqual(sim.client().status()['events'][7]['name'], 'door')

  def test_of_a_thousand_million_commands_leave_room_for_others(self):
    sim = self.start(script='event 1 1000000000 times\n')
    client = sim.client()
    self.assertEqual(sim.configure(message(4, 1))[0], '0')
    self.assertEqual(client.status()['script']['pending'], 1)

  def test_have_more_types_when_asked(self):
    sim = self.start('--events', '65536', script='event 65535\n')
    sim.ask('ppid')
    events = sim.client().status()['events']
    self.assertEqual(len(events), 65536)
    self.assertEqual(events[65535]['count'], 1)


class Control(SimTest):
  def test_answers_each_line(self):
    sim = self.start()
    client = sim.client()
    self.assertEqual(client.ask('# comment'), ([], 'ok'))
    self.assertEqual(client.ask(''), ([], 'ok'))
    self.assertEqual(client.ask('foo'), ([], "error: column 1: 'foo' is no command"))
    self.assertEqual(client.ask('at 5ms dump'), ([], "error: column 4: '5ms' is no multiple of 10 ms"))
    self.assertEqual(client.ask('await channel'), ([], 'error: column 1: only a script can await'))
    self.assertEqual(client.ask('status now')[1], "error: column 1: 'status' is no command")
    self.assertEqual(client.ask('say hello'), ([], 'ok'))
    sim.err.wait_for('^tarn-sim: hello$')
    client.sock.sendall(b'name 9 nine\nevent nine\nfoo\nsta')
    self.assertEqual([client.answer()[1] for _ in range(3)], ['ok', 'ok', "error: column 1: 'foo' is no command"])
    client.sock.sendall(b'tus\n')
    self.assertEqual(json.loads(client.answer()[0][0])['events'][9]['name'], 'nine')

  def test_dumps_the_table_on_the_console(self):
    sim = self.start('--events', '2')
    sim.client().do('event 1 2 times', 'dump')
    lines = [sim.out.next() for _ in range(6)]
    self.assertEqual([line.split()[:3] for line in lines[3:5]], [['0', '0', 'Disable'], ['1', '2', 'Disable']])
    self.assertEqual(lines[5], '')

  def test_does_a_command_before_it_answers(self):
    sim = self.start()
    client = sim.client()
    for i in range(1, 10):
      client.do('event 3')
      self.assertEqual(client.status()['events'][3]['count'], i)
    self.assertEqual(client.status()['script'], {'pending': 0, 'done': 9})

  def test_times_count_from_now(self):
    sim = self.start()
    client = sim.client()
    client.do('at 10ms say at', 'after 10ms say after', 'every 10ms say every 3 times', 'at 1m say never')
    while client.status()['script']['pending'] > 1:
      pass
    client.do('after 10ms stop')
    self.assertEqual(sim.process.wait(), 128 + signal.SIGTERM)
    said = re.findall(r'(?m)^tarn-sim: (at|after|every|never)$', sim.err.text())
    self.assertEqual(sorted(said), ['after', 'at'] + ['every'] * 3)

  def test_status_tells_everything(self):
    sim = self.start('--events', '2')
    status = sim.client().status()
    self.assertEqual(list(status), ['time_ms', 'daemon', 'channel', 'events', 'modules', 'kmsg', 'collector', 'script',
                                    'failures'])
    self.assertEqual(status['time_ms'] % 10, 0)
    self.assertTrue(status['daemon']['running'])
    os.kill(status['daemon']['pid'], 0)
    self.assertEqual(status['channel'], {'bound': False, 'port': 0, 'destination': 0, 'sent': 0, 'lost': 0,
                                         'no_listener': 0})
    quiet = {'count': 0, 'suppression': False, 'suppressed': False, 'suppressed_count': 0, 'threshold': 0, 'period_ms': 0}
    self.assertEqual(status['events'], [{'type': 0, 'name': '', **quiet}, {'type': 1, 'name': 'link-up', **quiet}])
    self.assertEqual(status['modules'], [])
    self.assertEqual(status['kmsg'], {'written': 0, 'withheld': 0, 'lost': 0})
    self.assertEqual(status['script'], {'pending': 0, 'done': 0})
    self.assertEqual(status['failures'], {'ioctl': 0, 'open': 0, 'bind': 0, 'socket': 0})

  def test_answers_a_last_line_without_an_end(self):
    client = self.start().client()
    client.sock.sendall(b'name 5 five\nfoo')
    client.sock.shutdown(socket.SHUT_WR)
    self.assertEqual(client.answer()[1], 'ok')
    self.assertEqual(client.answer()[1], "error: column 1: 'foo' is no command")
    self.assertEqual(client.file.read(), b'')

  def test_refuses_a_line_that_is_too_long(self):
    client = self.start().client()
    client.do('#' + 'x' * 65535)
    self.assertEqual(client.ask('#' + 'x' * 65536)[1], 'error: the line is longer than 65536 bytes')
    self.assertEqual(client.ask('x' * 1000000)[1], 'error: the line is longer than 65536 bytes')
    client.do('name 5 five')

  def test_is_not_disturbed_by_a_client_that_hangs_or_floods(self):
    sim = self.start()
    hanging = sim.client()
    hanging.sock.sendall(b'sta')
    flooding = sim.client()
    flooding.sock.setblocking(False)
    flood = b'status\n' * 10000
    sent = 0
    while sent < 10 * len(flood):  # until it is stalled: its answers are not read
      _, writable, _ = select.select([], [flooding.sock], [], 0)
      if not writable:
        break
      sent += flooding.sock.send(flood)
      self.assertEqual(sim.client().ask('name 5 five')[1], 'ok')
      sim.clients.pop().close()
    self.assertEqual(sim.configure(message(4, 1))[0], '0')
    # Its answers are there when it reads them.
    flooding.sock.setblocking(True)
    flooding.sock.shutdown(socket.SHUT_WR)
    for _ in range(min(sent // 7, 300)):
      self.assertEqual(flooding.answer()[1], 'ok')
    hanging.sock.sendall(b'tus\n')
    self.assertEqual(hanging.answer()[1], 'ok')

  def test_turns_clients_away_when_there_are_too_many(self):
    sim = self.start()
    clients = [sim.client() for _ in range(32)]
    for client in clients:
      client.do('name 5 five')
    self.assertEqual(sim.client().answer()[1], 'error: too many clients')
    clients[0].sock.close()
    clients[0].file.close()
    while True:
      client = sim.client()
      try:
        client.do('name 5 five')
        break
      except (AssertionError, OSError):  # the launcher has not seen the end yet
        sim.clients.pop().close()

  def test_survives_a_client_that_goes_without_reading(self):
    sim = self.start()
    for _ in range(20):
      client = Client(os.path.join(sim.root, 'control'))
      client.sock.sendall(b'status\n' * 100)
      client.close()
    sim.client().do('dump')


class Collector(SimTest):
  def collected(self, sim):
    with open(os.path.join(sim.root, 'collector.log'), encoding='utf-8') as file:
      return file.read()

  def wait_for_datagrams(self, sim, count):
    client = sim.client()
    while client.status()['collector']['received'] < count:
      pass
    return client.status()['collector']

  def test_is_reached_through_the_shim(self):
    sim = self.start()
    self.assertEqual(sim.ask('sendto', '192.168.1.254', 514, 'hello'), '5')
    self.assertEqual(sim.ask('sendto', '10.0.0.1', 514, 'a\\b\x01c\r'), '6')
    status = self.wait_for_datagrams(sim, 2)
    self.assertEqual((status['how'], status['received']), ('shim', 2))
    self.assertEqual(self.collected(sim), 'hello\na\\\\b\\x01c\n')
    sim.err.wait_for('collector: port %d of the loopback interface stands for port 514' % status['port'])

  def namespace(self, **more):
    sim = self.start(namespace=True, **more)
    if 'a network of the simulation' not in sim.err.wait_for('collector: .*')[0]:
      self.skipTest('no network namespace is permitted here')
    return sim

  def test_is_reached_in_a_network_of_its_own(self):
    sim = self.namespace()
    for address in ('127.0.0.1', '192.168.1.254', '10.9.8.7', '8.8.8.8'):
      self.assertEqual(sim.ask('sendto', address, 514, 'to-' + address), str(3 + len(address)))
    status = self.wait_for_datagrams(sim, 4)
    self.assertEqual((status['how'], status['port'], status['received']), ('namespace', 514, 4))
    self.assertEqual(self.collected(sim), 'to-127.0.0.1\nto-192.168.1.254\nto-10.9.8.7\nto-8.8.8.8\n')

  def test_is_reached_in_a_network_of_its_own_without_rights(self):
    if os.geteuid() != 0:
      self.skipTest('the test before this one shows it')
    root = self.make_root()
    os.chmod(self.folder, 0o755)
    os.chown(root, NOBODY, NOBODY)
    self.skip_unless_nobody_may_run_it()
    sim = self.namespace(root=root, user=NOBODY, group=NOBODY, extra_groups=[])
    self.assertEqual(sim.ask('sendto', '192.168.1.254', 514, 'hello'), '5')
    self.assertEqual(self.wait_for_datagrams(sim, 1)['how'], 'namespace')

  def skip_unless_nobody_may_run_it(self):
    try:
      done = subprocess.run(emulator + [tarn_sim, '--version'], user=NOBODY, group=NOBODY, extra_groups=[],
                            capture_output=True, check=False)
      if done.returncode != 0:
        self.skipTest('others may not run it where it was built')
    except PermissionError:
      self.skipTest('others may not run it where it was built')

  def test_may_be_ones_own(self):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
      own.bind(('127.0.0.1', 0))
      port = own.getsockname()[1]
      sim = self.start('--collector', str(port), namespace=True)
      self.assertEqual(sim.ask('sendto', '192.168.1.254', 514, 'hello'), '5')
      self.assertEqual(own.recv(100), b'hello')
      self.assertEqual(sim.client().status()['collector'], {'how': 'own', 'port': port, 'received': 0})
      sim.err.wait_for('collector: yours, on port %d' % port)

  def test_has_all_that_came_when_the_daemon_ends(self):
    sim = self.start()
    for i in range(50):
      self.assertEqual(sim.ask('sendto', '10.0.0.1', 514, 'datagram%02d' % i), '10')
    sim.send('exit', 0)
    self.assertEqual(sim.process.wait(), 0)
    self.assertEqual(self.collected(sim), ''.join('datagram%02d\n' % i for i in range(50)))


class RealTime(SimTest):
  def test_threads_run_with_ordinary_scheduling_where_it_is_refused(self):
    more = {}
    root = self.make_root()
    if os.geteuid() == 0:
      os.chmod(self.folder, 0o755)
      os.chown(root, NOBODY, NOBODY)
      Collector.skip_unless_nobody_may_run_it(self)
      more = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []}

    def forbid():
      resource.setrlimit(resource.RLIMIT_RTPRIO, (0, 0))
    sim = self.start(root=root, preexec_fn=forbid, **more)
    for _ in range(2):
      self.assertRegex(sim.ask('real-time'), r'^policy 0 stack 262144$')
    self.assertEqual(sim.ask('fork', 'real-time'), 'policy 0 stack 262144')
    self.assertEqual(sim.end()[0], 0)
    self.assertEqual(sum('no right to real-time scheduling' in line for line in sim.err.lines), 1)

  def test_threads_keep_it_where_it_is_granted(self):
    sim = self.start()
    policy = sim.ask('real-time')
    if policy.startswith('policy 0'):
      self.skipTest('no right to real-time scheduling')
    self.assertEqual(policy, 'policy 2 stack 262144')
    self.assertNotIn('real-time', sim.end()[1])


class Gatewayd(SimTest):
  def setUp(self):
    super().setUp()
    if 'TARN_TEST_GATEWAYD' not in os.environ:
      self.skipTest('gatewayd is not built')

  def test_runs_without_rights(self):
    root = self.make_root()
    more = {}
    if os.geteuid() == 0:
      os.chmod(self.folder, 0o777)
      os.chown(root, NOBODY, NOBODY)
      Collector.skip_unless_nobody_may_run_it(self)
      more = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []}
    daemon = emulator + [os.environ['TARN_TEST_GATEWAYD'], '--config', os.path.join(self.folder, 'cfg'),
                         '--set-collector', '192.168.1.254']
    sim = self.start(root=root, daemon=daemon, cwd='/', **more)
    sim.out.wait_for('started, boot count 1')  # subscribers and levels are there
    client = sim.client()
    while not client.status()['channel']['bound']:  # by a thread of its own
      pass
    client.do('event link-down port 3', 'kmsg 5 6 "port 3 is down"', 'kmsg "other"', 'event traffic device 8 10 times')
    sim.out.wait_for('device 3: link down')
    while client.status()['events'][3]['suppressed_count'] < 7:  # three in a window are enough for it
      pass
    status = client.status()
    self.assertEqual(status['channel']['lost'], 0)
    self.assertEqual([module['record'] for module in status['modules'] if module['id'] == 5], [7])
    while True:
      with open(os.path.join(root, 'collector.log'), encoding='utf-8') as file:
        if 'port 3 is down\n' in file.read():
          break
      client.status()
    client.do('stop')
    self.assertEqual(sim.process.wait(), 0)
    with open(os.path.join(root, 'overlay/mu_log.txt'), encoding='utf-8') as file:
      self.assertIn('port 3 is down', file.read())


def main():
  global tarn_sim  # pylint: disable=global-statement
  *words, path = programs.given()
  emulator.extend(words)
  tarn_sim = os.path.abspath(path)
  programs.run_tests()


if __name__ == '__main__':
  main()
