# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The folder of the simulated files, and obstacles to its use. See fixture.py."""

import os
import re
import shutil
import stat
import subprocess

import fixture
from fixture import SimTest, datagram

SOCKETS = ('control', 'dev/mu_pal_ioctl', 'dev/mulog-ioctl-dev', 'dev/netlink-19', 'proc/kmsg')


class Root(SimTest):

  def test_is_made_and_kept_and_its_sockets_are_removed(self):
    self.root = self.path('new/root')
    sim, daemon, _ = self.play()
    for name in SOCKETS:
      self.assertTrue(stat.S_ISSOCK(os.lstat(self.below_root(name)).st_mode), name)
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    left = {os.path.relpath(os.path.join(folder, name), self.root)
            for folder, _, names in os.walk(self.root) for name in names}
    self.assertEqual(left, {'collector.log'})
    self.assertEqual(sorted(os.listdir(self.root)), ['collector.log', 'dev', 'overlay', 'proc'])

  def test_is_removed_when_it_is_temporary(self):
    status, output, errors = self.run_to_end('--no-namespace', '--', 'sh', '-c',
                                             'echo "$TARN_SIM_ROOT"; ls "$TARN_SIM_ROOT/dev"')
    self.assertEqual(status, 0, errors)
    root, *devices = output.splitlines()
    self.assertRegex(root, r'^/tmp/tarn-sim-\w{6}$')
    self.assertEqual(devices, ['mu_pal_ioctl', 'mulog-ioctl-dev', 'netlink-19'])
    self.assertFalse(os.path.exists(root))

  def test_may_be_relative(self):
    status, output, errors = self.run_to_end(
        '--no-namespace', '--root', 'rel', '--', 'sh', '-c',
        'cd /; test -S "$TARN_SIM_ROOT/dev/mu_pal_ioctl" && echo there', cwd=self.folder)
    self.assertEqual((status, output), (0, 'there\n'), errors)

  def test_may_have_blanks_and_colons(self):
    self.root = self.path('a b:c')
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertTrue(os.path.exists(self.below_root('overlay/file')))

  def test_takes_one_launcher_at_a_time(self):
    sim, _, control = self.play()
    self.assert_refused('^tarn-sim: %s: another tarn-sim runs there\n$' % re.escape(os.path.realpath(self.root)),
                        '--no-namespace', '--root', self.root, '--', 'true')
    control.do('say fine')
    self.assertIsNone(sim.process.poll())

  def test_is_taken_over_from_a_launcher_that_was_killed(self):
    sim, _, _ = self.play()
    sim.process.kill()
    sim.wait()
    self.assertTrue(stat.S_ISSOCK(os.lstat(self.below_root('control')).st_mode))
    _, daemon, control = self.play()
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))

  def test_files_in_the_way_are_kept(self):
    for place in SOCKETS:
      with self.subTest(place=place):
        path = self.below_root(place)
        os.makedirs(os.path.dirname(path))
        self.write(path, 'precious')
        self.assert_refused('^tarn-sim: %s: is in the way: it is not a socket\n' % re.escape(path), '--no-namespace',
                            '--root', self.root, '--', 'true')
        self.assertEqual(self.read(path), 'precious')
        shutil.rmtree(self.root)

  def test_must_leave_room_for_the_names_of_sockets(self):
    base = os.path.realpath(self.folder)
    longest = os.path.join(base, 'x' * (87 - len(base) - 1))
    self.assertEqual(self.run_to_end('--root', longest, '--no-namespace', '--', 'true')[0], 0)
    self.assert_refused('too long for the addresses of sockets below it: at most 87 bytes\n', '--root', longest + 'x',
                        '--', 'true')

  def test_must_be_a_folder_that_can_be_made(self):
    path = self.write('file', '')
    self.assert_refused('^tarn-sim: %s: Not a directory\n$' % re.escape(path), '--root', path, '--', 'true')
    for place in ('/proc/none', '/dev/null'):
      self.assert_refused(place, '--root', place, '--', 'true')


  def test_that_cannot_be_made_is_refused_with_the_reason(self):
    # In a mount namespace that ends with the launcher.
    script = 'mount -t tmpfs -o ro tmpfs "$1" && shift && exec "$@"'
    line = ['unshare', '-m', 'sh', '-c', script, 'sh', self.folder]
    if subprocess.run([*line, 'true'], check=False, capture_output=True).returncode != 0:
      self.skipTest('mounting is not possible here')
    done = subprocess.run([*line, *fixture.emulator, fixture.tarn_sim, '--root', self.root, '--', 'true'], check=False,
                          capture_output=True, timeout=fixture.HANG_S)
    self.assertEqual((done.returncode, done.stderr.decode()),
                     (2, 'tarn-sim: %s: Read-only file system\n' % self.root))


class ControlPlace(SimTest):

  def test_may_be_elsewhere_and_is_removed(self):
    path = self.path('elsewhere')
    sim = self.sim('--control', path)
    daemon = sim.meet()
    sim.control(path).do('say fine')
    self.assertFalse(os.path.exists(self.below_root('control')))
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    self.assertFalse(os.path.exists(path))

  def test_of_another_simulation_is_kept(self):
    path = self.path('elsewhere')
    sim = self.sim('--control', path)
    sim.meet()
    self.assert_refused('^tarn-sim: %s: somebody else listens there\n' % re.escape(path), '--no-namespace', '--control',
                        path, '--', 'true')
    sim.control(path).do('say fine')

  def test_must_fit_a_sockets_address(self):
    self.assert_refused("too long for a socket's address", '--control', '/tmp/' + 'x' * 103, '--', 'true')


class Shim(SimTest):

  def copy(self, folder, *paths):
    os.mkdir(self.path(folder))
    for path in paths:
      shutil.copy(path, self.path(folder))
    return os.path.join(self.path(folder), 'tarn-sim')

  def test_must_stand_beside_the_launcher(self):
    self.natively()  # copies of the program are found natively
    self.assert_refused('tarn-sim-shim.so: is missing\n', '--', 'true',
                        launcher=self.copy('copy', fixture.tarn_sim))

  def test_may_have_blanks_and_colons_in_its_path(self):
    self.natively()
    shim = os.path.join(os.path.dirname(fixture.tarn_sim), 'tarn-sim-shim.so')
    sim, daemon, control = self.play(launcher=self.copy('a b:c', fixture.tarn_sim, shim))
    sock = daemon.channel()
    control.do('event 1')
    self.assertEqual(daemon.receive(sock), datagram(1))
    self.assertGreaterEqual(daemon.open('/overlay/file', os.O_CREAT | os.O_RDWR), 0)
    self.assertTrue(os.path.exists(self.below_root('overlay/file')))
    link = daemon.ask('env', 'LD_PRELOAD')[1].decode().split(':')[0]
    self.assertTrue(os.path.islink(link))
    daemon.end()
    self.assertEqual(sim.wait(), 0)
    self.assertFalse(os.path.exists(os.path.dirname(link)), 'what stood for it is removed')


if __name__ == '__main__':
  fixture.main()
