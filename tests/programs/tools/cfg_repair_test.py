# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg repair: what it keeps, what it omits, and what it reports.

Usage: cfg_repair_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import os
import random
import re
import stat
import struct
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (BLANK, CfgTest, DONE, FIELDS, LOST, NOT_SO, OFFSETS, SAMPLE, WRONG, built, command_line,
                         records, some_file, taken_apart, unsealed)
import image
import programs

HEADER = {'active': 7, 'flag': 8, 'version': 0x01020304}  # of the sample


def with_length(data, offset, length):
  """The image with another length in the record at `offset`, and nothing else changed."""
  return data[:offset + 2] + struct.pack('>H', length) + data[offset + 4:]


class RepairTest(CfgTest):

  def repair(self, damaged, *options, name='cfg'):
    """Repairs a file; returns the status and the steps. Checks in all cases that a dry run prints the same and changes
    nothing, that the damaged file is kept, and that a second repair finds nothing."""
    self.write(name, damaged)
    os.chmod(self.path(name), 0o640)
    status, planned, errors = self.run_tool('repair', '--dry-run', name, *options)
    self.assertEqual((errors, self.files()), ('', {name: damaged}))
    found, output, errors = self.run_tool('repair', name, *options)
    self.assertEqual(errors, '')
    if planned == '%s: nothing to repair\n' % name:
      self.assertEqual((status, found, output, self.files()), (DONE, DONE, planned, {name: damaged}))
      return DONE, []
    self.assertEqual(status, LOST if found == LOST else NOT_SO)
    lines = output.splitlines()
    steps = planned.splitlines()
    self.assertEqual(lines[:len(steps)], steps)
    self.assertEqual(lines[len(steps)], '%s: as it was: %s.bad' % (name, os.path.realpath(self.path(name))))
    self.assertEqual(self.read(name + '.bad'), damaged)
    for made in self.names():
      self.assertEqual(stat.S_IMODE(os.stat(self.path(made)).st_mode), 0o640)
    self.assertEqual(self.do('repair', name), '%s: nothing to repair\n' % name)
    os.remove(self.path(name + '.bad'))
    return found, [line.split(': ', 1)[1] for line in steps]

  def left_out(self, name='cfg'):
    """The content of the file of lost bytes, as offsets and bytes; removes the file."""
    text = self.read(name + '.lost').decode('ascii')
    os.remove(self.path(name + '.lost'))
    self.assertRegex(text, r'\A(at 0x[0-9a-f]+: [0-9a-f]+\n)+\Z')
    return [(int(offset, 16), bytes.fromhex(data)) for offset, data in re.findall('at (.*): (.*)\n', text)]


class RepairWithoutLoss(RepairTest):

  def test_a_wrong_checksum_is_sealed(self):
    self.assertEqual(self.repair(SAMPLE[:4] + b'\x12\x34' + SAMPLE[6:]),
                     (DONE, ['at 0x4: sealed: the checksum was 0x1234, is 0x%s' % SAMPLE[4:6].hex(),
                             '4 fields kept, none lost']))
    self.assertEqual(self.read('cfg'), SAMPLE)

  def test_an_image_that_was_never_sealed_is_sealed(self):
    self.assertEqual(self.repair(image.image(b'', crc=0))[0], DONE)
    self.assertEqual(self.read('cfg'), BLANK)

  def test_a_sound_image_is_not_touched(self):
    self.write('cfg', SAMPLE + b'\0')
    before = os.stat(self.path('cfg')).st_ino
    self.assertEqual(self.do('repair', 'cfg'), 'cfg: nothing to repair\n')
    self.assertEqual(self.do('repair', 'cfg', '--dry-run'), 'cfg: nothing to repair\n')
    self.assertEqual((self.read('cfg'), os.stat(self.path('cfg')).st_ino), (SAMPLE + b'\0', before))
    self.assertEqual(self.names(), ['cfg'])

  def test_a_damaged_length_of_a_field_is_restored_where_the_checksum_proves_it(self):
    for number, offset in enumerate(OFFSETS):
      for length in (0, 1, 7, 0xFFFF):
        with self.subTest(number=number, length=length):
          status, steps = self.repair(with_length(SAMPLE, offset, length))
          self.assertEqual((status, steps[1:]), (DONE, ['4 fields kept, none lost']))
          self.assertEqual(steps[0], 'at 0x%x: the length of the field of key 0x%04x was %d, is %d, which the checksum '
                           'proves' % (offset + 2, FIELDS[number][0], length, len(FIELDS[number][1])))
          self.assertEqual(self.read('cfg'), SAMPLE)
          self.assertEqual(self.names(), ['cfg'])

  def test_a_damaged_value_is_not_taken_for_a_damaged_length(self):
    # With a length of 12 instead of 4 the first record would end with the second one, and the checksum would be right.
    good = built((1, b'\0\0\0\1'), (2, b'\0\0\0\2'), (3, b'\0\0\0\x0d'))
    self.assertEqual(image.checksum(unsealed(with_length(good[:-1] + b'\5', 16, 12))), image.checksum(unsealed(good)))
    status, steps = self.repair(good[:-1] + b'\5')
    self.assertEqual((status, steps[-1]), (DONE, '3 fields kept, none lost'))
    self.assertEqual(self.read('cfg'), built((1, b'\0\0\0\1'), (2, b'\0\0\0\2'), (3, b'\0\0\0\5')))

  def test_a_damaged_length_of_all_records_is_restored_where_the_checksum_proves_it(self):
    for length in (0, 5, 6, 1000, 0xFFFFFFFF):  # blank, within a record, after a record, beyond the file
      for tail in (b'', bytes(200), b'\xff' * 30):
        with self.subTest(length=length, tail=tail):
          status, steps = self.repair(SAMPLE[:8] + struct.pack('>I', length) + SAMPLE[12:] + tail)
          self.assertEqual((status, steps), (DONE, ['at 0x8: cfg_len was %d, is 33' % length,
                                                    '4 fields kept, none lost']))
          self.assertEqual(self.read('cfg'), SAMPLE + tail)

  def test_the_magic_number_is_put_back_only_on_demand(self):
    data = b'\x85' + SAMPLE[1:]
    self.write('cfg', data)
    for args in ((), ('--dry-run',)):
      self.refuse('repair', 'cfg', *args,
                  matches='cfg: at 0x0: no magic number, so perhaps not an image; --magic takes it for one')
    os.remove(self.path('cfg'))
    self.assertEqual(self.repair(data, '--magic'),
                     (DONE, ['at 0x0: the magic number is put back', '4 fields kept, none lost']))
    self.assertEqual(self.read('cfg'), SAMPLE)

  def test_what_has_no_header_cannot_be_repaired(self):
    for size in (0, 1, 15):
      for args in ((), ('--magic',)):
        self.write('cfg', SAMPLE[:size])
        self.refuse('repair', 'cfg', *args, matches='cfg: at 0x%x: the file ends within the header of 16 bytes' % size)


class RepairWithLoss(RepairTest):

  def test_fields_after_a_damaged_length_are_found_again(self):
    # The checksum is wrong too, and proves nothing.
    damaged = with_length(image.image(records(*FIELDS), crc=1, **HEADER), OFFSETS[0], 0xFFFF)
    status, steps = self.repair(damaged)
    self.assertEqual((status, steps[0], steps[-1]),
                     (LOST, 'at 0x10: 6 bytes that no whole field has: left out', '3 of at least 4 fields kept'))
    self.assertEqual(self.read('cfg'), built(*FIELDS[1:], **HEADER))
    self.assertEqual(self.left_out(), [(0x10, damaged[0x10:0x16])])

  def test_fields_before_and_after_several_damages_are_kept(self):
    fields = [(key, b'value %03d' % key) for key in range(1, 13)]
    damaged = image.image(records(*fields), crc=1)
    for gone in (4, 8):  # records of 13 bytes
      damaged = with_length(damaged, 16 + 13 * (gone - 1), 0)
    status, steps = self.repair(damaged)
    self.assertEqual((status, steps[-1]), (LOST, '10 of at least 12 fields kept'))
    self.assertEqual(self.read('cfg'), built(*(field for field in fields if field[0] not in (4, 8))))
    self.assertEqual(self.left_out(), [(16 + 13 * (gone - 1), damaged[16 + 13 * (gone - 1):16 + 13 * gone])
                                       for gone in (4, 8)])

  def test_every_whole_field_is_kept_wherever_the_file_ends(self):
    for size in range(16, len(SAMPLE)):
      with self.subTest(size=size):
        whole = [i for i in range(4) if (*OFFSETS, len(SAMPLE))[i + 1] <= size]
        end = (*OFFSETS, len(SAMPLE))[len(whole)]
        status, steps = self.repair(SAMPLE[:size])
        self.assertEqual((status, steps[-1]), (LOST, '%d of at least %s kept' % (
            len(whole), '1 field' if not whole else '%d fields' % (len(whole) + 1))))
        self.assertIn('at 0x%x: the file ends %d byte%s before the end of the image that cfg_len states'
                      % (size, 49 - size, '' if size == 48 else 's'), steps)
        self.assertEqual(self.read('cfg'), built(*(FIELDS[i] for i in whole), **HEADER))
        self.assertEqual(self.left_out() if size > end else [], [(end, SAMPLE[end:size])] if size > end else [])

  def test_a_file_that_has_less_than_its_image_states_may_have_lost_something(self):
    for tail in (b'', bytes(200)):  # a padded file keeps its size: the records end where the padding begins
      self.assertEqual(self.repair(image.image(records(*FIELDS), length=1000, crc=1) + tail)[0], LOST)
      self.assertEqual(self.read('cfg'), built(*FIELDS) + tail)

  def test_what_follows_the_image_stays_where_it_is(self):
    status, _ = self.repair(image.image(records(*FIELDS) + b'\1\2\0\0', crc=1) + b'others')
    self.assertEqual((status, self.read('cfg')), (LOST, built(*FIELDS) + bytes(4) + b'others'))
    self.assertEqual(self.left_out(), [(0x31, b'\1\2\0\0')])

  def test_both_kept_files_have_the_same_free_number(self):
    for i, number in enumerate(('', '.2', '.3')):
      damaged = built((i, b'abcd'))[:-1]
      self.write('f', damaged)
      if number == '.2':
        os.remove(self.path('f.bad'))  # its name is not used, the other name is
      status, output, _ = self.run_tool('repair', 'f')
      self.assertEqual(status, LOST)
      self.assertIn('f: as it was: %s\n' % os.path.realpath(self.path('f.bad' + number)), output)
      self.assertIn('f: left out: %s\n' % os.path.realpath(self.path('f.lost' + number)), output)
      self.assertEqual(self.read('f.bad' + number), damaged)
    self.assertEqual(self.names(), ['f', 'f.bad.2', 'f.bad.3', 'f.lost', 'f.lost.2', 'f.lost.3'])

  def test_each_damaged_file_is_kept(self):
    for number, name in enumerate(('cfg.bad', 'cfg.bad.2', 'cfg.bad.3')):
      data = image.image(b'', crc=number + 1)
      self.write('cfg', data)
      self.assertIn('/%s\n' % name, self.do('repair', 'cfg'))
      self.assertEqual(self.read(name), data)
    self.assertEqual(self.names(), ['cfg', 'cfg.bad', 'cfg.bad.2', 'cfg.bad.3'])

  def test_any_damage_becomes_an_image_that_loads(self):
    rand = random.Random(7)
    repaired = []
    for _ in range(60):
      damaged = bytearray(some_file(rand)[:rand.randrange(16, 200)].ljust(16, b'\0'))
      damaged[:4] = BLANK[:4]
      for _ in range(rand.randrange(3)):
        damaged[rand.randrange(4, len(damaged))] = rand.randrange(256)
      self.repair(bytes(damaged))
      repaired.append(self.read('cfg'))
      for name in self.names():
        os.remove(self.path(name))
    self.assertNotIn(None, self.load(*repaired))
    self.assertNotIn(None, [taken_apart(data) for data in repaired])

  def test_a_repair_that_cannot_be_reported_is_not_made(self):
    damaged = built((1, b'abcd'))[:-1]
    self.write('f', damaged)
    with open('/dev/full', 'wb') as full:
      self.assertEqual(self.run_program('repair', 'f', stdout=full),
                       (WRONG, None, b'tarn-cfg: standard output: No space left on device\n'))
    self.assertEqual(self.files(), {'f': damaged})


if __name__ == '__main__':
  programs.main(command_line)
