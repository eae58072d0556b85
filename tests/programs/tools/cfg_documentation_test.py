# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The man page, the README and the completion of tarn-cfg match the program.

Usage: cfg_documentation_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import os
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (COMMANDS, COMPLETION, CfgTest, PAGE, ROOT, TOOLS, command_line)
import programs


class Documentation(CfgTest):
  def test_man_page_has_no_warnings(self):
    if not shutil.which('man'):
      self.skipTest('no man')
    done = subprocess.run(['man', '--warnings', '-E', 'UTF-8', '-l', os.path.join(TOOLS, 'tarn-cfg', 'tarn-cfg.1')],
                          env={**os.environ, 'LC_ALL': 'C.UTF-8',
                               'MANWIDTH': '80'}, capture_output=True, text=True, check=False)
    self.assertEqual((done.returncode, done.stderr), (0, ''))
    for option in ('--json', '--max-size', '--length', '--cut', '--force', '--size', '--fill', '--dry-run', '--magic',
                   '--as'):
      self.assertIn(option, done.stdout)

  def shell(self, lines, env):
    """Runs lines one by one in a shell, and returns the output of each; each must succeed without a message."""
    outputs = []
    for line in lines:
      done = subprocess.run(['sh', '-c', line], cwd=self.folder, env=env, capture_output=True, text=True, check=False)
      self.assertEqual((done.returncode, done.stderr), (0, ''), line)
      outputs.append(done.stdout)
    return outputs

  def test_man_page(self):
    lines = programs.man_examples(PAGE)
    self.assertEqual(len(lines), 14)
    outputs = dict(zip(lines, self.shell(lines, self.on_the_path('tarn-cfg'))))
    self.assertEqual(outputs['tarn-cfg get gateway.cfg 0x0101'], 'gateway\n')
    self.assertIn('sound', outputs['tarn-cfg check --max-size 4080 gateway.cfg'])
    self.assertEqual(outputs['tarn-cfg diff gateway.cfg copy.cfg || test $? -eq 1'], '! version: 0 -> 2\n')
    self.assertIn('nothing to repair', outputs['tarn-cfg repair gateway.cfg'])
    self.assertIn('0x0202', outputs['tarn-cfg show gateway.cfg'])
    self.assertEqual(self.fields('gateway.cfg'), [(0x101, b'gateway'.ljust(32, b'\0')), (0x102, b'\0\0\0\1'),
                                                  (0x202, b'\0\0\0d')])
    self.assertEqual(len(self.read('gateway.cfg')), 4096)
    self.assertEqual(self.fields('copy.cfg')[2], (0x202, b'\0d'))

  def test_readme(self):
    page = os.path.join(TOOLS, 'README.md')
    block = next(block for block in programs.fenced(page, 'sh') if 'tarn-cfg create' in block)
    lines = block.splitlines()
    self.assertEqual(len(lines), 10)
    outputs = self.shell(lines, self.on_the_path('tarn-cfg'))
    shown = next(block for block in programs.fenced(page, '') if block.startswith('image '))
    self.assertEqual(outputs[4], shown)
    self.assertEqual(outputs[5], '5000\n')
    self.assertEqual(self.read('copy.cfg'), self.read('gateway.cfg'))
    self.assertEqual(outputs[9], '')

  def test_the_worked_image_of_the_format(self):
    with open(os.path.join(ROOT, 'docs', 'startup-cfg.md'), encoding='utf-8') as file:
      rows = re.findall(r'^    [0-9a-f]+: ((?:[0-9a-f]{2} +)+)  ', file.read(), re.MULTILINE)
    data = bytes.fromhex(''.join(rows))
    self.assertEqual(len(data), 29)
    self.write('f', data)
    self.assertEqual(self.fields(), [(1, b'\x11\x22'), (0x203, b'\x33\x44\x55')])
    self.assertIn('sound: 29 bytes, 2 records', self.do('check', 'f'))
    self.do('create', 'made')
    self.do('set', 'made', '1', 'short', '0x1122')
    self.do('set', 'made', '0x0203', 'buffer', '334455')
    self.assertEqual(self.read('made'), data)

  def test_completion(self):
    self.write('file', b'')
    offer = lambda *words: self.complete(COMPLETION, '_tarn_cfg', 'tarn-cfg', *words)
    self.assertEqual(sorted(word for word in offer('') if word[0] != '-'), COMMANDS)
    for command in COMMANDS:
      shown = set(re.findall(r'--[a-z-]+', self.do(command, '--help').split('Options:')[1].split('Exit')[0]))
      self.assertEqual(set(offer(command, '-')), shown, command)
      self.assertEqual(offer(command, 'fi'), ['file'], command)
    for words, expected in ((('get', 'file', ''), ['active', 'flag', 'version']), (('unset', 'file', ''), []),
                            (('set', '--length', '4', 'file', 'fl'), ['flag']), (('diff', 'file', 'f'), ['file']),
                            (('set', 'file', '1', ''), ['char', 'short', 'int', 'buffer', 'text']),
                            (('get', '--as', ''), ['char', 'short', 'int', 'buffer', 'text', 'raw']),
                            (('import', 'x', 'f'), ['file']), (('check', '--max-size', ''), [])):
      self.assertEqual(offer(*words), expected, words)


if __name__ == '__main__':
  programs.main(command_line)
