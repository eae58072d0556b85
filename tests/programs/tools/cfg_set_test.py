# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg set: values, and the room that an image has.

Usage: cfg_set_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import os
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (CfgTest, FIELDS, SAMPLE, SEE_HELP, built, command_line, records)
import image
import programs


class Set(CfgTest):
  def test_appends_every_type(self):
    self.do('create', 'cfg')
    expected = []
    for key, args, value in (
        (1, ('char', '255'), b'\xff'), (2, ('short', '0xfffe'), b'\xff\xfe'), (3, ('int', '4294967295'), b'\xff' * 4),
        (4, ('buffer', '0a0B0c'), b'\x0a\x0b\x0c'), (5, ('buffer', '0a:0b-0c 0d', '--length', '6'),
                                                     b'\x0a\x0b\x0c\x0d\0\0'),
        (6, ('text', 'gateway', '--length', '32'), b'gateway'.ljust(32, b'\0')), (7, ('text', 'zür'), 'zür'.encode()),
        (8, ('text', '', '--length', '2'), b'\0\0'), (9, ('buffer', '', '--length', '65535'), bytes(65535)),
    ):
      with self.subTest(key=key):
        self.do('set', 'cfg', str(key), *args)
        expected.append((key, value))
        self.assertEqual(self.read('cfg'), image.image(records(*expected)))
    self.assertEqual(self.names(), ['cfg'])

  def test_changes_in_place(self):
    self.write('cfg', SAMPLE)
    fields = dict(FIELDS)
    for key, args, value in ((1, ('short', '7'), b'\0\7'), (0x203, ('buffer', '01'), b'\1\0\0'),
                             (0x300, ('text', 'gw'), b'gw'.ljust(8, b'\0')), (0x300, ('text', ''), bytes(8)),
                             (0x300, ('text', '12345678', '--length', '8'), b'12345678'),
                             (0x400, ('int', '6'), b'\0\0\0\6'), (0x400, ('text', 'eth1'), b'eth1')):
      self.do('set', 'cfg', str(key), *args)
      fields[key] = value
      self.assertEqual(self.read('cfg'), image.image(records(*fields.items()), active=7, flag=8, version=0x01020304))

  def test_writes_the_header(self):
    self.write('cfg', SAMPLE)
    self.do('set', 'cfg', 'active', 'char', '255')
    self.do('set', 'cfg', 'flag', 'char', '0')
    self.do('set', 'cfg', 'version', 'int', '0xfffffffe')
    self.assertEqual(self.read('cfg'), image.image(records(*FIELDS), active=255, flag=0, version=0xFFFFFFFE))
    self.refuse('set', 'cfg', 'version', 'short', '1', matches='version is of type int' + SEE_HELP)
    self.refuse('set', 'cfg', 'flag', 'char', '256', matches='value: "256" .*' + SEE_HELP)
    self.refuse('set', 'cfg', 'flag', 'char', '1', '--length', '1',
                matches='--length is for buffer and text' + SEE_HELP)

  def test_values_that_do_not_fit_their_type_are_wrong_use(self):
    self.write('cfg', SAMPLE)
    hexadecimal = 'is not pairs of hexadecimal digits'
    for args, reason in (
        (('9', 'char', '256'), 'value: "256" is not a number from 0 to 255'),
        (('9', 'short', '65536'), 'value: "65536" is not a number from 0 to 65535'),
        (('9', 'int', '4294967296'), 'value: "4294967296" is not a number from 0 to 4294967295'),
        (('9', 'int', ''), 'value: "" is not a number .*'), (('9', 'int', '1x'), 'value: "1x" is not a number .*'),
        (('9', 'int', '--', '-1'), 'value: "-1" is not a number .*'),
        (('9', 'char', '1', '--length', '1'), '--length is for buffer and text'),
        (('9', 'buffer', 'abc'), 'value: "abc" ' + hexadecimal), (('9', 'buffer', '0g'), 'value: "0g" ' + hexadecimal),
        (('9', 'buffer', ':00'), 'value: ":00" ' + hexadecimal), (('9', 'buffer', '00:'),
                                                                  'value: "00:" ' + hexadecimal),
        (('9', 'buffer', '00::00'), 'value: "00::00" ' + hexadecimal),
        (('9', 'text', 'abc', '--length', '0'), '--length: "0" is not a number from 1 to 65535'),
        (('9', 'text', 'abc', '--length', '65536'), '--length: "65536" is not a number from 1 to 65535'),
        (('9', 'int', '1', '--max-size', 'much'), '--max-size: "much" is not a number from 0 to 4294967295'),
    ):
      with self.subTest(reason=reason):
        self.refuse('set', 'cfg', *args, matches=reason + SEE_HELP)

  def test_values_that_do_not_fit_their_field_are_refused(self):
    self.write('cfg', SAMPLE)
    for args, reason in (
        (('9', 'text', ''), 'an empty value: a new field needs --length'),
        (('9', 'text', 'abc', '--length', '2'), 'a value of 3 bytes for a field of 2'),
        (('9', 'text', 'a' * 65536), 'a value of 65536 bytes: 65535 fit'),
        (('0x300', 'text', '123456789'), 'a value of 9 bytes for a field of 8'),
        (('1', 'int', '1'), 'cfg: at 0x10: the field of key 0x0001 has 2 bytes, not 4; see resize'),
        (('0x300', 'text', 'a', '--length', '9'),
         'cfg: at 0x1d: the field of key 0x0300 has 8 bytes, not 9; see resize'),
    ):
      with self.subTest(reason=reason):
        self.refuse('set', 'cfg', *args, matches=reason)

  def test_changes_the_first_of_several(self):
    self.write('cfg', image.image(records((1, b'a'), (1, b'b'))))
    self.do('set', 'cfg', '1', 'char', '0')
    self.assertEqual(self.read('cfg'), image.image(records((1, b'\0'), (1, b'b'))))

  def test_seals_an_image_whose_checksum_was_not_yet_computed(self):
    self.write('cfg', image.image(records(*FIELDS), crc=0))
    self.do('set', 'cfg', '1', 'short', '1')
    self.assertEqual(self.read('cfg'), image.image(records((1, b'\0\1'), *FIELDS[1:])))

  def test_writes_nothing_that_is_so_already(self):
    self.write('cfg', SAMPLE)
    before = os.stat(self.path('cfg')).st_ino
    self.do('set', 'cfg', '1', 'short', '0x1122')
    self.assertEqual(os.stat(self.path('cfg')).st_ino, before)
    self.do('set', 'cfg', '1', 'short', '0x1123')
    self.assertNotEqual(os.stat(self.path('cfg')).st_ino, before)

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


class Room(CfgTest):
  def test_max_size_counts_the_whole_image(self):
    self.write('cfg', SAMPLE)  # 49 bytes, and 4 + 7 more make 60
    self.refuse('set', 'cfg', '9', 'text', 'seven77', '--max-size', '59',
                matches='cfg: at 0x3b: no room: the image would take 60 bytes, there are 59')
    self.do('set', 'cfg', '9', 'text', 'seven77', '--max-size', '60')
    self.refuse('resize', 'cfg', '9', '8', '--max-size', '60', matches='.*: no room: .*')
    self.refuse('set', 'cfg', '9', 'text', 'seven88', '--max-size', '59', matches='.*: no room: .*')
    self.do('resize', 'cfg', '9', '8', '--max-size', '61')
    self.assertEqual(len(self.read('cfg')), 61)

  def test_an_image_grows_and_shrinks_within_its_padding(self):
    for fill in (b'\0', b'\xff'):
      with self.subTest(fill=fill):
        self.write('cfg', SAMPLE + fill * 12)
        self.do('set', 'cfg', '9', 'text', 'seven77')
        grown = built(*FIELDS, (9, b'seven77'), active=7, flag=8, version=0x01020304)
        self.assertEqual(self.read('cfg'), grown + fill)
        self.do('unset', 'cfg', '9')
        self.assertEqual(self.read('cfg'), SAMPLE + fill * 12)

  def test_the_last_byte_of_the_padding_stays_so_that_no_later_change_loses_it(self):
    for fill in (b'\0', b'\xff'):
      with self.subTest(fill=fill):
        self.write('cfg', SAMPLE + fill * 11)
        self.refuse('set', 'cfg', '9', 'text', 'seven77',
                    matches='cfg: at 0x3b: no room: the image would take 60 bytes, there are 59')
        self.do('set', 'cfg', '9', 'text', 'six666')
        self.do('unset', 'cfg', '9')
        self.assertEqual(self.read('cfg'), SAMPLE + fill * 11)

  def test_bytes_of_others_after_the_image_stay_where_they_are(self):
    self.write('cfg', SAMPLE + b'other')
    self.refuse('set', 'cfg', '9', 'char', '1', matches='cfg: at 0x31: no room: .* there are 49')
    self.do('unset', 'cfg', '0x400')
    shrunk = image.image(records(*FIELDS[:3]), active=7, flag=8, version=0x01020304)
    self.assertEqual(self.read('cfg'), shrunk + bytes(8) + b'other')

  def test_room(self):
    blank = built((1, b'ab'))
    # One byte of padding stays.
    for data, room in ((blank, None), (blank + bytes(11), 10), (blank + b'\xff' * 11, 10), (blank + b'other bytes', 0)):
      self.write('f', data)
      if room is not None:
        self.refuse('set', '--length', str(room - 4 + 1 if room else 1), 'f', '2', 'buffer', '07', says='f: at 0x')
      if room:
        self.do('set', '--length', str(room - 5), 'f', '2', 'buffer', '07')
        self.assertEqual(len(self.read('f')), len(data))
        self.assertEqual(self.fields(), [(1, b'ab'), (2, b'\7' + bytes(room - 6))])
        self.do('unset', 'f', '2')
        self.assertEqual(self.read('f'), data)
        self.do('set', '--length', str(room - 4), 'f', '2', 'buffer', '07')  # up to the last byte but one
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


if __name__ == '__main__':
  programs.main(command_line)
