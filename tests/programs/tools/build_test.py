# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The build of the tools: when it is refused, and the version and date of the man pages.

Usage: build_test.py [SUITE.TEST]... -- FOLDER_OF_THE_MADE_MAN_PAGES
"""

import os
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(1, os.path.join(HERE, '..', '..', 'support'))
import programs  # pylint: disable=wrong-import-position

ROOT = os.path.join(HERE, '..', '..', '..')
WITHOUT_SYSTEM_HEADERS = '-DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF'

man_folder = []


class Configure(programs.ProgramTest):

  def configure(self, *options):
    """Configures without the system's headers; returns whether it worked, and CMake's output on one line."""
    cmake = shutil.which('cmake')
    if not cmake:
      self.skipTest('no cmake')
    done = subprocess.run([cmake, '-S', ROOT, '-B', self.path('build'), WITHOUT_SYSTEM_HEADERS, *options],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode == 0, ' '.join(done.stdout.split())

  def assert_names_what_is_missing(self, option):
    worked, said = self.configure('-D%s=ON' % option)
    self.assertFalse(worked, said)
    self.assertIn('%s is ON, but this was not found: CLI11 (Debian: libcli11-dev), nlohmann-json '
                  '(Debian: nlohmann-json3-dev)' % option, said)

  def test_tools_that_were_asked_for_and_cannot_be_built_are_an_error(self):
    self.assert_names_what_is_missing('TARN_BUILD_TOOLS')

  def test_a_simulator_that_was_asked_for_and_cannot_be_built_is_an_error(self):
    self.assert_names_what_is_missing('TARN_BUILD_SIM')

  def test_auto_leaves_out_what_cannot_be_built(self):
    worked, said = self.configure('-DTARN_BUILD_TOOLS=AUTO', '-DTARN_BUILD_SIM=AUTO')
    self.assertTrue(worked, said)
    self.assertIn('The tools are left out: this was not found: CLI11', said)
    self.assertIn('tarn-sim is left out: this was not found: CLI11', said)


class ManPages(programs.ProgramTest):

  def headings(self):
    """The heading line of each page that the build has made, by the page's name."""
    found = {}
    for name in sorted(os.listdir(man_folder[0])):
      with open(os.path.join(man_folder[0], name), encoding='ascii') as page:
        found[name] = next(line for line in page if line.startswith('.TH '))
    self.assertLessEqual({'tarn-cfg.1', 'tarn-event.1', 'tarn-log.1'}, set(found))
    return found

  def test_every_page_has_the_version_of_the_library(self):
    with open(os.path.join(ROOT, 'include', 'tarn', 'types.h'), encoding='ascii') as header:
      version = '.'.join(re.findall(r'#define TARN_VERSION_[A-Z]+ (\d+)', header.read()))
    for name, heading in self.headings().items():
      self.assertIn(' "tarn %s" ' % version, heading, name)

  def test_every_page_has_the_date_of_the_newest_release(self):
    with open(os.path.join(ROOT, 'CHANGELOG.md'), encoding='utf-8') as log:
      date = re.search(r'^## \S+ \((.*)\)$', log.read(), re.MULTILINE).group(1)
    for name, heading in self.headings().items():
      self.assertIn(' 1 "%s" ' % date, heading, name)


if __name__ == '__main__':
  man_folder.extend(programs.given())
  programs.run_tests()
