"""tarn-cfg, run as its user runs it.

Usage: tarn_cfg_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG

Exits with 77 when all that was to run was skipped. TARN_TEST_STUMBLE names the library that ends tarn-cfg, or lets one
of its calls fail, in the middle of a write.
"""

import json
import os
import random
import re
import shlex
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import image  # pylint: disable=wrong-import-position
import programs  # pylint: disable=wrong-import-position

TOOLS = os.path.join(HERE, '..', '..', '..', 'tools')
DONE, NOT_SO, WRONG = 0, 1, 2
NOBODY = 65534

tool_command = []


def records(*fields):
  return b''.join(image.record(key, value) for key, value in fields)


# A short, three bytes, a text of 8, an int.
FIELDS = ((1, b'\x11\x22'), (0x203, b'\x33\x44\xff'), (0x300, b'gateway\0'), (0x400, b'\0\0\0\5'))
SAMPLE = image.image(records(*FIELDS), active=7, flag=8, version=0x01020304)
# Where these records stand, worked out by hand: heads of 4 bytes, values of 2, 3, 8 and 4 behind a header of 16.
OFFSETS = (0x10, 0x16, 0x1d, 0x29)
assert len(SAMPLE) == 0x31


class ToolTest(unittest.TestCase):
  """A folder, and ways to run tarn-cfg in it."""

  def setUp(self):
    self.folder = tempfile.mkdtemp(prefix='tarn-cfg-')
    self.addCleanup(shutil.rmtree, self.folder)

  def path(self, name='cfg'):
    return os.path.join(self.folder, name)

  def write(self, data, name='cfg'):
    with open(self.path(name), 'wb') as file:
      file.write(data)

  def read(self, name='cfg'):
    with open(self.path(name), 'rb') as file:
      return file.read()

  def run_tool(self, *args, text=True, env=None, preload=None, **popen):
    """Runs it and returns its status, output and standard error."""
    *emulator, program = tool_command
    start = [*emulator]
    env = {**os.environ, **(env or {})}
    if preload:
      start += ['-E', 'LD_PRELOAD=' + preload] if emulator else ['env', 'LD_PRELOAD=' + preload]
      # Preloaded, the library comes before the address sanitizer's, which that would refuse.
      env['ASAN_OPTIONS'] = 'verify_asan_link_order=0:' + env.get('ASAN_OPTIONS', '')
    popen.setdefault('stdin', None if 'input' in popen else subprocess.DEVNULL)
    if 'input' in popen:
      del popen['stdin']
    done = subprocess.run([*start, program, *args], cwd=self.folder, env=env, capture_output=True, text=text,
                          check=False, **popen)
    return done.returncode, done.stdout, done.stderr

  def do(self, *args, **popen):
    """Runs it, demands that it succeeds and complains of nothing, and returns its output."""
    status, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((status, errors), (DONE, '' if popen.get('text', True) else b''), args)
    return output

  def assert_refused(self, status, pattern, *args, **popen):
    """Ends with this status after this one line on standard error; the image stays as it is."""
    before = self.read() if os.path.exists(self.path()) else None
    found, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((found, output), (status, ''), (args, errors))
    self.assertRegex(errors, '^tarn-cfg: ' + pattern + '\n$')
    self.assertEqual(errors.count('\n'), 1, errors)
    self.assertEqual(self.read() if os.path.exists(self.path()) else None, before)

  def assert_names(self, *names):
    self.assertEqual(sorted(os.listdir(self.folder)), sorted(names))

  def unprivileged(self):
    """Arguments of run_tool that run it as a user whom permissions bind; skips where that cannot be."""
    if os.geteuid() != 0:
      return {}
    os.chmod(self.folder, 0o777)
    user = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []}
    try:
      status, _, errors = self.run_tool('--version', **user)
    except OSError as error:
      status, errors = 1, error
    if status != DONE:
      self.skipTest('tarn-cfg cannot be run as an unprivileged user: %s' % errors)
    return user


class CommandLine(ToolTest):

  def test_help_tells_of_every_command(self):
    output = self.do('--help')
    commands = re.findall(r'^  ([a-z]+)  ', output, re.MULTILINE)
    self.assertEqual(sorted(commands), ['check', 'create', 'diff', 'export', 'get', 'import', 'repair', 'resize', 'set',
                                        'show', 'unset'])
    for command in commands:
      self.assertIn('Usage: tarn-cfg %s ' % command, self.do(command, '--help'))

  def test_version_is_the_library_s(self):
    with open(os.path.join(TOOLS, '..', 'include', 'tarn', 'types.h'), encoding='ascii') as file:
      numbers = re.findall(r'#define TARN_VERSION_[A-Z]+ (\d+)', file.read())
    self.assertEqual(self.do('--version'), 'tarn-cfg %s\n' % '.'.join(numbers))

  def test_wrong_use_is_2(self):
    self.write(SAMPLE)
    for args in ((), ('what',), ('show',), ('show', 'cfg', 'more'), ('get', 'cfg'), ('get', 'cfg', '1', '--as', 'long'),
                 ('set', 'cfg', '1', 'short'), ('set', 'cfg', '1', 'raw', '1'), ('diff', 'cfg'), ('show', '--nothing'),
                 ('create',), ('import', '-'), ('resize', 'cfg', '1')):
      with self.subTest(args=args):
        status, output, errors = self.run_tool(*args)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertRegex(errors, '^tarn-cfg: ')
    self.assertEqual(self.read(), SAMPLE)

  def test_files_that_cannot_be_read_are_2(self):
    os.mkdir(self.path('folder'))
    os.mkfifo(self.path('pipe'))
    with open(self.path('huge'), 'wb') as file:
      file.truncate((64 << 20) + 1)
    for name, reason in (('none', 'No such file or directory'), ('folder', 'is no regular file'),
                         ('pipe', 'is no regular file'), ('huge', 'larger than 67108864 bytes')):
      for command in (('show', name), ('get', name, '1'), ('set', name, '1', 'char', '1'), ('check', name),
                      ('repair', name), ('unset', name, '1'), ('diff', name, name), ('export', name)):
        with self.subTest(command=command):
          self.assert_refused(WRONG, '%s: .*%s' % (name, reason), *command)

  def test_damaged_images_are_2_but_for_those_who_look_at_them(self):
    self.write(SAMPLE[:-1] + b'\6')
    for args in (('get', 'cfg', '1'), ('set', 'cfg', '1', 'short', '1'), ('unset', 'cfg', '1'),
                 ('resize', 'cfg', '1', '3'), ('diff', 'cfg', 'cfg'), ('export', 'cfg')):
      with self.subTest(args=args):
        self.assert_refused(WRONG, 'cfg: at 0x4: checksum 0x[0-9a-f]{4} is wrong; 0x[0-9a-f]{4} is right', *args)

  def test_full_disk_behind_standard_output_is_2(self):
    if not os.path.exists('/dev/full'):
      self.skipTest('no /dev/full')
    self.write(SAMPLE)
    *emulator, program = tool_command
    with open('/dev/full', 'wb') as full:
      done = subprocess.run([*emulator, program, 'export', self.path()], stdout=full, stderr=subprocess.PIPE, text=True,
                            check=False)
    self.assertEqual(done.returncode, WRONG)
    self.assertIn('tarn-cfg: standard output: No space left on device', done.stderr)


class Create(ToolTest):

  def test_makes_a_blank_image_for_its_owner_alone(self):
    self.do('create', 'cfg')
    self.assertEqual(self.read(), bytes.fromhex('84739458 e733') + bytes(10))
    self.assertEqual(stat.S_IMODE(os.stat(self.path()).st_mode), 0o600)
    self.assert_names('cfg')

  def test_pads_the_file(self):
    self.do('create', 'cfg', '--size', '32')
    self.assertEqual(self.read(), image.image(b'') + bytes(16))
    self.do('create', 'other', '--size', '0x20', '--fill', '0xff')
    self.assertEqual(self.read('other'), image.image(b'') + b'\xff' * 16)
    self.assert_refused(WRONG, 'none: at 0xf: no room: the image would take 16 bytes, there are 15',
                        'create', 'none', '--size', '15')
    self.assert_refused(WRONG, "--fill '256': a number from 0 to 255 is needed",
                        'create', 'none', '--size', '32', '--fill', '256')
    self.assert_refused(WRONG, '--fill needs --size', 'create', 'none', '--fill', '1')

  def test_replaces_only_when_told_to(self):
    self.write(b'something else')
    os.chmod(self.path(), 0o640)
    self.assert_refused(WRONG, 'cfg: is there; --force replaces it', 'create', 'cfg')
    self.assert_names('cfg')
    self.do('create', 'cfg', '--force')
    self.assertEqual(self.read(), image.image(b''))
    self.assertEqual(stat.S_IMODE(os.stat(self.path()).st_mode), 0o640)
    self.do('create', 'new', '--force')
    os.symlink('nowhere', self.path('link'))
    self.assert_refused(WRONG, 'link: is there; --force replaces it', 'create', 'link')

  def test_needs_a_folder(self):
    self.assert_refused(WRONG, 'none/cfg: folder none/: No such file or directory', 'create', 'none/cfg')
    self.assert_refused(WRONG, 'none/: names no file', 'create', 'none/')


class Show(ToolTest):

  def test_shows_header_and_records(self):
    self.write(SAMPLE)
    self.assertEqual(self.do('show', 'cfg').splitlines(), [
        'image     49 bytes, 4 records',
        'magic     0x84739458',
        'checksum  0x%s, right' % SAMPLE[4:6].hex(),
        'active    7',
        'flag      8',
        'version   16909060',
        '',
        'offset    key     length  number      text or bytes',
        '0x000010  0x0001       2  4386        1122',
        '0x000016  0x0203       3  -           3344ff',
        '0x00001d  0x0300       8  -           "gateway"',
        '0x000029  0x0400       4  5           00000005',
    ])

  def test_shows_what_else_there_is_to_know(self):
    for data, line in (
        (image.image(b'', crc=0), 'checksum  0x0000, not yet computed'),
        (image.image(b'') + b'\xff' * 9, 'behind    9 bytes of 0xff'),
        (image.image(b'') + b'ab', 'behind    2 bytes'),
        (image.image(image.record(1, bytes(range(30)))),
         '0x000010  0x0001      30  -           %s...' % bytes(range(24)).hex()),
        (image.image(image.record(1, b'eth0')), '0x000010  0x0001       4  1702127664  "eth0"'),
        (image.image(image.record(1, 'zür'.encode())), '0x000010  0x0001       4  2059648114  "zür"'),
    ):
      with self.subTest(line=line):
        self.write(data)
        self.assertIn(line, self.do('show', 'cfg', env={'LC_ALL': 'C.UTF-8'}).splitlines())

  def test_only_clean_utf_8_is_shown_as_text(self):
    # Control characters, a C1 control, a byte of no character, overlong forms, a surrogate, beyond Unicode, cut ones.
    for value in (b'a\x1b[2J', b'a\x7f1', b'\xc2\x9b123', b'abc\xff3', b'\xc0\xaf123', b'\xe0\x80\xaf12',
                  b'\xed\xa0\x80123', b'\xf4\x90\x80\x801', b'abcd\xc3', b'\xe2\x82abc', b'\xf0\x9f\x98\0\0', b'\0abcd'):
      with self.subTest(value=value):
        self.write(image.image(image.record(1, value)))
        self.assertTrue(self.do('show', 'cfg').endswith('-           %s\n' % value.hex()))
    for value in (b'\xc2\xa01234', b'\xe2\x82\xac12', b'\xf0\x9f\x98\x801', b'a~ "%'):
      with self.subTest(value=value):
        self.write(image.image(image.record(1, value)))
        self.assertTrue(self.do('show', 'cfg', text=False).endswith(b'"' + value + b'"\n'))

  def test_shows_the_sound_part_of_a_damaged_image(self):
    self.write(SAMPLE[:0x20])
    status, output, errors = self.run_tool('show', 'cfg')
    self.assertEqual(status, NOT_SO)
    self.assertIn('unknown: the file ends before the image', output)
    self.assertEqual(output.splitlines()[-1], '0x000016  0x0203       3  -           3344ff')
    self.assertEqual(errors, 'cfg: at 0x8: cfg_len states 33 bytes of records, 16 are there\n'
                     'cfg: at 0x1d: 3 bytes are left, which is no record\n')
    self.write(b'short')
    self.assertEqual(self.run_tool('show', 'cfg'),
                     (NOT_SO, '', 'cfg: at 0x5: the file ends within the header of 16 bytes\n'))

  def test_json_has_it_all(self):
    self.write(SAMPLE + b'\0')
    self.assertEqual(json.loads(self.do('show', 'cfg', '--json')), {
        'file': 'cfg', 'size': 50, 'image_size': 49, 'magic': 0x84739458, 'checksum': int(SAMPLE[4:6].hex(), 16),
        'right_checksum': int(SAMPLE[4:6].hex(), 16), 'active': 7, 'flag': 8, 'version': 0x01020304,
        'records': [
            {'offset': 16, 'key': 1, 'length': 2, 'number': 0x1122, 'text': None, 'hex': '1122'},
            {'offset': 22, 'key': 0x203, 'length': 3, 'number': None, 'text': None, 'hex': '3344ff'},
            {'offset': 29, 'key': 0x300, 'length': 8, 'number': None, 'text': 'gateway', 'hex': '6761746577617900'},
            {'offset': 41, 'key': 0x400, 'length': 4, 'number': 5, 'text': None, 'hex': '00000005'},
        ], 'faults': [], 'notes': []})
    self.write(b'')
    status, output, errors = self.run_tool('show', 'cfg', '--json')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertEqual(json.loads(output), {
        'file': 'cfg', 'size': 0, 'records': [], 'notes': [],
        'faults': [{'offset': 0, 'text': 'the file ends within the header of 16 bytes'}]})
    self.write(SAMPLE, b'\xff'.decode('utf-8', 'surrogateescape'))
    self.assertEqual(json.loads(self.do('show', b'\xff', '--json'))['file'], '\ufffd')


class Get(ToolTest):

  def test_prints_values(self):
    self.write(image.image(records((0, b'\xfe'), *FIELDS, (5, bytes(3)), (6, b'ab\0c'), (0xFFFF, b'x\ny\0')), active=7,
                           flag=8, version=0xFFFFFFFF))
    for key, type_, output in (
        ('0', None, '254\n'), ('0x0', 'char', '254\n'), ('1', None, '4386\n'), ('1', 'short', '4386\n'),
        ('1', 'buffer', '1122\n'), ('0x203', None, '3344ff\n'), ('515', 'raw', '3344ff'), ('0x0300', None, 'gateway\n'),
        ('0x300', 'buffer', '6761746577617900\n'), ('0x300', 'raw', '6761746577617900'), ('0X400', 'int', '5\n'),
        ('5', None, '000000\n'), ('5', 'text', '\n'), ('6', 'buffer', '61620063\n'), ('65535', 'buffer', '780a7900\n'),
        ('active', None, '7\n'), ('flag', 'char', '8\n'), ('version', None, '4294967295\n'), ('version', 'int', '4294967295\n'),
    ):
      with self.subTest(key=key, type=type_):
        args = ('get', 'cfg', key) + (('--as', type_) if type_ else ())
        if type_ == 'raw':
          self.assertEqual(self.do(*args, text=False).hex(), output)
        else:
          self.assertEqual(self.do(*args), output)

  def test_what_is_not_so_is_1(self):
    self.write(SAMPLE)
    self.assert_refused(NOT_SO, 'cfg: no field of key 0x0002', 'get', 'cfg', '2')
    for key, type_, but in (('1', 'char', 'short 4386'), ('1', 'int', 'short 4386'),
                            ('1', 'text', 'short 4386'),
                            ('0x203', 'short', r'buffer\[3\] 3344ff'), ('0x300', 'int', r'text\[8\] "gateway"')):
      with self.subTest(key=key, type=type_):
        self.assert_refused(NOT_SO, 'cfg: at 0x[0-9a-f]+: the field of key 0x.... is no %s but %s' % (type_, but),
                            'get', 'cfg', key, '--as', type_)
    self.write(image.image(b''))
    self.assert_refused(NOT_SO, 'cfg: no field of key 0x0001', 'get', 'cfg', '1')

  def test_wrong_keys_are_2(self):
    self.write(SAMPLE)
    for key in ('65536', 'x', '', ' 1', '1 ', '0x', '+1', '1.0', '99999999999999999999', 'Version'):
      with self.subTest(key=key):
        self.assert_refused(WRONG, ".*'%s': a number.*" % re.escape(key), 'get', 'cfg', key)
    self.assert_refused(WRONG, 'version is of type int', 'get', 'cfg', 'version', '--as', 'char')

  def test_finds_the_first_of_several(self):
    self.write(image.image(records((1, b'a'), (1, b'b'))))
    self.assertEqual(self.do('get', 'cfg', '1'), '97\n')


class Set(ToolTest):

  def test_appends_every_type(self):
    self.do('create', 'cfg')
    expected = []
    for key, args, value in (
        (1, ('char', '255'), b'\xff'), (2, ('short', '0xfffe'), b'\xff\xfe'), (3, ('int', '4294967295'), b'\xff' * 4),
        (4, ('buffer', '0a0B0c'), b'\x0a\x0b\x0c'), (5, ('buffer', '0a:0b-0c 0d', '--length', '6'), b'\x0a\x0b\x0c\x0d\0\0'),
        (6, ('text', 'gateway', '--length', '32'), b'gateway'.ljust(32, b'\0')), (7, ('text', 'zür'), 'zür'.encode()),
        (8, ('text', '', '--length', '2'), b'\0\0'), (9, ('buffer', '', '--length', '65535'), bytes(65535)),
    ):
      with self.subTest(key=key):
        self.do('set', 'cfg', str(key), *args)
        expected.append((key, value))
        self.assertEqual(self.read(), image.image(records(*expected)))
    self.assert_names('cfg')

  def test_changes_in_place(self):
    self.write(SAMPLE)
    fields = dict(FIELDS)
    for key, args, value in ((1, ('short', '7'), b'\0\7'), (0x203, ('buffer', '01'), b'\1\0\0'),
                             (0x300, ('text', 'gw'), b'gw'.ljust(8, b'\0')), (0x300, ('text', ''), bytes(8)),
                             (0x300, ('text', '12345678', '--length', '8'), b'12345678'),
                             (0x400, ('int', '6'), b'\0\0\0\6'), (0x400, ('text', 'eth1'), b'eth1')):
      self.do('set', 'cfg', str(key), *args)
      fields[key] = value
      self.assertEqual(self.read(), image.image(records(*fields.items()), active=7, flag=8, version=0x01020304))

  def test_writes_the_header(self):
    self.write(SAMPLE)
    self.do('set', 'cfg', 'active', 'char', '255')
    self.do('set', 'cfg', 'flag', 'char', '0')
    self.do('set', 'cfg', 'version', 'int', '0xfffffffe')
    self.assertEqual(self.read(), image.image(records(*FIELDS), active=255, flag=0, version=0xFFFFFFFE))
    self.assert_refused(WRONG, 'version is of type int', 'set', 'cfg', 'version', 'short', '1')
    self.assert_refused(WRONG, "value '256': .*", 'set', 'cfg', 'flag', 'char', '256')
    self.assert_refused(WRONG, '--length is for buffer and text', 'set', 'cfg', 'flag', 'char', '1', '--length', '1')

  def test_takes_texts_that_look_like_something_else(self):
    for text in ('show', '[a,b]', '{}', '%%', '%s', 'a b', '"', "'", '++', 'x=1', '\n', '--', '-1', '--help'):
      with self.subTest(text=text):
        self.write(image.image(b''))
        self.do('set', 'cfg', '1', 'text', '--length', '9', '--', text)
        self.assertEqual(self.read(), image.image(image.record(1, text.encode().ljust(9, b'\0'))))
    for text in ('show', '[a,b]', '{}', '%%'):
      self.do('set', 'cfg', '1', 'text', text)
      self.assertEqual(image.parse(self.read())[1], text.encode().ljust(9, b'\0'))
    self.do('set', 'cfg', '1', 'text', b'\xff\xfe')
    self.assertEqual(image.parse(self.read())[1], b'\xff\xfe' + bytes(7))

  def test_refuses_wrong_values(self):
    self.write(SAMPLE)
    for args, reason in (
        (('9', 'char', '256'), "value '256': a number from 0 to 255 is needed"),
        (('9', 'short', '65536'), "value '65536': a number from 0 to 65535 is needed"),
        (('9', 'int', '4294967296'), "value '4294967296': a number from 0 to 4294967295 is needed"),
        (('9', 'int', ''), "value '': a number .*"), (('9', 'int', '1x'), "value '1x': a number .*"),
        (('9', 'int', '--', '-1'), "value '-1': a number .*"), (('9', 'char', '1', '--length', '1'), '--length is .*'),
        (('9', 'buffer', 'abc'), "value 'abc': pairs of hexadecimal digits are needed"),
        (('9', 'buffer', '0g'), "value '0g': pairs .*"), (('9', 'buffer', ':00'), "value ':00': pairs .*"),
        (('9', 'buffer', '00:'), "value '00:': pairs .*"), (('9', 'buffer', '00::00'), "value '00::00': pairs .*"),
        (('9', 'text', ''), 'an empty value: a new field needs --length'),
        (('9', 'text', 'abc', '--length', '2'), 'a value of 3 bytes for a field of 2'),
        (('9', 'text', 'abc', '--length', '0'), 'length 0: a field has 1 to 65535 bytes'),
        (('9', 'text', 'abc', '--length', '65536'), "length '65536': .*"),
        (('9', 'text', 'a' * 65536), 'a value of 65536 bytes: 65535 fit'),
        (('0x300', 'text', '123456789'), 'a value of 9 bytes for a field of 8'),
        (('1', 'int', '1'), 'cfg: at 0x10: the field of key 0x0001 has 2 bytes, not 4; see resize'),
        (('0x300', 'text', 'a', '--length', '9'), 'cfg: at 0x1d: the field of key 0x0300 has 8 bytes, not 9; see resize'),
        (('9', 'int', '1', '--max-size', 'much'), "--max-size 'much': .*"),
    ):
      with self.subTest(reason=reason):
        self.assert_refused(WRONG, reason, 'set', 'cfg', *args)

  def test_changes_the_first_of_several(self):
    self.write(image.image(records((1, b'a'), (1, b'b'))))
    self.do('set', 'cfg', '1', 'char', '0')
    self.assertEqual(self.read(), image.image(records((1, b'\0'), (1, b'b'))))

  def test_seals_an_image_whose_checksum_was_not_yet_computed(self):
    self.write(image.image(records(*FIELDS), crc=0))
    self.do('set', 'cfg', '1', 'short', '1')
    self.assertEqual(self.read(), image.image(records((1, b'\0\1'), *FIELDS[1:])))

  def test_writes_nothing_that_is_so_already(self):
    self.write(SAMPLE)
    before = os.stat(self.path()).st_ino
    self.do('set', 'cfg', '1', 'short', '0x1122')
    self.assertEqual(os.stat(self.path()).st_ino, before)
    self.do('set', 'cfg', '1', 'short', '0x1123')
    self.assertNotEqual(os.stat(self.path()).st_ino, before)


class Room(ToolTest):

  def test_max_size_counts_the_whole_image(self):
    self.write(SAMPLE)  # 49 bytes, and 4 + 7 more make 60
    self.assert_refused(WRONG, 'cfg: at 0x3b: no room: the image would take 60 bytes, there are 59',
                        'set', 'cfg', '9', 'text', 'seven77', '--max-size', '59')
    self.do('set', 'cfg', '9', 'text', 'seven77', '--max-size', '60')
    self.assert_refused(WRONG, '.*: no room: .*', 'resize', 'cfg', '9', '8', '--max-size', '60')
    self.assert_refused(WRONG, '.*: no room: .*', 'set', 'cfg', '9', 'text', 'seven88', '--max-size', '59')
    self.do('resize', 'cfg', '9', '8', '--max-size', '61')
    self.assertEqual(len(self.read()), 61)

  def test_an_image_grows_and_shrinks_within_its_padding(self):
    for fill in (b'\0', b'\xff'):
      with self.subTest(fill=fill):
        self.write(SAMPLE + fill * 11)
        self.do('set', 'cfg', '9', 'text', 'seven77')
        grown = image.image(records(*FIELDS, (9, b'seven77')), active=7, flag=8, version=0x01020304)
        self.assertEqual(self.read(), grown)
        self.write(grown + fill)
        self.do('unset', 'cfg', '9')
        self.assertEqual(self.read(), SAMPLE + fill * 12)
        self.assert_refused(WRONG, 'cfg: at 0x3d: no room: the image would take 62 bytes, there are 61',
                            'set', 'cfg', '9', 'text', 'nine99999')

  def test_bytes_of_others_behind_the_image_stay_where_they_are(self):
    self.write(SAMPLE + b'other')
    self.assert_refused(WRONG, 'cfg: at 0x31: no room: .* there are 49', 'set', 'cfg', '9', 'char', '1')
    self.do('unset', 'cfg', '0x400')
    shrunk = image.image(records(*FIELDS[:3]), active=7, flag=8, version=0x01020304)
    self.assertEqual(self.read(), shrunk + bytes(8) + b'other')


class Unset(ToolTest):

  def test_takes_the_field_away(self):
    for gone in range(4):
      with self.subTest(gone=gone):
        self.write(SAMPLE)
        self.do('unset', 'cfg', str(FIELDS[gone][0]))
        rest = records(*FIELDS[:gone], *FIELDS[gone + 1:])
        self.assertEqual(self.read(), image.image(rest, active=7, flag=8, version=0x01020304))

  def test_takes_every_field_of_the_key_and_says_so(self):
    self.write(image.image(records((1, b'a'), (2, b'b'), (1, b'cd'))))
    self.assertEqual(self.run_tool('unset', 'cfg', '1'), (DONE, '', 'tarn-cfg: cfg: key 0x0001 was there 2 times\n'))
    self.assertEqual(self.read(), image.image(records((2, b'b'))))

  def test_what_is_not_there_is_1(self):
    self.write(SAMPLE)
    self.assert_refused(NOT_SO, 'cfg: no field of key 0x0002', 'unset', 'cfg', '2')
    self.assert_refused(WRONG, "key 'version': .*", 'unset', 'cfg', 'version')

  def test_the_last_one_leaves_a_blank_image(self):
    self.write(image.image(records((1, b'a'))))
    self.do('unset', 'cfg', '1')
    self.assertEqual(self.read(), image.image(b''))


class Resize(ToolTest):

  def test_lengthens_with_zeros_and_shortens_zeros(self):
    for key, length, value in ((0x300, 9, b'gateway\0\0'), (0x300, 7, b'gateway'), (1, 4, b'\x11\x22\0\0'),
                               (0x203, 65535, b'\x33\x44\xff'.ljust(65535, b'\0')), (0x300, 8, b'gateway\0')):
      with self.subTest(key=key, length=length):
        self.write(SAMPLE)
        self.do('resize', 'cfg', str(key), str(length))
        self.assertEqual(self.read(), image.image(records(*{**dict(FIELDS), key: value}.items()), active=7, flag=8,
                                                  version=0x01020304))

  def test_cuts_a_value_only_when_told_to(self):
    self.write(SAMPLE)
    self.assert_refused(WRONG, 'cfg: at 0x1d: 7 bytes of the value are not zero; --cut takes what is too long',
                        'resize', 'cfg', '0x300', '6')
    self.do('resize', 'cfg', '0x300', '6', '--cut')
    self.assertEqual(image.parse(self.read())[0x300], b'gatewa')

  def test_refuses(self):
    self.write(SAMPLE)
    self.assert_refused(NOT_SO, 'cfg: no field of key 0x0002', 'resize', 'cfg', '2', '1')
    self.assert_refused(WRONG, 'length 0: .*', 'resize', 'cfg', '1', '0')
    self.assert_refused(WRONG, "length '65536': .*", 'resize', 'cfg', '1', '65536')


class Check(ToolTest):

  def test_sound_images(self):
    for data, lines in (
        (SAMPLE, ['cfg: sound: 49 bytes, 4 records']),
        (image.image(b'') + b'\0' * 8, ['cfg: sound: 16 bytes, 0 records']),
        (image.image(b'', crc=0), ['cfg: note: at 0x4: checksum not yet computed; 0xe733 is right',
                                   'cfg: sound: 16 bytes, 0 records']),
        (SAMPLE + b'ab', ['cfg: note: at 0x31: 2 bytes behind the image that are no padding',
                          'cfg: sound: 49 bytes, 4 records']),
        (image.image(records((1, b'a'), (2, b'b'), (1, b'c'))),
         ['cfg: note: at 0x1a: key 0x0001 once more; the one at 0x10 is found', 'cfg: sound: 31 bytes, 3 records']),
    ):
      with self.subTest(lines=lines):
        self.write(data)
        self.assertEqual(self.do('check', 'cfg').splitlines(), lines)
        self.assertEqual(self.read(), data)

  def test_tells_each_fault_with_its_offset(self):
    blank = image.image(b'')
    for data, lines in (
        (b'', ['0x0: the file ends within the header of 16 bytes']),
        (blank[:15], ['0xf: the file ends within the header of 16 bytes']),
        (b'\0' + blank[1:], ['0x0: no image: magic number 0x00739458, not 0x84739458',
                             '0x4: checksum 0xe733 is wrong; 0x6b34 is right']),
        (image.image(b'', crc=1), ['0x4: checksum 0x0001 is wrong; 0xe733 is right']),
        (image.image(b'', length=1), ['0x8: cfg_len states 1 bytes of records, 0 are there']),
        (image.image(b'', length=0xFFFFFFFF), ['0x8: cfg_len states 4294967295 bytes of records, 0 are there']),
        (image.image(records((1, b'a')) + b'\0\2\0'), ['0x15: 3 bytes are left, which is no record']),
        (image.image(records((1, b'a')) + b'\1\2\0\0'), ['0x15: the record of key 0x0102 has length 0']),
        (image.image(records((1, b'a')) + b'\1\2\0\2a'),
         ['0x15: the record of key 0x0102 has length 2, 1 bytes are left']),
        (image.image(records((1, b'a'))[:4]), ['0x10: the record of key 0x0001 has length 1, 0 bytes are left']),
    ):
      with self.subTest(lines=lines):
        self.write(data)
        self.assertEqual(self.run_tool('check', 'cfg'), (NOT_SO, ''.join('cfg: at %s\n' % line for line in lines), ''))
        self.assertEqual(self.read(), data)

  def test_max_size(self):
    self.write(SAMPLE)
    self.do('check', 'cfg', '--max-size', '49')
    self.assertEqual(self.run_tool('check', 'cfg', '--max-size', '48'),
                     (NOT_SO, 'cfg: at 0x8: the image has 49 bytes, more than 48\n', ''))

  def test_json(self):
    self.write(image.image(records((1, b'a'), (1, b'a')), crc=0))
    right = int.from_bytes(image.image(records((1, b'a'), (1, b'a')))[4:6], 'big')
    self.assertEqual(json.loads(self.do('check', 'cfg', '--json')), {
        'file': 'cfg', 'size': 26, 'sound': True, 'faults': [],
        'notes': [{'offset': 4, 'text': 'checksum not yet computed; 0x%04x is right' % right},
                  {'offset': 21, 'text': 'key 0x0001 once more; the one at 0x10 is found'}]})
    self.write(b'')
    status, output, errors = self.run_tool('check', 'cfg', '--json')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertEqual(json.loads(output), {
        'file': 'cfg', 'size': 0, 'sound': False, 'notes': [],
        'faults': [{'offset': 0, 'text': 'the file ends within the header of 16 bytes'}]})


class Repair(ToolTest):

  def repaired(self, data, *options):
    """Repairs; returns the steps. The damaged file is kept."""
    self.write(data)
    os.chmod(self.path(), 0o640)
    dry = self.run_tool('repair', 'cfg', '--dry-run', *options)
    self.assertEqual((dry[0], dry[2]), (NOT_SO, ''))
    self.assertEqual(self.read(), data)
    lines = self.do('repair', 'cfg', *options).splitlines()
    self.assertEqual(lines[:-1], dry[1].splitlines())
    self.assertEqual(lines[-1], 'cfg: as it was: %s.bad' % os.path.realpath(self.path()))
    self.assertEqual(self.read('cfg.bad'), data)
    for name in ('cfg', 'cfg.bad'):
      self.assertEqual(stat.S_IMODE(os.stat(self.path(name)).st_mode), 0o640)
    os.remove(self.path('cfg.bad'))
    self.assert_names('cfg')
    return lines[:-1]

  def test_seals(self):
    steps = self.repaired(SAMPLE[:4] + b'\x12\x34' + SAMPLE[6:])
    self.assertEqual(steps, ['cfg: at 0x4: sealed: the checksum was 0x1234, is 0x%s' % SAMPLE[4:6].hex()])
    self.assertEqual(self.read(), SAMPLE)
    self.repaired(image.image(b'', crc=0))
    self.assertEqual(self.read(), image.image(b''))

  def test_cuts_at_the_last_whole_record_wherever_the_file_ends(self):
    for size in range(16, len(SAMPLE)):
      with self.subTest(size=size):
        whole = [i for i in range(4) if (*OFFSETS, len(SAMPLE))[i + 1] <= size]
        kept = records(*(FIELDS[i] for i in whole))
        steps = self.repaired(SAMPLE[:size])
        self.assertEqual(steps[0], 'cfg: at 0x%x: cut behind the last whole record: cfg_len was 33, is %d'
                         % (16 + len(kept), len(kept)))
        self.assertEqual(self.read(), image.image(kept, active=7, flag=8, version=0x01020304))

  def test_a_length_that_is_wrong_keeps_every_whole_record(self):
    self.repaired(image.image(records(*FIELDS), length=1000, crc=1))
    self.assertEqual(self.read(), image.image(records(*FIELDS)))
    # In a padded file, whose size stays: the records end where the padding begins.
    self.repaired(image.image(records(*FIELDS), length=1000, crc=1) + bytes(200))
    self.assertEqual(self.read(), image.image(records(*FIELDS)) + bytes(200))
    self.repaired(image.image(records(*FIELDS) + b'\1\2\0\0', crc=1) + b'others')
    self.assertEqual(self.read(), image.image(records(*FIELDS)) + bytes(4) + b'others')

  def test_puts_the_magic_number_back_only_when_told_to(self):
    data = b'\x85' + SAMPLE[1:]
    self.write(data)
    self.assert_refused(WRONG, 'cfg: at 0x0: no magic number, so perhaps no image; --magic takes it for one', 'repair',
                        'cfg')
    self.assertEqual(self.repaired(data, '--magic'), ['cfg: at 0x0: the magic number is put back'])
    self.assertEqual(self.read(), SAMPLE)

  def test_leaves_sound_images_alone(self):
    self.write(SAMPLE + b'\0')
    before = os.stat(self.path()).st_ino
    self.assertEqual(self.do('repair', 'cfg'), 'cfg: nothing to repair\n')
    self.assertEqual(self.do('repair', 'cfg', '--dry-run'), 'cfg: nothing to repair\n')
    self.assertEqual((self.read(), os.stat(self.path()).st_ino), (SAMPLE + b'\0', before))
    self.assert_names('cfg')

  def test_keeps_each_damaged_file(self):
    for number, name in enumerate(('cfg.bad', 'cfg.bad.2', 'cfg.bad.3')):
      data = image.image(b'', crc=number + 1)
      self.write(data)
      self.assertIn('/%s\n' % name, self.do('repair', 'cfg'))
      self.assertEqual(self.read(name), data)
    self.assert_names('cfg', 'cfg.bad', 'cfg.bad.2', 'cfg.bad.3')

  def test_cannot_repair_what_has_no_header(self):
    self.write(SAMPLE[:15])
    self.assert_refused(WRONG, 'cfg: at 0xf: the file ends within the header of 16 bytes', 'repair', 'cfg')


class Diff(ToolTest):

  def diff(self, a, b):
    self.write(a, 'a')
    self.write(b, 'b')
    status, output, errors = self.run_tool('diff', 'a', 'b')
    self.assertEqual(errors, '')
    self.assertEqual(status, NOT_SO if output else DONE)
    return output.splitlines()

  def test_equal_images(self):
    self.assertEqual(self.diff(SAMPLE, SAMPLE), [])
    # Neither the checksum's state nor the padding is configuration.
    unsealed = image.image(records(*FIELDS), active=7, flag=8, version=0x01020304, crc=0)
    self.assertEqual(self.diff(SAMPLE, unsealed + bytes(5)), [])

  def test_tells_every_difference(self):
    changed = image.image(records((0x300, b'gw\0'), (0x203, b'\x33\x44\xff'), (1, b'\x11\x23'), (2, b'x')),
                          active=1, flag=2, version=3)
    self.assertEqual(self.diff(SAMPLE, changed), [
        '! active: 7 -> 1', '! flag: 8 -> 2', '! version: 16909060 -> 3', '! 0x0001: short 4386 -> short 4387',
        '! 0x0300: text[8] "gateway" -> text[3] "gw"', '- 0x0400: int 5', '+ 0x0002: char 120',
        '! order: 0x0001 0x0203 0x0300 -> 0x0300 0x0203 0x0001'])

  def test_compares_fields_with_one_key_by_their_turn(self):
    self.assertEqual(self.diff(image.image(records((1, b'a'), (1, b'b'))), image.image(records((1, b'a'), (1, b'c'), (1, b'd')))),
                     ['! 0x0001: char 98 -> char 99', '+ 0x0001: char 100'])

  def test_json(self):
    self.write(SAMPLE, 'a')
    self.write(image.image(records(*FIELDS[1:], (2, b'x')), active=7, flag=9, version=0x01020304), 'b')
    status, output, _ = self.run_tool('diff', 'a', 'b', '--json')
    self.assertEqual(status, NOT_SO)
    self.assertEqual(json.loads(output), [{'what': 'flag', 'before': '8', 'after': '9'},
                                          {'what': '0x0001', 'before': 'short 4386', 'after': None},
                                          {'what': '0x0002', 'before': None, 'after': 'char 120'}])
    self.assertEqual(json.loads(self.do('diff', 'a', 'a', '--json')), [])


class Json(ToolTest):

  DOCUMENT = {
      'tarn-cfg': 1, 'active': 7, 'flag': 8, 'version': 0x01020304, 'sealed': True,
      'fields': [
          {'key': '0x0001', 'type': 'short', 'value': 0x1122},
          {'key': '0x0203', 'type': 'buffer', 'length': 3, 'value': '3344ff'},
          {'key': '0x0300', 'type': 'text', 'length': 8, 'value': 'gateway'},
          {'key': '0x0400', 'type': 'int', 'value': 5},
      ]}

  def test_export_is_the_documented_form(self):
    for data, changes in ((SAMPLE, {}), (SAMPLE + b'\xff' * 3, {'behind': {'size': 3, 'fill': 255}}),
                          (SAMPLE + b'ab', {'behind': {'hex': '6162'}}),
                          (SAMPLE[:4] + b'\0\0' + SAMPLE[6:], {'sealed': False})):
      with self.subTest(changes=changes):
        self.write(data)
        document = json.loads(self.do('export', 'cfg'))
        self.assertEqual(document, {**self.DOCUMENT, **changes})
        self.write(json.dumps(document).encode(), 'json')
        self.do('import', 'json', 'back', '--force')
        self.assertEqual(self.read('back'), data)

  def test_random_images_come_back_byte_for_byte(self):
    random_ = random.Random(1)
    for number in range(20):
      fields = [(random_.randrange(65536), random_.randbytes(random_.choice((1, 2, 3, 4, 32)))) for _ in range(9)]
      data = image.image(records(*fields), version=number) + random_.choice((b'', b'\xff' * 7, b'more'))
      self.write(data)
      self.do('import', '-', 'back', '--force', input=self.do('export', 'cfg'))
      self.assertEqual(self.read('back'), data)

  def test_import_takes_what_people_write(self):
    document = {'tarn-cfg': 1, 'active': 0, 'flag': 0, 'version': 0, 'sealed': True, 'fields': [
        {'value': 'ab', 'key': 258, 'type': 'text', 'length': 4},
        {'key': '7', 'type': 'buffer', 'value': '01:02', 'length': 2},
        {'key': '0xFFFF', 'type': 'text', 'value': 'a\0b', 'length': 4}]}
    self.do('import', '-', 'cfg', input=json.dumps(document))
    self.assertEqual(self.read(), image.image(records((258, b'ab\0\0'), (7, b'\1\2'), (0xFFFF, b'a\0b\0'))))
    self.assertEqual(stat.S_IMODE(os.stat(self.path()).st_mode), 0o600)

  def test_import_replaces_only_when_told_to_and_measures(self):
    text = json.dumps(self.DOCUMENT)
    self.write(image.image(b''))
    os.chmod(self.path(), 0o604)
    self.assert_refused(WRONG, 'cfg: is there; --force replaces it', 'import', '-', 'cfg', input=text)
    self.assert_refused(WRONG, 'cfg: at 0x30: no room: the image would take 49 bytes, there are 48',
                        'import', '-', 'cfg', '--force', '--max-size', '48', input=text)
    self.do('import', '-', 'cfg', '--force', '--max-size', '49', input=text)
    self.assertEqual(self.read(), SAMPLE)
    self.assertEqual(stat.S_IMODE(os.stat(self.path()).st_mode), 0o604)

  def test_import_refuses_what_it_does_not_understand(self):
    text = json.dumps(self.DOCUMENT)
    self.assert_refused(WRONG, 'standard input: at 0x0: no JSON', 'import', '-', 'cfg', input='')
    self.assert_refused(WRONG, 'standard input: at 0x1: no JSON', 'import', '-', 'cfg', input='{]')
    self.assert_refused(WRONG, 'standard input: at 0x[0-9a-f]+: no JSON', 'import', '-', 'cfg', input=text + 'x')
    self.assert_refused(WRONG, 'none: cannot be opened: No such file or directory', 'import', 'none', 'cfg')
    self.assert_refused(WRONG, 'standard input: document: an object is needed', 'import', '-', 'cfg', input='[]')
    for member, value, reason in (
        ('tarn-cfg', 2, 'made by another version'), ('active', 256, '"active": a number from 0 to 255 is needed'),
        ('active', None, 'no "active"'), ('flag', -1, '"flag": .*'), ('version', 1.5, '"version": .*'),
        ('version', '1', '"version": .*'), ('version', 1 << 32, '"version": .*'), ('sealed', 1, '"sealed": true .*'),
        ('sealed', None, 'no "sealed"'), ('fields', {}, '"fields": an array .*'), ('more', 1, 'more members .*'),
    ):
      with self.subTest(member=member, value=value):
        document = {**self.DOCUMENT, member: value}
        if value is None:
          del document[member]
        self.assert_refused(WRONG, 'standard input: document: ' + reason, 'import', '-', 'cfg', input=json.dumps(document))
    for field, reason in (
        (1, 'an object is needed'), ({'type': 'char', 'value': 1}, 'no "key"'),
        ({'key': 65536, 'type': 'char', 'value': 1}, '"key": a number from 0 to 65535 is needed'),
        ({'key': '', 'type': 'char', 'value': 1}, '"key": .*'), ({'key': True, 'type': 'char', 'value': 1}, '"key": .*'),
        ({'key': -1, 'type': 'char', 'value': 1}, '"key": .*'),
        ({'key': 1, 'type': 'long', 'value': 1}, '"type": char, short, .*'), ({'key': 1, 'type': 1}, '"type": a text .*'),
        ({'key': 1, 'type': 'char', 'value': 256}, '"value": a number from 0 to 255 is needed'),
        ({'key': 1, 'type': 'short', 'value': 65536}, '"value": .*'),
        ({'key': 1, 'type': 'char', 'length': 1, 'value': 1}, 'more members .*'),
        ({'key': 1, 'type': 'text', 'value': 'a'}, 'no "length"'),
        ({'key': 1, 'type': 'text', 'length': 0, 'value': ''}, '"length": .*'),
        ({'key': 1, 'type': 'text', 'length': 65536, 'value': ''}, '"length": .*'),
        ({'key': 1, 'type': 'text', 'length': 1, 'value': 'ü'}, '"value": longer than "length"'),
        ({'key': 1, 'type': 'buffer', 'length': 1, 'value': '1'}, '"value": pairs of .*'),
    ):
      with self.subTest(field=field):
        document = {**self.DOCUMENT, 'fields': [self.DOCUMENT['fields'][0], field]}
        self.assert_refused(WRONG, 'standard input: field 1: ' + reason, 'import', '-', 'cfg', input=json.dumps(document))
    for behind, reason in (
        ([], 'an object is needed'), ({}, 'no "size"'), ({'size': 1}, 'no "fill"'),
        ({'size': (64 << 20) + 1, 'fill': 0}, '"size": .*'), ({'size': 1, 'fill': 256}, '"fill": .*'),
        ({'hex': '0'}, '"hex": .*'), ({'hex': '00', 'size': 1}, 'more members .*'),
    ):
      with self.subTest(behind=behind):
        self.assert_refused(WRONG, 'standard input: behind: ' + reason, 'import', '-', 'cfg',
                            input=json.dumps({**self.DOCUMENT, 'behind': behind}))
    self.assert_refused(WRONG, 'standard input: document: more than 67108864 bytes', 'import', '-', 'cfg',
                        input=json.dumps({**self.DOCUMENT, 'behind': {'size': 64 << 20, 'fill': 0}}))
    self.assert_names()


class Files(ToolTest):

  def test_mode_and_owner_stay(self):
    self.write(SAMPLE)
    if os.geteuid() == 0:
      os.chown(self.path(), NOBODY, NOBODY - 1)
    os.chmod(self.path(), 0o4751)
    before = os.stat(self.path())
    for args in (('set', 'cfg', '1', 'short', '1'), ('unset', 'cfg', '1'), ('resize', 'cfg', '0x300', '20'),
                 ('create', 'cfg', '--force')):
      self.do(*args)
      after = os.stat(self.path())
      self.assertNotEqual(after.st_ino, before.st_ino)
      self.assertEqual((after.st_mode, after.st_uid, after.st_gid), (before.st_mode, before.st_uid, before.st_gid))
      before = after

  def test_an_owner_that_cannot_be_kept_is_2(self):
    user = self.unprivileged()
    if not user:
      self.skipTest('needs root, to make a file of somebody else')
    self.write(SAMPLE)
    os.chmod(self.path(), 0o666)
    self.assert_refused(WRONG, 'cfg: not written: the new file cannot have its mode and owner: Operation not permitted',
                        'set', 'cfg', '1', 'short', '1', **user)
    self.assert_names('cfg')

  def test_a_file_that_may_not_be_written_is_not_replaced(self):
    self.write(SAMPLE)
    os.chmod(self.path(), 0o444)
    self.assert_refused(WRONG, 'cfg: not written: Permission denied', 'set', 'cfg', '1', 'short', '1',
                        **self.unprivileged())
    self.assert_names('cfg')

  def test_a_folder_that_may_not_be_written_is_2(self):
    self.write(SAMPLE)
    user = self.unprivileged()
    os.chmod(self.path(), 0o666)
    os.chmod(self.folder, 0o555)
    self.addCleanup(os.chmod, self.folder, 0o755)
    self.assert_refused(WRONG, 'cfg: not written: the temporary file cfg.tarn-cfg: Permission denied',
                        'set', 'cfg', '1', 'short', '1', **user)

  def test_symbolic_links_are_followed(self):
    os.mkdir(self.path('there'))
    self.write(SAMPLE, 'there/real')
    os.symlink('there/real', self.path())
    self.do('unset', 'cfg', '0x300')
    self.assertTrue(os.path.islink(self.path()))
    self.assertNotIn(0x300, image.parse(self.read('there/real')))
    self.assertEqual(os.listdir(self.path('there')), ['real'])

  def test_changes_at_the_same_time_are_all_kept(self):
    self.write(image.image(b''))
    *emulator, program = tool_command
    running = [subprocess.Popen([*emulator, program, 'set', self.path(), str(key), 'int', str(key)])  # pylint: disable=consider-using-with
               for key in range(12)]
    self.assertEqual([process.wait() for process in running], [0] * 12)
    self.assertEqual(image.parse(self.read()), {key: image.number_of(key) for key in range(12)})
    self.assert_names('cfg')


class Stumbling(ToolTest):
  """Writes that are ended, or in which a call fails, at every call for the file. Each byte is a call of its own."""

  OLD = image.image(image.record(1, b'old'.ljust(200, b'\0')))
  NEW = image.image(image.record(1, b'new'.ljust(200, b'\0')))
  SET = ('set', 'cfg', '1', 'text', 'new')

  def stumble(self, how, at, *args):
    return self.run_tool(*args, preload=os.environ['TARN_TEST_STUMBLE'],
                         env={'TARN_STUMBLE': how, 'TARN_STUMBLE_AT': str(at)})

  def stumble_everywhere(self, how, args, check):
    """Runs the command with a stumble at its first call, its second, ... until none is left; returns how many."""
    for at in range(1, 1000):
      self.write(self.OLD)
      status, _, errors = self.stumble(how, at, *args)
      check(at, status, errors)
      if status == DONE and at > 200:
        return at
    self.fail('no end')

  def test_killed_at_any_call_it_leaves_the_old_or_the_new_image(self):
    seen = {self.OLD: 0, self.NEW: 0}

    def check(_, status, errors):
      self.assertIn(status, (-signal.SIGKILL, 128 + signal.SIGKILL, DONE), errors)
      seen[self.read()] += 1

    self.stumble_everywhere('kill', self.SET, check)
    self.assertGreater(seen[self.OLD], 200)
    self.assertGreater(seen[self.NEW], 1, 'killed behind the rename, and not at all')
    # What they left is taken away by the next one.
    self.write(self.OLD)
    self.write(b'left', 'cfg.tarn-cfg')
    self.do(*self.SET)
    self.assert_names('cfg')

  def test_a_call_that_fails_leaves_the_old_image_or_is_told(self):
    seen = set()

    def check(_, status, errors):
      self.assert_names('cfg')
      if status == WRONG:
        self.assertRegex(errors, '^tarn-cfg: cfg: (not written|written, but a loss of power may undo it): .*\n$')
        self.assertEqual(self.read(), self.OLD if 'not written' in errors else self.NEW)
        seen.add(re.sub('cfg: (not )?written', r'\1', errors.split(': ', 1)[1]).strip())
      else:  # the unlink of what is not there
        self.assertEqual((status, errors, self.read()), (DONE, '', self.NEW))

    self.stumble_everywhere('fail', self.SET, check)
    self.assertEqual(len(seen), 5, seen)  # temporary file made, its mode, its bytes, the rename, the folder

  def test_a_new_file_is_there_whole_or_not_at_all(self):
    self.write(json.dumps({**Json.DOCUMENT, 'behind': {'size': 200, 'fill': 0}}).encode(), 'json')
    expected = SAMPLE + bytes(200)
    for how in ('kill', 'fail'):
      for at in (*range(1, 6), 100, *range(248, 260)):
        for name in ('cfg', 'cfg.tarn-cfg'):
          if os.path.exists(self.path(name)):
            os.remove(self.path(name))
        status, _, errors = self.stumble(how, at, 'import', 'json', 'cfg')
        with self.subTest(how=how, at=at, errors=errors):
          if os.path.exists(self.path()):
            self.assertEqual(self.read(), expected)
          else:
            self.assertNotEqual(status, DONE)
    self.assertEqual(status, DONE)

  def test_the_bytes_are_on_the_disk_before_the_name(self):
    self.write(self.OLD)
    self.do(*self.SET, preload=os.environ['TARN_TEST_STUMBLE'], env={'TARN_STUMBLE_LOG': self.path('log')})
    calls = self.read('log').decode().split()
    self.assertEqual([call for call in calls if call != 'write'],
                     ['unlinkat', 'openat', 'fchmod', 'fsync', 'renameat', 'fsync'])
    self.assertEqual(calls[3:-3], ['write'] * len(self.NEW))


class Documentation(ToolTest):

  def test_man_page_has_no_warnings(self):
    if not shutil.which('man'):
      self.skipTest('no man')
    done = subprocess.run(['man', '--warnings', '-E', 'UTF-8', '-l', os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.1')],
                          env={**os.environ, 'LC_ALL': 'C.UTF-8', 'MANWIDTH': '80'}, capture_output=True, text=True, check=False)
    self.assertEqual((done.returncode, done.stderr), (0, ''))
    for option in ('--json', '--max-size', '--length', '--cut', '--force', '--size', '--fill', '--dry-run', '--magic', '--as'):
      self.assertIn(option, done.stdout)

  def page(self, name):
    with open(os.path.join(TOOLS, name), encoding='utf-8') as file:
      return file.read()

  def shown_commands(self, text):
    return re.findall('^(tarn-cfg .*)$', text.replace(r'\-', '-'), re.MULTILINE)

  def run_shown(self, lines):
    """Runs the lines in a shell with a tarn-cfg that runs the one under test; returns the output."""
    os.mkdir(self.path('bin'))
    with open(self.path('bin/tarn-cfg'), 'w', encoding='utf-8') as file:
      file.write('#!/bin/sh\nexec %s "$@"\n' % shlex.join(tool_command))
    os.chmod(self.path('bin/tarn-cfg'), 0o755)
    env = {**os.environ, 'PATH': self.path('bin') + ':' + os.environ['PATH']}
    done = subprocess.run(['sh', '-e'], input='\n'.join(lines), cwd=self.folder, env=env, capture_output=True, text=True, check=False)
    self.assertEqual((done.returncode, done.stderr), (0, ''), done.stdout)
    return done.stdout

  def test_every_command_of_the_man_page_does_that(self):
    lines = self.shown_commands(self.page('tarn-cfg/tarn-cfg.1').split('.SH EXAMPLES')[1])
    self.assertGreater(len(lines), 10)
    self.assertIn('gateway', self.run_shown(lines))
    data = self.read('gateway.cfg')
    self.assertEqual(data[68:], bytes(4096 - 68))  # a header of 16, and values of 32, 4 and 4 with their heads
    self.assertEqual(image.parse(data[:68]), {0x101: image.text(b'gateway'), 0x102: image.number_of(1),
                                              0x202: image.number_of(100)})

  def test_every_command_of_the_readme_does_that(self):
    page = self.page('README.md')
    lines = self.shown_commands(page)
    self.assertGreater(len(lines), 5)
    self.run_shown(lines)
    self.assertIn('```\n%s```' % self.do('show', 'gateway.cfg'), page)
    self.assertEqual(self.read('copy.cfg'), self.read('gateway.cfg'))

  def complete(self, *words):
    """What bash offers for the last word."""
    script = 'source %s; COMP_WORDS=(%s); COMP_CWORD=%d; _tarn_cfg tarn-cfg; printf "%%s\\n" "${COMPREPLY[@]}"' % (
        shlex.quote(os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.bash')), shlex.join(words), len(words) - 1)
    done = subprocess.run(['bash', '-u', '-c', script], cwd=self.folder, capture_output=True, text=True, check=False)
    self.assertEqual((done.returncode, done.stderr), (0, ''))
    return done.stdout.split()

  def test_completion(self):
    if not shutil.which('bash'):
      self.skipTest('no bash')
    self.write(SAMPLE)
    self.assertEqual(self.complete('tarn-cfg', 're'), ['repair', 'resize'])
    commands = re.findall(r'^  ([a-z]+)  ', self.do('--help'), re.MULTILINE)
    self.assertEqual(sorted(word for word in self.complete('tarn-cfg', '') if word[0] != '-'), sorted(commands))
    for command in commands:
      options = re.findall(r'^  (?:-h,)?(--[a-z-]+)', self.do(command, '--help'), re.MULTILINE)
      self.assertEqual(sorted(self.complete('tarn-cfg', command, '--')), sorted(options), command)
    self.assertEqual(self.complete('tarn-cfg', 'show', 'c'), ['cfg'])
    self.assertEqual(self.complete('tarn-cfg', 'get', 'cfg', 'v'), ['version'])
    self.assertEqual(self.complete('tarn-cfg', 'set', 'cfg', '1', 'b'), ['buffer'])
    self.assertEqual(self.complete('tarn-cfg', 'get', 'cfg', '1', '--as', 'r'), ['raw'])


if __name__ == '__main__':
  programs.main(tool_command)
