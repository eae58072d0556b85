# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Configuration images, made and read without the library, from the description of the format.

A header of 16 bytes (magic, checksum, active, flag, length of the records, version), then the records (key, length,
value). Every number is big-endian; the checksum is that of RFC 1071 over the whole image,
with its own field as 0.
"""

import struct

MAGIC = 0x84739458

HOST_NAME, BOOT_COUNT, UPLINK, UPLINK_CHECK_MS, STATISTICS_S, COLLECTOR = (
    0x0101, 0x0102, 0x0201, 0x0202, 0x0203, 0x0301)

# The limit of an image: gatewayd's buffer of 4096 bytes minus 16.
MAX_SIZE = 4080


def checksum(data):
  """RFC 1071: the complement of the one's complement sum of the 16-bit words, which the library adds in 32 bits."""
  total = sum(struct.unpack('>%dH' % ((len(data) + 1) // 2), data + b'\0' * (len(data) % 2))) % (1 << 32)
  while total > 0xFFFF:
    total = (total & 0xFFFF) + (total >> 16)
  return total ^ 0xFFFF


def text(value):
  """The value of a text field of gatewayd, padded with zeros."""
  return value.ljust(32, b'\0')


def number_of(value):
  """The value of a number field of gatewayd."""
  return value.to_bytes(4, 'big')


def record(key, value):
  return struct.pack('>HH', key, len(value)) + value


def image(records, length=None, crc=None, active=0, flag=0, version=0):
  """An image of `records`, bytes. A given `length` or `crc` replaces the right one in the header."""
  length = len(records) if length is None else length
  if crc is None:
    crc = checksum(struct.pack('>IHBBII', MAGIC, 0, active, flag, length, version) + records)
  return struct.pack('>IHBBII', MAGIC, crc, active, flag, length, version) + records


def parse(data):
  """A dict of the fields; asserts that every byte of the image is sound."""
  magic, crc, _, _, length, _ = struct.unpack('>IHBBII', data[:16])
  assert magic == MAGIC, 'magic %#x' % magic
  assert length == len(data) - 16, 'the header states %d bytes of records, the file has %d' % (length, len(data) - 16)
  assert crc == checksum(data[:4] + b'\0\0' + data[6:]), 'checksum'
  fields, offset = {}, 16
  while offset < len(data):
    key, size = struct.unpack('>HH', data[offset:offset + 4])
    assert size > 0 and offset + 4 + size <= len(data), 'record at %d' % offset
    assert key not in fields, 'field %#x twice' % key
    fields[key] = data[offset + 4:offset + 4 + size]
    offset += 4 + size
  return fields


def number(value):
  return int.from_bytes(value, 'big')
