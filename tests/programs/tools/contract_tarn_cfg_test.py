"""tarn-cfg against its man page, the description of the image and a writer and reader of images that stand here.

Usage: contract_tarn_cfg_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG

TARN_TEST_LOADS names the program that opens images with the library as a daemon does, TARN_TEST_STUMBLE the library
that ends tarn-cfg at a call for a file.
"""

import json
import os
import random
import re
import resource
import signal
import stat
import struct
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

ROOT = os.path.join(HERE, '..', '..', '..')
TOOLS = os.path.join(ROOT, 'tools')
PAGE = os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.1')
COMPLETION = os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.bash')
DONE, NOT_SO, WRONG = 0, 1, 2
LARGEST_FILE = 64 << 20
COMMANDS = ['check', 'create', 'diff', 'export', 'get', 'import', 'repair', 'resize', 'set', 'show', 'unset']

command_line = []


def seal_of(data):
  """The checksum of an image: 16-bit words added in 32 bits, folded, and complemented."""
  data = data[:4] + b'\0\0' + data[6:]
  words = struct.unpack('>%dH' % ((len(data) + 1) // 2), data + b'\0' * (len(data) % 2))
  total = sum(words) % (1 << 32)
  while total >> 16:
    total = (total & 0xFFFF) + (total >> 16)
  return ~total & 0xFFFF


def sealed(data):
  return data[:4] + struct.pack('>H', seal_of(data)) + data[6:]


def unsealed(data):
  return data[:4] + b'\0\0' + data[6:]


def built(*fields, active=0, flag=0, version=0):
  """A sealed image of (key, value) pairs."""
  body = b''.join(struct.pack('>HH', key, len(value)) + value for key, value in fields)
  head = b'\x84\x73\x94\x58\0\0' + struct.pack('>BBII', active, flag, len(body), version)
  return sealed(head + body)


def taken_apart(data):
  """The fields of the image that `data` begins with, and its size; None where it is no sound image."""
  if len(data) < 16 or data[:4] != b'\x84\x73\x94\x58':
    return None
  size = 16 + struct.unpack('>I', data[8:12])[0]
  if size > len(data) or struct.unpack('>H', data[4:6])[0] not in (0, seal_of(data[:size])):
    return None
  fields, at = [], 16
  while at < size:
    if size - at < 4:
      return None
    key, length = struct.unpack('>HH', data[at:at + 4])
    if length == 0 or at + 4 + length > size:
      return None
    fields.append((key, data[at + 4:at + 4 + length]))
    at += 4 + length
  return fields, size


BLANK = bytes.fromhex('84739458e733') + bytes(10)
assert built() == BLANK


def some_value(rand):
  """Numbers, texts, texts with zeros in and behind them, bytes; mostly short."""
  length = rand.choice([1, 1, 2, 2, 3, 4, 4, 5, 8, 32, rand.randrange(1, 200)])
  kind = rand.randrange(6)
  if kind == 0:
    return bytes(length)
  if kind == 1:
    return rand.randbytes(length)
  if kind == 2:
    return (rand.randbytes(max(1, length // 2)) + bytes(length))[:length]
  letters = 'az09 "\\/é€\U0001F600\u202e\ufeff\u0085\x7f\n\t\0'
  text = ''.join(rand.choice(letters) for _ in range(length)).encode()
  text = text if kind == 3 else text.replace(b'\n', b'x').replace(b'\0', b'y')  # and may be cut in a letter
  return (text[:rand.randrange(length + 1)] + bytes(length))[:length]


def some_file(rand):
  """An image file: sealed or not, with nothing, padding, or anything behind the image."""
  fields = [(rand.choice([0, 1, 0x101, 65535, rand.randrange(65536)]), some_value(rand))
            for _ in range(rand.choice([0, 1, 2, 5, 12]))]
  data = built(*fields, active=rand.randrange(256), flag=rand.randrange(256), version=rand.getrandbits(32))
  if rand.randrange(4) == 0:
    data = unsealed(data)
  return data + rand.choice([b'', b'', bytes([rand.randrange(256)]) * rand.randrange(1, 40),
                             rand.randbytes(rand.randrange(1, 40)), b'\0' * 5 + b'x'])


class CfgTest(programs.ProgramTest):
  """Ways to run tarn-cfg, and what always holds."""

  command = command_line

  def tell(self, *args, **popen):
    status, output, errors = self.run_program(*args, **popen)
    return status, output.decode(), errors.decode()

  def do(self, *args, **popen):
    """Runs a command that must succeed and complain of nothing; returns its output."""
    status, output, errors = self.tell(*args, **popen)
    self.assertEqual((status, errors), (DONE, ''), args)
    return output

  def refuse(self, *args, status=WRONG, says='', **popen):
    """Runs a command that must end with `status`, print nothing, and change no file; returns its one line."""
    before = self.files()
    found, output, errors = self.tell(*args, **popen)
    self.assertEqual((found, output), (status, ''), (args, errors))
    self.assertRegex(errors, r'\Atarn-cfg: [^\n]+\n\Z', args)
    self.assertIn(says, errors)
    self.assertEqual(self.files(), before)
    return errors

  def files(self):
    return {name: self.read(name) for name in self.names() if os.path.isfile(self.path(name))}

  def load(self, *files):
    """What tlv_load finds in each of the files: the number of fields, None where it refuses."""
    stream = b''.join(struct.pack('>II', len(data), len(data)) + data for data in files)
    done = subprocess.run([*command_line[:-1], os.environ['TARN_TEST_LOADS']], input=stream, check=True,
                          stdout=subprocess.PIPE)
    lines = [line.split() for line in done.stdout.decode().splitlines() if re.fullmatch(r'-?\d+ \d+', line)]
    self.assertEqual(len(lines), len(files))
    return [int(fields) if result == '0' else None for result, fields in lines]

  def fields(self, name='f'):
    """The fields of an image that is sound here and loads in a daemon."""
    data = self.read(name)
    found = taken_apart(data)
    self.assertIsNotNone(found, data)
    self.assertEqual(self.load(data), [len(found[0])])
    return found[0]


class Words(CfgTest):
  """What may stand on the command line."""

  def test_no_command_and_unknown_ones_are_wrong(self):
    self.write('f', BLANK)
    for args in ((), ('nothing',), ('show',), ('show', 'f', 'f'), ('show', '-x', 'f'),
                 ('show', '--json=yes please', 'f'),
                 ('get', 'f'), ('get', 'f', '1', '2'), ('get', '--as', 'f', '1'), ('get', '--as', 'double', 'f', '1'),
                 ('set', 'f', '1', 'raw', '00'), ('set', 'f', '1', 'char'), ('unset', 'f'), ('resize', 'f', '1'),
                 ('resize', 'f', '1', '2', '3'), ('check', '--max-size'), ('create',), ('repair', '--force', 'f'),
                 ('diff', 'f'), ('export',), ('export', '--json', 'f'), ('import', 'f'), ('import', '-', 'f', 'g'),
                 ('show', '--max-size', '10', 'f'), ('unset', '--max-size', '10', 'f', '1')):
      with self.subTest(args=args):
        status, output, errors = self.tell(*args)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertRegex(errors, r'\Atarn-cfg: .+\n')
        self.assertEqual(self.files(), {'f': BLANK})

  def test_keys_are_decimal_or_hexadecimal(self):
    self.write('f', built((0, b'a'), (10, b'b'), (65535, b'c')))
    for word, number in (('0', 97), ('0x0', 97), ('0000', 97), ('10', 98), ('010', 98), ('0xa', 98), ('0xA', 98),
                         ('0x000A', 98), ('65535', 99), ('0xFFFF', 99), ('0xfFfF', 99)):
      self.assertEqual(self.do('get', 'f', word), '%d\n' % number, word)
    for word in ('', '65536', '0x10000', '4294967296', '18446744073709551616', '0x', 'x1', '+1', ' 1', '1 ', '1.0',
                 '1e1',
                 'a', '0b1', 'Flag', 'FLAG', 'header'):
      self.assertIn(word, self.refuse('get', 'f', word))
      self.refuse('unset', 'f', word)
    self.refuse('get', 'f', '--', '-1')

  def test_header_values_are_keys_of_get_and_set_alone(self):
    self.write('f', built((1, b'ab')))
    for name in ('active', 'flag', 'version'):
      for args in (('unset', 'f', name), ('resize', 'f', name, '4')):
        # The reason does not offer what it refuses.
        self.assertTrue(self.refuse(*args).endswith("key '%s': a number from 0 to 65535 is needed\n" % name))
      self.assertEqual(self.do('get', 'f', name), '0\n')
    self.assertIn('active, flag or version', self.refuse('get', 'f', 'x'))

  def test_files_may_be_named_like_anything(self):
    for name in ('show', 'get', 'active', '[a]', '{}', 'a b', 'a=b', '%s%n', 'ü', '++x', "it's"):
      self.do('create', name)
      self.do('set', name, '1', 'char', '7')
      self.assertEqual(self.do('get', name, '1'), '7\n', name)
      self.assertEqual(self.fields(name), [(1, b'\7')])
    self.do('create', '--', '--json')
    self.assertEqual(self.do('get', '--', '--json', 'version'), '0\n')

  def test_options_stand_anywhere_before_two_dashes(self):
    self.write('f', built((1, b'abc')))
    for args in (('get', '--as', 'buffer', 'f', '1'), ('get', 'f', '--as', 'buffer', '1'),
                 ('get', 'f', '1', '--as', 'buffer'), ('get', 'f', '1', '--as=buffer'),
                 ('get', '--as', 'buffer', '--', 'f', '1'), ('get', 'f', '--as=buffer', '--', '1')):
      self.assertEqual(self.do(*args), '616263\n', args)

  def test_values_are_taken_as_they_stand(self):
    self.do('create', 'f')
    self.do('set', '--length', '40', 'f', '1', 'text', 'x')
    for text in ('a', ' a ', '[a]', '[a,b]', '{}', '"a"', "'a'", 'a,b', '%s', '\\n', 'set', '=', '#', '~', '*', 'é€😀',
                 'a\nb', '0x10', '', 'x' * 40):
      self.do('set', 'f', '1', 'text', text)
      self.assertEqual(self.fields(), [(1, text.encode().ljust(40, b'\0'))])
    for text in ('-', '-1', '--', '--json', '++'):  # behind two dashes, as the man page says
      self.do('set', 'f', '1', 'text', '--', text)
      self.assertEqual(self.fields(), [(1, text.encode().ljust(40, b'\0'))])
    self.write('bytes', b'')
    self.assertEqual(self.run_program(b'set', b'f', b'1', b'text', b'\xff\x80')[0], DONE)
    self.assertEqual(self.fields(), [(1, b'\xff\x80'.ljust(40, b'\0'))])

  def test_help_is_shown_or_told(self):
    for args in (('--help',), ('-h',), ('--version',), *((command, '--help') for command in COMMANDS)):
      self.assertNotEqual(self.do(*args), '')
      with open('/dev/full', 'wb') as full:
        self.assertEqual(self.run_program(*args, stdout=full),
                         (WRONG, None, b'tarn-cfg: standard output: No space left on device\n'), args)
    with open(PAGE, encoding='ascii') as file:
      synopsis = re.findall(r'^\\fBtarn\\-cfg ([a-z]+)\\fR(.*)$', file.read(), re.MULTILINE)
    self.assertEqual(sorted(name for name, _ in synopsis), COMMANDS)
    for name, rest in synopsis:
      shown = set(re.findall(r'--[a-z-]+', self.do(name, '--help').split('Options:')[1].split('Exit')[0]))
      self.assertEqual(shown - {'--help'}, set(re.findall(r'--[a-z-]+', re.sub(r'\\f.|\\', '', rest))), name)


class Looking(CfgTest):
  """show, get, check, diff: what they print, and that they write nothing."""

  def test_show_has_every_record(self):
    data = built((1, b'\xfe'), (2, b'\x12\x34'), (0x203, b'\x80\0\0\0'), (65535, b'text\0\0'), (5, b'\0\1\2'),
                 active=1, flag=255, version=4294967295)
    self.write('f', data)
    lines = self.do('show', 'f').splitlines()
    head = dict(re.split(r'\s+', line, maxsplit=1) for line in lines[:lines.index('')])
    self.assertEqual(head, {'image': '%d bytes, 5 records' % len(data), 'magic': '0x84739458', 'flag': '255',
                            'checksum': '0x%04x, right' % seal_of(data), 'active': '1', 'version': '4294967295'})
    table = [line.split() for line in lines[lines.index('') + 2:]]
    # Worked out by hand: a head of 16 bytes, 4 bytes before each value.
    self.assertEqual(table, [['0x000010', '0x0001', '1', '254', 'fe'],
                             ['0x000015', '0x0002', '2', '4660', '1234'],
                             ['0x00001b', '0x0203', '4', '2147483648', '80000000'],
                             ['0x000023', '0xffff', '6', '-', '"text"'],
                             ['0x00002d', '0x0005', '3', '-', '000102']])
    found = json.loads(self.do('show', '--json', 'f'))
    self.assertEqual([(r['offset'], r['key'], r['length'], r['number'], r['text'], r['hex']) for r in found['records']],
                     [(0x10, 1, 1, 254, None, 'fe'), (0x15, 2, 2, 4660, None, '1234'),
                      (0x1b, 0x203, 4, 2147483648, None, '80000000'), (0x23, 65535, 6, None, 'text', '746578740000'),
                      (0x2d, 5, 3, None, None, '000102')])
    self.assertEqual([found[name] for name in ('file', 'size', 'image_size', 'magic', 'checksum', 'right_checksum',
                                               'active', 'flag', 'version', 'faults', 'notes')],
                     ['f', len(data), len(data), 0x84739458, seal_of(data), seal_of(data), 1, 255, 4294967295, [], []])
    self.assertEqual(self.files(), {'f': data})

  def test_show_never_sends_a_terminal_a_command(self):
    for value in (b'\x1b[1m', b'abc\x07', b'\xc2\x9b31m', b'\x7fabc', b'a\rb', b'a\nb', b'a\0b', b'\xed\xa0\x80',
                  b'\xc0\xaf\xc0', b'\xf4\x90\x80\x80a', b'abc\xe2\x82'):
      self.write('f', built((1, value + b'\0' * 9)))
      for args in (('show', 'f'), ('get', 'f', '1'), ('export', 'f'), ('show', '--json', 'f')):
        output = self.run_program(*args)[1]
        self.assertNotRegex(output, rb'[\x00-\x09\x0b-\x1f\x7f-\xff]', (value, args))
        self.assertIn(value.hex().encode(), output)

  def test_get_prints_each_type(self):
    self.write('f', built((1, b'\xff'), (2, b'\xff\xfe'), (3, b'\xff\xff\xff\xfe'), (4, 'grüß'.encode() + b'\0\0'),
                          (5, b'\0' * 3), (6, b'\xff\0\1'), (7, b'abc'), (8, b'ab\0\0')))
    for key, kind, expected in (
        (1, None, '255'), (1, 'char', '255'), (1, 'buffer', 'ff'), (2, None, '65534'), (2, 'short', '65534'),
        (3, None, '4294967294'), (3, 'int', '4294967294'), (3, 'buffer', 'fffffffe'), (4, None, 'grüß'),
        (4, 'text', 'grüß'), (4, 'buffer', '6772c3bcc39f0000'), (5, None, '000000'), (5, 'text', ''),
        (6, None, 'ff0001'),
        (7, None, 'abc'), (8, None, '1633812480'), (8, 'text', 'ab'), (8, 'int', '1633812480')):
      self.assertEqual(self.do('get', *(('--as', kind) if kind else ()), 'f', str(key)), expected + '\n', (key, kind))
    for key, value in ((4, 'grüß'.encode() + b'\0\0'), (5, b'\0\0\0'), (2, b'\xff\xfe')):
      self.assertEqual(self.run_program('get', '--as', 'raw', 'f', str(key)), (DONE, value, b''))
    for key, kind in ((1, 'short'), (1, 'int'), (2, 'char'), (3, 'short'), (4, 'int'), (6, 'text'), (3, 'text')):
      self.refuse('get', '--as', kind, 'f', str(key), status=NOT_SO, says='f: at 0x')
    self.refuse('get', 'f', '9', status=NOT_SO, says='f: no field of key 0x0009')
    self.refuse('get', 'f', '--as', 'short', 'flag')

  def test_of_several_fields_the_first_is_read_and_changed(self):
    self.write('f', built((9, b'a'), (1, b'\0\1'), (1, b'\0\2'), (1, b'abc')))
    self.assertEqual(self.do('get', 'f', '1'), '1\n')
    self.do('set', 'f', '1', 'short', '9')
    self.assertEqual(self.fields(), [(9, b'a'), (1, b'\0\x09'), (1, b'\0\2'), (1, b'abc')])
    status, output, _ = self.tell('check', 'f')
    self.assertEqual(status, DONE)
    self.assertIn('0x00', output)
    found = json.loads(self.do('check', '--json', 'f'))
    self.assertEqual((found['sound'], found['faults'], [note['offset'] for note in found['notes']]),
                     (True, [], [0x1b, 0x21]))

  def test_check_tells_each_fault_where_it_is(self):
    good = built((1, b'abcd'), (2, b'xyz'))  # records at 0x10 and 0x18, end at 0x1f
    long = sealed(good[:8] + struct.pack('>I', 16) + good[12:] + b'?')
    for data, offsets in (
        (good, []),
        (b'', [0]), (good[:15], [15]),
        (b'x' + good[1:], [0, 4]), (b'\0' * 16, [0]),
        (good[:-1] + b'!', [4]),
        (good[:6] + b'\1' + good[7:], [4]),
        (sealed(good[:0x12] + b'\0\0' + good[0x14:]), [0x10]),       # a length of 0
        (sealed(good[:0x1a] + b'\0\4' + good[0x1c:]), [0x18]),       # a value beyond the end
        (sealed(good[:8] + struct.pack('>I', 13) + good[12:0x1d]), [0x18]),
        (long, [0x1f]),                                              # a byte that is no record
        (good[:0x1d], [8, 0x18]), (good[:0x10], [8]),
        (good[:8] + b'\xff\xff\xff\xff' + good[12:], [8]),
    ):
      with self.subTest(data=data):
        self.write('f', data)
        status, output, errors = self.tell('check', '--json', 'f')
        self.assertEqual((status, errors), (NOT_SO if offsets else DONE, ''))
        found = json.loads(output)
        self.assertEqual([fault['offset'] for fault in found['faults']], offsets)
        self.assertEqual((found['file'], found['size'], found['sound']), ('f', len(data), not offsets))
        status, output, errors = self.tell('check', 'f')
        self.assertEqual((status, errors), (NOT_SO if offsets else DONE, ''))
        if offsets:
          self.assertEqual(re.findall('^f: at 0x([0-9a-f]+): .', output, re.MULTILINE), ['%x' % at for at in offsets])
        self.assertEqual(taken_apart(data) is not None, not offsets)
        # What can be read is shown, the rest is told on standard error; no other command touches it.
        status, _, errors = self.tell('show', 'f')
        self.assertEqual((status, errors.count('f: at 0x')), (NOT_SO if offsets else DONE, len(offsets)))
        self.assertEqual(self.tell('show', '--json', 'f')[::2], (NOT_SO if offsets else DONE, ''))
        if offsets:
          for args in (('get', 'f', '1'), ('set', 'f', '1', 'int', '1'), ('unset', 'f', '1'), ('resize', 'f', '1', '9'),
                       ('export', 'f'), ('diff', 'f', 'f')):
            status, output, errors = self.tell(*args)
            self.assertEqual((status, output), (WRONG, ''), args)
            self.assertIn('f: at 0x', errors)
        self.assertEqual(self.files(), {'f': data})

  def test_notes_are_no_faults(self):
    good = built((1, b'ab'), (1, b'cd'))
    for data, offsets in ((unsealed(good), [4, 0x16]), (good + b'\0' * 9, [0x16]), (good + b'xy', [0x16, 0x1c]),
                          (good + b'\xff' * 3, [0x16]), (good + b'x', [0x16])):
      self.write('f', data)
      found = json.loads(self.do('check', '--json', 'f'))
      self.assertEqual(([note['offset'] for note in found['notes']], found['faults']), (offsets, []), data)
      self.assertIn('not yet computed' if data[4:6] == b'\0\0' else 'right', self.do('show', 'f'))
      self.assertEqual(self.read('f'), data)

  def test_max_size_is_the_whole_image(self):
    data = built((1, b'abc'))
    self.write('f', data)
    for size, status in ((len(data), DONE), (len(data) - 1, NOT_SO), (0, NOT_SO), (2**32 - 1, DONE)):
      self.assertEqual(self.tell('check', '--max-size', str(size), 'f')[0], status)
    self.assertIn('f: at 0x8: ', self.tell('check', '--max-size', '0x16', 'f')[1])
    for word in ('-1', 'x', str(2**32), '1k'):
      self.refuse('check', '--max-size', word, 'f', says='--max-size')
    status, output, errors = self.tell('check', '--max-size', '', 'f')  # no limit that was forgotten
    self.assertEqual((status, output), (WRONG, ''))
    self.assertIn('--max-size', errors)

  def test_diff(self):
    a = built((1, b'a'), (2, b'abc'), (3, b'\0\1'), active=1)
    self.write('a', a)
    self.write('same', unsealed(a) + b'\xff' * 9)
    self.assertEqual(self.do('diff', 'a', 'same'), '')
    self.assertEqual(json.loads(self.do('diff', '--json', 'a', 'same')), [])
    self.write('b', built((2, b'abd'), (3, b'\0\1'), (4, b'\0\0\0\5'), active=2, version=7))
    status, output, errors = self.tell('diff', 'a', 'b')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertEqual(sorted(line[0] + line[1:].split(':')[0] for line in output.splitlines()),
                     ['! 0x0002', '! active', '! version', '+ 0x0004', '- 0x0001'])
    status, output, _ = self.tell('diff', '--json', 'a', 'b')
    self.assertEqual(status, NOT_SO)
    self.assertEqual({(d['what'], d['before'] is None, d['after'] is None) for d in json.loads(output)},
                     {('0x0002', False, False), ('active', False, False), ('version', False, False),
                      ('0x0004', True, False), ('0x0001', False, True)})
    self.write('order', built((2, b'abc'), (1, b'a'), (3, b'\0\1'), active=1))
    self.assertEqual(self.tell('diff', 'a', 'order')[0], NOT_SO)
    self.refuse('diff', 'a', 'missing', says='missing: ')
    self.refuse('diff', 'missing', 'a', says='missing: ')


class Changing(CfgTest):
  """set, unset, resize, create, repair: what the file then holds."""

  def test_random_changes_leave_what_a_model_says(self):
    rand = random.Random(6)
    self.do('create', '--size', '600', 'f')
    model, states, header = [], [], {'active': 0, 'flag': 0, 'version': 0}
    for _ in range(150):
      key = rand.randrange(6)
      here = next((i for i, field in enumerate(model) if field[0] == key), None)
      what = rand.choice(['set', 'set', 'unset', 'resize', 'header'])
      if what == 'header':
        name = rand.choice(list(header))
        header[name] = rand.randrange(2**32 if name == 'version' else 256)
        self.do('set', 'f', name, 'int' if name == 'version' else 'char', hex(header[name]))
      elif what == 'set':
        length = len(model[here][1]) if here is not None else rand.choice([1, 2, 4, 3, 20])
        value = rand.randbytes(length)
        kind = {1: 'char', 2: 'short', 4: 'int'}.get(length, 'buffer') if rand.randrange(2) else 'buffer'
        word = value.hex() if kind == 'buffer' else str(int.from_bytes(value, 'big'))
        self.do('set', '--max-size', '584', 'f', str(key), kind, word)
        if here is None:
          model.append((key, value))
        else:
          model[here] = (key, value)
      elif here is None:
        self.refuse(*(('unset', 'f', str(key)) if what == 'unset' else ('resize', 'f', str(key), '3')), status=NOT_SO)
      elif what == 'unset':
        self.do('unset', 'f', str(key))
        model.pop(here)
      else:
        length = rand.choice([1, 2, 4, 9, 40])
        self.do('resize', '--cut', 'f', str(key), str(length))
        model[here] = (key, model[here][1][:length].ljust(length, b'\0'))
      expected = built(*model, **header)
      self.assertEqual(self.read('f'), expected + bytes(600 - len(expected)))
      states.append((self.read('f'), len(model)))
    self.assertEqual(self.load(*(data for data, _ in states)), [count for _, count in states])

  def test_set_measures_values(self):
    self.write('f', built((1, b'a'), (2, b'ab'), (4, b'abcd'), (7, b'1234567')))
    for args in (('1', 'char', '256'), ('2', 'short', '65536'), ('4', 'int', '4294967296'), ('1', 'char', '0x100'),
                 ('1', 'char', ''), ('1', 'char', 'a'), ('1', 'char', '1.5'), ('7', 'buffer', '123'),
                 ('7', 'buffer', 'xx'), ('7', 'text', '12345678'), ('7', 'buffer', '00' * 8), ('1', 'short', '1'),
                 ('7', 'int', '1'), ('9', 'text', ''), ('9', 'buffer', ''), ('flag', 'int', '1'),
                 ('flag', 'char', '256'),
                 ('version', 'char', '1'), ('active', 'text', 'a'), ('version', 'int', '4294967296')):
      self.refuse('set', 'f', *args)
    for args in (('--length', '0'), ('--length', '65536'), ('--length', 'x'), ('--length', '1')):
      self.refuse('set', *args, 'f', '9', 'text', 'abc')
    self.refuse('set', '--length', '4', 'f', '9', 'int', '1')
    self.refuse('set', '--length', '9', 'f', '7', 'text', 'a', says='f: at 0x')
    self.do('set', '--length', '7', 'f', '7', 'text', 'a')  # the length that it has
    self.do('set', '--length', '65535', 'f', '9', 'text', '')
    self.assertEqual(self.fields()[3:], [(7, b'a'.ljust(7, b'\0')), (9, bytes(65535))])

  def test_room(self):
    blank = built((1, b'ab'))
    for data, room in ((blank, None), (blank + bytes(10), 10), (blank + b'\xff' * 10, 10), (blank + b'other bytes', 0)):
      self.write('f', data)
      if room is not None:
        self.refuse('set', '--length', str(room - 4 + 1 if room else 1), 'f', '2', 'buffer', '07', says='f: at 0x')
      if room:
        self.do('set', '--length', str(room - 5), 'f', '2', 'buffer', '07')
        self.assertEqual(len(self.read('f')), len(data))
        self.assertEqual(self.fields(), [(1, b'ab'), (2, b'\7' + bytes(room - 6))])
        self.do('unset', 'f', '2')
        self.assertEqual(self.read('f'), data)
        self.do('set', '--length', str(room - 4), 'f', '2', 'buffer', '07')  # up to the last byte
        self.assertEqual(len(self.read('f')), len(data))
        self.assertEqual(self.fields(), [(1, b'ab'), (2, b'\7' + bytes(room - 5))])
    self.write('f', blank + b'other bytes')
    self.do('unset', 'f', '1')
    self.assertEqual(self.read('f')[len(blank):], b'other bytes')
    for size in range(len(blank), len(blank) + 12):
      self.write('f', blank)
      args = ('set', '--max-size', str(size), 'f', '2', 'int', '1')
      if size < len(blank) + 8:
        self.refuse(*args, says='no room')
      else:
        self.do(*args)
        self.assertEqual(self.do('check', '--max-size', str(size), 'f').count('sound'), 1)
        self.fields()

  def test_large_images(self):
    # Beyond 128 KiB the library's sum may wrap; the seal has to be the library's all the same.
    value = b'\xff' * 65535
    self.write('f', built(*[(key, value) for key in range(4)]))
    self.do('set', 'f', 'flag', 'char', '1')
    self.do('set', 'f', '9', 'int', '5')
    self.do('resize', 'f', '9', '65535')
    self.do('unset', 'f', '0')
    self.assertEqual(self.fields(), [(1, value), (2, value), (3, value), (9, b'\0\0\0\5'.ljust(65535, b'\0'))])
    self.write('json', self.do('export', 'f').encode())
    self.do('import', 'json', 'g')
    self.assertEqual(self.read('g'), self.read('f'))

  def test_a_right_checksum_of_0_counts_as_one_that_is_not_computed(self):
    # The words of a blank image add up to 0x18cc; 0xe733 more make the sum ffff, and its complement 0.
    data = built(version=0xe733)
    self.assertEqual(data[4:6], b'\0\0')
    self.write('f', data)
    self.assertIn('nothing to repair', self.do('repair', 'f'))
    self.assertIn('sound', self.do('check', 'f'))
    self.write('json', self.do('export', 'f').encode())
    self.do('import', 'json', 'g')
    self.assertEqual(self.read('g'), data)
    self.fields('g')

  def test_unset_takes_every_field_of_the_key(self):
    self.write('f', built((1, b'a'), (2, b'b'), (1, b'cc'), (3, b'd')))
    self.assertEqual(self.tell('unset', 'f', '1')[0], DONE)
    self.assertEqual(self.fields(), [(2, b'b'), (3, b'd')])
    self.refuse('unset', 'f', '1', status=NOT_SO, says='f: no field of key 0x0001')
    for key in '23':
      self.do('unset', 'f', key)
    self.assertEqual(self.read('f'), BLANK)

  def test_resize(self):
    before = built((1, b'a'), (2, b'ab\0\0'), (3, b'c'))
    for length, cut, expected in ((4, False, b'ab\0\0'), (2, False, b'ab'), (9, False, b'ab'.ljust(9, b'\0')),
                                  (1, False, None), (1, True, b'a'), (0, True, None), (65536, True, None),
                                  (65535, False, b'ab'.ljust(65535, b'\0')), (-1, False, None), ('x', False, None)):
      self.write('f', before)
      args = ('resize', *(('--cut',) if cut else ()), '--', 'f', '2', str(length))
      if expected is None:
        self.refuse(*args)
      else:
        self.do(*args)
        self.assertEqual(self.fields(), [(1, b'a'), (2, expected), (3, b'c')])
    self.refuse('resize', '--max-size', '30', 'f', '2', '9')

  def test_create(self):
    for args, data in (((), BLANK), (('--size', '16'), BLANK), (('--size', '17'), BLANK + b'\0'),
                       (('--size', '0x100', '--fill', '255'), BLANK + b'\xff' * 240),
                       (('--size', '20', '--fill', '0x41'), BLANK + b'AAAA')):
      self.do('create', *args, 'f')
      self.assertEqual((self.read('f'), self.fields()), (data, []))
      self.refuse('create', *args, 'f', says='f: ')
      os.remove(self.path('f'))
    for args in (('--size', '15'), ('--size', '0'), ('--size', str(LARGEST_FILE + 1)), ('--size', '-1'),
                 ('--fill', '0'), ('--size', '20', '--fill', '256')):
      self.refuse('create', *args, 'f')
    for args in (('--size', ''), ('--size', '20', '--fill', '')):
      self.assertEqual(self.tell('create', *args, 'f')[0], WRONG)
    self.assertEqual(self.names(), [])
    os.umask(0)
    self.do('create', 'f')
    self.assertEqual(stat.S_IMODE(os.stat(self.path('f')).st_mode), 0o600)
    os.chmod(self.path('f'), 0o640)
    self.do('set', 'f', '1', 'int', '1')
    self.do('create', '--force', 'f')
    self.assertEqual((stat.S_IMODE(os.stat(self.path('f')).st_mode), self.read('f')), (0o640, BLANK))

  def test_repair_keeps_every_whole_record_of_any_damage(self):
    rand = random.Random(7)
    whole = built((1, b'abcd'), (2, b'xyz'), (3, b'\0\0\0\1'), active=3, version=9)
    ends = [16, 24, 31, 39]
    repaired = []
    for size in range(16, len(whole)):
      self.write('f', whole[:size])
      self.repair('f', whole[:size])
      end = max(end for end in ends if end <= size)
      expected = sealed(whole[:8] + struct.pack('>I', end - 16) + whole[12:end])
      self.assertEqual(self.read('f')[:end], expected, size)
      repaired.append(self.read('f'))
    for _ in range(40):
      damaged = bytearray(some_file(rand)[:rand.randrange(16, 200)] or BLANK)
      for _ in range(rand.randrange(3)):
        damaged[rand.randrange(4, len(damaged))] = rand.randrange(256)
      if len(damaged) < 16:
        continue
      self.write('f', bytes(damaged))
      self.repair('f', bytes(damaged))
      repaired.append(self.read('f'))
    self.assertNotIn(None, self.load(*repaired))
    self.assertNotIn(None, [taken_apart(data) for data in repaired])

  def repair(self, name, damaged):
    """Repairs; each step is told, the damaged file kept, and a second repair finds nothing."""
    status, told, errors = self.tell('repair', '--dry-run', name)
    self.assertEqual((errors, self.read(name)), ('', damaged))
    output = self.do('repair', name)
    if status == DONE:
      self.assertIn('nothing to repair', output)
      self.assertEqual(self.read(name), damaged)
    else:
      self.assertEqual(status, NOT_SO)
      self.assertTrue(output.startswith(told) and 'f: at 0x' in told, output)
      self.assertEqual(self.read(name + '.bad'), damaged)
      os.remove(self.path(name + '.bad'))
    self.assertIn('nothing to repair', self.do('repair', name))
    self.assertEqual(self.names(), [name])

  def test_repair_keeps_each_damaged_file_under_a_name_of_its_own(self):
    for i, name in enumerate(('f.bad', 'f.bad.2', 'f.bad.3')):
      damaged = built((i, b'abcd'))[:-1]
      self.write('f', damaged)
      self.assertIn(name, self.do('repair', 'f'))
      self.assertEqual(self.read(name), damaged)
    self.assertEqual(self.names(), ['f', 'f.bad', 'f.bad.2', 'f.bad.3'])

  def test_repair_puts_the_magic_number_back_only_when_told(self):
    good = built((1, b'ab'))
    self.write('f', b'XXXX' + good[4:])
    for args in ((), ('--dry-run',)):
      self.refuse('repair', *args, 'f', says='f: at 0x0: ')
    self.assertEqual(self.tell('repair', '--dry-run', '--magic', 'f')[0], NOT_SO)
    self.do('repair', '--magic', 'f')
    self.assertEqual((self.read('f'), self.read('f.bad')), (good, b'XXXX' + good[4:]))
    for size in (0, 1, 15):
      self.write('f', good[:size])
      self.refuse('repair', '--magic', 'f', says='f: at 0x%x: ' % size)

  def test_a_repair_that_cannot_be_told_is_not_made(self):
    damaged = built((1, b'abcd'))[:-1]
    self.write('f', damaged)
    with open('/dev/full', 'wb') as full:
      self.assertEqual(self.run_program('repair', 'f', stdout=full),
                       (WRONG, None, b'tarn-cfg: standard output: No space left on device\n'))
    self.assertEqual(self.files(), {'f': damaged})


class RoundTrip(CfgTest):
  """Export and import."""

  def document(self, *fields, **members):
    return {'tarn-cfg': 1, 'active': 0, 'flag': 0, 'version': 0, 'sealed': True, 'fields': list(fields), **members}

  def import_text(self, text):
    text = text if isinstance(text, (str, bytes)) else json.dumps(text)
    return self.run_program('import', '--force', '-', 'f', input=text.encode() if isinstance(text, str) else text)

  def test_random_files_come_back_byte_for_byte(self):
    rand = random.Random(8)
    made = []
    for _ in range(120):
      data = some_file(rand)
      self.write('in', data)
      text = self.do('export', 'in').encode()
      self.assertEqual(self.import_text(text), (DONE, b'', b''), text)
      self.assertEqual(self.read('f'), data, text)
      # A document means itself, however it is written.
      self.assertEqual(self.import_text(json.dumps(json.loads(text), sort_keys=True, indent=rand.choice([None, 7]))),
                       (DONE, b'', b''))
      self.assertEqual(self.read('f'), data, text)
      made.append(data)
    self.assertEqual(self.load(*made), [len(taken_apart(data)[0]) for data in made])

  def test_what_a_document_holds(self):
    data = built((1, b'\7'), (0x203, b'\1\0'), (3, b'\0\0\1\0'), (4, b'text\0\0'), (5, b'\xff\0\0'), (6, bytes(3)),
                 active=1, flag=2, version=3)
    fields = [{'key': '0x0001', 'type': 'char', 'value': 7}, {'key': '0x0203', 'type': 'short', 'value': 256},
              {'key': '0x0003', 'type': 'int', 'value': 256},
              {'key': '0x0004', 'type': 'text', 'length': 6, 'value': 'text'},
              {'key': '0x0005', 'type': 'buffer', 'length': 3, 'value': 'ff'},
              {'key': '0x0006', 'type': 'buffer', 'length': 3, 'value': ''}]
    expected = self.document(*fields, active=1, flag=2, version=3)
    for tail, behind in ((b'', None), (b'\xff' * 7, {'size': 7, 'fill': 255}), (b'\xff\0', {'hex': 'ff00'})):
      for seal in (True, False):
        self.write('in', (data if seal else unsealed(data)) + tail)
        self.assertEqual(json.loads(self.do('export', 'in')),
                         {**expected, 'sealed': seal, **({'behind': behind} if behind else {})})

  def test_documents_that_are_none_are_refused(self):
    char = {'key': 1, 'type': 'char', 'value': 1}
    text = {'key': 1, 'type': 'text', 'length': 3, 'value': 'ab'}
    whole = self.document(char)
    wrong = [None, [], 1, {}, {'tarn-cfg': 1}, {**whole, 'tarn-cfg': 2}, {**whole, 'tarn-cfg': '1'},
             {**whole, 'more': 1}]
    wrong += [{k: v for k, v in whole.items() if k != missing} for missing in whole]
    wrong += [{**whole, name: value} for name in ('active', 'flag') for value in (256, -1, 1.0, '1', None, True, [1])]
    wrong += [{**whole, 'version': 2**32}, {**whole, 'sealed': 1}, {**whole, 'sealed': 'yes'}, {**whole, 'fields': {}},
              {**whole, 'fields': [1]}, {**whole, 'fields': None}]
    wrong += [{**whole, 'behind': behind} for behind in (
        None, [], '', {}, {'size': 1}, {'fill': 1}, {'size': -1, 'fill': 0}, {'size': 1, 'fill': 256}, {'hex': '0'},
        {'hex': 'xx'}, {'hex': 1}, {'size': LARGEST_FILE, 'fill': 0}, {'size': 1, 'fill': 0, 'hex': '00'})]
    wrong += [self.document({**char, **change}) for change in (
        {'key': -1}, {'key': 65536}, {'key': 'x'}, {'key': '0x10000'}, {'key': 1.0}, {'key': None}, {'type': 'long'},
        {'type': 1}, {'type': 'raw'}, {'value': 256}, {'value': -1}, {'value': '1'}, {'value': 1.5}, {'value': None},
        {'length': 1}, {'more': 1})]
    wrong += [self.document({**text, **change}) for change in (
        {'length': 0}, {'length': 1}, {'length': 65536}, {'length': '3'}, {'length': -1}, {'value': 1},
        {'value': 'abcd'},
        {'value': 'éé'}, {'type': 'buffer', 'value': 'abcdefab'}, {'type': 'char'}, {'type': 'buffer', 'value': 'a'})]
    wrong += [self.document({k: v for k, v in field.items() if k != missing}) for field in (char,
                                                                                            text) for missing in field]
    bad = [b'', b' ', b'{', b'nul', b'{}{}', b'\xff\xfe', b'[' * 200000, b'{"a":' * 50000,
           json.dumps(whole)[:-1].encode(), json.dumps(whole).encode() + b'\0',
           json.dumps(whole).replace('"active": 0', '"active": 00').encode(),
           json.dumps(self.document(text)).replace('ab', 'a\x01b').encode(),
           json.dumps(self.document(text)).encode().replace(b'ab', b'\xff'),
           json.dumps(whole).replace('}', ',}').encode(), b'// no\n' + json.dumps(whole).encode()]
    self.assertEqual(self.import_text(whole), (DONE, b'', b''))
    before = self.read('f')
    for document in [json.dumps(one).encode() for one in wrong] + bad:
      status, output, errors = self.import_text(document)
      self.assertEqual((status, output), (WRONG, b''), document[:300])
      self.assertRegex(errors, rb'\Atarn-cfg: standard input: [^\n]+\n\Z')
      self.assertEqual(self.files(), {'f': before})

  def test_a_member_that_is_there_twice_is_refused(self):
    # The parser would keep one of the two, and a field or a header's value be lost without a word.
    char = '{"key": 1, "type": "char", "value": 1}'
    head = '"tarn-cfg": 1, "active": 0, "flag": 0, "version": 0, "sealed": true'
    for text, name in (('{%s, "fields": [%s], "fields": []}' % (head, char), 'fields'),
                       ('{%s, "flag": 1, "fields": []}' % head, 'flag'),
                       ('{%s, "fields": [%s, %s]}' % (head, char, char.replace('1}', '1, "value": 2}')), 'value'),
                       ('{%s, "fields": [], "behind": {"size": 1, "fill": 0, "size": 2}}' % head, 'size')):
      status, output, errors = self.import_text(text)
      self.assertEqual((status, output), (WRONG, b''), text)
      self.assertEqual(errors.decode(), 'tarn-cfg: standard input: "%s" is there twice in one object\n' % name)
    self.assertEqual(self.names(), [])
    self.assertEqual(self.import_text('{%s, "fields": [%s, %s]}' % (head, char, char))[0], DONE)  # two fields, one key
    self.assertEqual(self.fields(), [(1, b'\1'), (1, b'\1')])

  def test_nested_without_end(self):
    for text in (b'[' * 300000 + b']' * 300000, b'{"a":' * 100000 + b'1' + b'}' * 100000):
      self.assertEqual(self.import_text(text)[:2], (WRONG, b''))

  def test_import_replaces_only_when_told_and_measures(self):
    self.write('f', BLANK)
    self.write('json', json.dumps(self.document({'key': 1, 'type': 'int', 'value': 1})).encode())
    self.refuse('import', 'json', 'f', says='f: ')
    self.refuse('import', '--force', '--max-size', '23', 'json', 'f')
    self.refuse('import', '--force', 'missing', 'f', says='missing: ')
    self.do('import', '--force', '--max-size', '24', 'json', 'f')
    self.assertEqual(self.fields(), [(1, b'\0\0\0\1')])
    os.mkdir(self.path('folder'))
    self.refuse('import', 'folder', 'g', says='folder: ')
    self.assertNotIn('g', self.names())


class Surroundings(CfgTest):
  """Files, folders, links, rights, ends."""

  def test_what_is_no_regular_file(self):
    os.mkdir(self.path('folder'))
    os.mkfifo(self.path('fifo'))
    os.symlink('loop', self.path('loop'))
    os.symlink('nowhere', self.path('dangling'))
    for name in ('folder', 'fifo', 'loop', 'dangling', 'missing', '/dev/null', '/dev/zero', '', 'x' * 300, 'missing/f',
                 'folder/'):
      for args in (('show',), ('get', '1'), ('set', '1', 'int', '1'), ('unset', '1'), ('resize', '1', '1'), ('check',),
                   ('repair',), ('export',)):
        self.refuse(args[0], name, *args[1:], says='tarn-cfg: %s: ' % name)
    for name in ('folder', 'fifo', 'loop', '', 'x' * 300, 'missing/f', 'folder/'):  # never a device's own name
      self.refuse('create', '--force', name, says='tarn-cfg: %s: ' % name)
    self.assertEqual(self.names(), ['dangling', 'fifo', 'folder', 'loop'])

  def test_files_of_64_mib_and_more(self):
    self.write('f', BLANK)
    os.truncate(self.path('f'), LARGEST_FILE)
    self.assertIn('sound', self.do('check', 'f'))
    os.truncate(self.path('f'), LARGEST_FILE + 1)
    for args in (('check', 'f'), ('show', 'f'), ('repair', 'f'), ('set', 'f', 'flag', 'char', '1'), ('export', 'f')):
      status, output, errors = self.tell(*args)
      self.assertEqual((status, output), (WRONG, ''))
      self.assertIn('f: ', errors)

  def test_links_are_followed_and_stay(self):
    os.mkdir(self.path('there'))
    self.write('there/f', built((1, b'a')))
    os.symlink('there/f', self.path('one'))
    os.symlink('one', self.path('two'))
    self.do('set', 'two', '1', 'char', '9')
    self.assertEqual(self.fields('there/f'), [(1, b'\x09')])
    self.assertTrue(os.path.islink(self.path('one')) and os.path.islink(self.path('two')))
    self.assertEqual((self.names(), os.listdir(self.path('there'))), (['one', 'there', 'two'], ['f']))
    self.write('there/f', built((1, b'abc'))[:-1])
    self.do('repair', 'two')
    self.assertEqual(sorted(os.listdir(self.path('there'))), ['f', 'f.bad'])

  def test_the_temporary_file_is_never_a_way_to_another(self):
    self.write('f', BLANK)
    self.write('victim', b'victim')
    os.symlink('victim', self.path('f.tarn-cfg'))
    self.do('set', 'f', '1', 'char', '1')
    self.assertEqual((self.read('victim'), self.names()), (b'victim', ['f', 'victim']))
    os.mkdir(self.path('f.tarn-cfg'))
    self.refuse('set', 'f', '1', 'char', '2', says='f.tarn-cfg')

  def test_mode_and_owner_stay(self):
    for mode in (0o600, 0o644, 0o664, 0o777, 0o440):
      self.write('f', built((1, b'a')))
      os.chmod(self.path('f'), mode)
      owner = (12, 34) if os.geteuid() == 0 else (os.geteuid(), os.getegid())
      os.chown(self.path('f'), *owner)
      if mode & 0o200 or os.geteuid() == 0:
        self.do('set', 'f', '1', 'char', '1')
        self.do('resize', 'f', '1', '3')
        self.do('create', '--force', 'f')
      found = os.stat(self.path('f'))
      self.assertEqual((stat.S_IMODE(found.st_mode), found.st_uid, found.st_gid), (mode, *owner))
      os.remove(self.path('f'))

  def as_another(self):
    """What runs a command as a user whom rights bind."""
    if os.geteuid() != 0:
      return {}
    other = {'user': 65534, 'group': 65534, 'extra_groups': []}
    os.chmod(self.folder, 0o755)
    try:
      usable = self.run_program('--version', **other)[0] == DONE
    except OSError:
      usable = False
    if not usable:
      self.skipTest('the program cannot be run as another user')
    return other

  def test_a_folder_without_the_right_to_write(self):
    self.write('f', built((1, b'a')))
    os.chmod(self.path('f'), 0o666)
    os.chmod(self.folder, 0o755)
    other = self.as_another()
    os.chmod(self.folder, 0o555)
    self.addCleanup(os.chmod, self.folder, 0o755)
    self.assertEqual(self.do('get', 'f', '1', **other), '97\n')
    self.refuse('set', 'f', '1', 'char', '1', says='f: ', **other)
    self.refuse('create', 'g', says='g: ', **other)

  def test_a_file_without_the_right_to_read(self):
    self.write('f', BLANK)
    os.chmod(self.path('f'), 0)
    other = self.as_another()
    if os.geteuid() != 0 and os.access(self.path('f'), os.R_OK):
      self.skipTest('rights do not bind here')
    status, output, errors = self.tell('show', 'f', **other)
    self.assertEqual((status, output, errors), (WRONG, '', 'tarn-cfg: f: cannot be opened: Permission denied\n'))

  def test_a_file_that_may_not_grow_is_told(self):
    # As a full disk: the write ends in the middle. The signal that comes with it must not end tarn-cfg.
    old = built((1, b'abcdefgh'))
    self.write('f', old)
    for limit in (0, 1, 10, 15):
      limited = {'preexec_fn': lambda most=limit: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most))}
      for args in (('set', 'f', '2', 'int', '1'), ('create', '--force', 'f'), ('unset', 'f', '1'), ('create', 'g')):
        self.refuse(*args, says='File too large', **limited)
    self.write('f', old[:-1])
    self.assertEqual(self.run_program('repair', 'f', **limited)[0], WRONG)
    self.assertEqual(self.read('f'), old[:-1])

  def test_a_disk_that_is_full_is_told(self):
    self.write('f', built((1, b'abcdefgh')))
    for args in (('show', 'f'), ('show', '--json', 'f'), ('get', 'f', '1'), ('check', 'f'), ('check', '--json', 'f'),
                 ('export', 'f'), ('diff', '--json', 'f', 'f')):
      with open('/dev/full', 'wb') as full:
        self.assertEqual(self.run_program(*args, stdout=full),
                         (WRONG, None, b'tarn-cfg: standard output: No space left on device\n'), args)

  def test_closed_descriptors_do_not_reach_the_image(self):
    # A file that is opened then takes their place, and what is printed would go into it.
    def closed(*numbers):
      return {'preexec_fn': lambda: [os.close(number) for number in numbers], 'stdout': None, 'stderr': None,
              'stdin': None}

    for numbers in ((0,), (1,), (2,), (0, 1), (0, 2), (1, 2), (0, 1, 2)):
      whole = built((1, b'abc'), (2, b'defg'))
      for args in (('set', 'f', '1', 'text', 'x'), ('set', 'f', '1', 'char', '1'), ('repair', 'f'), ('show', 'f'),
                   ('unset', 'f', '2'), ('get', 'f', '9')):
        data = whole[:-1] if args[0] == 'repair' else whole
        self.write('f', data)
        status, _, _ = self.quiet(args, closed(*numbers))
        self.assertIn(status, (DONE, NOT_SO, WRONG))
        if not (args[0] == 'repair' and self.read('f') == data):
          self.fields()

  def quiet(self, args, popen):
    """Runs it with what this test prints to out of the way: its descriptors are the program's."""
    with open(os.devnull, 'r+b') as nothing:
      return self.run_program(*args, **{**popen, 'stdout': nothing, 'stderr': nothing, 'stdin': nothing})

  def test_nobody_reads(self):
    self.write('f', built(*[(key, b'\xff' * 60000) for key in range(4)]))
    for args in (('show', '--json', 'f'), ('export', 'f')):
      with subprocess.Popen(self.line(args), cwd=self.folder, stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL) as running:
        running.stdout.read(10)
        running.stdout.close()
        self.assertNotEqual(running.wait(), DONE)


class Killed(CfgTest):
  """Ended at any call for a file, each command leaves the old image or the new one. Each byte is a call of its own."""

  OLD = built((1, b'abcd'), (2, b'ef'), flag=1) + b'\xff' * 8
  DOCUMENT = {'tarn-cfg': 1, 'active': 0, 'flag': 9, 'version': 0, 'sealed': True,
              'fields': [{'key': 1, 'type': 'text', 'length': 20, 'value': 'x'}]}

  def kill_everywhere(self, *args, old=OLD):
    self.write('json', json.dumps(self.DOCUMENT).encode())
    self.write('f', old)
    self.do(*args)
    new = self.read('f')
    self.assertNotEqual(new, old)
    self.fields()
    found = []
    for at in range(1, 400):
      for name in self.names():
        os.remove(self.path(name))
      self.write('json', json.dumps(self.DOCUMENT).encode())
      self.write('f', old)
      status, _, errors = self.run_program(*args, preload=os.environ['TARN_TEST_STUMBLE'],
                                           env={'TARN_STUMBLE': 'kill', 'TARN_STUMBLE_AT': str(at)})
      self.assertIn(self.read('f'), (old, new), at)
      self.assertLessEqual(set(self.names()), {'f', 'f.bad', 'f.bad.tarn-cfg', 'f.tarn-cfg', 'json'})
      if 'f.bad' in self.names():
        self.assertEqual(self.read('f.bad'), old)
      found.append(self.read('f') == new)
      if status == DONE:
        break
      self.assertIn(status, (-signal.SIGKILL, 128 + signal.SIGKILL), errors)
      if at % 8 == 0:  # what was left is in nobody's way
        self.do(*args)
        self.assertEqual(self.read('f'), new)
        self.assertNotIn('f.tarn-cfg', self.names())
    self.assertEqual(status, DONE)
    self.assertEqual(found, sorted(found), 'the new image came back')
    self.assertIn(False, found)
    self.assertGreater(len(found), 20)
    self.assertTrue(found[-1] and found[-2], 'killed behind the rename, and not at all')

  def test_set(self):
    self.kill_everywhere('set', 'f', '2', 'short', '7')

  def test_unset(self):
    self.kill_everywhere('unset', 'f', '1')

  def test_resize(self):
    self.kill_everywhere('resize', 'f', '2', '6')

  def test_create(self):
    self.kill_everywhere('create', '--force', 'f')

  def test_import(self):
    self.kill_everywhere('import', '--force', 'json', 'f')

  def test_repair(self):
    self.kill_everywhere('repair', 'f', old=built((1, b'abcd'), (2, b'efgh'))[:-2])


class Documents(CfgTest):
  """Every command line that the documents show, run as shown."""

  def shell(self, lines, env):
    """Runs lines one by one in a shell, and returns the output of each; each must succeed and complain of nothing."""
    outputs = []
    for line in lines:
      done = subprocess.run(['sh', '-c', line], cwd=self.folder, env=env, capture_output=True, text=True, check=False)
      self.assertEqual((done.returncode, done.stderr), (0, ''), line)
      outputs.append(done.stdout)
    return outputs

  def test_man_page(self):
    lines = programs.man_examples(PAGE)
    self.assertEqual(len(lines), 14)
    outputs = dict(zip(lines, self.shell(lines, self.on_the_path('tarn-cfg'))))
    self.assertEqual(outputs['tarn-cfg get gateway.cfg 0x0101'], 'gateway\n')
    self.assertIn('sound', outputs['tarn-cfg check --max-size 4080 gateway.cfg'])
    self.assertEqual(outputs['tarn-cfg diff gateway.cfg copy.cfg || test $? -eq 1'], '! version: 0 -> 2\n')
    self.assertIn('nothing to repair', outputs['tarn-cfg repair gateway.cfg'])
    self.assertIn('0x0202', outputs['tarn-cfg show gateway.cfg'])
    self.assertEqual(self.fields('gateway.cfg'), [(0x101, b'gateway'.ljust(32, b'\0')), (0x102, b'\0\0\0\1'),
                                                  (0x202, b'\0\0\0d')])
    self.assertEqual(len(self.read('gateway.cfg')), 4096)
    self.assertEqual(self.fields('copy.cfg')[2], (0x202, b'\0d'))

  def test_readme(self):
    page = os.path.join(TOOLS, 'README.md')
    block = next(block for block in programs.fenced(page, 'sh') if 'tarn-cfg create' in block)
    lines = block.splitlines()
    self.assertEqual(len(lines), 10)
    outputs = self.shell(lines, self.on_the_path('tarn-cfg'))
    shown = next(block for block in programs.fenced(page, '') if block.startswith('image '))
    self.assertEqual(outputs[4], shown)
    self.assertEqual(outputs[5], '5000\n')
    self.assertEqual(self.read('copy.cfg'), self.read('gateway.cfg'))
    self.assertEqual(outputs[9], '')

  def test_the_worked_image_of_the_format(self):
    with open(os.path.join(ROOT, 'docs', 'startup-cfg.md'), encoding='utf-8') as file:
      rows = re.findall(r'^    [0-9a-f]+: ((?:[0-9a-f]{2} +)+)  ', file.read(), re.MULTILINE)
    data = bytes.fromhex(''.join(rows))
    self.assertEqual(len(data), 29)
    self.write('f', data)
    self.assertEqual(self.fields(), [(1, b'\x11\x22'), (0x203, b'\x33\x44\x55')])
    self.assertIn('sound: 29 bytes, 2 records', self.do('check', 'f'))
    self.do('create', 'made')
    self.do('set', 'made', '1', 'short', '0x1122')
    self.do('set', 'made', '0x0203', 'buffer', '334455')
    self.assertEqual(self.read('made'), data)

  def test_completion(self):
    self.write('file', b'')
    offer = lambda *words: self.complete(COMPLETION, '_tarn_cfg', 'tarn-cfg', *words)
    self.assertEqual(sorted(word for word in offer('') if word[0] != '-'), COMMANDS)
    for command in COMMANDS:
      shown = set(re.findall(r'--[a-z-]+', self.do(command, '--help').split('Options:')[1].split('Exit')[0]))
      self.assertEqual(set(offer(command, '-')), shown, command)
      self.assertEqual(offer(command, 'fi'), ['file'], command)
    for words, expected in ((('get', 'file', ''), ['active', 'flag', 'version']), (('unset', 'file', ''), []),
                            (('set', '--length', '4', 'file', 'fl'), ['flag']), (('diff', 'file', 'f'), ['file']),
                            (('set', 'file', '1', ''), ['char', 'short', 'int', 'buffer', 'text']),
                            (('get', '--as', ''), ['char', 'short', 'int', 'buffer', 'text', 'raw']),
                            (('import', 'x', 'f'), ['file']), (('check', '--max-size', ''), [])):
      self.assertEqual(offer(*words), expected, words)


if __name__ == '__main__':
  programs.main(command_line)
