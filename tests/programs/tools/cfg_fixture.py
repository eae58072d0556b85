# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Shared by the tests of tarn-cfg: images, and ways to run the tool."""

import os
import re
import struct
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import image  # pylint: disable=wrong-import-position
import programs  # pylint: disable=wrong-import-position

ROOT = os.path.join(HERE, '..', '..', '..')
TOOLS = os.path.join(ROOT, 'tools')
PAGE = os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.1')
COMPLETION = os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.bash')
DONE, NOT_SO, WRONG, LOST = 0, 1, 2, 3
NOBODY = 65534
LARGEST_FILE = 64 << 20
COMMANDS = ['check', 'create', 'diff', 'export', 'get', 'import', 'repair', 'resize', 'set', 'show', 'unset']
SEE_HELP = '; see tarn-cfg --help'

# The program under test and its emulator: filled by programs.main.
command_line = []


def records(*fields):
  return b''.join(image.record(key, value) for key, value in fields)


def built(*fields, **header):
  """A sealed image of (key, value) pairs."""
  return image.image(records(*fields), **header)


def sealed(data):
  """The image with its right checksum."""
  return data[:4] + struct.pack('>H', image.checksum(unsealed(data))) + data[6:]


def unsealed(data):
  return data[:4] + b'\0\0' + data[6:]


def taken_apart(data):
  """The fields of the image at the beginning of `data`, and its size; None if it is not a sound image."""
  if len(data) < 16 or data[:4] != b'\x84\x73\x94\x58':
    return None
  size = 16 + struct.unpack('>I', data[8:12])[0]
  if size > len(data) or struct.unpack('>H', data[4:6])[0] not in (0, image.checksum(unsealed(data[:size]))):
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

# A short, three bytes, a text of 8, an int.
FIELDS = ((1, b'\x11\x22'), (0x203, b'\x33\x44\xff'), (0x300, b'gateway\0'), (0x400, b'\0\0\0\5'))
SAMPLE = built(*FIELDS, active=7, flag=8, version=0x01020304)
# The offsets of these records, computed by hand: heads of 4 bytes, values of 2, 3, 8 and 4 after a header of 16.
OFFSETS = (0x10, 0x16, 0x1d, 0x29)
assert len(SAMPLE) == 0x31

# The output of export for the sample.
DOCUMENT = {
    'tarn-cfg': 1, 'active': 7, 'flag': 8, 'version': 0x01020304, 'sealed': True,
    'fields': [
        {'key': '0x0001', 'type': 'short', 'value': 0x1122},
        {'key': '0x0203', 'type': 'buffer', 'length': 3, 'value': '3344ff'},
        {'key': '0x0300', 'type': 'text', 'length': 8, 'value': 'gateway'},
        {'key': '0x0400', 'type': 'int', 'value': 5},
    ]}


def some_value(rand):
  """Numbers, texts, texts with zeros in and after them, bytes; mostly short."""
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
  text = text if kind == 3 else text.replace(b'\n', b'x').replace(b'\0', b'y')  # and may be cut within a letter
  return (text[:rand.randrange(length + 1)] + bytes(length))[:length]


def some_file(rand):
  """An image file: sealed or not, followed by nothing, padding, or any bytes."""
  fields = [(rand.choice([0, 1, 0x101, 65535, rand.randrange(65536)]), some_value(rand))
            for _ in range(rand.choice([0, 1, 2, 5, 12]))]
  data = built(*fields, active=rand.randrange(256), flag=rand.randrange(256), version=rand.getrandbits(32))
  if rand.randrange(4) == 0:
    data = unsealed(data)
  return data + rand.choice([b'', b'', bytes([rand.randrange(256)]) * rand.randrange(1, 40),
                             rand.randbytes(rand.randrange(1, 40)), b'\0' * 5 + b'x'])


class CfgTest(programs.ProgramTest):
  """Ways to run tarn-cfg, with checks of the rules that always hold."""

  command = command_line

  def run_tool(self, *args, **popen):
    """Runs it; returns its status, its output and what it reported, as texts."""
    if isinstance(popen.get('input'), str):
      popen['input'] = popen['input'].encode()
    status, output, errors = self.run_program(*args, **popen)
    return status, output.decode(), errors.decode()

  def do(self, *args, **popen):
    """Runs a command that must succeed without a message; returns its output."""
    status, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((status, errors), (DONE, ''), args)
    return output

  def do_raw(self, *args):
    """The same, with its output as bytes."""
    status, output, errors = self.run_program(*args)
    self.assertEqual((status, errors), (DONE, b''), args)
    return output

  def refuse(self, *args, status=WRONG, says='', matches='.+', **popen):
    """Runs a command that must end with `status`, print nothing, and change no file. Returns its one line of report:
    it must contain `says`, and after the program's name match the expression `matches`."""
    before = self.files()
    found, output, errors = self.run_tool(*args, **popen)
    self.assertEqual((found, output), (status, ''), (args, errors))
    self.assertRegex(errors, r'\Atarn-cfg: %s\n\Z' % matches, args)
    self.assertEqual(errors.count('\n'), 1, errors)
    self.assertIn(says, errors)
    self.assertEqual(self.files(), before)
    return errors

  def files(self):
    return {name: self.read(name) for name in self.names() if os.path.isfile(self.path(name))}

  def load(self, *files):
    """The number of fields that tlv_load finds in each of the files; None if it refuses the file."""
    stream = b''.join(struct.pack('>II', len(data), len(data)) + data for data in files)
    done = subprocess.run([*command_line[:-1], os.environ['TARN_TEST_LOADS']], input=stream, check=True,
                          stdout=subprocess.PIPE)
    lines = [line.split() for line in done.stdout.decode().splitlines() if re.fullmatch(r'-?\d+ \d+', line)]
    self.assertEqual(len(lines), len(files))
    return [int(fields) if result == '0' else None for result, fields in lines]

  def fields(self, name='f'):
    """The fields of an image, which must be sound and which a daemon must be able to load."""
    data = self.read(name)
    found = taken_apart(data)
    self.assertIsNotNone(found, data)
    self.assertEqual(self.load(data), [len(found[0])])
    return found[0]

  def as_another(self):
    """Arguments of run_tool that run a command as a user who is not root; skips the test if that is not possible."""
    return self.as_other_user(NOBODY)
