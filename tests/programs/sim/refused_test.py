# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Daemons that cannot load the shim, which tarn-sim refuses before they start. See fixture.py.

They are made from a sound program by a change in its ELF header.
"""

import os
import shutil
import struct

import fixture
from fixture import NOBODY, SimTest, programs

PT_NULL, PT_INTERP = 0, 3
MACHINE_AT, PROGRAM_HEADERS_AT, SIZE_AT, COUNT_AT = 18, 32, 54, 56  # of 64-bit ELF


class RefusedTest(SimTest):

  def program(self, name='daemon'):
    return shutil.copy(fixture.caller(), self.path(name))

  def patch(self, path, offset, form, value):
    with open(path, 'r+b') as file:
      file.seek(offset)
      file.write(struct.pack(fixture.ORDER + form, value))

  def static(self, name='daemon'):
    """A program without an interpreter, as a statically linked one is."""
    path = self.program(name)
    with open(path, 'rb') as file:
      data = file.read()
    first, = struct.unpack_from(fixture.ORDER + 'Q', data, PROGRAM_HEADERS_AT)
    size, count = struct.unpack_from(fixture.ORDER + 'HH', data, SIZE_AT)
    kinds = [struct.unpack_from(fixture.ORDER + 'I', data, first + i * size)[0] for i in range(count)]
    self.patch(path, first + kinds.index(PT_INTERP) * size, 'I', PT_NULL)
    return path

  def assert_not_started(self, reason, *daemon, **run):
    self.assert_refused('^tarn-sim: %s: %s' % (daemon[0], reason), '--no-namespace', '--root', self.root, '--', *daemon,
                        status=126, **run)
    self.assertFalse(os.path.exists(self.root))


class Refused(RefusedTest):

  def test_a_static_program_is(self):
    self.assert_not_started('is statically linked', self.static())

  def test_a_program_is_that_the_path_leads_to(self):
    self.static('no-such-daemon-elsewhere')
    env = {**os.environ, 'PATH': self.folder + ':' + os.environ['PATH']}
    self.assert_not_started('is statically linked', 'no-such-daemon-elsewhere', env=env)

  def test_a_program_for_another_processor_is(self):
    path = self.program()
    self.patch(path, MACHINE_AT, 'H', 0xFEED)
    self.assert_not_started('is for another processor', path)

  def test_a_script_is_whose_interpreter_is(self):
    interpreter = self.static('interpreter')
    for number, line in enumerate(('#!%s', '#! %s -x y', '#!\t%s\tz')):
      script = self.write('script%d' % number, line % interpreter + '\n')
      os.chmod(script, 0o755)
      self.assert_not_started('its interpreter %s is statically linked' % interpreter, script, '-x')
    outer = self.write('outer', '#!%s\n' % script)
    os.chmod(outer, 0o755)
    self.assert_not_started('its interpreter %s its interpreter' % script, outer)

  def test_scripts_of_sound_interpreters_are_not(self):
    for text in ('#!/bin/sh\necho it runs\n', '#!/usr/bin/env sh\necho it runs\n', 'echo it runs\n'):
      script = self.write('script', text)
      os.chmod(script, 0o755)
      status, output, errors = self.run_to_end('--no-namespace', '--', script)
      self.assertEqual((status, output), (0, 'it runs\n'), errors)

  def test_an_emulator_is_not(self):
    # It is started, and then fails by itself.
    _, _, errors = self.run_to_end('--no-namespace', '--', self.static('qemu-none'))
    self.assertRegex(errors, 'qemu-none (ended with status|was ended by signal)')


class RefusedRights(RefusedTest):
  """Programs that run with the rights of another user."""

  def setUp(self):
    super().setUp()
    if os.geteuid() != 0:
      self.skipTest('files of another user need root')

  def test_set_user_id_are(self):
    path = self.program()
    os.chown(path, NOBODY, 0)
    os.chmod(path, 0o4755)
    self.assert_not_started('is set-user-id', path)

  def test_set_group_id_are(self):
    path = self.program()
    os.chown(path, 0, NOBODY)
    os.chmod(path, 0o2755)
    self.assert_not_started('is set-user-id or set-group-id', path)

  def test_capabilities_are(self):
    shim = os.path.join(os.path.dirname(fixture.tarn_sim), 'tarn-sim-shim.so')
    library = os.environ['TARN_TEST_LIBRARY']
    launcher, _, library, daemon = programs.copy_for_others(self, fixture.tarn_sim, shim, library, fixture.caller())
    try:  # version 2: CAP_NET_RAW, which is 13, permitted and in effect
      os.setxattr(daemon, 'security.capability', struct.pack('<5I', 0x02000001, 1 << 13, 0, 0, 0))
    except OSError as error:
      self.skipTest('no file capabilities here: %s' % error)
    self.assert_not_started('is set-user-id or set-group-id, or has capabilities', daemon, launcher=launcher,
                            user=NOBODY, group=NOBODY, extra_groups=[], cwd='/',
                            env={**os.environ, 'LD_LIBRARY_PATH': os.path.dirname(library)})

  def test_ones_own_are_not(self):
    path = self.program('true')
    shutil.copy(shutil.which('true'), path)
    os.chmod(path, 0o6755)
    self.assertEqual(self.run_to_end('--no-namespace', '--', path)[0], 0)

  def test_unreadable_programs_are(self):
    launcher, _, library, daemon = programs.copy_for_others(
        self, fixture.tarn_sim, os.path.join(os.path.dirname(fixture.tarn_sim), 'tarn-sim-shim.so'),
        os.environ['TARN_TEST_LIBRARY'], fixture.caller())
    os.chmod(daemon, 0o711)
    self.assert_not_started('cannot be read', daemon, launcher=launcher, user=NOBODY, group=NOBODY, extra_groups=[],
                            cwd='/', env={**os.environ, 'LD_LIBRARY_PATH': os.path.dirname(library)})


if __name__ == '__main__':
  fixture.main()
