"""Tests of programs: a *_test.py runs them as their users do, on a command line that it is given.

Usage: FILE_test.py [SUITE.TEST]... -- [EMULATOR [ARG]...] PROGRAM
"""

import os
import sys
import unittest

SKIPPED = 77


def main(command):
  """Puts what stands behind -- into `command`, a list, and runs the tests of the main module that stand before it.

  Exits with 1 when one fails, with 77 when all that was to run was skipped.
  """
  split = sys.argv.index('--')
  command.extend(sys.argv[split + 1:])
  command[-1] = os.path.abspath(command[-1])
  result = unittest.main(argv=sys.argv[:split], verbosity=2, exit=False).result
  if not result.wasSuccessful():
    sys.exit(1)
  if result.testsRun > 0 and len(result.skipped) == result.testsRun:
    sys.exit(SKIPPED)
