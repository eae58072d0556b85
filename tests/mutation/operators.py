# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""The changes that the mutation tool makes: each mutant is one change of one line of a source file.

A mutant is identified by its change and not by a line number, so a list of mutants outlives edits of comments and of
other lines. Its parts are the file, the line's code without indentation, the index among equal lines of the file, the
column, and the operator.
"""

import collections
import dataclasses
import re

Key = collections.namedtuple('Key', 'file code occurrence column operator')


@dataclasses.dataclass(frozen=True)
class Mutant:
  key: Key
  line: int  # counted from 0
  before: str
  after: str

  def describe(self):
    return '%s:%d: %s: %s  =>  %s' % (self.key.file, self.line + 1, self.key.operator, self.before.strip(),
                                      self.after.strip() or '(nothing)')


# Comments, and the contents of strings and characters. Masked text keeps its length.
MASKED = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)


def mask(text):
  def blank(match):
    piece = match[0]
    if piece[0] == '/':
      return re.sub(r'[^\n]', ' ', piece)
    return piece[0] + '_' * (len(piece) - 2) + piece[-1]
  return MASKED.sub(blank, text)


SWAPS = {
    'relational': {'<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '=='},
    'logical': {'&&': '||', '||': '&&'},
    'arithmetic': {'+': '-', '-': '+', '+=': '-=', '-=': '+='},
}
# clang-format puts blanks around binary operators, and none around the brackets of templates.
BINARY = re.compile(r'(?<= )(<=|>=|==|!=|<|>|&&|\|\||\+=|-=|\+|-)(?= )')
NUMBER = re.compile(r'(?<![\w.])(0x[0-9a-fA-F]+|[0-9]+)(?=[uU]?\b)(?![\w]*[.])')
CONDITION = re.compile(r'\b(?:if|while) \(')
LOCK = re.compile(r'^\s*Scoped\w+ \w+\(.*\);\s*$')
NOT_A_STATEMENT = re.compile(r'^(return|break|continue|using|constexpr|static|extern|const|namespace|typedef|case|default'
                             r'|goto|if|else|for|while|do|struct|class|enum|template|public|private|inline|friend|union)\b')
SKIPPED_LINE = re.compile(r'^\s*(#|static_assert|asm|__asm)|[(]offsetof|sizeof\([^)]*\) ==')


def closing(code, opening):
  """The position of the bracket that closes the one at `opening`; None when it is on another line."""
  depth = 0
  for position in range(opening, len(code)):
    depth += {'(': 1, ')': -1}.get(code[position], 0)
    if depth == 0:
      return position
  return None


def successor(number):
  base = 16 if number.startswith('0x') else 8 if number.startswith('0') else 10
  return str(int(number, base) + 1)


def changes(code):
  """Yields (column, operator, length of what is replaced, replacement) for a line of masked code."""
  if SKIPPED_LINE.search(code):
    return
  if LOCK.match(code):
    yield len(code) - len(code.lstrip()), 'lock', len(code.strip()), ''
    return
  for match in BINARY.finditer(code):
    for operator, swaps in SWAPS.items():
      if match[1] in swaps:
        yield match.start(), operator, len(match[1]), swaps[match[1]]
  for match in NUMBER.finditer(code):
    yield match.start(), 'constant', len(match[1]), successor(match[1])
  for match in CONDITION.finditer(code):
    opening = match.end() - 1
    end = closing(code, opening)
    if end is None:
      continue
    yield opening, 'condition', end + 1 - opening, None  # negates the existing condition
    rest = code[end + 1:].strip()
    if rest.endswith(';'):
      yield code.index(rest, end), 'statement', len(rest), '{}'
  stripped = code.strip()
  if stripped.endswith(';') and not NOT_A_STATEMENT.match(stripped) and stripped.count('(') == stripped.count(')') \
      and re.match(r'[\w*(+\-]', stripped) and re.search(r'[(=]|\+\+|--', stripped):
    yield code.index(stripped), 'statement', len(stripped), ''


def mutants_of(root, path):
  """Every mutant of a source file, in the order of the file."""
  name = str(path.relative_to(root))
  text = path.read_text()
  lines = text.split('\n')
  seen = collections.Counter()
  for number, code in enumerate(mask(text).split('\n')):
    stripped = code.strip()
    occurrence = seen[stripped]
    seen[stripped] += 1
    indent = len(code) - len(code.lstrip())
    for column, operator, length, replacement in changes(code):
      line = lines[number]
      old = line[column:column + length]
      new = '(!%s)' % old if replacement is None else replacement
      yield Mutant(Key(name, stripped, occurrence, column - indent, operator), number, line,
                   line[:column] + new + line[column + length:])
