# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Documents that tarn-cfg import refuses.

Usage: cfg_json_refused_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import json
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (CfgTest, DOCUMENT, DONE, LARGEST_FILE, WRONG, command_line)
import programs


class JsonRefused(CfgTest):
  def test_import_refuses_what_it_does_not_understand(self):
    text = json.dumps(DOCUMENT)
    self.refuse('import', '-', 'cfg', matches='standard input: at 0x0: not JSON', input='')
    self.refuse('import', '-', 'cfg', matches='standard input: at 0x1: not JSON', input='{]')
    self.refuse('import', '-', 'cfg', matches='standard input: at 0x[0-9a-f]+: not JSON', input=text + 'x')
    self.refuse('import', 'none', 'cfg', matches='none: cannot be opened: No such file or directory')
    self.refuse('import', '-', 'cfg', matches='standard input: document: an object is needed', input='[]')
    for member, value, reason in (
        ('tarn-cfg', 2, 'made by another version'), ('active', 256, '"active": a number from 0 to 255 is needed'),
        ('active', None, 'no "active"'), ('flag', -1, '"flag": .*'), ('version', 1.5, '"version": .*'),
        ('version', '1', '"version": .*'), ('version', 1 << 32, '"version": .*'), ('sealed', 1, '"sealed": true .*'),
        ('sealed', None, 'no "sealed"'), ('fields', {}, '"fields": an array .*'), ('more', 1, 'more members .*'),
    ):
      with self.subTest(member=member, value=value):
        document = {**DOCUMENT, member: value}
        if value is None:
          del document[member]
        self.refuse('import', '-', 'cfg', matches='standard input: document: ' + reason, input=json.dumps(document))
    for field, reason in (
        (1, 'an object is needed'), ({'type': 'char', 'value': 1}, 'no "key"'),
        ({'key': 65536, 'type': 'char', 'value': 1}, '"key": a number from 0 to 65535 is needed'),
        ({'key': '', 'type': 'char', 'value': 1}, '"key": .*'), ({'key': True, 'type': 'char', 'value': 1},
                                                                 '"key": .*'),
        ({'key': -1, 'type': 'char', 'value': 1}, '"key": .*'),
        ({'key': 1, 'type': 'long', 'value': 1}, '"type": char, short, .*'), ({'key': 1, 'type': 1},
                                                                              '"type": a text .*'),
        ({'key': 1, 'type': 'char', 'value': 256}, '"value": a number from 0 to 255 is needed'),
        ({'key': 1, 'type': 'short', 'value': 65536}, '"value": .*'),
        ({'key': 1, 'type': 'char', 'length': 1, 'value': 1}, 'more members .*'),
        ({'key': 1, 'type': 'text', 'value': 'a'}, 'no "length"'),
        ({'key': 1, 'type': 'text', 'length': 0, 'value': ''}, '"length": .*'),
        ({'key': 1, 'type': 'text', 'length': 65536, 'value': ''}, '"length": .*'),
        ({'key': 1, 'type': 'text', 'length': 1, 'value': 'ü'}, '"value": longer than "length"'),
        ({'key': 1, 'type': 'buffer', 'length': 1, 'value': '1'}, '"value": pairs of .*'),
    ):
      with self.subTest(field=field):
        document = {**DOCUMENT, 'fields': [DOCUMENT['fields'][0], field]}
        self.refuse('import', '-', 'cfg', matches='standard input: field 1: ' + reason, input=json.dumps(document))
    for behind, reason in (
        ([], 'an object is needed'), ({}, 'no "size"'), ({'size': 1}, 'no "fill"'),
        ({'size': (64 << 20) + 1, 'fill': 0}, '"size": .*'), ({'size': 1, 'fill': 256}, '"fill": .*'),
        ({'hex': '0'}, '"hex": .*'), ({'hex': '00', 'size': 1}, 'more members .*'),
    ):
      with self.subTest(behind=behind):
        self.refuse('import', '-', 'cfg', matches='standard input: behind: ' + reason,
                    input=json.dumps({**DOCUMENT, 'behind': behind}))
    self.refuse('import', '-', 'cfg', matches='standard input: document: more than 67108864 bytes',
                input=json.dumps({**DOCUMENT, 'behind': {'size': 64 << 20, 'fill': 0}}))
    self.assertEqual(self.names(), [])

  def document(self, *fields, **members):
    return {'tarn-cfg': 1, 'active': 0, 'flag': 0, 'version': 0, 'sealed': True, 'fields': list(fields), **members}

  def import_text(self, text):
    text = text if isinstance(text, (str, bytes)) else json.dumps(text)
    return self.run_program('import', '--force', '-', 'f', input=text.encode() if isinstance(text, str) else text)

  def test_what_is_not_a_document_is_refused(self):
    char = {'key': 1, 'type': 'char', 'value': 1}
    text = {'key': 1, 'type': 'text', 'length': 3, 'value': 'ab'}
    whole = self.document(char)
    wrong = [None, [], 1, {}, {'tarn-cfg': 1}, {**whole, 'tarn-cfg': 2}, {**whole, 'tarn-cfg': '1'},
             {**whole, 'more': 1}]
    wrong += [{k: v for k, v in whole.items() if k != missing} for missing in whole]
    wrong += [{**whole, name: value} for name in ('active', 'flag') for value in (256, -1, 1.0, '1', None, True, [1])]
    wrong += [{**whole, 'version': 2**32}, {**whole, 'sealed': 1}, {**whole, 'sealed': 'yes'}, {**whole, 'fields': {}},
              {**whole, 'fields': [1]}, {**whole, 'fields': None}]
    wrong += [{**whole, 'behind': behind} for behind in (
        None, [], '', {}, {'size': 1}, {'fill': 1}, {'size': -1, 'fill': 0}, {'size': 1, 'fill': 256}, {'hex': '0'},
        {'hex': 'xx'}, {'hex': 1}, {'size': LARGEST_FILE, 'fill': 0}, {'size': 1, 'fill': 0, 'hex': '00'})]
    wrong += [self.document({**char, **change}) for change in (
        {'key': -1}, {'key': 65536}, {'key': 'x'}, {'key': '0x10000'}, {'key': 1.0}, {'key': None}, {'type': 'long'},
        {'type': 1}, {'type': 'raw'}, {'value': 256}, {'value': -1}, {'value': '1'}, {'value': 1.5}, {'value': None},
        {'length': 1}, {'more': 1})]
    wrong += [self.document({**text, **change}) for change in (
        {'length': 0}, {'length': 1}, {'length': 65536}, {'length': '3'}, {'length': -1}, {'value': 1},
        {'value': 'abcd'},
        {'value': 'éé'}, {'type': 'buffer', 'value': 'abcdefab'}, {'type': 'char'}, {'type': 'buffer', 'value': 'a'})]
    wrong += [self.document({k: v for k, v in field.items() if k != missing}) for field in (char,
                                                                                            text) for missing in field]
    bad = [b'', b' ', b'{', b'nul', b'{}{}', b'\xff\xfe', b'[' * 200000, b'{"a":' * 50000,
           json.dumps(whole)[:-1].encode(), json.dumps(whole).encode() + b'\0',
           json.dumps(whole).replace('"active": 0', '"active": 00').encode(),
           json.dumps(self.document(text)).replace('ab', 'a\x01b').encode(),
           json.dumps(self.document(text)).encode().replace(b'ab', b'\xff'),
           json.dumps(whole).replace('}', ',}').encode(), b'// no\n' + json.dumps(whole).encode()]
    self.assertEqual(self.import_text(whole), (DONE, b'', b''))
    before = self.read('f')
    for document in [json.dumps(one).encode() for one in wrong] + bad:
      status, output, errors = self.import_text(document)
      self.assertEqual((status, output), (WRONG, b''), document[:300])
      self.assertRegex(errors, rb'\Atarn-cfg: standard input: [^\n]+\n\Z')
      self.assertEqual(self.files(), {'f': before})

  def test_a_member_that_is_there_twice_is_refused(self):
    # The parser would keep one of the two, and a field or a value of the header would be lost silently.
    char = '{"key": 1, "type": "char", "value": 1}'
    head = '"tarn-cfg": 1, "active": 0, "flag": 0, "version": 0, "sealed": true'
    for text, name in (('{%s, "fields": [%s], "fields": []}' % (head, char), 'fields'),
                       ('{%s, "flag": 1, "fields": []}' % head, 'flag'),
                       ('{%s, "fields": [%s, %s]}' % (head, char, char.replace('1}', '1, "value": 2}')), 'value'),
                       ('{%s, "fields": [], "behind": {"size": 1, "fill": 0, "size": 2}}' % head, 'size')):
      status, output, errors = self.import_text(text)
      self.assertEqual((status, output), (WRONG, b''), text)
      self.assertEqual(errors.decode(), 'tarn-cfg: standard input: "%s" is there twice in one object\n' % name)
    self.assertEqual(self.names(), [])
    self.assertEqual(self.import_text('{%s, "fields": [%s, %s]}' % (head, char, char))[0], DONE)  # two fields, one key
    self.assertEqual(self.fields(), [(1, b'\1'), (1, b'\1')])

  def test_a_number_that_no_double_holds_is_refused(self):
    for text in ('[1e999]', '{"tarn-cfg": -1e400}', '1' + '0' * 400):
      status, output, errors = self.import_text(text)
      self.assertEqual((status, output), (WRONG, b''), errors)
      self.assertRegex(errors.decode(), r'\Atarn-cfg: standard input: at 0x[0-9a-f]+: a number that is too large\n\Z')
    self.assertEqual(self.names(), [])

  def test_nested_without_end(self):
    for text in (b'[' * 300000 + b']' * 300000, b'{"a":' * 100000 + b'1' + b'}' * 100000):
      self.assertEqual(self.import_text(text)[:2], (WRONG, b''))


if __name__ == '__main__':
  programs.main(command_line)
