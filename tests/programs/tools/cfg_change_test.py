# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg create, unset and resize, and many changes one after another.

Usage: cfg_change_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import os
import random
import stat
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (BLANK, CfgTest, DONE, FIELDS, LARGEST_FILE, NOT_SO, SAMPLE, SEE_HELP, WRONG, built,
                         command_line, records)
import image
import programs


class Create(CfgTest):
  def test_makes_a_blank_image_for_only_its_owner(self):
    self.do('create', 'cfg')
    self.assertEqual(self.read('cfg'), bytes.fromhex('84739458 e733') + bytes(10))
    self.assertEqual(stat.S_IMODE(os.stat(self.path('cfg')).st_mode), 0o600)
    self.assertEqual(self.names(), ['cfg'])

  def test_pads_the_file(self):
    self.do('create', 'cfg', '--size', '32')
    self.assertEqual(self.read('cfg'), image.image(b'') + bytes(16))
    self.do('create', 'other', '--size', '0x20', '--fill', '0xff')
    self.assertEqual(self.read('other'), image.image(b'') + b'\xff' * 16)
    self.refuse('create', 'none', '--size', '15', matches='--size: "15" is not a number from 16 to 67108864' + SEE_HELP)
    self.refuse('create', 'none', '--size', '32', '--fill', '256',
                matches='--fill: "256" is not a number from 0 to 255' + SEE_HELP)
    self.refuse('create', 'none', '--fill', '1', matches='--fill needs --size' + SEE_HELP)

  def test_replaces_only_when_told_to(self):
    self.write('cfg', b'something else')
    os.chmod(self.path('cfg'), 0o640)
    self.refuse('create', 'cfg', matches='cfg: is there; --force replaces it')
    self.assertEqual(self.names(), ['cfg'])
    self.do('create', 'cfg', '--force')
    self.assertEqual(self.read('cfg'), image.image(b''))
    self.assertEqual(stat.S_IMODE(os.stat(self.path('cfg')).st_mode), 0o640)
    self.do('create', 'new', '--force')
    os.symlink('nowhere', self.path('link'))
    self.refuse('create', 'link', matches='link: is there; --force replaces it')

  def test_needs_a_folder(self):
    self.refuse('create', 'none/cfg', matches='none/cfg: folder none/: No such file or directory')
    self.refuse('create', 'none/', matches='none/: does not name a file')

  def test_sizes_fills_and_modes(self):
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
      self.assertEqual(self.run_tool('create', *args, 'f')[0], WRONG)
    self.assertEqual(self.names(), [])
    os.umask(0)
    self.do('create', 'f')
    self.assertEqual(stat.S_IMODE(os.stat(self.path('f')).st_mode), 0o600)
    os.chmod(self.path('f'), 0o640)
    self.do('set', 'f', '1', 'int', '1')
    self.do('create', '--force', 'f')
    self.assertEqual((stat.S_IMODE(os.stat(self.path('f')).st_mode), self.read('f')), (0o640, BLANK))


class Unset(CfgTest):
  def test_takes_the_field_away(self):
    for gone in range(4):
      with self.subTest(gone=gone):
        self.write('cfg', SAMPLE)
        self.do('unset', 'cfg', str(FIELDS[gone][0]))
        rest = records(*FIELDS[:gone], *FIELDS[gone + 1:])
        self.assertEqual(self.read('cfg'), image.image(rest, active=7, flag=8, version=0x01020304))

  def test_takes_every_field_of_the_key_and_says_so(self):
    self.write('cfg', image.image(records((1, b'a'), (2, b'b'), (1, b'cd'))))
    self.assertEqual(self.run_tool('unset', 'cfg', '1'), (DONE, '', 'tarn-cfg: cfg: key 0x0001 was there 2 times\n'))
    self.assertEqual(self.read('cfg'), image.image(records((2, b'b'))))

  def test_what_is_not_there_is_1(self):
    self.write('cfg', SAMPLE)
    self.refuse('unset', 'cfg', '2', status=NOT_SO, matches='cfg: no field of key 0x0002')
    self.refuse('unset', 'cfg', 'version', matches='key: "version" is not a number from 0 to 65535' + SEE_HELP)

  def test_the_last_one_leaves_a_blank_image(self):
    self.write('cfg', image.image(records((1, b'a'))))
    self.do('unset', 'cfg', '1')
    self.assertEqual(self.read('cfg'), image.image(b''))

  def test_unset_takes_every_field_of_the_key(self):
    self.write('f', built((1, b'a'), (2, b'b'), (1, b'cc'), (3, b'd')))
    self.assertEqual(self.run_tool('unset', 'f', '1')[0], DONE)
    self.assertEqual(self.fields(), [(2, b'b'), (3, b'd')])
    self.refuse('unset', 'f', '1', status=NOT_SO, says='f: no field of key 0x0001')
    for key in '23':
      self.do('unset', 'f', key)
    self.assertEqual(self.read('f'), BLANK)


class Resize(CfgTest):
  def test_lengthens_with_zeros_and_shortens_zeros(self):
    for key, length, value in ((0x300, 9, b'gateway\0\0'), (0x300, 7, b'gateway'), (1, 4, b'\x11\x22\0\0'),
                               (0x203, 65535, b'\x33\x44\xff'.ljust(65535, b'\0')), (0x300, 8, b'gateway\0')):
      with self.subTest(key=key, length=length):
        self.write('cfg', SAMPLE)
        self.do('resize', 'cfg', str(key), str(length))
        self.assertEqual(self.read('cfg'), image.image(records(*{**dict(FIELDS), key: value}.items()), active=7, flag=8,
                                                  version=0x01020304))

  def test_cuts_a_value_only_when_told_to(self):
    self.write('cfg', SAMPLE)
    self.refuse('resize', 'cfg', '0x300', '6',
                matches='cfg: at 0x1d: the value is longer: 7 bytes before its zeros; --cut removes what is too long')
    self.do('resize', 'cfg', '0x300', '6', '--cut')
    self.assertEqual(image.parse(self.read('cfg'))[0x300], b'gatewa')

  def test_refuses(self):
    self.write('cfg', SAMPLE)
    self.refuse('resize', 'cfg', '2', '1', status=NOT_SO, matches='cfg: no field of key 0x0002')
    self.refuse('resize', 'cfg', '1', '0', matches='LENGTH: "0" is not a number from 1 to 65535' + SEE_HELP)
    self.refuse('resize', 'cfg', '1', '65536', matches='LENGTH: "65536" is not a number from 1 to 65535' + SEE_HELP)

  def test_lengths(self):
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


class Changes(CfgTest):
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

  def test_large_images(self):
    # Above 128 KiB the library's sum may wrap; the checksum must nevertheless be the library's.
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


if __name__ == '__main__':
  programs.main(command_line)
