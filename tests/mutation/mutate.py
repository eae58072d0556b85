#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Changes the library, one place at a time, and checks whether its tests notice.

    mutate.py FOLDER... [--count N] [--seed S] [--tests BUILD] [--results FILE] [--again FILE]

FOLDER names subsystems, as the folders of src/. For each, N mutants are drawn with the seed from all that operators.py
makes. A mutant is built as the library ships, and the subsystem's test program of the build folder BUILD (build/release
unless given) runs against it. It is killed when a test fails, ends the process or hangs. A change that does not compile,
or results in the same library after strip, is not a mutant: another one is drawn.

    mutate.py --deliberate

Tries the changes of deliberate.txt: each reverses a behaviour that is marked Deliberate in src/. A mark without a
change, and a change that no test notices, are faults.

The table has a line for each mutant. --results saves them as JSON, and --again runs the mutants of such a file instead
of drawing new ones; it fails when a mutant survives that the file lists as killed. The sources themselves are not
changed: the library is built from a copy, in build/mutation.
"""

import argparse
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import operators  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
HANG_LIMIT_S = 30
SHARDS = 2  # processes that share a program's tests


class Workshop:
  """A copy of the library's sources, and its build."""

  def __init__(self, root, folder):
    self.source = folder / 'source'
    self.build = folder / 'build'
    self.stripped = folder / 'stripped.so'
    shutil.rmtree(self.source, ignore_errors=True)
    for part in ('include', 'src', 'cmake'):
      # As new files: files of an earlier mutant in the build folder are older.
      shutil.copytree(root / part, self.source / part, copy_function=shutil.copyfile)
    shutil.copy(root / 'CMakeLists.txt', self.source)
    (self.source / 'README.md').write_text('')
    subprocess.run(['cmake', '-S', self.source, '-B', self.build, '-G', 'Ninja', '-DCMAKE_BUILD_TYPE=RelWithDebInfo',
                    '-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG'], check=True, stdout=subprocess.DEVNULL)
    if self.make() is None:
      sys.exit('mutate: the library does not build')
    self.original = self.make()

  def make(self):
    """The stripped library's bytes; None when it does not build."""
    made = subprocess.run(['ninja', '-C', self.build, 'tarn'], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if made.returncode != 0:
      return None
    subprocess.run(['strip', '--strip-all', '-R', '.note.gnu.build-id', '-o', self.stripped, self.build / 'libtarn.so'],
                   check=True)
    return self.stripped.read_bytes()

  def apply(self, mutant):
    """Builds the mutant; False when the change does not result in a mutant."""
    lines = (self.source / mutant.key.file).read_text().split('\n')
    lines[mutant.line] = mutant.after
    return self.build_with(mutant.key.file, '\n'.join(lines))

  def build_with(self, file, text):
    """Builds with another text of one file; False when it does not compile or makes no difference."""
    path = self.source / file
    original = path.read_text()
    path.write_text(text)
    made = self.make()
    path.write_text(original)
    return made is not None and made != self.original


def failure(results):
  """The first test that did not pass in the results so far; None when there is none."""
  if not results.exists():
    return None
  for line in results.read_text(errors='replace').split('\n')[:-1]:
    words = line.split()
    if words and words[0] == 'failed':
      return '%s (%s)' % (words[1], ' '.join(words[3:]))
  return None


def run_tests(program, library, folder):
  """The name and the end of the test that killed the mutant; None when all tests passed."""
  children = []
  for shard in range(SHARDS):
    results = folder / ('results-%d' % shard)
    results.unlink(missing_ok=True)
    environment = dict(os.environ, LD_LIBRARY_PATH=str(library), TARN_TEST_FORK=str(results),
                       TARN_TEST_SHARD='%d/%d' % (shard, SHARDS), TARN_TEST_HANG_LIMIT_S=str(HANG_LIMIT_S))
    child = subprocess.Popen([program], env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                             stdin=subprocess.DEVNULL, start_new_session=True)
    children.append((child, results))
  killer = None
  waiting = list(children)
  while waiting and killer is None:
    time.sleep(0.02)
    for child, results in list(waiting):
      ended = child.poll() is not None
      killer = killer or failure(results)
      if ended:
        waiting.remove((child, results))
        if killer is None and (child.returncode != 0 or not results.exists()):
          killer = 'the program itself (status %d)' % child.returncode
  for child, _ in children:
    try:
      os.killpg(child.pid, signal.SIGKILL)
    except ProcessLookupError:
      pass
    child.wait()
  return killer


def all_mutants(folder):
  paths = sorted((ROOT / 'src' / folder).glob('*.cpp')) + sorted((ROOT / 'src' / folder).glob('*.h'))
  # Code of another processor is not built here.
  machine = os.uname().machine
  other = {'x86_64': 'arm', 'aarch64': 'x86'}.get(machine)
  return [mutant for path in paths if path.stem != other for mutant in operators.mutants_of(ROOT, path)]


def chosen(folder, options):
  """Pairs of a mutant and the test that killed it before."""
  mutants = all_mutants(folder)
  if not options.again:
    random.Random('%s %s' % (options.seed, folder)).shuffle(mutants)
    return [(mutant, None) for mutant in mutants]
  by_key = {mutant.key: mutant for mutant in mutants}
  pairs = []
  for record in json.loads(pathlib.Path(options.again).read_text()):
    key = operators.Key(*record['key'])
    if key.file.split('/')[1] != folder:
      continue
    if key not in by_key:
      print('gone: %s: %s' % (key.file, key.code))
      continue
    pairs.append((by_key[key], record['killer']))
  return pairs


class Flip:
  """A change of deliberate.txt: a line with the file, then the old lines after "-" and the new ones after "+"."""

  def __init__(self, block):
    self.file, *lines = block.split('\n')
    self.old = '\n'.join(line[1:] for line in lines if line.startswith('-'))
    self.new = '\n'.join(line[1:] for line in lines if line.startswith('+'))
    self.text = (ROOT / self.file).read_text()
    self.position = self.text.find(self.old)

  def fault(self, workshop, options, work):
    """The reason why the change proves nothing; None when a test notices it."""
    if self.text.count(self.old) != 1:
      return 'the old lines are %d times in the file' % self.text.count(self.old)
    if not workshop.build_with(self.file, self.text.replace(self.old, self.new)):
      return 'does not compile, or makes no difference'
    program = pathlib.Path(options.tests).resolve() / 'tests' / ('%s_test' % self.file.split('/')[1])
    self.killer = run_tests(program, workshop.build, work)
    return None if self.killer else 'no test notices'


def mark_faults(flips):
  """Deliberate marks that name no test, or have no change before the next mark of their file."""
  for path in sorted((ROOT / 'src').rglob('*')):
    if path.suffix not in ('.cpp', '.h'):
      continue
    text, file = path.read_text(), str(path.relative_to(ROOT))
    starts = [match.start() for match in re.finditer(r'Deliberate[:,]', text)]
    for start, end in zip(starts, starts[1:] + [len(text)]):
      where = '%s:%d' % (file, text.count('\n', 0, start) + 1)
      if not any(flip.file == file and start < flip.position < end for flip in flips):
        yield where + ': no change in deliberate.txt'
      comment = re.match(r'.*(?:\n\s*//.*)*', text[start:])[0]
      if not re.search(r'Held by (?:the tests )?\w+\.[\w*]+', re.sub(r'\n\s*//', '', comment)):
        yield where + ': names no test'


def flip_deliberate(workshop, options, work):
  table = (pathlib.Path(__file__).resolve().parent / 'deliberate.txt').read_text()
  blocks = re.split(r'\n{2,}', re.sub(r'^#.*\n', '', table, flags=re.MULTILINE).strip())
  flips = [Flip(block) for block in blocks]
  faults = list(mark_faults(flips))
  for flip in flips:
    fault = flip.fault(workshop, options, work)
    print('%s: %s: %s' % (flip.file, flip.old.strip(), fault or 'noticed by ' + flip.killer), flush=True)
    if fault:
      faults.append('%s: %s: %s' % (flip.file, flip.old.strip(), fault))
  print('\n'.join(['%d changes, %d faults' % (len(flips), len(faults)), *faults]))
  return 1 if faults else 0


def main():
  parser = argparse.ArgumentParser()
  parser.add_argument('folders', nargs='*')
  parser.add_argument('--deliberate', action='store_true')
  parser.add_argument('--count', type=int, default=25)
  parser.add_argument('--seed', type=int, default=1)
  parser.add_argument('--tests', default=str(ROOT / 'build/release'))
  parser.add_argument('--results')
  parser.add_argument('--again')
  parser.add_argument('--work', default=str(ROOT / 'build/mutation'))
  options = parser.parse_args()
  work = pathlib.Path(options.work).resolve()
  work.mkdir(parents=True, exist_ok=True)
  workshop = Workshop(ROOT, work)
  if options.deliberate:
    return flip_deliberate(workshop, options, work)
  records, lost, score = [], 0, {}
  for folder in options.folders:
    program = pathlib.Path(options.tests).resolve() / 'tests' / ('%s_test' % folder)
    if workshop.make() != workshop.original:
      sys.exit('mutate: the library differs from the one at the start')
    killer = run_tests(program, workshop.build, work)
    if killer:
      sys.exit('mutate: %s: the tests fail without any change: %s' % (folder, killer))
    count = killed = 0
    for mutant, before in chosen(folder, options):
      if count == options.count and not options.again:
        break
      if not workshop.apply(mutant):
        continue
      count += 1
      killer = run_tests(program, workshop.build, work)
      killed += killer is not None
      lost += before is not None and killer is None
      print('%-8s %s%s' % ('killed' if killer else 'SURVIVED', mutant.describe(), '  by ' + killer if killer else ''),
            flush=True)
      records.append({'key': list(mutant.key), 'line': mutant.line + 1, 'change': mutant.after.strip(), 'killer': killer})
      if options.results:
        pathlib.Path(options.results).write_text(json.dumps(records, indent=1) + '\n')
    score[folder] = '%s: %d of %d mutants killed' % (folder, killed, count)
    print(score[folder], flush=True)
  print('\n'.join(score.values()))
  if lost:
    print('%d that were killed before survive' % lost)
  return 1 if lost else 0


if __name__ == '__main__':
  sys.exit(main())
