# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg check and diff: the faults of an image, and the differences of two images.

Usage: cfg_check_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import json
import re
import struct
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (CfgTest, DONE, FIELDS, NOT_SO, SAMPLE, WRONG, built, command_line, records, sealed,
                         taken_apart, unsealed)
import image
import programs


class Check(CfgTest):
  def test_sound_images(self):
    for data, lines in (
        (SAMPLE, ['cfg: sound: 49 bytes, 4 records']),
        (image.image(b'') + b'\0' * 8, ['cfg: sound: 16 bytes, 0 records']),
        (image.image(b'', crc=0), ['cfg: note: at 0x4: checksum not yet computed; 0xe733 is right',
                                   'cfg: sound: 16 bytes, 0 records']),
        (SAMPLE + b'ab', ['cfg: note: at 0x31: 2 bytes after the image, which are not padding',
                          'cfg: sound: 49 bytes, 4 records']),
        (image.image(records((1, b'a'), (2, b'b'), (1, b'c'))),
         ['cfg: note: at 0x1a: key 0x0001 once more; the one at 0x10 is found', 'cfg: sound: 31 bytes, 3 records']),
    ):
      with self.subTest(lines=lines):
        self.write('cfg', data)
        self.assertEqual(self.do('check', 'cfg').splitlines(), lines)
        self.assertEqual(self.read('cfg'), data)

  def test_reports_each_fault_with_its_offset(self):
    blank = image.image(b'')
    for data, lines in (
        (b'', ['0x0: the file ends within the header of 16 bytes']),
        (blank[:15], ['0xf: the file ends within the header of 16 bytes']),
        (b'\0' + blank[1:], ['0x0: not an image: magic number 0x00739458, not 0x84739458',
                             '0x4: checksum 0xe733 is wrong; 0x6b34 is right']),
        (image.image(b'', crc=1), ['0x4: checksum 0x0001 is wrong; 0xe733 is right']),
        (image.image(b'', length=1), ['0x8: cfg_len states 1 byte of records; the file has 0']),
        (image.image(b'', length=0xFFFFFFFF), ['0x8: cfg_len states 4294967295 bytes of records; the file has 0']),
        (image.image(records((1, b'a')) + b'\0\2\0'), ['0x15: 3 bytes left, too few for a record']),
        (image.image(records((1, b'a')) + b'\1\2\0\0'), ['0x15: the record of key 0x0102 has length 0']),
        (image.image(records((1, b'a')) + b'\1\2\0\2a'),
         ['0x15: the record of key 0x0102 has length 2, with 1 byte left']),
        (image.image(records((1, b'a'))[:4]), ['0x10: the record of key 0x0001 has length 1, with 0 bytes left']),
    ):
      with self.subTest(lines=lines):
        self.write('cfg', data)
        self.assertEqual(self.run_tool('check', 'cfg'), (NOT_SO, ''.join('cfg: at %s\n' % line for line in lines), ''))
        self.assertEqual(self.read('cfg'), data)

  def test_max_size_is_reported(self):
    self.write('cfg', SAMPLE)
    self.do('check', 'cfg', '--max-size', '49')
    self.assertEqual(self.run_tool('check', 'cfg', '--max-size', '48'),
                     (NOT_SO, 'cfg: at 0x8: the image has 49 bytes, more than 48\n', ''))

  def test_json(self):
    self.write('cfg', image.image(records((1, b'a'), (1, b'a')), crc=0))
    right = int.from_bytes(image.image(records((1, b'a'), (1, b'a')))[4:6], 'big')
    self.assertEqual(json.loads(self.do('check', 'cfg', '--json')), {
        'file': 'cfg', 'size': 26, 'sound': True, 'faults': [],
        'notes': [{'offset': 4, 'text': 'checksum not yet computed; 0x%04x is right' % right},
                  {'offset': 21, 'text': 'key 0x0001 once more; the one at 0x10 is found'}]})
    self.write('cfg', b'')
    status, output, errors = self.run_tool('check', 'cfg', '--json')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertEqual(json.loads(output), {
        'file': 'cfg', 'size': 0, 'sound': False, 'notes': [],
        'faults': [{'offset': 0, 'text': 'the file ends within the header of 16 bytes'}]})

  def test_check_reports_each_fault_where_it_is(self):
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
        (long, [0x1f]),                                              # a byte that is not a record
        (good[:0x1d], [8, 0x18]), (good[:0x10], [8]),
        (good[:8] + b'\xff\xff\xff\xff' + good[12:], [8]),
    ):
      with self.subTest(data=data):
        self.write('f', data)
        status, output, errors = self.run_tool('check', '--json', 'f')
        self.assertEqual((status, errors), (NOT_SO if offsets else DONE, ''))
        found = json.loads(output)
        self.assertEqual([fault['offset'] for fault in found['faults']], offsets)
        self.assertEqual((found['file'], found['size'], found['sound']), ('f', len(data), not offsets))
        status, output, errors = self.run_tool('check', 'f')
        self.assertEqual((status, errors), (NOT_SO if offsets else DONE, ''))
        if offsets:
          self.assertEqual(re.findall('^f: at 0x([0-9a-f]+): .', output, re.MULTILINE), ['%x' % at for at in offsets])
        self.assertEqual(taken_apart(data) is not None, not offsets)
        # The readable part is shown, the rest is reported on standard error; these other commands refuse the file.
        status, _, errors = self.run_tool('show', 'f')
        self.assertEqual((status, errors.count('f: at 0x')), (NOT_SO if offsets else DONE, len(offsets)))
        self.assertEqual(self.run_tool('show', '--json', 'f')[::2], (NOT_SO if offsets else DONE, ''))
        if offsets:
          for args in (('get', 'f', '1'), ('set', 'f', '1', 'int', '1'), ('unset', 'f', '1'), ('resize', 'f', '1', '9'),
                       ('export', 'f'), ('diff', 'f', 'f')):
            status, output, errors = self.run_tool(*args)
            self.assertEqual((status, output), (WRONG, ''), args)
            self.assertIn('f: at 0x', errors)
        self.assertEqual(self.files(), {'f': data})

  def test_notes_are_not_faults(self):
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
      self.assertEqual(self.run_tool('check', '--max-size', str(size), 'f')[0], status)
    self.assertIn('f: at 0x8: ', self.run_tool('check', '--max-size', '0x16', 'f')[1])
    for word in ('-1', 'x', str(2**32), '1k'):
      self.refuse('check', '--max-size', word, 'f', says='--max-size')
    status, output, errors = self.run_tool('check', '--max-size', '', 'f')  # an empty word does not mean: no limit
    self.assertEqual((status, output), (WRONG, ''))
    self.assertIn('--max-size', errors)

  def test_damaged_images_are_2_but_for_those_who_look_at_them(self):
    self.write('cfg', SAMPLE[:-1] + b'\6')
    for args in (('get', 'cfg', '1'), ('set', 'cfg', '1', 'short', '1'), ('unset', 'cfg', '1'),
                 ('resize', 'cfg', '1', '3'), ('diff', 'cfg', 'cfg'), ('export', 'cfg')):
      with self.subTest(args=args):
        self.refuse(*args, matches='cfg: at 0x4: checksum 0x[0-9a-f]{4} is wrong; 0x[0-9a-f]{4} is right')


class Diff(CfgTest):
  def diff(self, a, b):
    self.write('a', a)
    self.write('b', b)
    status, output, errors = self.run_tool('diff', 'a', 'b')
    self.assertEqual(errors, '')
    self.assertEqual(status, NOT_SO if output else DONE)
    return output.splitlines()

  def test_equal_images(self):
    self.assertEqual(self.diff(SAMPLE, SAMPLE), [])
    # Neither the checksum's state nor the padding is configuration.
    unsealed = image.image(records(*FIELDS), active=7, flag=8, version=0x01020304, crc=0)
    self.assertEqual(self.diff(SAMPLE, unsealed + bytes(5)), [])

  def test_shows_every_difference(self):
    changed = image.image(records((0x300, b'gw\0'), (0x203, b'\x33\x44\xff'), (1, b'\x11\x23'), (2, b'x')),
                          active=1, flag=2, version=3)
    self.assertEqual(self.diff(SAMPLE, changed), [
        '! active: 7 -> 1', '! flag: 8 -> 2', '! version: 16909060 -> 3', '! 0x0001: short 4386 -> short 4387',
        '! 0x0300: text[8] "gateway" -> text[3] "gw"', '- 0x0400: int 5', '+ 0x0002: char 120',
        '! order: 0x0001 0x0203 0x0300 -> 0x0300 0x0203 0x0001'])

  def test_compares_fields_with_one_key_by_their_turn(self):
    self.assertEqual(self.diff(image.image(records((1, b'a'), (1, b'b'))), image.image(records((1, b'a'), (1, b'c'),
                                                                                               (1, b'd')))),
                     ['! 0x0001: char 98 -> char 99', '+ 0x0001: char 100'])

  def test_differences_as_json(self):
    self.write('a', SAMPLE)
    self.write('b', image.image(records(*FIELDS[1:], (2, b'x')), active=7, flag=9, version=0x01020304))
    status, output, _ = self.run_tool('diff', 'a', 'b', '--json')
    self.assertEqual(status, NOT_SO)
    self.assertEqual(json.loads(output), [{'what': 'flag', 'before': '8', 'after': '9'},
                                          {'what': '0x0001', 'before': 'short 4386', 'after': None},
                                          {'what': '0x0002', 'before': None, 'after': 'char 120'}])
    self.assertEqual(json.loads(self.do('diff', 'a', 'a', '--json')), [])

  def test_signs_of_differences(self):
    a = built((1, b'a'), (2, b'abc'), (3, b'\0\1'), active=1)
    self.write('a', a)
    self.write('same', unsealed(a) + b'\xff' * 9)
    self.assertEqual(self.do('diff', 'a', 'same'), '')
    self.assertEqual(json.loads(self.do('diff', '--json', 'a', 'same')), [])
    self.write('b', built((2, b'abd'), (3, b'\0\1'), (4, b'\0\0\0\5'), active=2, version=7))
    status, output, errors = self.run_tool('diff', 'a', 'b')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertEqual(sorted(line[0] + line[1:].split(':')[0] for line in output.splitlines()),
                     ['! 0x0002', '! active', '! version', '+ 0x0004', '- 0x0001'])
    status, output, _ = self.run_tool('diff', '--json', 'a', 'b')
    self.assertEqual(status, NOT_SO)
    self.assertEqual({(d['what'], d['before'] is None, d['after'] is None) for d in json.loads(output)},
                     {('0x0002', False, False), ('active', False, False), ('version', False, False),
                      ('0x0004', True, False), ('0x0001', False, True)})
    self.write('order', built((2, b'abc'), (1, b'a'), (3, b'\0\1'), active=1))
    self.assertEqual(self.run_tool('diff', 'a', 'order')[0], NOT_SO)
    self.refuse('diff', 'a', 'missing', says='missing: ')
    self.refuse('diff', 'missing', 'a', says='missing: ')


if __name__ == '__main__':
  programs.main(command_line)
