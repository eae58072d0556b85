# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg with all kinds of files, folders, links and rights.

Usage: cfg_files_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import os
import resource
import stat
import subprocess
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (BLANK, CfgTest, DONE, LARGEST_FILE, LOST, NOBODY, NOT_SO, SAMPLE, WRONG, built, command_line)
import image
import programs


class Files(CfgTest):
  def test_files_that_cannot_be_read_are_2(self):
    os.mkdir(self.path('folder'))
    os.mkfifo(self.path('pipe'))
    with open(self.path('huge'), 'wb') as file:
      file.truncate((64 << 20) + 1)
    for name, reason in (('none', 'No such file or directory'), ('folder', 'is not a regular file'),
                         ('pipe', 'is not a regular file'), ('huge', 'larger than 67108864 bytes')):
      for command in (('show', name), ('get', name, '1'), ('set', name, '1', 'char', '1'), ('check', name),
                      ('repair', name), ('unset', name, '1'), ('diff', name, name), ('export', name)):
        with self.subTest(command=command):
          self.refuse(*command, matches='%s: .*%s' % (name, reason))

  def test_mode_and_owner_stay(self):
    self.write('cfg', SAMPLE)
    if os.geteuid() == 0:
      os.chown(self.path('cfg'), NOBODY, NOBODY - 1)
    os.chmod(self.path('cfg'), 0o4751)
    before = os.stat(self.path('cfg'))
    for args in (('set', 'cfg', '1', 'short', '1'), ('unset', 'cfg', '1'), ('resize', 'cfg', '0x300', '20'),
                 ('create', 'cfg', '--force')):
      self.do(*args)
      after = os.stat(self.path('cfg'))
      self.assertNotEqual(after.st_ino, before.st_ino)
      self.assertEqual((after.st_mode, after.st_uid, after.st_gid), (before.st_mode, before.st_uid, before.st_gid))
      before = after

  def test_an_owner_that_cannot_be_kept_is_2(self):
    user = self.as_another()
    if not user:
      self.skipTest('needs root, to make a file of somebody else')
    self.write('cfg', SAMPLE)
    os.chmod(self.path('cfg'), 0o666)
    self.refuse('set', 'cfg', '1', 'short', '1',
                matches='cfg: not written: the new file cannot have its mode and owner: '
                'Operation not permitted', **user)
    self.assertEqual(self.names(), ['cfg'])

  def test_a_file_that_may_not_be_written_is_not_replaced(self):
    self.write('cfg', SAMPLE)
    os.chmod(self.path('cfg'), 0o444)
    self.refuse('set', 'cfg', '1', 'short', '1', matches='cfg: not written: Permission denied', **self.as_another())
    self.assertEqual(self.names(), ['cfg'])

  def test_a_folder_that_may_not_be_written_is_2(self):
    self.write('cfg', SAMPLE)
    user = self.as_another()
    os.chmod(self.path('cfg'), 0o666)
    os.chmod(self.folder, 0o555)
    self.addCleanup(os.chmod, self.folder, 0o755)
    self.refuse('set', 'cfg', '1', 'short', '1',
                matches='cfg: not written: the temporary file cfg.tarn-cfg: Permission denied', **user)

  def test_symbolic_links_are_followed(self):
    os.mkdir(self.path('there'))
    self.write('there/real', SAMPLE)
    os.symlink('there/real', self.path('cfg'))
    self.do('unset', 'cfg', '0x300')
    self.assertTrue(os.path.islink(self.path('cfg')))
    self.assertNotIn(0x300, image.parse(self.read('there/real')))
    self.assertEqual(os.listdir(self.path('there')), ['real'])

  def test_changes_at_the_same_time_are_all_kept(self):
    self.write('cfg', image.image(b''))
    *emulator, program = command_line
    running = [subprocess.Popen([*emulator, program, 'set', self.path('cfg'), str(key), 'int',
                                 str(key)])  # pylint: disable=consider-using-with
               for key in range(12)]
    self.assertEqual([process.wait() for process in running], [0] * 12)
    self.assertEqual(image.parse(self.read('cfg')), {key: image.number_of(key) for key in range(12)})
    self.assertEqual(self.names(), ['cfg'])

  def test_what_is_not_a_regular_file(self):
    os.mkdir(self.path('folder'))
    os.mkfifo(self.path('fifo'))
    os.symlink('loop', self.path('loop'))
    os.symlink('nowhere', self.path('dangling'))
    for name in ('folder', 'fifo', 'loop', 'dangling', 'missing', '/dev/null', '/dev/zero', '', 'x' * 300, 'missing/f',
                 'folder/'):
      for args in (('show',), ('get', '1'), ('set', '1', 'int', '1'), ('unset', '1'), ('resize', '1', '1'), ('check',),
                   ('repair',), ('export',)):
        self.refuse(args[0], name, *args[1:], says='tarn-cfg: %s: ' % name)
    for name in ('folder', 'fifo', 'loop', '', 'x' * 300, 'missing/f', 'folder/'):  # must not replace a device
      self.refuse('create', '--force', name, says='tarn-cfg: %s: ' % name)
    self.assertEqual(self.names(), ['dangling', 'fifo', 'folder', 'loop'])

  def test_files_of_64_mib_and_more(self):
    self.write('f', BLANK)
    os.truncate(self.path('f'), LARGEST_FILE)
    self.assertIn('sound', self.do('check', 'f'))
    os.truncate(self.path('f'), LARGEST_FILE + 1)
    for args in (('check', 'f'), ('show', 'f'), ('repair', 'f'), ('set', 'f', 'flag', 'char', '1'), ('export', 'f')):
      status, output, errors = self.run_tool(*args)
      self.assertEqual((status, output), (WRONG, ''))
      self.assertIn('f: ', errors)

  def test_links_are_followed_and_stay(self):
    os.mkdir(self.path('there'))
    self.write('there/f', built((1, b'a')))
    os.symlink('there/f', self.path('one'))
    os.symlink('one', self.path('two'))
    self.do('set', 'two', '1', 'char', '9')
    self.assertEqual(self.fields('there/f'), [(1, b'\x09')])
    self.assertTrue(os.path.islink(self.path('one')) and os.path.islink(self.path('two')))
    self.assertEqual((self.names(), os.listdir(self.path('there'))), (['one', 'there', 'two'], ['f']))
    self.write('there/f', built((1, b'abc'))[:-1])
    self.assertEqual(self.run_tool('repair', 'two')[0], LOST)
    self.assertEqual(sorted(os.listdir(self.path('there'))), ['f', 'f.bad', 'f.lost'])

  def test_the_temporary_file_is_never_a_way_to_another(self):
    self.write('f', BLANK)
    self.write('victim', b'victim')
    os.symlink('victim', self.path('f.tarn-cfg'))
    self.do('set', 'f', '1', 'char', '1')
    self.assertEqual((self.read('victim'), self.names()), (b'victim', ['f', 'victim']))
    os.mkdir(self.path('f.tarn-cfg'))
    self.refuse('set', 'f', '1', 'char', '2', says='f.tarn-cfg')

  def test_every_mode_stays(self):
    for mode in (0o600, 0o644, 0o664, 0o777, 0o440):
      self.write('f', built((1, b'a')))
      os.chmod(self.path('f'), mode)
      owner = (12, 34) if os.geteuid() == 0 else (os.geteuid(), os.getegid())
      os.chown(self.path('f'), *owner)
      if mode & 0o200 or os.geteuid() == 0:
        self.do('set', 'f', '1', 'char', '1')
        self.do('resize', 'f', '1', '3')
        self.do('create', '--force', 'f')
      found = os.stat(self.path('f'))
      self.assertEqual((stat.S_IMODE(found.st_mode), found.st_uid, found.st_gid), (mode, *owner))
      os.remove(self.path('f'))

  def test_a_folder_without_the_right_to_write(self):
    self.write('f', built((1, b'a')))
    os.chmod(self.path('f'), 0o666)
    os.chmod(self.folder, 0o755)
    other = self.as_another()
    os.chmod(self.folder, 0o555)
    self.addCleanup(os.chmod, self.folder, 0o755)
    self.assertEqual(self.do('get', 'f', '1', **other), '97\n')
    self.refuse('set', 'f', '1', 'char', '1', says='f: ', **other)
    self.refuse('create', 'g', says='g: ', **other)

  def test_a_file_without_the_right_to_read(self):
    self.write('f', BLANK)
    os.chmod(self.path('f'), 0)
    other = self.as_another()
    if os.geteuid() != 0 and os.access(self.path('f'), os.R_OK):
      self.skipTest('rights do not bind here')
    status, output, errors = self.run_tool('show', 'f', **other)
    self.assertEqual((status, output, errors), (WRONG, '', 'tarn-cfg: f: cannot be opened: Permission denied\n'))


class Output(CfgTest):
  def test_a_file_that_may_not_grow_is_reported(self):
    # Like a full disk: the write ends in the middle. The signal that is sent then must not end tarn-cfg.
    old = built((1, b'abcdefgh'))
    self.write('f', old)
    for limit in (0, 1, 10, 15):
      limited = {'preexec_fn': lambda most=limit: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most))}
      for args in (('set', 'f', '2', 'int', '1'), ('create', '--force', 'f'), ('unset', 'f', '1'), ('create', 'g')):
        self.refuse(*args, says='File too large', **limited)
    self.write('f', old[:-1])
    self.assertEqual(self.run_program('repair', 'f', **limited)[0], WRONG)
    self.assertEqual(self.read('f'), old[:-1])

  def test_a_disk_that_is_full_is_reported(self):
    self.write('f', built((1, b'abcdefgh')))
    for args in (('show', 'f'), ('show', '--json', 'f'), ('get', 'f', '1'), ('check', 'f'), ('check', '--json', 'f'),
                 ('export', 'f'), ('diff', '--json', 'f', 'f')):
      with open('/dev/full', 'wb') as full:
        self.assertEqual(self.run_program(*args, stdout=full),
                         (WRONG, None, b'tarn-cfg: standard output: No space left on device\n'), args)

  def test_closed_descriptors_do_not_reach_the_image(self):
    # A file that is opened then gets their numbers, and output would be written to it.
    def closed(*numbers):
      return {'preexec_fn': lambda: [os.close(number) for number in numbers], 'stdout': None, 'stderr': None,
              'stdin': None}

    for numbers in ((0,), (1,), (2,), (0, 1), (0, 2), (1, 2), (0, 1, 2)):
      whole = built((1, b'abc'), (2, b'defg'))
      for args in (('set', 'f', '1', 'text', 'x'), ('set', 'f', '1', 'char', '1'), ('repair', 'f'), ('show', 'f'),
                   ('unset', 'f', '2'), ('get', 'f', '9')):
        data = whole[:-1] if args[0] == 'repair' else whole
        self.write('f', data)
        status, _, _ = self.quiet(args, closed(*numbers))
        self.assertIn(status, (DONE, NOT_SO, WRONG, LOST))
        if not (args[0] == 'repair' and self.read('f') == data):
          self.fields()

  def quiet(self, args, popen):
    """Runs it with /dev/null as its input and output, unless `popen` has others."""
    with open(os.devnull, 'r+b') as nothing:
      return self.run_program(*args, **{**popen, 'stdout': nothing, 'stderr': nothing, 'stdin': nothing})

  def test_nobody_reads(self):
    self.write('f', built(*[(key, b'\xff' * 60000) for key in range(4)]))
    for args in (('show', '--json', 'f'), ('export', 'f')):
      with subprocess.Popen(self.line(args), cwd=self.folder, stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL) as running:
        running.stdout.read(10)
        running.stdout.close()
        self.assertNotEqual(running.wait(), DONE)


if __name__ == '__main__':
  programs.main(command_line)
