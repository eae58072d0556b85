#!/usr/bin/env bash
# Shows tarn at work: gatewayd on the desktop shim, with a log collector, a restart and a damaged configuration.
#
# Usage: demo.sh BUILD_DIR
#
# Builds nothing; everything that it makes is in BUILD_DIR/demo, which it empties first. Each step waits for the trace of
# what it shows, and the demo fails if that does not come.
set -euo pipefail

readonly patience_s=60 # for an emulated processor on a busy machine; usually all is there at once
build=$(cd "${1:?usage: demo.sh BUILD_DIR}" && pwd)
readonly build
readonly gatewayd=$build/examples/gatewayd/gatewayd
readonly collector=$build/examples/demo/collector
readonly shim=$build/sim/tarn-sim-shim.so
readonly folder=$build/demo
readonly image=gatewayd.cfg # this and the names below are in $folder
readonly collected=collected.txt
readonly log=root/overlay/mu_log.txt
readonly emulator_file=$build/examples/demo/emulator # empty where the build runs as it is

for needed in "$gatewayd" "$collector" "$shim" "$emulator_file"; do
  if [[ ! -e $needed ]]; then
    printf 'demo: %s is missing: build with examples and sim first\n' "$needed" >&2
    exit 1
  fi
done
read -ra emulator <"$emulator_file" || true

daemon=''
collector_process=''

say() { printf '%s\n' "$*"; }
step() { printf '\n%s\n' "$*"; }
quote() { sed 's/\r//; s/^/      | /'; }
file_size() { stat -c %s "$1"; }

fail() {
  printf '\ndemo: FAILED: %s\ndemo: see the files in %s\n' "$*" "$folder" >&2
  exit 1
}

# Ends what this script started, and nothing else.
clean_up() {
  for process in $daemon $collector_process; do
    if kill "$process" 2>/dev/null; then wait "$process" 2>/dev/null || true; fi
  done
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# wait_for DESCRIPTION COMMAND...: until the command succeeds; with a daemon running, as long as it does.
wait_for() {
  local what=$1 end=$((SECONDS + patience_s))
  shift
  until "$@"; do
    if [[ -n $daemon ]] && ! kill -0 "$daemon" 2>/dev/null; then
      tail -n 5 "$output" | quote >&2
      fail "gatewayd ended while we waited for $what"
    fi
    ((SECONDS < end)) || fail "no trace of $what"
    sleep 0.1
  done
}

# start OUTPUT OPTION...: gatewayd on the shim, its output in the file OUTPUT.
start() {
  output=$1
  shift
  : >"$output"
  local run=(env "LD_PRELOAD=$shim" "$gatewayd")
  if ((${#emulator[@]} > 0)); then run=("${emulator[@]}" -E "LD_PRELOAD=$shim" "$gatewayd"); fi
  # A preloaded library comes before the address sanitizer's, which a sanitized build would refuse.
  TARN_SIM_ROOT=$folder/root TARN_SIM_COLLECTOR_PORT=$port \
    ASAN_OPTIONS=verify_asan_link_order=0${ASAN_OPTIONS:+:$ASAN_OPTIONS} \
    "${run[@]}" --config $image "$@" >"$output" 2>&1 &
  daemon=$!
}

# stop SIGNAL: ends gatewayd, which must end in order.
stop() {
  local status=0
  kill -s "$1" "$daemon"
  wait "$daemon" || status=$?
  daemon=
  ((status == 0)) || fail "gatewayd ended with status $status; see $folder/$output"
}

has() { grep -qE -- "$2" "$1"; }
has_output() { has "$output" "$1"; }
has_collected() { has $collected "$1"; }
show() { grep -E -- "$2" "$1" | head -n "${3:-1}" | quote; }

# Whether the uplink checks have seen so many bytes.
has_seen_bytes() { awk -v least="$1" '/: [0-9]+ bytes received/ {sum += $(NF - 2)} END {exit sum < least}' "$output"; }

rm -rf "$folder"
mkdir -p "$folder/root/overlay" "$folder/root/proc" "$folder/root/dev"
cd "$folder"
: >root/proc/kmsg
: >root/dev/mulog-ioctl-dev

# ---- The demo --------------------------------------------------------------------------------------------------------

say "gatewayd, a small daemon on tarn, with stand-ins for what a gateway has."

step "1. A log collector starts on a free UDP port."
: >$collected
"${emulator[@]}" "$collector" >$collected &
collector_process=$!
wait_for "the collector's port" has_collected '^port [0-9]+$'
port=$(awk 'NR == 1 {print $2}' $collected)
say "   It listens on 127.0.0.1:$port and stands in for the one on port 514."

step "2. gatewayd starts without a configuration. It makes one, with a log collector in it."
start first-run.txt --set-collector 127.0.0.1
wait_for "the first start" has_output 'started, boot count 1\b'
show "$output" 'first start'
show "$output" 'started, boot count'
say "   Its fields are in one checksummed image of $(file_size $image) bytes."

step "3. It looks at the traffic of the interface lo each second, from a timer. Here is some: 50 datagrams."
wait_for "the first look at lo" has_output ' lo: [1-9][0-9]* checks'
for _ in {1..50}; do printf '%01000d' 0 >/dev/udp/127.0.0.1/9; done
wait_for "50000 bytes on lo" has_seen_bytes 50000
show "$output" 'lo: [0-9]+ bytes received' 3

step "4. The same messages reach the collector, which also causes traffic; so do messages not shown above."
wait_for "a message about lo at the collector" has_collected '^lo: [0-9]+ bytes received'
wait_for "the memory report at the collector" has_collected '^[0-9]+ KiB free'
wait_for "statistics at the collector" has_collected '^lo: [0-9]+ checks, [1-9][0-9]* with traffic'
show $collected '^(lo:|[0-9]+ KiB)' 5

step "5. A kernel driver logs, in a frame that names the log module and the level; the bridge brings it in."
printf '<6>[ 12.345678] <jxlog-05:6:port 3 is up<jxlog>\n<6>[ 12.5] a line of another driver\n' >>root/proc/kmsg
show root/proc/kmsg '.' 2
wait_for "the kernel's message at the collector" has_collected '^port 3 is up$'
say "   and at the collector:"
show $collected '^port 3 is up'

step "6. SIGTERM ends it in order. It prints its timers, events and log."
stop TERM
wait_for "the end" has_output 'ends, SIGTERM'
has_output '^[0-9]+ +[0-9]+ +[0-9]+ +[0-9]+ +Circle' || fail "no circular timer in the table"
has_output '^[0-9]+ +[0-9]+ +[0-9]+ +[0-9]+ +OneShot' || fail "no one-shot timer in the table"
show "$output" '^No\. Id\.|Circle|OneShot' 7
has_output '^1 +1 +Disable' || fail "no link event in the table"
say "   Types of events: 1 link up, 2 link down, 3 traffic, whose storms are suppressed."
show "$output" '^Type |^[123] +[0-9]+ +(Dis|En)able' 4
has_output '^\[[0-9/:-]+\]-\[Notice [0-9]+\]main: ' || fail "no log at the end"
show "$output" '^\[[0-9/:-]+\]-\[' 3
has_output '^\[[0-9/:-]+\]-\[Notice\]switch: port 3 is up' || fail "the kernel's message is not in the log"
show "$output" 'switch: port 3'
has $log '\[Notice\]switch:port 3 is up' || fail "no log file with the kernel's message"
say "   The log is in a file, too, $(file_size $log) bytes:"
show $log '^SysLog:|started, boot count|port 3 is up' 3

step "7. It starts again. The configuration is still there: the count goes on, the collector is still set."
start second-run.txt
wait_for "the second start" has_output 'started, boot count 2\b'
wait_for "the second start at the collector" has_collected 'started, boot count 2\b'
show "$output" 'started, boot count'
say "   and at the collector:"
show $collected 'started, boot count 2'
stop INT
has_output '^\[[0-9/:-]+\]-\[Notice\]main: .*started, boot count 1' || fail "the first run's log is lost"
say "   The log of the first run is there as well, without the line numbers, which are not in the file:"
show "$output" '^\[[0-9/:-]+\]-\[.*(started, boot count|port 3 is up)' 3

step "8. Somebody damages one byte of the image. gatewayd keeps the damaged file and starts with defaults."
cp $image undamaged.cfg
printf '!' | dd of=$image bs=1 seek=22 conv=notrunc status=none # in the host name, which holds no '!'
! cmp -s $image undamaged.cfg || fail "the byte did not change"
cp $image damaged.cfg
start third-run.txt
wait_for "the start with defaults" has_output 'started, boot count 1\b'
show "$output" 'CRC|damaged|started, boot count' 3
stop TERM
has_output "Startup-cfg CRC doesn't match" || fail "the damage was not told"
cmp -s $image.bad damaged.cfg || fail "the damaged file was not kept as $image.bad"

step "All of it happened. The files are in $folder:"
say "   gatewayd.cfg        the configuration image; gatewayd.cfg.bad is the damaged one"
say "   *-run.txt           what gatewayd printed in each run"
say "   collected.txt       what the collector received"
say "   root/overlay        mu_log.txt and user_log.txt, the log's files"
step "Try next:"
say "   od -A d -t x1z $folder/$image"
if ((${#emulator[@]} == 0)); then say "   $gatewayd --help"; fi
say "   and read examples/gatewayd/gatewayd.c."
