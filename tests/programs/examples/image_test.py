# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The configuration image: made, read again, damaged, refused; its fields. See fixture.py."""

import os
import signal

import fixture
from fixture import BAD_PATH, DEFAULTS, FIRST, TOO_LARGE, UNREADABLE, GatewaydTest, image


class FirstStart(GatewaydTest):

  def test_makes_an_image_with_all_defaults_and_nothing_else(self):
    output = self.run_once()
    self.assertIn('first start', output)
    self.assertNotRegex(output, '[Ss]tartup-cfg|Input an invalid', 'a message of the store')
    self.assertEqual(self.fields(), FIRST)
    self.assertEqual(os.listdir(self.folder), ['cfg'])
    self.assertEqual(os.stat(self.image).st_mode & 0o777, 0o600, 'only the owner reads it')

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

  def test_damage_is_reported_and_kept_and_survived(self):
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

  def test_image_that_was_cut_is_not_read_beyond_its_end(self):
    for name, damaged in (
        ('empty file', b''),
        ('half a header', self.sound()[:15]),
        ('only the header of an image with records', self.sound()[:16]),
        ('last byte missing', self.sound()[:-1]),
        ('text', b'host_name=gateway\nboot_count=7\n'),  # "e=ga" is read as its length
        # 4 GiB of records: a reader that trusts this length would read far beyond the buffer.
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
        (here, 'not a regular file'),
        (here + '/', 'names no file'),
        ('', 'names no file'),
        (here + '/pipe', 'not a regular file'),
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
    # Nothing else fits: every other field is reported, and its default is used.
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

  def test_field_of_another_size_is_reported_and_not_changed(self):
    wrong = {image.UPLINK_CHECK_MS: b'\5', image.STATISTICS_S: b'\0\1', image.HOST_NAME: b'n' * 40,
             image.UPLINK: b'eth0', image.COLLECTOR: b'\1\2', image.BOOT_COUNT: b'\0\0\0\0\7'}
    self.write_fields(wrong)
    output = self.run_once()
    for key in wrong:
      self.assertIn('field 0x%04x has another size' % key, output)
    self.assertIn('gateway: started, boot count 1\r', output)
    self.assertEqual(self.fields(), wrong)

  def test_number_out_of_range_is_reported_and_replaced(self):
    for key, number in ((image.UPLINK_CHECK_MS, 99), (image.UPLINK_CHECK_MS, 3600001), (image.STATISTICS_S, 0),
                        (image.STATISTICS_S, 3601)):
      with self.subTest(key=hex(key), number=number):
        self.write_fields({key: image.number_of(number)})
        self.assertIn('field 0x%04x: %d makes no sense, default used' % (key, number), self.run_once())
        self.assertEqual(self.fields(), FIRST)


if __name__ == '__main__':
  fixture.main()
