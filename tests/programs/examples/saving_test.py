# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""How gatewayd saves its image, and what remains if it cannot. See fixture.py."""

import os
import resource
import subprocess
import threading

import fixture
from fixture import OK, GatewaydTest, command, image


class Saving(GatewaydTest):
  """After every kind of failed save: the old image is unchanged, no other file remains, and the daemon reports it."""

  OLD = image.image(image.record(image.BOOT_COUNT, image.number_of(7)))
  FAILED = 'not saved, the file stays as it was: '

  def setUp(self):
    super().setUp()
    self.write(self.OLD)

  def expect_old_image(self, output, reason, left=('cfg',)):
    self.assertIn('started, boot count 8\r', output)
    self.assertIn(self.FAILED + reason, output)
    self.assertEqual(self.read(), self.OLD)
    self.assertEqual(sorted(os.listdir(self.folder)), sorted(left))

  def test_never_writes_to_the_old_file(self):
    os.link(self.image, self.image + '.old')
    self.run_once()
    self.assertEqual(self.read('cfg.old'), self.OLD)
    self.assertEqual(self.boot_count(), 8)

  def test_a_reader_never_meets_half_an_image(self):
    done = threading.Event()
    broken = []

    def read_on():
      while not done.is_set():
        try:
          image.parse(self.read())
        except (AssertionError, OSError, ValueError) as error:
          broken.append(error)

    reader = threading.Thread(target=read_on)
    reader.start()
    try:
      for _ in range(5):
        self.run_once()
    finally:
      done.set()
      reader.join()
    self.assertEqual(broken, [])
    self.assertEqual(self.boot_count(), 12)

  def test_file_that_cannot_grow(self):
    # As on a full disk, a write stops in the middle. Standard output is a pipe, to which the limit does not apply.
    def limit():
      resource.setrlimit(resource.RLIMIT_FSIZE, (40, 40))

    # An instrumented library could not write its coverage data.
    output = self.run_once(preexec_fn=limit, env={'GCOV_PREFIX': '/dev/null'})
    self.expect_old_image(output, 'File too large')

  def test_full_disk(self):
    if os.geteuid() != 0:
      self.skipTest('mounting a small file system needs root')
    probe = subprocess.run(['unshare', '-m', 'mount', '-t', 'tmpfs', 'tmpfs', self.folder], capture_output=True,
                           text=True, check=False)
    if probe.returncode != 0:
      self.skipTest('mounting is not possible here: ' + probe.stderr.strip())
    # In a mount namespace that ends with the script: one page for the image, none for the temporary file.
    line, env = command(['--config', self.folder + '/cfg', '--run-for', '1'], self.root)
    script = ('set -e; here=$1; shift; cp "$here/cfg" "$here.old"; mount -t tmpfs -o nr_blocks=1 tmpfs "$here";'
              'cp "$here.old" "$here/cfg"; status=0; "$@" || status=$?; cmp "$here/cfg" "$here.old"; ls "$here";'
              'rm "$here.old"; exit $status')
    done = subprocess.run(['unshare', '-m', 'sh', '-c', script, 'sh', self.folder, *line],
                          env={**os.environ, **env}, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          check=False)
    self.assertEqual(done.returncode, OK, done.stdout + done.stderr)
    self.assertIn(self.FAILED + 'No space left', done.stdout)
    self.assertTrue(done.stdout.endswith('\ncfg\n'), 'not only the image: ' + done.stdout[-100:])

  def test_folder_in_the_temporary_file_s_place(self):
    os.makedirs(os.path.join(self.folder, 'cfg.tmp'))
    output = self.run_once()
    self.expect_old_image(output, 'File exists', left=('cfg', 'cfg.tmp'))
    self.assertRegex(output, r'\n\[[0-9/:-]+\]-\[Error \d+\]config: .*' + self.FAILED, 'an error in the log, too')

  def test_does_not_follow_a_link_in_the_temporary_file_s_place(self):
    self.write(b'precious', 'other')
    os.symlink('other', self.image + '.tmp')
    self.assertNotIn('not saved', self.run_once())
    self.assertEqual(self.read('other'), b'precious')
    self.assertEqual(self.boot_count(), 8)
    self.assertEqual(sorted(os.listdir(self.folder)), ['cfg', 'other'])

  def test_read_only_folder(self):
    user = self.unprivileged()
    os.chmod(self.image, 0o644)
    os.chmod(self.folder, 0o555)
    try:
      self.expect_old_image(self.run_once(**user), 'Permission denied')
    finally:
      os.chmod(self.folder, 0o755)

  def test_image_that_may_not_be_replaced(self):
    user = self.unprivileged()
    if not user:
      self.skipTest('an image of another user needs root')
    os.chmod(self.image, 0o644)
    os.chmod(self.folder, 0o1777)  # everybody may make files here, and replace only their own
    self.expect_old_image(self.run_once(**user), 'Operation not permitted')

  def test_replaces_what_a_crash_left(self):
    self.write(b'half an image' * 100, 'cfg.tmp')
    os.chmod(self.image + '.tmp', 0o644)
    self.assertNotIn('not saved', self.run_once())
    self.assertEqual(os.stat(self.image).st_mode & 0o777, 0o600)
    self.assertEqual(self.boot_count(), 8)
    self.assertEqual(os.listdir(self.folder), ['cfg'])


if __name__ == '__main__':
  fixture.main()
