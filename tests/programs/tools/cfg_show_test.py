# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg show and get: their output for an image.

Usage: cfg_show_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import json
import re
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (CfgTest, DONE, FIELDS, NOT_SO, SAMPLE, built, command_line, records, unsealed)
import image
import programs


class Show(CfgTest):
  def test_shows_header_and_records(self):
    self.write('cfg', SAMPLE)
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
        (image.image(b'') + b'\xff' * 9, 'after     9 bytes of 0xff'),
        (image.image(b'') + b'ab', 'after     2 bytes'),
        (image.image(image.record(1, bytes(range(30)))),
         '0x000010  0x0001      30  -           %s...' % bytes(range(24)).hex()),
        (image.image(image.record(1, b'eth0')), '0x000010  0x0001       4  1702127664  "eth0"'),
        (image.image(image.record(1, 'zür'.encode())), '0x000010  0x0001       4  2059648114  "zür"'),
    ):
      with self.subTest(line=line):
        self.write('cfg', data)
        self.assertIn(line, self.do('show', 'cfg', env={'LC_ALL': 'C.UTF-8'}).splitlines())

  def test_only_clean_utf_8_is_shown_as_text(self):
    # Control characters, a C1 control, a byte of no character, overlong forms, a surrogate, beyond Unicode, cut ones.
    for value in (b'a\x1b[2J', b'a\x7f1', b'\xc2\x9b123', b'abc\xff3', b'\xc0\xaf123', b'\xe0\x80\xaf12',
                  b'\xed\xa0\x80123', b'\xf4\x90\x80\x801', b'abcd\xc3', b'\xe2\x82abc', b'\xf0\x9f\x98\0\0',
                  b'\0abcd'):
      with self.subTest(value=value):
        self.write('cfg', image.image(image.record(1, value)))
        self.assertTrue(self.do('show', 'cfg').endswith('-           %s\n' % value.hex()))
    for value in (b'\xc2\xa01234', b'\xe2\x82\xac12', b'\xf0\x9f\x98\x801', b'a~ "%'):
      with self.subTest(value=value):
        self.write('cfg', image.image(image.record(1, value)))
        self.assertTrue(self.do_raw('show', 'cfg').endswith(b'"' + value + b'"\n'))

  def test_shows_the_sound_part_of_a_damaged_image(self):
    self.write('cfg', SAMPLE[:0x20])
    status, output, errors = self.run_tool('show', 'cfg')
    self.assertEqual(status, NOT_SO)
    self.assertIn('unknown: the file ends before the image', output)
    self.assertEqual(output.splitlines()[-1], '0x000016  0x0203       3  -           3344ff')
    self.assertEqual(errors, 'tarn-cfg: cfg: at 0x8: cfg_len states 33 bytes of records; the file has 16\n'
                     'tarn-cfg: cfg: at 0x1d: 3 bytes left, too few for a record\n')
    self.write('cfg', b'short')
    self.assertEqual(self.run_tool('show', 'cfg'),
                     (NOT_SO, '', 'tarn-cfg: cfg: at 0x5: the file ends within the header of 16 bytes\n'))

  def test_json_has_it_all(self):
    self.write('cfg', SAMPLE + b'\0')
    self.assertEqual(json.loads(self.do('show', 'cfg', '--json')), {
        'file': 'cfg', 'size': 50, 'image_size': 49, 'magic': 0x84739458, 'checksum': int(SAMPLE[4:6].hex(), 16),
        'right_checksum': int(SAMPLE[4:6].hex(), 16), 'active': 7, 'flag': 8, 'version': 0x01020304,
        'records': [
            {'offset': 16, 'key': 1, 'length': 2, 'number': 0x1122, 'text': None, 'hex': '1122'},
            {'offset': 22, 'key': 0x203, 'length': 3, 'number': None, 'text': None, 'hex': '3344ff'},
            {'offset': 29, 'key': 0x300, 'length': 8, 'number': None, 'text': 'gateway', 'hex': '6761746577617900'},
            {'offset': 41, 'key': 0x400, 'length': 4, 'number': 5, 'text': None, 'hex': '00000005'},
        ], 'faults': [], 'notes': []})
    self.write('cfg', b'')
    status, output, errors = self.run_tool('show', 'cfg', '--json')
    self.assertEqual((status, errors), (NOT_SO, ''))
    self.assertEqual(json.loads(output), {
        'file': 'cfg', 'size': 0, 'records': [], 'notes': [],
        'faults': [{'offset': 0, 'text': 'the file ends within the header of 16 bytes'}]})
    self.write(b'\xff'.decode('utf-8', 'surrogateescape'), SAMPLE)
    self.assertEqual(json.loads(self.do('show', b'\xff', '--json'))['file'], '\ufffd')

  def test_show_has_every_record(self):
    data = built((1, b'\xfe'), (2, b'\x12\x34'), (0x203, b'\x80\0\0\0'), (65535, b'text\0\0'), (5, b'\0\1\2'),
                 active=1, flag=255, version=4294967295)
    self.write('f', data)
    lines = self.do('show', 'f').splitlines()
    head = dict(re.split(r'\s+', line, maxsplit=1) for line in lines[:lines.index('')])
    self.assertEqual(head, {'image': '%d bytes, 5 records' % len(data), 'magic': '0x84739458', 'flag': '255',
                            'checksum': '0x%04x, right' % image.checksum(unsealed(data)), 'active': '1',
                            'version': '4294967295'})
    table = [line.split() for line in lines[lines.index('') + 2:]]
    # Computed by hand: a head of 16 bytes, 4 bytes before each value.
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
                     ['f', len(data), len(data), 0x84739458, image.checksum(unsealed(data)),
                      image.checksum(unsealed(data)), 1, 255, 4294967295, [], []])
    self.assertEqual(self.files(), {'f': data})

  def test_show_never_sends_a_terminal_a_command(self):
    for value in (b'\x1b[1m', b'abc\x07', b'\xc2\x9b31m', b'\x7fabc', b'a\rb', b'a\nb', b'a\0b', b'\xed\xa0\x80',
                  b'\xc0\xaf\xc0', b'\xf4\x90\x80\x80a', b'abc\xe2\x82'):
      self.write('f', built((1, value + b'\0' * 9)))
      for args in (('show', 'f'), ('get', 'f', '1'), ('export', 'f'), ('show', '--json', 'f')):
        output = self.run_program(*args)[1]
        self.assertNotRegex(output, rb'[\x00-\x09\x0b-\x1f\x7f-\xff]', (value, args))
        self.assertIn(value.hex().encode(), output)


class Get(CfgTest):
  def test_prints_values(self):
    self.write('cfg', image.image(records((0, b'\xfe'), *FIELDS, (5, bytes(3)), (6, b'ab\0c'), (0xFFFF, b'x\ny\0')),
                                  active=7,
                           flag=8, version=0xFFFFFFFF))
    for key, type_, output in (
        ('0', None, '254\n'), ('0x0', 'char', '254\n'), ('1', None, '4386\n'), ('1', 'short', '4386\n'),
        ('1', 'buffer', '1122\n'), ('0x203', None, '3344ff\n'), ('515', 'raw', '3344ff'), ('0x0300', None, 'gateway\n'),
        ('0x300', 'buffer', '6761746577617900\n'), ('0x300', 'raw', '6761746577617900'), ('0X400', 'int', '5\n'),
        ('5', None, '000000\n'), ('5', 'text', '\n'), ('6', 'buffer', '61620063\n'), ('65535', 'buffer', '780a7900\n'),
        ('active', None, '7\n'), ('flag', 'char', '8\n'), ('version', None, '4294967295\n'),
        ('version', 'int', '4294967295\n'),
    ):
      with self.subTest(key=key, type=type_):
        args = ('get', 'cfg', key) + (('--as', type_) if type_ else ())
        if type_ == 'raw':
          self.assertEqual(self.do_raw(*args).hex(), output)
        else:
          self.assertEqual(self.do(*args), output)

  def test_what_is_not_so_is_1(self):
    self.write('cfg', SAMPLE)
    self.refuse('get', 'cfg', '2', status=NOT_SO, matches='cfg: no field of key 0x0002')
    for key, type_, but in (('1', 'char', 'short 4386'), ('1', 'int', 'short 4386'),
                            ('1', 'text', 'short 4386'),
                            ('0x203', 'short', r'buffer\[3\] 3344ff'), ('0x300', 'int', r'text\[8\] "gateway"')):
      with self.subTest(key=key, type=type_):
        self.refuse('get', 'cfg', key, '--as', type_, status=NOT_SO,
                    matches='cfg: at 0x[0-9a-f]+: the field of key 0x.... is not %s but %s' % (type_, but))
    self.write('cfg', image.image(b''))
    self.refuse('get', 'cfg', '1', status=NOT_SO, matches='cfg: no field of key 0x0001')

  def test_finds_the_first_of_several(self):
    self.write('cfg', image.image(records((1, b'a'), (1, b'b'))))
    self.assertEqual(self.do('get', 'cfg', '1'), '97\n')

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
    status, output, _ = self.run_tool('check', 'f')
    self.assertEqual(status, DONE)
    self.assertIn('0x00', output)
    found = json.loads(self.do('check', '--json', 'f'))
    self.assertEqual((found['sound'], found['faults'], [note['offset'] for note in found['notes']]),
                     (True, [], [0x1b, 0x21]))


if __name__ == '__main__':
  programs.main(command_line)
