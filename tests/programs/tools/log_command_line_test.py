# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The command line of tarn-log, and its documentation.

Usage: log_command_line_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-LOG
"""

import os
import re
import subprocess
import sys
import time

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from log_fixture import (COMPLETION, DONE, HEAD, LEVELS, LogTest, MARK, PAGE, ROOT, START, TOOLS, command_line, record,
                         shown, some_records, system_log)
import programs


class CommandLine(LogTest):
  def test_wrong_use(self):
    for args in (('--foo',), ('-x',), ('-n', 'x'), ('-n', '-1'), ('-n', '1.5'), ('--lines',), ('-m',),
                 ('--color=blue',),
                 ('--interval=0',), ('--interval=3601',), ('--interval=x',), ('--utc', '--local')):
      with self.subTest(args=args):
        self.refuse(*args, matches='see tarn-log --help')

  def test_options_and_files_in_any_order(self):
    records = some_records(3, module='-m')
    self.write(self.system, system_log(records))
    self.assert_shows(records, '-g', 'no', self.system, '--module=-m', '-g', 'message')
    self.assert_shows(records, '-i', '-g', 'MESSAGE', '--', self.system)

  def help(self):
    output = self.do('--help').decode()
    self.assertEqual(self.do('-h').decode(), output)
    return output

  def test_help_names_each_option_that_the_man_page_and_the_completion_have(self):
    options = set(re.findall(r'(?<![\w-])--[a-z]+(?:-[a-z]+)*', self.help()))
    self.assertGreater(len(options), 15)
    with open(os.path.join(TOOLS, 'tarn-log', 'tarn-log.1'), encoding='ascii') as file:
      page = file.read().replace('\\-', '-')
    # The options in the tag of a paragraph.
    tagged = re.findall(r'^\.TP\n\.BR? (?:-\w ", " )?(--[a-z]+(?:-[a-z]+)*)', page, re.MULTILINE)
    self.assertEqual(sorted(tagged), sorted(options))
    with open(os.path.join(TOOLS, 'tarn-log', 'tarn-log.bash'), encoding='ascii') as file:
      completion = file.read()
    self.assertEqual(set(re.findall(r'(?<![\w-])--[a-z]+(?:-[a-z]+)*', completion.split('words="--module')[1]))
                     | {'--module'}, options)
    self.assertTrue(all(len(line) <= 120 for line in self.help().splitlines()))

  def test_each_option_of_the_help_is_taken(self):
    self.write(self.system, system_log([]))
    for short, name, value in re.findall(r'^ +(?:(-\w), +)?(--[a-z-]+)(?:=([A-Z]+))?  ', self.help(), re.MULTILINE):
      if name in ('--help', '--version', '--follow'):
        continue
      word = {'': None, 'NAME': 'm', 'LEVEL': 'info', 'TIME': 'now', 'TEXT': 't', 'REGEX': 'r', 'N': '1',
              'WHEN': 'auto',
              'S': '1'}[value]
      self.do(self.system, name + ('=' + word if word else ''))
      if short:
        self.do(self.system, *([short, word] if word else [short]))

  def test_the_value_after_an_equals_sign_is_never_the_next_word(self):
    self.write(self.system, system_log(some_records(1)))
    self.refuse('--since=', self.system, matches='--since: "" is not a time')
    self.refuse('--lines=', self.system, matches='--lines: "" is not a number')
    self.assert_shows(some_records(1), '--grep=', self.system)
    self.assert_shows([], '-g', '--since=', self.system)  # here it is the value of another option

  def test_a_file_may_be_named_like_a_list(self):
    for name in ('[a]', '[a,b]', '{}', '%%', '++'):
      self.write(name, system_log(some_records(1)))
      self.assert_shows(some_records(1), name)

  def test_a_flag_takes_no_value(self):
    self.refuse('--count=3', matches='--count takes no value')

  def test_version(self):
    header = os.path.join(TOOLS, '..', 'include', 'tarn', 'types.h')
    with open(header, encoding='ascii') as file:
      numbers = re.findall(r'#define TARN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)', file.read())
    self.assertEqual(self.do('--version').decode(), 'tarn-log ' + '.'.join(numbers) + '\n')

  def options(self):
    with open(PAGE, encoding='ascii') as file:
      text = file.read().replace('\\-', '-')
    return set(re.findall(r'--[a-z-]+', text[text.index('.SH OPTIONS'):text.index('.SH TIMES')])) - {'--'}

  def test_options(self):
    self.assertEqual(set(re.findall(r'--[a-z]+(?:-[a-z]+)?',
                                    self.do('--help').decode().split('Options of different')[0])), self.options())
    self.assertEqual(self.do('-h'), self.do('--help'))
    for word in ('--nothing', '-x', '--line', '-N', '---'):
      self.refuse(word)
    self.write('-f', MARK + record())
    self.write('log', MARK + record())
    self.assertEqual(self.do('--', '-f'), shown())
    self.assertEqual(self.do('log', '-n', '1', './-f'), shown())


class Documentation(LogTest):
  def options(self):
    with open(PAGE, encoding='ascii') as file:
      text = file.read().replace('\\-', '-')
    return set(re.findall(r'--[a-z-]+', text[text.index('.SH OPTIONS'):text.index('.SH TIMES')])) - {'--'}

  def test_completion(self):
    self.write('file', b'')
    offer = lambda *words: self.complete(COMPLETION, '_tarn_log', 'tarn-log', *words)
    self.assertEqual({word.rstrip('=') for word in offer('--')}, self.options())
    self.assertEqual(offer('-l', ''), list(LEVELS))
    self.assertEqual(offer('--color', '=', ''), ['auto', 'always', 'never'])
    for word in offer('--since', '') + offer('--until', '=', ''):
      self.write('log', MARK + record())
      self.do('--since', word, 'log')

  def test_readme(self):
    with open(os.path.join(TOOLS, 'README.md'), encoding='utf-8') as file:
      page = file.read()
    rows = [row.replace('\\|', '|') for row in re.findall(r'^\| `(.*?)` \|', page, re.MULTILINE)]
    self.assertEqual(len(rows), 9)
    env = self.on_the_path('tarn-log')
    now = int(time.time())
    self.write('mu_log.txt', MARK + record(START, 'Error', 'uplink', 'link lost') + record(START + 67, 'Warning',
                                                                                           'dhcp',
                                                                                           'no answer from the server')
               + record(START + 68, text='port up') + record(now, 'Info', 'uplink', 'now'))
    self.write('user_log.txt', HEAD + record(START + 69, 'Info', 'traffic', 'port down'))
    # Replaces ssh; the file is in this folder.
    with open(self.path('bin/ssh'), 'w', encoding='ascii') as script:
      script.write('#!/bin/sh\ntest "$1" = gateway && cat mu_log.txt\n')
    os.chmod(self.path('bin/ssh'), 0o755)
    expected = {'-g port': ['port up', 'port down'], '2026-01-02 03:00': ['port down', 'port up', 'no answer',
                                                                          'link lost'],
                '-n 20': ['link lost', 'no answer', 'port up', 'port down', 'now'], '--count': ['5 records'],
                '--json': ['device', 'link lost'], '--header': ['Manufacturer'], 'ssh': ['link lost', 'now'],
                '--strict': []}
    for row in rows:
      if ' -f ' in row:  # until interrupted
        with subprocess.Popen(['sh', '-c', 'exec ' + row + ' mu_log.txt'], cwd=self.folder, env=env,
                              stdout=subprocess.PIPE) as running:
          self.assertIn(b'link lost', running.stdout.readline())
          self.assertIn(b'uplink: now', running.stdout.readline())
          running.terminate()
        continue
      line = row if 'mu_log.txt' in row else row + ' mu_log.txt user_log.txt'
      done = subprocess.run(['sh', '-c', line], cwd=self.folder, env=env, capture_output=True, text=True, check=False)
      self.assertEqual((done.returncode, done.stderr), (DONE, ''), row)
      words = next(words for start, words in expected.items() if start in row)
      places = [done.stdout.find(word) for word in words]
      self.assertEqual((places, -1 in places), (sorted(places), False), (row, done.stdout))
    # The page shows records of the last two hours. Those here are older, hence --until.
    block = next(block for block in programs.fenced(os.path.join(TOOLS, 'README.md'), 'console') if 'tarn-log' in block)
    command, *told = block.splitlines()
    self.assertEqual(command, '$ tarn-log --since 2h --level warning')
    self.assertEqual(self.do('--until', '2h', '--level', 'warning', 'mu_log.txt').decode().splitlines(), told)

  def test_man_page(self):
    lines = programs.man_examples(PAGE)
    self.assertEqual(len(lines), 3)
    env = self.on_the_path('tarn-log')
    now = int(time.time())
    self.write('log', MARK + record(now - 3 * 3600, 'Error', text='old') + record(now, 'Error',
                                                                                  text='bad') + record(now,
                                                                                                       text='good'))
    with open(self.path('bin/ssh'), 'w', encoding='ascii') as script:
      script.write('#!/bin/sh\ncat log\n')
    os.chmod(self.path('bin/ssh'), 0o755)
    run = lambda line: subprocess.run(['sh', '-c', line], cwd=self.folder, env=env, capture_output=True, text=True,
                                      check=True).stdout
    self.assertEqual(re.findall('old|bad|good', run(lines[0] + ' log')), ['bad'])
    self.assertIn(' -f -n 0 -m uplink', lines[1])
    self.assertIn('3 records', run(lines[2]))

  def test_the_worked_file_of_the_format(self):
    with open(os.path.join(ROOT, 'docs', 'log-files.md'), encoding='utf-8') as file:
      page = file.read()
    rows = re.findall(r'^    [0-9a-f]{5}  ((?:[0-9a-f]{2} +)+) \|', page, re.MULTILINE)
    data = bytes.fromhex(''.join(rows))
    self.assertEqual(len(data), 55)
    self.write('log', data)
    self.assertEqual(self.do('--strict', 'log'), shown())
    text = page[page.index('    Manufacturer:'):page.index('The values are those')]
    user = '\n'.join(line[4:] for line in text.splitlines()).rstrip('\n') + '\n'
    self.write('user', user.encode())
    self.assertEqual(self.do('--strict', 'user'), shown(level='Info', module='traffic',
                                                        text='lo: 1 checks, 0 with traffic'))

  def test_completion_of_values(self):
    for words, expected in (
        (['--co'], ['--color=', '--count']),
        (['--color', '=', 'a'], ['auto', 'always']),
        (['--color', '='], ['auto', 'always', 'never']),
        (['-l', 'E'], ['Emergency', 'Error']),
        (['file', '--since', '1'], ['10min', '1h', '1d', '1w']),
        (['-m', ''], []),
        (['fi'], []),  # bash itself completes files
    ):
      self.assertEqual(self.complete(COMPLETION, '_tarn_log', 'tarn-log', *words), expected, words)


if __name__ == '__main__':
  programs.main(command_line)
