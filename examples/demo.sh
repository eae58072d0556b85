#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# A demonstration of about twenty seconds: gatewayd under tarn-sim, which simulates the platform's drivers.
#
# Usage: demo.sh BUILD_DIR [--keep]
#
# Builds nothing; all its files are in BUILD_DIR/demo, which it empties first. Each step waits for its effect, and the
# demo fails if there is none. With --keep the last gatewayd runs until it is interrupted.
set -euo pipefail

readonly patience_s=60 # for an emulated processor on a busy machine; usually all is there at once
build=$(cd "${1:?usage: demo.sh BUILD_DIR [--keep]}" && pwd)
readonly build keep=${2-}
readonly gatewayd=$build/examples/gatewayd/gatewayd
readonly sim=$build/sim/tarn-sim
readonly tools=$build/tools
readonly emulator_file=$build/examples/demo/emulator # empty where the build runs as it is
day=$(dirname "${BASH_SOURCE[0]}")/demo/day.sim
day=$(realpath "$day")
readonly day
readonly folder=$build/demo
readonly image=gatewayd.cfg # this and the names below are in $folder
readonly collected=root/collector.log
readonly log=root/overlay/mu_log.txt
readonly collector=192.0.2.1 # a documentation address: nobody's (RFC 5737)

for needed in "$gatewayd" "$sim" "$tools"/tarn-{cfg,log,event} "$emulator_file" "$day"; do
  if [[ ! -e $needed ]]; then
    printf 'demo: %s is missing: build with examples, sim and tools first\n' "$needed" >&2
    exit 1
  fi
done
if [[ -n $keep && $keep != --keep ]]; then
  printf 'usage: demo.sh BUILD_DIR [--keep]\n' >&2
  exit 2
fi
read -ra emulator <"$emulator_file" || true

simulation='' # the process of tarn-sim
output=''

say() { printf '%s\n' "$*"; }
step() {
  if [[ -t 1 ]]; then sleep 1.5; fi # time to read
  printf '\n%s\n' "$*"
}
quote() { sed 's/\r//; s/^/      | /'; }
file_size() { stat -c %s "$1"; }

fail() {
  printf '\ndemo: FAILED: %s\ndemo: see the files in %s\n' "$*" "$folder" >&2
  exit 1
}

# Ends only the processes that this script started. tarn-sim ends its daemon.
clean_up() {
  if [[ -n $simulation ]] && kill "$simulation" 2>/dev/null; then wait "$simulation" 2>/dev/null || true; fi
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# wait_for DESCRIPTION COMMAND...: waits until the command succeeds; if a simulation runs, at most until it ends.
wait_for() {
  local what=$1 end=$((SECONDS + patience_s))
  shift
  until "$@"; do
    if [[ -n $simulation ]] && ! kill -0 "$simulation" 2>/dev/null; then
      tail -n 5 "$output" sim.txt | quote >&2
      fail "gatewayd ended while we waited for $what"
    fi
    ((SECONDS < end)) || fail "no trace of $what"
    sleep 0.1
  done
}

tool() { "${emulator[@]}" "$tools/$1" "${@:2}"; }
event() { tool tarn-event --root=root "$@"; }

# start OUTPUT SCRIPT OPTION...: runs gatewayd under tarn-sim. Standard output goes to the file OUTPUT, the messages
# of tarn-sim to sim.txt. The script may be empty.
start() {
  output=$1
  local script=()
  if [[ -n $2 ]]; then script=(--script "$2"); fi
  shift 2
  : >"$output"
  # A sanitized build refuses a library that is preloaded before the address sanitizer's.
  ASAN_OPTIONS=verify_asan_link_order=0${ASAN_OPTIONS:+:$ASAN_OPTIONS} \
    "${emulator[@]}" "$sim" --root root "${script[@]}" --verbose -- \
    "${emulator[@]}" "$gatewayd" --config $image "$@" >"$output" 2>>sim.txt &
  simulation=$!
}

# stop: ends gatewayd, which must exit with success.
stop() {
  local status=0
  event stop
  wait "$simulation" || status=$?
  simulation=
  ((status == 0)) || fail "gatewayd ended with status $status; see $folder/$output and sim.txt"
}

has() { grep -qE -- "$2" "$1"; }
has_output() { has "$output" "$1"; }
has_collected() { has $collected "$1"; }
show() { grep -E -- "$2" "$1" | head -n "${3:-1}" | quote; }

# has_state REGEX: whether tarn-event shows such a line.
has_state() { event status 2>/dev/null | grep -qE -- "$1"; }
show_state() { event status | grep -E -- "$1" | quote; }

rm -rf "$folder"
mkdir -p "$folder/root"
cd "$folder"

# ---- The demo --------------------------------------------------------------------------------------------------------

say "gatewayd, a small daemon on tarn, under tarn-sim, which plays the drivers of its gateway from examples/demo/day.sim."

step "1. It starts without a configuration. It makes one, with the address of a log collector in it."
start first-run.txt "$day" --set-collector $collector
wait_for "the first start" has_output 'started, boot count 1\b'
show "$output" 'first start'
show "$output" 'started, boot count'
wait_for "the image" test -s $image
say "   Its fields are in one checksummed image of $(file_size $image) bytes; tarn-cfg shows it:"
tool tarn-cfg show $image | grep -E '^(checksum|offset|0x)' | quote
tool tarn-cfg check $image >check.txt || fail "the image is not sound; see $folder/check.txt"

step "2. The driver of the switch reports its ports: events of the kernel, for the subscribers of gatewayd."
wait_for "the first link" has_output 'device 1: link up'
wait_for "the link of port 3 that comes back" has_state '^1 +link-up +3 '
wait_for "the link that is lost" has_output 'device 3: link down'
show "$output" 'device [13]: link' 4

step "3. The driver logs, too, in the kernel's log. What it frames for a log module, the bridge brings into the log."
wait_for "the driver's message at the collector" has_collected 'port 3: signal lost'
wait_for "the driver's first message at the collector" has_collected 'port 3 is up'
! has_collected 'belongs to no module' || fail "a line that belongs to no module is in the log"
say "   Not shown by gatewayd, but kept; and the collector at $collector has them:"
show $collected 'port 3' 3

step "4. A storm breaks loose, 50 events a second. gatewayd has asked for three in five seconds, and no more reach it."
wait_for "the suppression" has_state '^3 +traffic +[0-9]+ +(suppressed|open) +[1-9]'
show_state '^Type|^[123] .*(-|ms)$'
wait_for "all of the storm" has_state '^script .* 0 to come'
say ""
say "   It is over, and so is the suppression, at the end of the five seconds."
wait_for "the release" has_state '^3 +traffic +[0-9]+ +open'
show_state '^Type|^3 .*ms$'
wait_for "the storm's first events at the collector" has_collected 'device 2: traffic'

step "5. An engineer wants details. A debugging message of the driver does not get past it, until SIGUSR1 lets it."
event kmsg 5 8 "port 3: details that nobody asked for"
wait_for "a message that is withheld" has_state '^kernel log .* 1 withheld'
kill -s USR1 "$(event status --json | sed 's/.*"pid":\([0-9]*\).*/\1/')"
wait_for "the new level" has_output 'debugging messages are kept'
wait_for "the new level at the driver" has_state '^5 +log +Notice +Debug'
show_state '^Module|^5 +log'
event kmsg 5 8 "port 3: autonegotiation done, 1000 Mbit/s"
wait_for "the driver's debugging message at the collector" has_collected 'autonegotiation'
! has_collected 'nobody asked for' || fail "a message that was withheld has come"
show $collected 'port 3: auto'

step "6. SIGTERM ends it in order. It prints its timers, and the driver its table of events."
stop
has_output 'ends, SIGTERM' || fail "it did not end in order"
has_output '^[0-9]+ +[0-9]+ +[0-9]+ +[0-9]+ +OneShot' || fail "no one-shot timer in the table"
show "$output" '^No\. Id\.|Circle|OneShot' 9
has_output '^3 +[0-9]+ +Enable +No +[0-9]+ +3 +100' || fail "no storm in the driver's table"
show "$output" '^Type |^[123] +[0-9]+ +(Dis|En)able' 4
say "   The log is in a file, $(file_size $log) bytes; tarn-log shows it:"
tool tarn-log --module switch --module uplink --grep 'port 3' --grep 'link ' $log >records.txt
has records.txt 'Debug +switch: port 3: autonegotiation' || fail "the driver's message is not in the file"
show records.txt '.' 6

step "7. It starts again. The configuration is still there, and so is the log of the first run."
start second-run.txt ''
wait_for "the second start" has_output 'started, boot count 2\b'
wait_for "the second start at the collector" has_collected 'started, boot count 2\b'
show "$output" 'started, boot count'
say "   and at the collector, whose address is in the image:"
show $collected 'started, boot count 2'
stop
has_output '^\[[0-9/:-]+\]-\[Notice\]main: .*started, boot count 1' || fail "the first run's log is lost"
has_output '^\[[0-9/:-]+\]-\[Debug\]switch: port 3: autonegotiation' || fail "the driver's message is lost"
say "   What it had read from the file:"
show "$output" '^\[[0-9/:-]+\]-\[Notice\]main: .*started, boot count|switch: port 3: auto' 3

step "8. Somebody damages one byte of the image. gatewayd puts the damaged file aside and starts with defaults."
printf '!' | dd of=$image bs=1 seek=22 conv=notrunc status=none # in the host name, which holds no '!'
cp $image damaged.cfg
! tool tarn-cfg check $image >check.txt 2>&1 || fail "the damage is not seen"
quote <check.txt
start third-run.txt ''
wait_for "the start with defaults" has_output 'started, boot count 1\b'
show "$output" 'CRC|damaged|started, boot count' 3
stop
has_output "Startup-cfg CRC doesn't match" || fail "the damage was not reported"
cmp -s $image.bad damaged.cfg || fail "the damaged file was not kept as $image.bad"

step "9. Nothing is lost: tarn-cfg seals the damaged image anew, and the host's name is set right."
cp $image.bad mended.cfg
{
  tool tarn-cfg repair mended.cfg
  tool tarn-cfg set mended.cfg 0x0101 text gateway
  tool tarn-cfg check mended.cfg
} >repair.txt 2>&1 || fail "the repair failed; see $folder/repair.txt"
quote <repair.txt
mv mended.cfg $image
start fourth-run.txt ''
wait_for "the start with the mended image" has_output 'gateway: started, boot count 3\b'
wait_for "its start at the collector" has_collected 'started, boot count 3\b'
show "$output" 'started, boot count'
if [[ -z $keep ]]; then stop; fi

step "All of it happened. The whole log by level and module:"
tool tarn-log --count root/overlay/mu_log.txt root/overlay/user_log.txt | quote
say "The files are in $folder:"
say "   gatewayd.cfg        the configuration image; gatewayd.cfg.bad is the damaged one"
say "   *-run.txt           what gatewayd and the driver's console printed in each run; sim.txt what tarn-sim says"
say "   root/collector.log  what the collector received"
say "   root/overlay        mu_log.txt and user_log.txt, the log's files"

quoted() { printf '%q' "$1"; } # as a shell takes it back
show_runs() { # the commands as a user types them
  local command
  for command in "$@"; do say "   ${emulator[*]:+${emulator[*]} }$command"; done
}

if [[ -n $keep ]]; then
  step "It goes on until you interrupt it. Try, in another terminal:"
  client="$(quoted "$tools/tarn-event") --root=$(quoted "$folder/root")"
  show_runs "$client watch" "$client send link-down --port=3" "$client storm traffic --times=500 --every=20ms" \
    "$client kmsg 5 4 'port 3: signal lost'" \
    "$(quoted "$tools/tarn-log") -f $(quoted "$folder/root/overlay/mu_log.txt")" \
    "tail -f $(quoted "$folder/$output") $(quoted "$folder/$collected")"
  status=0
  wait "$simulation" || status=$?
  simulation=
  exit "$status"
fi
step "Try next:"
show_runs "$(quoted "$tools/tarn-cfg") show $(quoted "$folder/$image")" \
  "$(quoted "$tools/tarn-log") --level=notice $(quoted "$folder/root/overlay/mu_log.txt")" "$(quoted "$sim") --help"
say "   ./dev demo --keep   # gatewayd goes on, for you to play with by tarn-event"
say "   and read examples/gatewayd/gatewayd.c and examples/demo/day.sim."
