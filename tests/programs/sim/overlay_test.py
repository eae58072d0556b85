# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Files of the daemon: those of the overlay, and those that are not simulated. See fixture.py."""

import errno
import os
import stat

import fixture
from fixture import LOG_DEVICE, PAL, SimTest

VARIANTS = ('open', 'open64', 'openat', 'openat64', '__open_2', '__open64_2', '__openat_2', '__openat64_2')
CREATING = VARIANTS[:4] + ('creat', 'creat64')


class Overlay(SimTest):

  def test_every_way_to_create_leads_below_the_root(self):
    _, daemon, _ = self.play()
    for variant in CREATING:
      with self.subTest(variant=variant):
        file = daemon.open('/overlay/' + variant, os.O_CREAT | os.O_EXCL | os.O_WRONLY, variant)
        self.assertGreaterEqual(file, 0)
        self.assertEqual(daemon.call('write', file, b'kept'.hex()), 4)
        daemon.call('close', file)
        self.assertEqual(self.read(self.below_root('overlay/' + variant)), 'kept')
        self.assertEqual(stat.S_IMODE(os.stat(self.below_root('overlay/' + variant)).st_mode) & ~0o640, 0)

  def test_every_way_to_open_leads_below_the_root(self):
    _, daemon, _ = self.play()
    self.write(self.below_root('overlay/file'), 'kept')
    for variant in VARIANTS:
      with self.subTest(variant=variant):
        file = daemon.open('/overlay/file', os.O_RDONLY, variant)
        self.assertEqual(daemon.ask('read', file, 9), (4, b'kept'))
        daemon.call('close', file)

  def test_streams_lead_below_the_root(self):
    _, daemon, _ = self.play()
    for variant in ('fopen', 'fopen64'):
      self.assertGreaterEqual(daemon.call('fopen', variant, '/overlay/' + variant, 'w'), 0)
      self.assertTrue(os.path.exists(self.below_root('overlay/' + variant)))
      self.assert_error('ENOENT', daemon.call('fopen', variant, '/overlay/missing', 'r'))

  def test_access_and_unlink_lead_below_the_root(self):
    _, daemon, _ = self.play()
    self.assertEqual(daemon.call('access', '/overlay', os.R_OK), 0)
    for unlink in ('unlink', 'unlinkat'):
      self.write(self.below_root('overlay/file'), '')
      for access in ('access', 'faccessat'):
        self.assertEqual(daemon.call(access, '/overlay/file', os.F_OK), 0)
      self.assertEqual(daemon.call(unlink, '/overlay/file'), 0)
      self.assertEqual(os.listdir(self.below_root('overlay')), [])
      for access in ('access', 'faccessat'):
        self.assert_error('ENOENT', daemon.call(access, '/overlay/file', os.F_OK))
      self.assert_error('ENOENT', daemon.call(unlink, '/overlay/file'))

  def test_errors_are_those_of_the_calls(self):
    _, daemon, _ = self.play()
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_WRONLY), 0)
    os.mkdir(self.below_root('overlay/folder'))
    for expected, call in (('ENOENT', ('open', 'open', '/overlay/missing', os.O_RDONLY)),
                           ('EEXIST', ('open', 'open', '/overlay/file', os.O_CREAT | os.O_EXCL | os.O_RDWR)),
                           ('EISDIR', ('open', 'open', '/overlay/folder', os.O_WRONLY)),
                           ('ENOTDIR', ('open', 'open', '/overlay/file/below', os.O_RDONLY)),
                           ('ENOTDIR', ('access', '/overlay/file/below', os.F_OK)),
                           ('EISDIR', ('unlink', '/overlay/folder')),
                           ('EINVAL', ('access', '/overlay/file', 99)),
                           ('EINVAL', ('fopen', 'fopen', '/overlay/file', 'q')),
                           ('EBADF', ('close', 999)),
                           ('EBADF', ('ioctl-null', 999, fixture.SET_LEVEL))):
      with self.subTest(call=call):
        self.assert_error(expected, daemon.call(*call))


class OtherFiles(SimTest):

  def test_are_opened_where_they_are(self):
    _, daemon, _ = self.play()
    outside = self.write('outside', 'text')
    for variant in VARIANTS:
      file = daemon.open(outside, os.O_RDONLY, variant)
      self.assertEqual(daemon.ask('read', file, 9), (4, b'text'), variant)
      daemon.call('close', file)
    self.assertEqual(daemon.call('access', outside, os.R_OK), 0)
    self.assertEqual(daemon.call('unlink', outside), 0)
    self.assertFalse(os.path.exists(outside))

  def test_whose_names_are_similar_are_not_the_simulations(self):
    _, daemon, _ = self.play()
    for path in (PAL + '2', LOG_DEVICE + '/', '/proc/kmsg2', '/overlayer', '/overlayer/file', 'overlay/file',
                 '/dev/mu_pal_ioct'):
      with self.subTest(path=path):
        self.assertIn(-daemon.open(path, os.O_RDONLY), (errno.ENOENT, errno.ENOTDIR))
        self.assertIn(-daemon.call('access', path, os.F_OK), (errno.ENOENT, errno.ENOTDIR))

  def test_that_are_devices_are_the_machines_own(self):
    _, daemon, _ = self.play()
    for path in ('/dev/null', '/dev/../dev/null'):
      self.assertGreaterEqual(daemon.open(path), 0)


if __name__ == '__main__':
  fixture.main()
