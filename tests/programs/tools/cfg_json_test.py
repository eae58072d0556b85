# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""tarn-cfg export and import.

Usage: cfg_json_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] TARN-CFG
"""

import json
import os
import random
import stat
import sys

sys.dont_write_bytecode = True
# pylint: disable=wrong-import-position
from cfg_fixture import (BLANK, CfgTest, DOCUMENT, DONE, SAMPLE, built, command_line, records, some_file, taken_apart,
                         unsealed)
import image
import programs


class Json(CfgTest):
  def test_export_is_the_documented_form(self):
    for data, changes in ((SAMPLE, {}), (SAMPLE + b'\xff' * 3, {'behind': {'size': 3, 'fill': 255}}),
                          (SAMPLE + b'ab', {'behind': {'hex': '6162'}}),
                          (SAMPLE[:4] + b'\0\0' + SAMPLE[6:], {'sealed': False})):
      with self.subTest(changes=changes):
        self.write('cfg', data)
        document = json.loads(self.do('export', 'cfg'))
        self.assertEqual(document, {**DOCUMENT, **changes})
        self.write('json', json.dumps(document).encode())
        self.do('import', 'json', 'back', '--force')
        self.assertEqual(self.read('back'), data)

  def test_random_images_come_back_byte_for_byte(self):
    random_ = random.Random(1)
    for number in range(20):
      fields = [(random_.randrange(65536), random_.randbytes(random_.choice((1, 2, 3, 4, 32)))) for _ in range(9)]
      data = image.image(records(*fields), version=number) + random_.choice((b'', b'\xff' * 7, b'more'))
      self.write('cfg', data)
      self.do('import', '-', 'back', '--force', input=self.do('export', 'cfg'))
      self.assertEqual(self.read('back'), data)

  def test_import_takes_what_people_write(self):
    document = {'tarn-cfg': 1, 'active': 0, 'flag': 0, 'version': 0, 'sealed': True, 'fields': [
        {'value': 'ab', 'key': 258, 'type': 'text', 'length': 4},
        {'key': '7', 'type': 'buffer', 'value': '01:02', 'length': 2},
        {'key': '0xFFFF', 'type': 'text', 'value': 'a\0b', 'length': 4}]}
    self.do('import', '-', 'cfg', input=json.dumps(document))
    self.assertEqual(self.read('cfg'), image.image(records((258, b'ab\0\0'), (7, b'\1\2'), (0xFFFF, b'a\0b\0'))))
    self.assertEqual(stat.S_IMODE(os.stat(self.path('cfg')).st_mode), 0o600)

  def test_import_replaces_only_when_told_to_and_measures(self):
    text = json.dumps(DOCUMENT)
    self.write('cfg', image.image(b''))
    os.chmod(self.path('cfg'), 0o604)
    self.refuse('import', '-', 'cfg', matches='cfg: is there; --force replaces it', input=text)
    self.refuse('import', '-', 'cfg', '--force', '--max-size', '48',
                matches='cfg: at 0x30: no room: the image would take 49 bytes, there are 48', input=text)
    self.do('import', '-', 'cfg', '--force', '--max-size', '49', input=text)
    self.assertEqual(self.read('cfg'), SAMPLE)
    self.assertEqual(stat.S_IMODE(os.stat(self.path('cfg')).st_mode), 0o604)

  def document(self, *fields, **members):
    return {'tarn-cfg': 1, 'active': 0, 'flag': 0, 'version': 0, 'sealed': True, 'fields': list(fields), **members}

  def import_text(self, text):
    text = text if isinstance(text, (str, bytes)) else json.dumps(text)
    return self.run_program('import', '--force', '-', 'f', input=text.encode() if isinstance(text, str) else text)

  def test_random_files_come_back_byte_for_byte(self):
    rand = random.Random(8)
    made = []
    for _ in range(120):
      data = some_file(rand)
      self.write('in', data)
      text = self.do('export', 'in').encode()
      self.assertEqual(self.import_text(text), (DONE, b'', b''), text)
      self.assertEqual(self.read('f'), data, text)
      # The layout of a document has no effect.
      self.assertEqual(self.import_text(json.dumps(json.loads(text), sort_keys=True, indent=rand.choice([None, 7]))),
                       (DONE, b'', b''))
      self.assertEqual(self.read('f'), data, text)
      made.append(data)
    self.assertEqual(self.load(*made), [len(taken_apart(data)[0]) for data in made])

  def test_what_a_document_holds(self):
    data = built((1, b'\7'), (0x203, b'\1\0'), (3, b'\0\0\1\0'), (4, b'text\0\0'), (5, b'\xff\0\0'), (6, bytes(3)),
                 active=1, flag=2, version=3)
    fields = [{'key': '0x0001', 'type': 'char', 'value': 7}, {'key': '0x0203', 'type': 'short', 'value': 256},
              {'key': '0x0003', 'type': 'int', 'value': 256},
              {'key': '0x0004', 'type': 'text', 'length': 6, 'value': 'text'},
              {'key': '0x0005', 'type': 'buffer', 'length': 3, 'value': 'ff'},
              {'key': '0x0006', 'type': 'buffer', 'length': 3, 'value': ''}]
    expected = self.document(*fields, active=1, flag=2, version=3)
    for tail, behind in ((b'', None), (b'\xff' * 7, {'size': 7, 'fill': 255}), (b'\xff\0', {'hex': 'ff00'})):
      for seal in (True, False):
        self.write('in', (data if seal else unsealed(data)) + tail)
        self.assertEqual(json.loads(self.do('export', 'in')),
                         {**expected, 'sealed': seal, **({'behind': behind} if behind else {})})

  def test_import_of_files_that_cannot_be_read(self):
    self.write('f', BLANK)
    self.write('json', json.dumps(self.document({'key': 1, 'type': 'int', 'value': 1})).encode())
    self.refuse('import', 'json', 'f', says='f: ')
    self.refuse('import', '--force', '--max-size', '23', 'json', 'f')
    self.refuse('import', '--force', 'missing', 'f', says='missing: ')
    self.do('import', '--force', '--max-size', '24', 'json', 'f')
    self.assertEqual(self.fields(), [(1, b'\0\0\0\1')])
    os.mkdir(self.path('folder'))
    self.refuse('import', 'folder', 'g', says='folder: ')
    self.assertNotIn('g', self.names())


if __name__ == '__main__':
  programs.main(command_line)
