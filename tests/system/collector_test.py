#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Forwards messages to rsyslog and looks for each of them in rsyslog's file.

Usage: collector_test.py RSYSLOG_ROOT LOG_STORM

RSYSLOG_ROOT is a folder with rsyslog's packages unpacked, or / where it is installed. The test runs in a private
network namespace, in which UDP port 514 is free. Exits with 77 if it cannot make a namespace.
"""

import collections
import fcntl
import glob
import os
import socket
import struct
import subprocess
import sys
import tempfile
import time

THREADS, ROUNDS, MESSAGES = 8, 125, 10  # 10000 in all, 80 a round: half of what the smallest receive buffer holds
STORED = {1: 0, 2: 1024}  # records in the ring at the end, by mode

CONFIGURATION = '''
global(workDirectory="{folder}" maxMessageSize="8k" net.enableDNS="off")
module(load="imudp")
template(name="raw" type="string" string="%rawmsg%\\n")
ruleset(name="collect") {{ action(type="omfile" file="{file}" template="raw" flushOnTXEnd="on") }}
input(type="imudp" address="127.0.0.1" port="514" ruleset="collect")
'''


def set_loopback_up():
  siocsifflags, iff_up = 0x8914, 1
  with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
    fcntl.ioctl(sock, siocsifflags, struct.pack('16sH14x', b'lo', iff_up))


def wait_until(condition, what, process):
  """Waits until the condition holds or the process ends; the caller has the hang limit."""
  while not condition():
    if process.poll() is not None:
      sys.exit('collector: ended before %s' % what)
    time.sleep(0.01)


def is_port_bound():
  with open('/proc/net/udp', encoding='ascii') as table:
    return any(row.split()[1].endswith(':%04X' % 514) for row in table.readlines()[1:])


def start_collector(root, folder):
  """Starts rsyslog with the test's configuration; returns the process and the file that it writes."""
  file, configuration = os.path.join(folder, 'collected'), os.path.join(folder, 'rsyslog.conf')
  with open(configuration, 'w', encoding='ascii') as text:
    text.write(CONFIGURATION.format(folder=folder, file=file))
  libraries = glob.glob(os.path.join(root, 'usr/lib/*-linux-gnu')) + glob.glob(os.path.join(root, 'lib/*-linux-gnu'))
  modules = glob.glob(os.path.join(root, 'usr/lib/*-linux-gnu/rsyslog'))
  environment = {**os.environ, 'LD_LIBRARY_PATH': ':'.join(libraries)}
  # pylint: disable=consider-using-with
  collector = subprocess.Popen([os.path.join(root, 'usr/sbin/rsyslogd'), '-n', '-C', '-f', configuration, '-i',
                                os.path.join(folder, 'pid'), '-M', modules[0]], env=environment)
  wait_until(is_port_bound, 'it took port 514', collector)
  open(file, 'a', encoding='ascii').close()
  return collector, file


def count_lines(file):
  with open(file, 'rb') as text:
    return text.read().count(b'\n')


def run_mode(mode, storm, collector, file):
  """Forwards everything in this mode; returns the faults."""
  before = count_lines(file)
  with subprocess.Popen([storm, str(mode), str(THREADS), str(ROUNDS), str(MESSAGES)], stdin=subprocess.PIPE,
                        stdout=subprocess.PIPE, text=True, bufsize=1) as sender:
    for _ in range(ROUNDS):
      sent = int(sender.stdout.readline().split()[1])
      # If messages are lost, this waits until the hang limit.
      wait_until(lambda: count_lines(file) >= before + sent, '%d of %d messages had arrived' % (sent, sent), collector)
      sender.stdin.write('\n')
    stored = int(sender.stdout.readline().split()[1])
    sender.wait()
  with open(file, encoding='ascii') as text:
    lines = text.read().split('\n')[before:-1]
  faults = []
  if sender.returncode != 0:
    faults.append('the sender ended with %d' % sender.returncode)
  if stored != STORED[mode]:
    faults.append('%d records stored, not %d' % (stored, STORED[mode]))
  numbers = collections.defaultdict(list)
  for line in lines:
    thread, number, filler = line.split(' ')
    numbers[int(thread)].append(int(number))
    if filler != 'x' * ((int(thread) * 31 + int(number) * 7) % (512 - 13)):
      faults.append('changed on its way: ' + line)
  for thread in range(THREADS):
    if numbers[thread] != list(range(ROUNDS * MESSAGES)):  # each once, in order
      faults.append('thread %d: %d messages, lost, doubled or out of order' % (thread, len(numbers[thread])))
  print('mode %d: %d messages from %d threads sent, %d collected, %d faults'
        % (mode, THREADS * ROUNDS * MESSAGES, THREADS, len(lines), len(faults)))
  return faults


def run(root, storm):
  set_loopback_up()
  with tempfile.TemporaryDirectory(prefix='collector-') as folder:
    collector, file = start_collector(root, folder)
    try:
      faults = [fault for mode in (1, 2) for fault in run_mode(mode, storm, collector, file)]
    finally:
      collector.terminate()
      collector.wait()
  print('\n'.join(faults[:20]))
  return 1 if faults else 0


def main():
  root, storm = (os.path.abspath(path) for path in sys.argv[1:3])
  if 'inside' in sys.argv:
    return run(root, storm)
  unshare = ['unshare', '--net'] if os.geteuid() == 0 else ['unshare', '--map-root-user', '--net']
  probe = subprocess.run([*unshare, 'true'], capture_output=True, text=True, check=False)
  if probe.returncode != 0:
    print('skipped: no network namespace can be made: ' + probe.stderr.strip())
    return 77
  return subprocess.run([*unshare, sys.executable, __file__, root, storm, 'inside'], check=False).returncode


if __name__ == '__main__':
  sys.exit(main())
