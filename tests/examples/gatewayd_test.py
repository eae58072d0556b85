"""gatewayd, run as its user runs it.

Usage: gatewayd_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] GATEWAYD

The tests wait for what gatewayd prints, never for a time; the hang limit is CTest's. Exits with 77 when all that was to
run was skipped. TARN_TEST_SHIM names the desktop shim, for the tests in which gatewayd sends its log to a collector.
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
import image  # pylint: disable=wrong-import-position

OK, BAD_OPTION, BAD_PATH, UNREADABLE, TOO_LARGE = 0, 2, 3, 4, 5
NOBODY = 65534
DEFAULTS = {
    image.HOST_NAME: b'gateway'.ljust(32, b'\0'),
    image.UPLINK: b'lo'.ljust(16, b'\0'),
    image.UPLINK_CHECK_MS: (1000).to_bytes(4, 'big'),
    image.STATISTICS_S: (3).to_bytes(2, 'big'),
    image.LOG_LEVEL: b'\7',
    image.COLLECTOR: bytes(4),
}

gatewayd_command = []


def command(args, preload=None):
  """The command line and the changes of the environment that run gatewayd."""
  env = {'TSAN_OPTIONS': 'atexit_sleep_ms=0:' + os.environ.get('TSAN_OPTIONS', '')}
  *emulator, program = gatewayd_command
  if preload:
    # Preloaded, the shim comes before the address sanitizer's library, which that would refuse.
    env['ASAN_OPTIONS'] = 'verify_asan_link_order=0:' + os.environ.get('ASAN_OPTIONS', '')
    if emulator:
      emulator = emulator + ['-E', 'LD_PRELOAD=' + preload]
    else:
      env['LD_PRELOAD'] = preload
  return emulator + [program] + args, env


class Daemon:
  """A running gatewayd. `output` holds what it has printed, as far as it was read."""

  def __init__(self, args, preload=None, env=None, **popen):
    line, changes = command(args, preload)
    self.output = ''
    # pylint: disable=consider-using-with
    self.process = subprocess.Popen(line, env={**os.environ, **changes, **(env or {})}, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, **popen)

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

  def write(self, data, name='cfg'):
    with open(os.path.join(self.folder, name), 'wb') as file:
      file.write(data)

  def read(self, name='cfg'):
    with open(os.path.join(self.folder, name), 'rb') as file:
      return file.read()

  def fields(self):
    return image.parse(self.read())[1]

  def boot_count(self):
    return image.number(self.fields()[image.BOOT_COUNT])

  def start(self, *args, **popen):
    """Starts it and waits until it runs."""
    daemon = Daemon(['--config', self.image, *args], **popen)
    self.addCleanup(daemon.kill)
    daemon.wait_for('started, boot count')
    return daemon

  def run_once(self, *args, **popen):
    """Starts it, ends it in order, and returns what it printed."""
    daemon = self.start(*args, **popen)
    status, errors = daemon.end()
    self.assertEqual(status, OK, errors)
    return daemon.output

  def refusal(self, *args, **popen):
    """Runs gatewayd, which ends by itself; returns its status, output and standard error."""
    line, env = command(list(args))
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

  def test_makes_an_image_with_all_defaults(self):
    output = self.run_once()
    self.assertIn('first start', output)
    flag, fields = image.parse(self.read())
    self.assertEqual(fields, {**DEFAULTS, image.BOOT_COUNT: (1).to_bytes(4, 'big')})
    self.assertEqual(flag, image.FLAG_ENDED)

  def test_prints_nothing_of_the_store(self):
    self.assertNotRegex(self.run_once(), 'startup-cfg|Startup-cfg|Input an invalid')

  def test_leaves_nothing_but_the_image(self):
    self.run_once()
    self.assertEqual(os.listdir(self.folder), ['cfg'])

  def test_lets_only_the_owner_read_the_image(self):
    self.run_once()
    self.assertEqual(os.stat(self.image).st_mode & 0o777, 0o600)

  def test_takes_a_name_without_a_folder(self):
    self.image = 'cfg'
    self.run_once(cwd=self.folder)
    self.assertEqual(image.number(self.fields()[image.BOOT_COUNT]), 1)

  def test_takes_the_longest_name_that_leaves_room_for_its_suffix(self):
    self.image = os.path.join(self.folder, 'x' * (255 - len('.tmp')))
    self.run_once()
    self.assertTrue(os.path.isfile(self.image))


class LaterStart(GatewaydTest):

  def test_counts_each_start(self):
    for count in (1, 2, 3):
      self.assertIn('started, boot count %d\r' % count, self.run_once())
      self.assertEqual(self.boot_count(), count)

  def test_keeps_every_other_field(self):
    self.run_once()
    before = self.fields()
    self.run_once()
    after = self.fields()
    self.assertEqual({**before, image.BOOT_COUNT: None}, {**after, image.BOOT_COUNT: None})

  def test_keeps_the_fields_of_others(self):
    foreign = {0x7001: b'not ours', 0x7002: b'\1'}
    self.write(image.image(b''.join(image.record(*field) for field in foreign.items())))
    self.run_once()
    self.assertEqual({key: self.fields()[key] for key in foreign}, foreign)
    self.assertEqual(self.boot_count(), 1)

  def test_seals_an_image_without_a_checksum(self):
    self.write(image.image(image.record(image.BOOT_COUNT, (41).to_bytes(4, 'big')), crc=0))
    self.run_once()
    self.assertEqual(self.boot_count(), 42)

  def test_tells_that_the_latest_run_was_killed(self):
    daemon = self.start()
    self.assertEqual(image.parse(self.read())[0], image.FLAG_RUNNING)
    daemon.end(signal.SIGKILL)
    output = self.run_once()
    self.assertIn('did not end in order', output)
    self.assertEqual(self.boot_count(), 2)

  def test_says_nothing_after_an_orderly_end(self):
    self.run_once()
    self.assertNotIn('did not end in order', self.run_once())


class DamagedImage(GatewaydTest):

  def expect_recovery(self, damaged, message):
    self.write(damaged)
    output = self.run_once()
    self.assertRegex(output, message)
    self.assertIn('damaged, starting with defaults', output)
    self.assertIn('kept as cfg.bad', output)
    self.assertEqual(self.read('cfg.bad'), damaged)
    self.assertEqual(self.fields(), {**DEFAULTS, image.BOOT_COUNT: (1).to_bytes(4, 'big')})
    self.assertEqual(sorted(os.listdir(self.folder)), ['cfg', 'cfg.bad'])

  def sound(self):
    return image.image(image.record(image.BOOT_COUNT, (7).to_bytes(4, 'big')) + image.record(0x7001, b'tail'))

  def flipped(self, offset):
    data = bytearray(self.sound())
    data[offset] ^= 0x40
    return bytes(data)

  def test_wrong_magic(self):
    # The bytes read as the number that the message shows.
    self.expect_recovery(self.flipped(0), r'magic number is error\(0xc4739458\)')

  def test_text_file(self):
    self.expect_recovery(b'host_name=gateway\nboot_count=7\n', r'magic number is error\(0x686f7374\)')

  def test_flipped_value(self):
    self.expect_recovery(self.flipped(23), "CRC doesn't match")

  def test_flipped_checksum(self):
    self.expect_recovery(self.flipped(5), "CRC doesn't match")

  def test_flipped_version(self):
    self.expect_recovery(self.flipped(15), "CRC doesn't match")

  def test_empty_file(self):
    self.expect_recovery(b'', 'cut short after 0 bytes')

  def test_half_a_header(self):
    self.expect_recovery(self.sound()[:15], 'cut short after 15 bytes')

  def test_header_alone_of_an_image_with_records(self):
    self.expect_recovery(self.sound()[:16], 'cut short after 16 bytes')

  def test_last_byte_missing(self):
    self.expect_recovery(self.sound()[:-1], 'cut short after 31 bytes')

  def test_length_beyond_any_buffer(self):
    # 4 GiB of records: whoever believed it would read far behind the buffer.
    self.expect_recovery(image.image(b'\0' * 8, length=0xFFFFFFF0, crc=0), 'cut short after 24 bytes')

  def test_record_without_a_value(self):
    self.expect_recovery(image.image(image.record(0x0101, b'')), 'max len of field')

  def test_record_beyond_the_end(self):
    self.expect_recovery(image.image(b'\1\1\0\5abcd'), "Cfg len doesn't mach")

  def test_keeps_the_latest_damaged_file(self):
    self.expect_recovery(self.flipped(23), 'CRC')
    self.expect_recovery(self.flipped(24), 'CRC')

  def test_counts_on_after_the_recovery(self):
    self.expect_recovery(self.flipped(23), 'CRC')
    self.run_once()
    self.assertEqual(self.boot_count(), 2)

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
        ('/dev/null', 'no regular file'),
        (here + '/' + 'x' * 252, 'name is too long'),  # no room for a suffix
        ('/' + 'x/' * 2100 + 'cfg', 'path is too long'),
    ):
      self.expect_refusal(path, BAD_PATH, message)
    self.assertEqual(sorted(os.listdir(here)), ['cfg', 'pipe'])

  def test_link_to_itself(self):
    os.symlink('cfg', self.image)
    self.expect_refusal(self.image, UNREADABLE, 'cannot be opened')
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
    records = image.record(image.BOOT_COUNT, (7).to_bytes(4, 'big'))
    records += image.record(0x7001, b'x' * (image.MAX_SIZE - 16 - len(records) - 4))
    self.write(image.image(records))
    output = self.run_once()
    self.assertIn('boot count 8\r', output)
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
    wrong = {image.UPLINK_CHECK_MS: b'\5', image.STATISTICS_S: b'\0\0\0\1', image.LOG_LEVEL: b'\0\7',
             image.HOST_NAME: b'n' * 40, image.UPLINK: b'eth0'.ljust(17, b'\0'), image.COLLECTOR: b'\1\2'}
    self.write(image.image(b''.join(image.record(*field) for field in wrong.items())))
    output = self.run_once()
    for key in wrong:
      self.assertIn('field 0x%04x has another size' % key, output)
    self.assertIn('gateway: started', output)
    self.assertEqual(self.fields(), {**wrong, image.BOOT_COUNT: (1).to_bytes(4, 'big')})

  def test_count_of_another_size_is_left_alone(self):
    self.write(image.image(image.record(image.BOOT_COUNT, b'\0\7')))
    self.assertIn('field 0x0102 has another size', self.run_once())
    self.assertEqual(self.fields()[image.BOOT_COUNT], b'\0\7')

  def test_value_out_of_range_is_told_and_replaced(self):
    for key, value, message in (
        (image.UPLINK_CHECK_MS, (99).to_bytes(4, 'big'), 'interval in ms: 99 makes no sense, 1000 is used'),
        (image.UPLINK_CHECK_MS, (3600001).to_bytes(4, 'big'), '3600001 makes no sense'),
        (image.STATISTICS_S, (0).to_bytes(2, 'big'), 'interval in s: 0 makes no sense, 3 is used'),
        (image.STATISTICS_S, (3601).to_bytes(2, 'big'), '3601 makes no sense'),
        (image.LOG_LEVEL, b'\x09', 'log level: 9 makes no sense, 7 is used'),
    ):
      with self.subTest(message=message):
        self.write(image.image(image.record(key, value)))
        self.assertIn(message, self.run_once())

  def test_bounds_are_in_range(self):
    for key, value in ((image.UPLINK_CHECK_MS, (100).to_bytes(4, 'big')),
                       (image.UPLINK_CHECK_MS, (3600000).to_bytes(4, 'big')),
                       (image.STATISTICS_S, (1).to_bytes(2, 'big')), (image.STATISTICS_S, (3600).to_bytes(2, 'big')),
                       (image.LOG_LEVEL, b'\x08'), (image.LOG_LEVEL, b'\x00')):
      with self.subTest(key=hex(key), value=value):
        self.write(image.image(image.record(key, value)))
        self.assertNotIn('makes no sense', self.run_once())

  def test_host_name_that_fills_its_field(self):
    self.write(image.image(image.record(image.HOST_NAME, b'h' * 32)))
    self.assertIn(']: ' + 'h' * 32 + ': started', self.run_once())

  def test_host_name_in_a_shorter_field(self):
    self.write(image.image(image.record(image.HOST_NAME, b'attic')))
    self.assertIn(']: attic: started', self.run_once())

  def test_log_level_decides_what_is_kept(self):
    for level, kept, dropped in ((6, 'Notice', 'Info'), (7, 'Info', 'Debug')):
      with self.subTest(level=level):
        self.write(image.image(image.record(image.LOG_LEVEL, bytes([level]))))
        daemon = self.start()
        daemon.wait_for(' checks,')  # by then it has logged at the levels of Info and above
        daemon.end()
        self.assertRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[%s ' % kept)
        self.assertNotRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[%s ' % dropped)


class Saving(GatewaydTest):
  """However a save fails: the old image stays byte for byte, nothing is left behind, and the daemon says so."""

  OLD = image.image(image.record(image.BOOT_COUNT, (7).to_bytes(4, 'big')))
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
    output = self.run_once(preexec_fn=limit, env={'GCOV_PREFIX': '/nonexistent'})
    self.expect_old_image(output, 'File too large')

  def test_full_disk(self):
    if os.geteuid() != 0:
      self.skipTest('mounting a small file system needs root')
    probe = subprocess.run(['unshare', '-m', 'mount', '-t', 'tmpfs', 'tmpfs', self.folder], capture_output=True,
                           text=True, check=False)
    if probe.returncode != 0:
      self.skipTest('mounting is not possible here: ' + probe.stderr.strip())
    # In a mount namespace that ends with the script: one page for the image, none for the temporary file.
    line, env = command(['--config', self.folder + '/cfg', '--run-for', '1'])
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
    self.expect_old_image(self.run_once(), 'File exists', left=('cfg', 'cfg.tmp'))

  def test_does_not_follow_a_link_in_the_temporary_file_s_place(self):
    self.write(b'precious', 'other')
    os.symlink('other', self.image + '.tmp')
    self.assertNotIn('not saved', self.run_once())
    self.assertEqual(self.read('other'), b'precious')
    self.assertEqual(self.boot_count(), 8)
    self.assertEqual(sorted(os.listdir(self.folder)), ['cfg', 'other'])

  def test_image_s_name_taken_by_a_folder(self):
    daemon = self.start()
    os.rename(self.image, self.image + '.moved')
    os.makedirs(os.path.join(self.image, 'full'))
    status, _ = daemon.end()
    self.assertEqual(status, OK)
    self.assertIn(self.FAILED, daemon.output)
    self.assertEqual(sorted(os.listdir(self.folder)), ['cfg', 'cfg.moved'])

  def test_read_only_folder(self):
    user = self.unprivileged()
    os.chmod(self.image, 0o644)
    os.chmod(self.folder, 0o555)
    try:
      self.expect_old_image(self.run_once(**user), 'Permission denied')
    finally:
      os.chmod(self.folder, 0o755)

  def test_replaces_what_a_crash_left(self):
    self.write(b'half an image' * 100, 'cfg.tmp')
    os.chmod(self.image + '.tmp', 0o644)
    self.assertNotIn('not saved', self.run_once())
    self.assertEqual(os.stat(self.image).st_mode & 0o777, 0o600)
    self.assertEqual(self.boot_count(), 8)
    self.assertEqual(os.listdir(self.folder), ['cfg'])

  def test_failure_is_an_error_in_the_log(self):
    os.makedirs(os.path.join(self.folder, 'cfg.tmp'))
    self.assertRegex(self.run_once(), r'\n\[[0-9/:-]+\]-\[Error \d+\]config: .*' + self.FAILED)


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
        ((*config, '--run-for', ' 1'), 'is no time'),
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

  def test_run_for_ends_by_itself(self):
    status, output, errors = self.refusal('--config', self.image, '--run-for', '1')
    self.assertEqual(status, OK, errors)
    self.assertIn('gateway: ends, its time is over', output)
    self.assertEqual(image.parse(self.read())[0], image.FLAG_ENDED)

  def test_set_collector_is_stored(self):
    # Port 514 of these addresses is the shim's, which swallows what is sent there.
    shim = os.environ['TARN_TEST_SHIM']
    self.run_once('--set-collector', '127.1.2.3', preload=shim)
    self.assertEqual(self.fields()[image.COLLECTOR], bytes([127, 1, 2, 3]))
    self.run_once(preload=shim)
    self.assertEqual(self.fields()[image.COLLECTOR], bytes([127, 1, 2, 3]))
    self.run_once('--set-collector', '0.0.0.0', preload=shim)
    self.assertEqual(self.fields()[image.COLLECTOR], bytes(4))


class Ending(GatewaydTest):

  def test_signals_end_it_in_order(self):
    for how, name in ((signal.SIGTERM, 'SIGTERM'), (signal.SIGINT, 'SIGINT')):
      with self.subTest(signal=name):
        daemon = self.start()
        status, errors = daemon.end(how)
        self.assertEqual(status, OK, errors)
        self.assertIn('gateway: ends, ' + name, daemon.output)
        self.assertEqual(image.parse(self.read())[0], image.FLAG_ENDED)

  def test_goes_on_after_it_was_stopped(self):
    self.write(image.image(image.record(image.STATISTICS_S, (1).to_bytes(2, 'big'))))
    daemon = self.start('--run-for', '1000000')
    daemon.process.send_signal(signal.SIGSTOP)
    os.waitpid(daemon.process.pid, os.WUNTRACED)  # a SIGCONT that came earlier would undo it
    daemon.process.send_signal(signal.SIGCONT)
    for _ in range(3):
      daemon.wait_for(' checks,')
    self.assertNotIn('ends', daemon.output)
    status, errors = daemon.end()
    self.assertEqual(status, OK, errors)
    self.assertIn('gateway: ends, SIGTERM', daemon.output)

  def test_prints_its_timers(self):
    daemon = self.start()
    daemon.wait_for(' checks,')  # the first scan is over
    daemon.end()
    rows = re.findall(r'\n(\d+) +(\d+) +\d+ +(\d+) +(Circle|OneShot) ', daemon.output)
    # In the order of their adds, intervals in ticks of 10 ms; what the one-shots are armed for changes.
    self.assertEqual([(row, timer_id, kind) for row, timer_id, _, kind in rows],
                     [('0', '1', 'Circle'), ('1', '2', 'Circle'), ('2', '3', 'OneShot'), ('3', '4', 'OneShot')])
    self.assertEqual([interval for _, _, interval, kind in rows if kind == 'Circle'], ['100', '300'])
    self.assertRegex(daemon.output, r'\nExpired timer Number: \d+')

  def test_prints_its_log(self):
    output = self.run_once()
    for module, text in (('main', 'gateway: started'), ('main', 'gateway: ends, SIGTERM')):
      self.assertRegex(output, r'\n\[[0-9/:-]+\]-\[Notice \d+\]%s: %s' % (module, text))

  def test_keeps_statistics_out_of_the_system_log(self):
    daemon = self.start()
    daemon.wait_for(r'\[traffic-Info: \d+\]: lo: \d+ checks')
    daemon.end()
    self.assertNotRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[Info \d+\]traffic: ')

  def test_survives_a_reader_that_went_away(self):
    daemon = self.start()
    daemon.process.stdout.close()
    daemon.process.stderr.close()
    daemon.process.send_signal(signal.SIGTERM)
    self.assertEqual(daemon.process.wait(), OK)
    self.assertEqual(image.parse(self.read())[0], image.FLAG_ENDED)


class Timers(GatewaydTest):

  def write_settings(self, uplink):
    self.write(image.image(image.record(image.UPLINK, uplink) +
                           image.record(image.UPLINK_CHECK_MS, (100).to_bytes(4, 'big')) +
                           image.record(image.STATISTICS_S, (1).to_bytes(2, 'big'))))

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
      seen += int(daemon.wait_for(r'\[uplink-Notice: \d+\]: lo: \d+ packets, (\d+) bytes').group(1))
    daemon.wait_for(r' lo: \d+ checks, [1-9]\d* with traffic; 4 timers')
    self.assertEqual(daemon.end()[0], OK)

  def test_circular_timers_go_on(self):
    self.write_settings(b'lo')
    daemon = self.start()
    checks = [int(daemon.wait_for(r' lo: (\d+) checks').group(1)) for _ in range(3)]
    self.assertLess(checks[0], checks[1])
    self.assertLess(checks[1], checks[2])

  def test_uplink_that_does_not_exist_is_an_error(self):
    self.write_settings(b'nosuch0')
    daemon = self.start()
    daemon.wait_for(r'\[uplink-Error: \d+\]: nosuch0: no counters')
    self.assertEqual(daemon.end()[0], OK)

  def test_part_of_an_interface_s_name_is_not_that_interface(self):
    self.write_settings(b'l')
    self.start().wait_for(': l: no counters')

  def test_silence_is_told_once_it_has_lasted_and_again(self):
    # The first scan calls every timer at once: a silence told then would be one of 0 s.
    self.write_settings(b'nosuch0')
    daemon = self.start()
    pattern = r'\[uplink-Warning: \d+\]: nosuch0: silent for (\d+) s'
    first, second = (int(daemon.wait_for(pattern).group(1)) for _ in range(2))
    self.assertGreaterEqual(first, 5)
    self.assertGreaterEqual(second, first + 4)  # truncated to whole seconds


class Collector(GatewaydTest):

  def setUp(self):
    super().setUp()
    shim = os.environ['TARN_TEST_SHIM']
    self.assertTrue(os.path.isfile(shim), shim)
    self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    self.addCleanup(self.socket.close)
    self.socket.bind(('127.0.0.1', 0))
    port = self.socket.getsockname()[1]
    self.popen = {'preload': shim, 'env': {'TARN_SIM_ROOT': self.folder, 'TARN_SIM_COLLECTOR_PORT': str(port)}}

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
    self.assertTrue([text for text in texts if re.fullmatch('lo: counting from [0-9]+ packets', text)], texts)
    # They are stored too.
    self.assertRegex(daemon.output, r'\n\[[0-9/:-]+\]-\[Notice \d+\]main: gateway: started')

  def test_is_remembered(self):
    self.run_once('--set-collector', '127.0.0.1', **self.popen)
    self.received()
    self.run_once(**self.popen)
    self.assertIn('gateway: started, boot count 2', self.received())

  def test_gets_nothing_unless_set(self):
    self.run_once(**self.popen)
    self.assertEqual(self.received(), [])

  def test_gets_nothing_once_unset(self):
    self.run_once('--set-collector', '127.0.0.1', **self.popen)
    self.assertNotEqual(self.received(), [])
    self.run_once('--set-collector', '0.0.0.0', **self.popen)
    self.assertEqual(self.received(), [])

  def test_gets_the_memory_report_of_a_timer_that_arms_itself(self):
    self.start('--set-collector', '127.0.0.1', **self.popen)
    reports = 0
    while reports < 3:
      reports += bool(re.fullmatch('[1-9][0-9]* KiB available', self.socket.recv(1024).decode()))


def main():
  split = sys.argv.index('--')
  gatewayd_command.extend(sys.argv[split + 1:])
  gatewayd_command[-1] = os.path.abspath(gatewayd_command[-1])
  program = unittest.main(argv=sys.argv[:split], verbosity=2, exit=False)
  result = program.result
  if not result.wasSuccessful():
    sys.exit(1)
  if result.testsRun > 0 and len(result.skipped) == result.testsRun:
    sys.exit(77)


if __name__ == '__main__':
  main()
