# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The command line of tarn-cfg.

Usage: cfg_command_line_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import os
import re
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (BLANK, COMMANDS, CfgTest, DONE, PAGE, SAMPLE, SEE_HELP, TOOLS, WRONG, built, command_line)
import image
import programs


class CommandLine(CfgTest):
  def test_help_describes_every_command(self):
    output = self.do('--help')
    commands = re.findall(r'^  ([a-z]+)  ', output, re.MULTILINE)
    self.assertEqual(sorted(commands), ['check', 'create', 'diff', 'export', 'get', 'import', 'repair', 'resize', 'set',
                                        'show', 'unset'])
    for command in commands:
      self.assertIn('Usage: tarn-cfg %s ' % command, self.do(command, '--help'))

  def test_version_is_the_library_s(self):
    with open(os.path.join(TOOLS, '..', 'include', 'tarn', 'types.h'), encoding='ascii') as file:
      numbers = re.findall(r'#define TARN_VERSION_[A-Z]+ (\d+)', file.read())
    self.assertEqual(self.do('--version'), 'tarn-cfg %s\n' % '.'.join(numbers))

  def test_wrong_use_is_2(self):
    self.write('f', BLANK)
    for args in ((), ('nothing',), ('show',), ('show', 'f', 'f'), ('show', '-x', 'f'),
                 ('show', '--json=yes please', 'f'),
                 ('get', 'f'), ('get', 'f', '1', '2'), ('get', '--as', 'f', '1'), ('get', '--as', 'double', 'f', '1'),
                 ('set', 'f', '1', 'raw', '00'), ('set', 'f', '1', 'char'), ('unset', 'f'), ('resize', 'f', '1'),
                 ('resize', 'f', '1', '2', '3'), ('check', '--max-size'), ('create',), ('repair', '--force', 'f'),
                 ('diff', 'f'), ('export',), ('export', '--json', 'f'), ('import', 'f'), ('import', '-', 'f', 'g'),
                 ('show', '--max-size', '10', 'f'), ('unset', '--max-size', '10', 'f', '1')):
      with self.subTest(args=args):
        status, output, errors = self.run_tool(*args)
        self.assertEqual((status, output), (WRONG, ''))
        self.assertRegex(errors, r'\Atarn-cfg: .+\n')
        self.assertEqual(self.files(), {'f': BLANK})

  def test_keys_are_decimal_or_hexadecimal(self):
    self.write('f', built((0, b'a'), (10, b'b'), (65535, b'c')))
    for word, number in (('0', 97), ('0x0', 97), ('0000', 97), ('10', 98), ('010', 98), ('0xa', 98), ('0xA', 98),
                         ('0x000A', 98), ('65535', 99), ('0xFFFF', 99), ('0xfFfF', 99)):
      self.assertEqual(self.do('get', 'f', word), '%d\n' % number, word)
    for word in ('', '65536', '0x10000', '4294967296', '18446744073709551616', '0x', 'x1', '+1', ' 1', '1 ', '1.0',
                 '1e1',
                 'a', '0b1', 'Flag', 'FLAG', 'header'):
      self.assertIn(word, self.refuse('get', 'f', word))
      self.refuse('unset', 'f', word)
    self.refuse('get', 'f', '--', '-1')

  def test_header_values_are_keys_of_only_get_and_set(self):
    self.write('f', built((1, b'ab')))
    for name in ('active', 'flag', 'version'):
      for args in (('unset', 'f', name), ('resize', 'f', name, '4')):
        # The reason does not offer what it refuses.
        self.refuse(*args, matches='key: "%s" is not a number from 0 to 65535' % name + SEE_HELP)
      self.assertEqual(self.do('get', 'f', name), '0\n')
    self.assertIn('active, flag or version', self.refuse('get', 'f', 'x'))

  def test_files_may_be_named_like_anything(self):
    for name in ('show', 'get', 'active', '[a]', '{}', 'a b', 'a=b', '%s%n', 'ü', '++x', "it's"):
      self.do('create', name)
      self.do('set', name, '1', 'char', '7')
      self.assertEqual(self.do('get', name, '1'), '7\n', name)
      self.assertEqual(self.fields(name), [(1, b'\7')])
    self.do('create', '--', '--json')
    self.assertEqual(self.do('get', '--', '--json', 'version'), '0\n')

  def test_options_stand_anywhere_before_two_dashes(self):
    self.write('f', built((1, b'abc')))
    for args in (('get', '--as', 'buffer', 'f', '1'), ('get', 'f', '--as', 'buffer', '1'),
                 ('get', 'f', '1', '--as', 'buffer'), ('get', 'f', '1', '--as=buffer'),
                 ('get', '--as', 'buffer', '--', 'f', '1'), ('get', 'f', '--as=buffer', '--', '1')):
      self.assertEqual(self.do(*args), '616263\n', args)

  def test_values_are_taken_as_they_stand(self):
    self.do('create', 'f')
    self.do('set', '--length', '40', 'f', '1', 'text', 'x')
    for text in ('a', ' a ', '[a]', '[a,b]', '{}', '"a"', "'a'", 'a,b', '%s', '\\n', 'set', '=', '#', '~', '*', 'é€😀',
                 'a\nb', '0x10', '', 'x' * 40):
      self.do('set', 'f', '1', 'text', text)
      self.assertEqual(self.fields(), [(1, text.encode().ljust(40, b'\0'))])
    for text in ('-', '-1', '--', '--json', '++', '+'):  # after two dashes, as the man page says
      self.do('set', 'f', '1', 'text', '--', text)
      self.assertEqual(self.fields(), [(1, text.encode().ljust(40, b'\0'))])
    self.write('bytes', b'')
    self.assertEqual(self.run_program(b'set', b'f', b'1', b'text', b'\xff\x80')[0], DONE)
    self.assertEqual(self.fields(), [(1, b'\xff\x80'.ljust(40, b'\0'))])

  def test_help_is_shown_or_its_failure_reported(self):
    for args in (('--help',), ('-h',), ('--version',), *((command, '--help') for command in COMMANDS)):
      self.assertNotEqual(self.do(*args), '')
      with open('/dev/full', 'wb') as full:
        self.assertEqual(self.run_program(*args, stdout=full),
                         (WRONG, None, b'tarn-cfg: standard output: No space left on device\n'), args)
    with open(PAGE, encoding='ascii') as file:
      synopsis = re.findall(r'^\\fBtarn\\-cfg ([a-z]+)\\fR(.*)$', file.read(), re.MULTILINE)
    self.assertEqual(sorted(name for name, _ in synopsis), COMMANDS)
    for name, rest in synopsis:
      shown = set(re.findall(r'--[a-z-]+', self.do(name, '--help').split('Options:')[1].split('Exit')[0]))
      self.assertEqual(shown - {'--help'}, set(re.findall(r'--[a-z-]+', re.sub(r'\\f.|\\', '', rest))), name)

  def test_takes_texts_that_look_like_something_else(self):
    for text in ('show', '[a,b]', '{}', '%%', '%s', 'a b', '"', "'", '++', 'x=1', '\n', '--', '-1', '--help'):
      with self.subTest(text=text):
        self.write('cfg', image.image(b''))
        self.do('set', 'cfg', '1', 'text', '--length', '9', '--', text)
        self.assertEqual(self.read('cfg'), image.image(image.record(1, text.encode().ljust(9, b'\0'))))
    for text in ('show', '[a,b]', '{}', '%%'):
      self.do('set', 'cfg', '1', 'text', text)
      self.assertEqual(image.parse(self.read('cfg'))[1], text.encode().ljust(9, b'\0'))
    self.do('set', 'cfg', '1', 'text', b'\xff\xfe')
    self.assertEqual(image.parse(self.read('cfg'))[1], b'\xff\xfe' + bytes(7))

  def test_wrong_keys_are_2(self):
    self.write('cfg', SAMPLE)
    for key in ('65536', 'x', '', ' 1', '1 ', '0x', '+1', '1.0', '99999999999999999999', 'Version'):
      with self.subTest(key=key):
        self.refuse('get', 'cfg', key, matches='key: "%s" is not a number from 0 to 65535, nor active, flag or version'
                    % re.escape(key) + SEE_HELP)
    self.refuse('get', 'cfg', 'version', '--as', 'char', matches='version is of type int' + SEE_HELP)

  def test_an_unknown_command_or_option_is_named(self):
    for args, reason in ((('frobnicate',), 'unknown command "frobnicate"'), (('--bogus',), 'unknown option "--bogus"'),
                         (('frobnicate', '--bogus'), 'unknown option "--bogus"'), (('-x',), 'unknown option "-x"'),
                         (('show', '--bogus'), 'unknown option "--bogus"'),
                         (('show', '--bogus', 'f'), 'unknown option "--bogus"'),
                         (('show', 'f', 'g'), 'unexpected argument "g"'), ((), 'a command is needed'),
                         (('show',), 'FILE is required')):
      with self.subTest(args=args):
        self.refuse(*args, matches=reason + SEE_HELP)

  def test_an_option_without_a_value_takes_none(self):
    self.write('f', BLANK)
    for word in ('--json=', '--json=true', '--json=1'):
      self.refuse('show', word, 'f', matches='--json takes no value' + SEE_HELP)

  def test_the_value_after_an_equals_sign_is_never_the_next_word(self):
    self.write('f', BLANK)
    self.refuse('check', '--max-size=', '100', matches='--max-size: "" is not a number from 0 to 4294967295' + SEE_HELP)
    self.do('set', 'f', '1', 'text', '--length=9', '--', '--length=')  # after -- it is a text
    self.assertEqual(self.fields(), [(1, b'--length=')])


if __name__ == '__main__':
  programs.main(command_line)
