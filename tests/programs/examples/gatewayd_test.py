"""gatewayd, run as its user runs it.

Usage: gatewayd_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] GATEWAYD

The tests wait for what gatewayd prints, never for a time; the hang limit is CTest's. Exits with 77 when all that was to
run was skipped. TARN_TEST_SHIM names the desktop shim, which keeps gatewayd from the machine's own files and devices.
"""

import os
import re
import resource
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
import image  # pylint: disable=wrong-import-position
import programs  # pylint: disable=wrong-import-position

OK, BAD_OPTION, BAD_PATH, UNREADABLE, TOO_LARGE = 0, 2, 3, 4, 5
NOBODY = 65534
DEFAULTS = {
    image.HOST_NAME: image.text(b'gateway'),
    image.UPLINK: image.text(b'lo'),
    image.UPLINK_CHECK_MS: image.number_of(1000),
    image.STATISTICS_S: image.number_of(3),
    image.COLLECTOR: image.number_of(0),
}
FIRST = {**DEFAULTS, image.BOOT_COUNT: image.number_of(1)}

gatewayd_command = []


def command(args, root):
  """The command line and the changes of the environment that run gatewayd on the shim, its files below `root`."""
  # Preloaded, the shim comes before the address sanitizer's library, which that would refuse.
  env = {'TARN_SIM_ROOT': root, 'TSAN_OPTIONS': 'atexit_sleep_ms=0:' + os.environ.get('TSAN_OPTIONS', ''),
         'ASAN_OPTIONS': 'verify_asan_link_order=0:' + os.environ.get('ASAN_OPTIONS', '')}
  *emulator, program = gatewayd_command
  preload = 'LD_PRELOAD=' + os.environ['TARN_TEST_SHIM']
  # A child of the shell alone loads the shim: Python's own helpers, such as unshare, need not.
  start = emulator + ['-E', preload] if emulator else ['env', preload]
  return start + [program] + args, env


class Daemon:
  """A running gatewayd. `output` holds what it has printed, as far as it was read."""

  def __init__(self, args, root, env=None, **popen):
    line, changes = command(args, root)
    self.output = ''
    # Unbuffered: what is read ahead behind a line would be lost to communicate().
    # pylint: disable=consider-using-with
    self.process = subprocess.Popen(line, env={**os.environ, **changes, **(env or {})}, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0, **popen)

  def wait_for(self, pattern):
    """Reads until a line matches; returns the match."""
    for raw in self.process.stdout:
      line = raw.decode()
      self.output += line
      match = re.search(pattern, line)
      if match:
        return match
    raise AssertionError('no line like %r before the end, but:\n%s%s'
                         % (pattern, self.output, self.process.stderr.read().decode()))

  def wait_until_printed(self, text):
    """Reads until it has printed the text, now or earlier: its threads print in no order."""
    if text not in self.output:
      self.wait_for(re.escape(text))

  def end(self, how=signal.SIGTERM):
    """Ends it and returns its status and what it wrote to standard error."""
    self.process.send_signal(how)
    rest, errors = self.process.communicate()
    self.output += rest.decode()
    return self.process.returncode, errors.decode()

  def kill(self):
    if self.process.poll() is None:
      self.process.kill()
    self.process.communicate()


class GatewaydTest(unittest.TestCase):
  """A folder with room for an image, and ways to run gatewayd on it."""

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='gatewayd-')
    self.addCleanup(shutil.rmtree, self.folder)
    self.image = os.path.join(self.folder, 'cfg')
    self.root = tempfile.mkdtemp(prefix='gatewayd-root-')
    self.addCleanup(shutil.rmtree, self.root)
    for path in ('overlay', 'proc', 'dev'):
      os.mkdir(os.path.join(self.root, path))
    for path in ('proc/kmsg', 'dev/mulog-ioctl-dev'):
      self.write_below_root(path, '')

  def write_below_root(self, path, text, mode='w'):
    with open(os.path.join(self.root, path), mode, encoding='ascii') as file:
      file.write(text)

  def read_below_root(self, path):
    with open(os.path.join(self.root, path), encoding='ascii') as file:
      return file.read()

  def write_fields(self, fields):
    self.write(image.image(b''.join(image.record(*field) for field in fields.items())))

  def write(self, data, name='cfg'):
    with open(os.path.join(self.folder, name), 'wb') as file:
      file.write(data)

  def read(self, name='cfg'):
    with open(os.path.join(self.folder, name), 'rb') as file:
      return file.read()

  def fields(self):
    return image.parse(self.read())

  def boot_count(self):
    return image.number(self.fields()[image.BOOT_COUNT])

  def start(self, *args, **popen):
    """Starts it and waits until it runs."""
    daemon = Daemon(['--config', self.image, *args], self.root, **popen)
    self.addCleanup(daemon.kill)
    daemon.wait_for('started, boot count')
    return daemon

  def run_once(self, *args, **popen):
    """Starts it, ends it in order, and returns what it printed."""
    daemon = self.start(*args, **popen)
    status, errors = daemon.end()
    self.assertEqual(status, OK, errors)
    return daemon.output

  def run_until(self, pattern):
    """Starts it, ends it in order once a line matches, and returns what it printed."""
    daemon = self.start()
    daemon.wait_for(pattern)
    status, errors = daemon.end()
    self.assertEqual(status, OK, errors)
    return daemon.output

  def refusal(self, *args, **popen):
    """Runs gatewayd, which ends by itself; returns its status, output and standard error."""
    line, env = command(list(args), self.root)
    done = subprocess.run(line, env={**os.environ, **env}, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          check=False, **popen)
    return done.returncode, done.stdout, done.stderr

  def assert_one_line(self, text, pattern):
    self.assertRegex(text, pattern)
    self.assertEqual(text.count('\n'), 1, text)

  def unprivileged(self):
    """Arguments of Popen that run gatewayd as a user whom permissions bind; skips where that cannot be."""
    if os.geteuid() != 0:
      return {}
    os.chmod(self.folder, 0o755)
    user = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []}
    try:
      status, _, errors = self.refusal('--help', **user)
    except OSError as error:
      status, errors = 1, error
    if status != OK:
      self.skipTest('gatewayd cannot be run as an unprivileged user: %s' % errors)
    return user


class FirstStart(GatewaydTest):

  def test_makes_an_image_with_all_defaults_and_nothing_else(self):
    output = self.run_once()
    self.assertIn('first start', output)
    self.assertNotRegex(output, '[Ss]tartup-cfg|Input an invalid', 'a message of the store')
    self.assertEqual(self.fields(), FIRST)
    self.assertEqual(os.listdir(self.folder), ['cfg'])
    self.assertEqual(os.stat(self.image).st_mode & 0o777, 0o600, 'the owner alone reads it')

  def test_takes_a_name_without_a_folder(self):
    self.image = 'cfg'
    self.run_once(cwd=self.folder)
    self.image = os.path.join(self.folder, 'cfg')
    self.assertEqual(self.boot_count(), 1)


class LaterStart(GatewaydTest):

  def test_counts_each_start_and_keeps_every_other_field(self):
    for count in (1, 2, 3):
      self.assertIn('started, boot count %d\r' % count, self.run_once())
      self.assertEqual(self.fields(), {**DEFAULTS, image.BOOT_COUNT: image.number_of(count)})
    self.start().end(signal.SIGKILL)
    self.assertEqual(self.boot_count(), 4, 'a start that ended in a kill')

  def test_takes_values_from_the_image_and_keeps_the_fields_of_others(self):
    # Texts that fill their fields, and numbers at the ends of their ranges.
    for host, check_ms, statistics_s in ((b'h' * 32, 100, 3600), (b'\xc3\xbc' * 16, 3600000, 1)):
      with self.subTest(host=host):
        fields = {0x7001: b'not ours', image.HOST_NAME: host, image.UPLINK: b'u' * 32, 0x7002: b'\1',
                  image.UPLINK_CHECK_MS: image.number_of(check_ms), image.COLLECTOR: image.number_of(0),
                  image.STATISTICS_S: image.number_of(statistics_s), image.BOOT_COUNT: image.number_of(0xFFFFFFFE)}
        self.write_fields(fields)
        output = self.run_once()
        self.assertIn(host.decode() + ': started, boot count 4294967295\r', output)
        self.assertIn(': %s: no counters\r' % ('u' * 32), self.run_until('no counters'))
        self.assertNotRegex(output, 'makes no sense|another size')
        self.assertEqual(self.fields(), {**fields, image.BOOT_COUNT: image.number_of(0)}, 'the count has wrapped')

  def test_seals_an_image_without_a_checksum(self):
    self.write(image.image(image.record(image.BOOT_COUNT, image.number_of(41)), crc=0))
    self.run_once()
    self.assertEqual(self.boot_count(), 42)


class DamagedImage(GatewaydTest):

  def sound(self):
    return image.image(image.record(image.BOOT_COUNT, image.number_of(7)) + image.record(0x7001, b'tail'))

  def flipped(self, offset):
    data = bytearray(self.sound())
    data[offset] ^= 0x40
    return bytes(data)

  def expect_recovery(self, damaged, message):
    self.write(damaged)
    output = self.run_once()
    if message:
      self.assertRegex(output, message)
    else:
      self.assertNotIn('Startup-cfg', output, 'measured before the store sees it')
    self.assertIn('damaged, starting with defaults; kept as ' + self.image + '.bad', output)
    self.assertEqual(self.read('cfg.bad'), damaged)
    self.assertEqual(self.fields(), FIRST)
    self.assertEqual(sorted(os.listdir(self.folder)), ['cfg', 'cfg.bad'])

  def test_damage_is_told_and_kept_and_survived(self):
    for name, damaged, message in (
        # The bytes read as the number that the message shows.
        ('magic', self.flipped(0), r'magic number is error\(0xc4739458\)'),
        ('value', self.flipped(23), "CRC doesn't match"),
        ('checksum', self.flipped(5), "CRC doesn't match"),
        ('version', self.flipped(15), "CRC doesn't match"),
        ('record without a value', image.image(image.record(0x0101, b'')), 'max len of field'),
        ('record beyond the end', image.image(b'\1\1\0\5abcd'), "Cfg len doesn't mach"),
    ):
      with self.subTest(damage=name):
        self.expect_recovery(damaged, message)
    self.assertIn('started, boot count 2\r', self.run_once())

  def test_image_that_was_cut_is_not_read_behind_its_end(self):
    for name, damaged in (
        ('empty file', b''),
        ('half a header', self.sound()[:15]),
        ('header alone of an image with records', self.sound()[:16]),
        ('last byte missing', self.sound()[:-1]),
        ('text', b'host_name=gateway\nboot_count=7\n'),  # "e=ga" reads as its length
        # 4 GiB of records: whoever believed it would read far behind the buffer.
        ('length beyond any buffer', image.image(b'\0' * 8, length=0xFFFFFFF0, crc=0)),
    ):
      with self.subTest(damage=name):
        self.expect_recovery(damaged, None)

  def test_starts_although_the_damaged_file_cannot_be_kept(self):
    os.makedirs(os.path.join(self.folder, 'cfg.bad', 'full'))
    self.write(self.flipped(23))
    output = self.run_once()
    self.assertIn('could not be kept', output)
    self.assertEqual(self.boot_count(), 1)


class RefusedImage(GatewaydTest):

  def expect_refusal(self, path, status, message):
    with self.subTest(path=path):
      got, output, errors = self.refusal('--config', path, '--run-for', '1')
      self.assertEqual(got, status, output + errors)
      self.assert_one_line(errors, '^gatewayd: .*' + message)

  def test_bad_paths(self):
    here = self.folder
    self.write(b'')
    os.mkfifo(os.path.join(here, 'pipe'))
    for path, message in (
        (here + '/none/cfg', 'No such file'),
        (here + '/cfg/cfg', 'Not a directory'),
        (here, 'no regular file'),
        (here + '/', 'names no file'),
        ('', 'names no file'),
        (here + '/pipe', 'no regular file'),
        ('/' + 'x/' * 2100 + 'cfg', 'path is too long'),
    ):
      self.expect_refusal(path, BAD_PATH, message)
    self.assertEqual(sorted(os.listdir(here)), ['cfg', 'pipe'])

  def test_image_that_cannot_be_opened(self):
    os.symlink('cfg', self.image)  # to itself
    self.expect_refusal(self.image, UNREADABLE, 'cannot be opened: Too many levels')
    self.expect_refusal(self.folder + '/' + 'x' * 256, UNREADABLE, 'cannot be opened: File name too long')
    self.assertTrue(os.path.islink(self.image))

  def test_image_without_permission(self):
    user = self.unprivileged()
    self.write(image.image(b''))
    os.chmod(self.image, 0)
    status, _, errors = self.refusal('--config', self.image, **user)
    self.assertEqual(status, UNREADABLE, errors)
    self.assertIn('Permission denied', errors)

  def test_image_larger_than_the_buffer(self):
    for size in (image.MAX_SIZE + 1, image.MAX_SIZE + 16, image.MAX_SIZE + 17, 60000):
      data = image.image(image.record(0x7001, b'x' * (size - 20)))
      self.write(data)
      self.expect_refusal(self.image, TOO_LARGE, 'larger than 4080 bytes')
      self.assertEqual(self.read(), data)
      self.assertEqual(os.listdir(self.folder), ['cfg'])

  def test_largest_image_is_taken(self):
    records = image.record(image.BOOT_COUNT, image.number_of(7))
    records += image.record(0x7001, b'x' * (image.MAX_SIZE - 16 - len(records) - 4))
    self.write(image.image(records))
    output = self.run_once()
    self.assertIn('started, boot count 8\r', output)
    # Nothing else fits: every other field is told and served by its default.
    for key in DEFAULTS:
      self.assertIn('field 0x%04x has another size or finds no room' % key, output)
    self.assertEqual(set(self.fields()), {image.BOOT_COUNT, 0x7001})
    self.assertIn('boot count 9\r', self.run_once())

  def test_field_that_fills_the_image_to_the_last_byte_is_made(self):
    # The count takes 8 bytes; with one byte less it must not be made, or the image could not be loaded again.
    others = b''.join(image.record(*field) for field in DEFAULTS.items())
    for room, is_made in ((8, True), (7, False)):
      with self.subTest(room=room):
        filler = image.record(0x7001, b'x' * (image.MAX_SIZE - 16 - len(others) - room - 4))
        self.write(image.image(others + filler))
        self.run_once()
        self.assertEqual(image.BOOT_COUNT in self.fields(), is_made)
        self.assertNotIn('damaged', self.run_once())


class Fields(GatewaydTest):

  def test_field_of_another_size_is_told_and_left_alone(self):
    wrong = {image.UPLINK_CHECK_MS: b'\5', image.STATISTICS_S: b'\0\1', image.HOST_NAME: b'n' * 40,
             image.UPLINK: b'eth0', image.COLLECTOR: b'\1\2', image.BOOT_COUNT: b'\0\0\0\0\7'}
    self.write_fields(wrong)
    output = self.run_once()
    for key in wrong:
      self.assertIn('field 0x%04x has another size' % key, output)
    self.assertIn('gateway: started, boot count 1\r', output)
    self.assertEqual(self.fields(), wrong)

  def test_number_out_of_range_is_told_and_replaced(self):
    for key, number in ((image.UPLINK_CHECK_MS, 99), (image.UPLINK_CHECK_MS, 3600001), (image.STATISTICS_S, 0),
                        (image.STATISTICS_S, 3601)):
      with self.subTest(key=hex(key), number=number):
        self.write_fields({key: image.number_of(number)})
        self.assertIn('field 0x%04x: %d makes no sense, default used' % (key, number), self.run_once())
        self.assertEqual(self.fields(), FIRST)


class Saving(GatewaydTest):
  """However a save fails: the old image stays byte for byte, nothing is left behind, and the daemon says so."""

  OLD = image.image(image.record(image.BOOT_COUNT, image.number_of(7)))
  FAILED = 'not saved, the file stays as it was: '

  def setUp(self):
    super().setUp()
    self.write(self.OLD)

  def expect_old_image(self, output, reason, left=('cfg',)):
    self.assertIn('started, boot count 8\r', output)
    self.assertIn(self.FAILED + reason, output)
    self.assertEqual(self.read(), self.OLD)
    self.assertEqual(sorted(os.listdir(self.folder)), sorted(left))

  def test_never_writes_to_the_old_file(self):
    os.link(self.image, self.image + '.old')
    self.run_once()
    self.assertEqual(self.read('cfg.old'), self.OLD)
    self.assertEqual(self.boot_count(), 8)

  def test_a_reader_never_meets_half_an_image(self):
    done = threading.Event()
    broken = []

    def read_on():
      while not done.is_set():
        try:
          image.parse(self.read())
        except (AssertionError, OSError, ValueError) as error:
          broken.append(error)

    reader = threading.Thread(target=read_on)
    reader.start()
    try:
      for _ in range(5):
        self.run_once()
    finally:
      done.set()
      reader.join()
    self.assertEqual(broken, [])
    self.assertEqual(self.boot_count(), 12)

  def test_file_that_cannot_grow(self):
    # As on a full disk, a write stops in the middle. Standard output is a pipe, to which the limit does not apply.
    def limit():
      resource.setrlimit(resource.RLIMIT_FSIZE, (40, 40))

    # An instrumented library would cut its own records of what ran.
    output = self.run_once(preexec_fn=limit, env={'GCOV_PREFIX': '/dev/null'})
    self.expect_old_image(output, 'File too large')

  def test_full_disk(self):
    if os.geteuid() != 0:
      self.skipTest('mounting a small file system needs root')
    probe = subprocess.run(['unshare', '-m', 'mount', '-t', 'tmpfs', 'tmpfs', self.folder], capture_output=True,
                           text=True, check=False)
    if probe.returncode != 0:
      self.skipTest('mounting is not possible here: ' + probe.stderr.strip())
    # In a mount namespace that ends with the script: one page for the image, none for the temporary file.
    line, env = command(['--config', self.folder + '/cfg', '--run-for', '1'], self.root)
    script = ('set -e; here=$1; shift; cp "$here/cfg" "$here.old"; mount -t tmpfs -o nr_blocks=1 tmpfs "$here";'
              'cp "$here.old" "$here/cfg"; status=0; "$@" || status=$?; cmp "$here/cfg" "$here.old"; ls "$here";'
              'rm "$here.old"; exit $status')
    done = subprocess.run(['unshare', '-m', 'sh', '-c', script, 'sh', self.folder, *line],
                          env={**os.environ, **env}, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          check=False)
    self.assertEqual(done.returncode, OK, done.stdout + done.stderr)
    self.assertIn(self.FAILED + 'No space left', done.stdout)
    self.assertTrue(done.stdout.endswith('\ncfg\n'), 'not the image alone: ' + done.stdout[-100:])

  def test_folder_in_the_temporary_file_s_place(self):
    os.makedirs(os.path.join(self.folder, 'cfg.tmp'))
    output = self.run_once()
    self.expect_old_image(output, 'File exists', left=('cfg', 'cfg.tmp'))
    self.assertRegex(output, r'\n\[[0-9/:-]+\]-\[Error \d+\]config: .*' + self.FAILED, 'an error in the log, too')

  def test_does_not_follow_a_link_in_the_temporary_file_s_place(self):
    self.write(b'precious', 'other')
    os.symlink('other', self.image + '.tmp')
    self.assertNotIn('not saved', self.run_once())
    self.assertEqual(self.read('other'), b'precious')
    self.assertEqual(self.boot_count(), 8)
    self.assertEqual(sorted(os.listdir(self.folder)), ['cfg', 'other'])

  def test_read_only_folder(self):
    user = self.unprivileged()
    os.chmod(self.image, 0o644)
    os.chmod(self.folder, 0o555)
    try:
      self.expect_old_image(self.run_once(**user), 'Permission denied')
    finally:
      os.chmod(self.folder, 0o755)

  def test_image_that_may_not_be_replaced(self):
    user = self.unprivileged()
    if not user:
      self.skipTest('an image of another user needs root')
    os.chmod(self.image, 0o644)
    os.chmod(self.folder, 0o1777)  # everybody may make files here, and replace only their own
    self.expect_old_image(self.run_once(**user), 'Operation not permitted')

  def test_replaces_what_a_crash_left(self):
    self.write(b'half an image' * 100, 'cfg.tmp')
    os.chmod(self.image + '.tmp', 0o644)
    self.assertNotIn('not saved', self.run_once())
    self.assertEqual(os.stat(self.image).st_mode & 0o777, 0o600)
    self.assertEqual(self.boot_count(), 8)
    self.assertEqual(os.listdir(self.folder), ['cfg'])


class Options(GatewaydTest):

  def test_help(self):
    status, output, errors = self.refusal('--help')
    self.assertEqual((status, errors), (OK, ''))
    for word in ('--config FILE', '--run-for SECONDS', '--set-collector IP', '--help', 'SIGTERM'):
      self.assertIn(word, output)
    for code in ('0 ended in order', '2 bad option', '3 bad path', '4 image not readable', '5 image too large'):
      self.assertIn(code, output)

  def test_bad_options(self):
    config = ('--config', self.image)
    for args, message in (
        ((), '--config is missing'),
        (('--config',), 'requires an argument'),
        ((*config, '--no-such-option'), 'unrecognized option'),
        ((*config, '-x'), 'invalid option'),
        ((*config, 'more'), "'more' is no option"),
        ((*config, '--run-for', ''), "'' is no time"),
        ((*config, '--run-for', '0'), 'is no time'),
        ((*config, '--run-for', '-1'), 'is no time'),
        ((*config, '--run-for', '1s'), 'is no time'),
        ((*config, '--run-for', '1000001'), 'is no time'),
        ((*config, '--run-for', '99999999999999999999'), 'is no time'),
        ((*config, '--set-collector', ''), 'is no IPv4 address'),
        ((*config, '--set-collector', '10.0.0'), 'is no IPv4 address'),
        ((*config, '--set-collector', '10.0.0.256'), 'is no IPv4 address'),
        ((*config, '--set-collector', 'localhost'), 'is no IPv4 address'),
    ):
      with self.subTest(args=args):
        status, output, errors = self.refusal(*args)
        self.assertEqual((status, output), (BAD_OPTION, ''))
        self.assertIn(message, errors)
    self.assertEqual(os.listdir(self.folder), [], 'a refused start makes no image')


class Ending(GatewaydTest):

  def test_signals_end_it_in_order_with_its_log(self):
    for how, name in ((signal.SIGTERM, 'SIGTERM'), (signal.SIGINT, 'SIGINT')):
      with self.subTest(signal=name):
        daemon = self.start()
        status, errors = daemon.end(how)
        self.assertEqual(status, OK, errors)
        for text in ('gateway: started', 'gateway: ends, ' + name):
          self.assertRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[Notice \d+\]main: ' + text)

  def test_ends_when_its_time_is_over_also_if_it_was_stopped_before(self):
    daemon = self.start('--run-for', '1')
    daemon.wait_for(' checks,')  # it waits for its end by now
    daemon.process.send_signal(signal.SIGSTOP)
    os.waitpid(daemon.process.pid, os.WUNTRACED)  # a SIGCONT that came earlier would undo it
    daemon.process.send_signal(signal.SIGCONT)
    daemon.wait_for('gateway: ends, its time is over')
    rest, errors = daemon.process.communicate()
    self.assertEqual(daemon.process.returncode, OK, errors.decode())
    self.assertIn(b'Expired timer Number', rest)

  def test_prints_its_timers(self):
    output = self.run_until(r'\[traffic-Info: \d+\]: lo: \d+ checks')  # the first scan is over
    rows = re.findall(r'\n(\d+) +(\d+) +\d+ +(\d+) +(Circle|OneShot) ', output)
    # The one-shots of the first look and the first report, 7 and 8, may still be on their way out.
    rows = [row for row in rows if int(row[1]) <= 6]
    # In the order of their adds; what the one-shots are armed for changes.
    self.assertEqual([(row, timer_id, kind) for row, timer_id, _, kind in rows],
                     [('0', '1', 'Circle'), ('1', '2', 'Circle'), ('2', '3', 'Circle'), ('3', '4', 'Circle'),
                      ('4', '5', 'OneShot'), ('5', '6', 'OneShot')])
    # In ticks of 10 ms. The first saves the log's files, the second polls the events.
    self.assertEqual([interval for _, _, interval, kind in rows if kind == 'Circle'], ['300', '50', '100', '300'])
    self.assertRegex(output, r'\nExpired timer Number: \d+')
    self.assertNotRegex(output, r'\n\[[0-9/:-]+\]-\[Info \d+\]traffic: ', 'statistics have a ring of their own')

  def test_survives_a_reader_that_went_away(self):
    daemon = self.start()
    daemon.process.stdout.close()
    daemon.process.stderr.close()
    daemon.process.send_signal(signal.SIGTERM)
    self.assertEqual(daemon.process.wait(), OK)


class Log(GatewaydTest):

  def test_is_kept_over_a_restart(self):
    self.run_once()
    saved = self.read_below_root('overlay/mu_log.txt')
    self.assertRegex(saved, r'^SysLog:\n[^\n]+first start\n(?s:.*)\[Notice\]main:gateway: started, boot count 1\n')
    # The timers' thread may have something to log behind it.
    self.assertRegex(saved, r'\n[^\n]+\[Notice\]main:gateway: ends, SIGTERM\n')
    shown = self.run_once()
    # Read from the file: without line numbers, and before what this run has logged.
    self.assertRegex(shown, r'\]-\[Notice\]main: gateway: started, boot count 1\r\n(?s:.*)'
                            r'\]-\[Notice \d+\]main: gateway: started, boot count 2\r\n')

  def test_describes_the_device_in_the_user_log(self):
    self.write_fields({image.HOST_NAME: image.text(b'box'), image.UPLINK: image.text(b'lo')})
    self.run_until(' checks,')
    self.assertRegex(self.read_below_root('overlay/user_log.txt'),
                     r'^Manufacturer:tarn;\nProductClass:gatewayd;\nSerialNumber:box;\nIP:127\.0\.0\.1;\n'
                     r'HWVer:example;\nSWVer:\d+\.\d+\.\d+;\n\n[^\n]+\[Info\]traffic:lo: \d+ checks')

  def test_takes_in_what_kernel_drivers_log(self):
    self.write_below_root('proc/kmsg', '<6>[1.0] boot\n<6>[2.0] <jxlog-05:6:port 3 is up<jxlog>\n')
    daemon = self.start()
    # A message behind the frame, in a later round of the bridge, tells that the frame was logged.
    self.write_below_root('proc/kmsg', '<6>[3.0] <jxlog-99:6:<jxlog>\n', 'a')
    daemon.wait_for('unknow module id:99')
    daemon.end()
    self.assertRegex(daemon.output, r'\]-\[Notice\]switch: port 3 is up')
    self.assertNotIn('boot\n', daemon.output)

  def test_keeps_debugging_messages_while_it_is_told_to(self):
    frame = '<7>[%d.0] <jxlog-05:8:details %d<jxlog>\n<6>[%d.0] <jxlog-99:6:<jxlog>\n'
    daemon = self.start()

    def driver_logs(number):
      self.write_below_root('proc/kmsg', frame % (number, number, number), 'a')
      daemon.wait_for('unknow module id:99')  # the bridge is past the frame

    driver_logs(1)
    daemon.process.send_signal(signal.SIGUSR1)
    daemon.wait_for(r'\[main-Notice: \d+\]: debugging messages are kept')
    driver_logs(2)
    daemon.process.send_signal(signal.SIGUSR2)
    daemon.wait_for(r'\[main-Notice: \d+\]: debugging messages are dropped')
    driver_logs(3)
    daemon.end()
    self.assertEqual(re.findall(r'\]-\[Debug\]switch: details (\d)', daemon.output), ['2'])

  def test_goes_on_without_the_kernel_s_stream_and_device(self):
    os.remove(os.path.join(self.root, 'proc/kmsg'))
    os.remove(os.path.join(self.root, 'dev/mulog-ioctl-dev'))
    daemon = self.start()
    daemon.wait_until_printed('Open kmsg fail! \n')
    self.assertEqual(daemon.end(), (OK, ''))
    self.assertIn('Device open failure /dev/mulog-ioctl-dev\n', daemon.output)

  def test_leaves_the_kernel_to_its_own_daemon(self):
    self.write_below_root('overlay/klogd', '')
    daemon = self.start()
    daemon.wait_until_printed('Klogd enable!!\n')
    self.assertEqual(daemon.end(), (OK, ''))


class Events(GatewaydTest):

  ROW = r'\n%d +(\d+) +(\w+) +(\S+) +(\S+) +(\S+) +(\S+)\n'

  def test_link_events_reach_their_subscriber_and_the_table(self):
    output = self.run_until(' checks,')
    self.assertIn('no platform driver: events of this process alone', output)
    self.assertRegex(output, r'\[uplink-Notice: \d+\]: device 0: link up')
    self.assertRegex(output, self.ROW % 1)
    self.assertEqual(re.search(self.ROW % 1, output).groups(), ('1', 'Disable', '-', '-', '-', '-'))
    self.assertEqual(re.search(self.ROW % 2, output).group(1), '0')
    self.assertEqual(re.search(self.ROW % 3, output).groups()[1:3] + re.search(self.ROW % 3, output).groups()[4:],
                     ('Enable', 'No', '3', '100'))

  def test_a_missing_uplink_is_a_link_that_is_down(self):
    self.write_fields({image.UPLINK: image.text(b'nosuch0'), image.UPLINK_CHECK_MS: image.number_of(100),
                       image.STATISTICS_S: image.number_of(1)})
    daemon = self.start()
    daemon.wait_for(r'\[uplink-Notice: \d+\]: device 0: link down')
    daemon.wait_for(r': [2-9]\d* checks')
    daemon.end()
    self.assertEqual(re.search(self.ROW % 2, daemon.output).group(1), '1', 'told once, not at each check')

  def test_a_storm_of_traffic_is_suppressed(self):
    self.write_fields({image.UPLINK_CHECK_MS: image.number_of(100), image.STATISTICS_S: image.number_of(1)})
    daemon = self.start()
    daemon.wait_for(' lo: [1-9][0-9]* checks')
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
      receiver.bind(('127.0.0.1', 0))
      for _ in range(12):  # each seen by a check of its own; windows take 10 polls, which are fewer than checks
        receiver.sendto(b'x', receiver.getsockname())
        daemon.wait_for('bytes received')
    daemon.end()
    count, enabled, _, dropped, threshold, period = re.search(self.ROW % 3, daemon.output).groups()
    self.assertEqual((enabled, threshold, period), ('Enable', '3', '100'))
    self.assertGreater(int(dropped), 0)
    reports = len(re.findall(r'\]: lo: \d+ bytes received', daemon.output))
    self.assertIn(int(count) + int(dropped), (reports - 1, reports), 'the last one may have come between the two')

  def test_with_the_device_the_platform_is_asked(self):
    # An ordinary file stands for the device: it opens, and refuses every command.
    self.write_below_root('dev/mu_pal_ioctl', '')
    # The library neither joins nor detaches the event thread, which ends here: no netlink protocol of the platform.
    output = self.run_once(env={'TSAN_OPTIONS': 'report_thread_leaks=0:atexit_sleep_ms=0'})
    self.assertIn('mu-event: init OK (max_event_num 20)\n', output)
    self.assertIn("Can not run command '1', ret=-1.\n", output)
    self.assertNotIn('Suprs-en', output, 'the table is the driver\'s to show')


class Timers(GatewaydTest):

  def write_settings(self, uplink):
    self.write_fields({image.UPLINK: image.text(uplink), image.UPLINK_CHECK_MS: image.number_of(100),
                       image.STATISTICS_S: image.number_of(1)})

  def test_traffic_of_the_uplink_is_logged(self):
    self.write_settings(b'lo')
    daemon = self.start()
    daemon.wait_for(' lo: [1-9][0-9]* checks')  # it knows where it counts from
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
      receiver.bind(('127.0.0.1', 0))
      for _ in range(20):
        receiver.sendto(b'x' * 1000, receiver.getsockname())
    seen = 0
    while seen < 20 * (1000 + 8 + 20):  # each with a UDP and an IP header
      seen += int(daemon.wait_for(r'\[uplink-Notice: \d+\]: lo: (\d+) bytes received').group(1))
    self.assertEqual(daemon.end()[0], OK)

  def test_uplink_without_counters_is_an_error(self):
    for uplink in ('nosuch0', 'l', 'loo', 'o', ''):  # parts of a name and more are not that interface
      with self.subTest(uplink=uplink):
        self.write_settings(uplink.encode())
        self.assertRegex(self.run_until('checks,'), r'\[uplink-Error: \d+\]: %s: no counters\r' % uplink)

  def test_every_timer_goes_on(self):
    # The first scan calls every timer at once: what comes later comes from timers that were armed again.
    self.write_settings(b'nosuch0')
    output = self.run_until('silent for')
    silences = re.findall(r'\[uplink-Warning: \d+\]: nosuch0: silent for (\d+) s', output)
    self.assertGreaterEqual(int(silences[0]), 3, 'told before it has lasted')
    checks = [int(number) for number in re.findall(r' nosuch0: (\d+) checks', output)]
    self.assertGreaterEqual(len(checks), 3, 'statistics')
    self.assertEqual(checks, sorted(set(checks)), 'the number of checks grows')
    # After 1 and 2 seconds.
    self.assertGreaterEqual(len(re.findall(r'\]memory: [1-9]\d* KiB free', output)), 2, 'memory reports')
    self.assertEqual(len(re.findall(r' OneShot ', output)), 2, 'the one-shots are armed')


class Collector(GatewaydTest):

  def setUp(self):
    super().setUp()
    self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    self.addCleanup(self.socket.close)
    self.socket.bind(('127.0.0.1', 0))
    port = self.socket.getsockname()[1]
    self.popen = {'env': {'TARN_SIM_COLLECTOR_PORT': str(port)}}

  def received(self):
    """What has come since. On loopback a datagram is there when its sender's call returns."""
    texts = []
    while True:
      try:
        texts.append(self.socket.recv(1024, socket.MSG_DONTWAIT).decode())
      except BlockingIOError:
        return texts

  def test_gets_the_messages_that_are_kept(self):
    daemon = self.start('--set-collector', '127.0.0.1', **self.popen)
    daemon.wait_for(' checks,')
    daemon.end()
    texts = self.received()
    self.assertIn('gateway: started, boot count 1', texts)
    self.assertIn('gateway: ends, SIGTERM', texts)
    self.assertTrue([text for text in texts if re.fullmatch('lo: counting from [0-9]+ bytes', text)], texts)
    # They are stored too.
    self.assertRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[Notice \d+\]main: gateway: started')

  def test_is_stored_and_used_until_it_is_unset(self):
    for args, stored in (
        ((), 0),
        (('--set-collector', '127.0.0.1'), 0x7F000001),
        ((), 0x7F000001),
        (('--set-collector', '0.0.0.0'), 0),
        ((), 0),
    ):
      with self.subTest(args=args, stored=stored):
        self.run_once(*args, **self.popen)
        self.assertEqual(self.fields()[image.COLLECTOR], image.number_of(stored))
        texts = self.received()
        self.assertEqual([text for text in texts if 'started' in text],
                         ['gateway: started, boot count %d' % self.boot_count()] if stored else [])
        self.assertEqual(bool(texts), bool(stored), texts)


if __name__ == '__main__':
  programs.main(gatewayd_command)
