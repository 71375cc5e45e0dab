#!/usr/bin/env bash
# jalv, a real-time host with its worker on a thread of its own, runs the
# stereo plugin for four seconds under a JACK server started for this test
# alone (the dummy backend: no sound card), while its console changes
# intensity, bypass and a preset value. The plugin must run (JACK learns its
# latency, which run() reports), jalv must report no error and stop cleanly
# when its console closes, and no server is left behind.
#   check_jack_host.sh BUNDLE_PARENT
set -euo pipefail
export LV2_PATH="$1"
# A server name of this run's own, so that the test never meets another
# server (a user's, or a parallel run's) and never starts one by accident.
export JACK_DEFAULT_SERVER="larkspin-test-$$-$RANDOM"
export JACK_NO_START_SERVER=1 JACK_NO_AUDIO_RESERVATION=1
logs=$(mktemp -d)

jackd --no-realtime --name "$JACK_DEFAULT_SERVER" -d dummy -r 48000 -p 256 >"$logs/jackd" 2>&1 &
server=$!
stop_server() {
  kill "$server" 2>/dev/null || true
  for _ in $(seq 50); do kill -0 "$server" 2>/dev/null || break; sleep 0.1; done
  kill -9 "$server" 2>/dev/null || true
  wait "$server" 2>/dev/null || true
  rm -rf "$logs"
}
trap stop_server EXIT
jack_wait --wait --timeout 20 >/dev/null 2>&1 || { echo "no JACK server:"; cat "$logs/jackd"; exit 1; }

# jalv quits when its console reaches the end; the timeout only guards
# against a hang.
status=0
{
  sleep 1
  printf 'set intensity 0.5\nset bypass 1\n'
  sleep 1
  printf 'set bypass 0\nset b03_gain_db_l 6\n'
  jack_lsp -l >"$logs/ports" 2>&1
  sleep 2
} | timeout --kill-after=5 30 jalv -x -n "larkspin-$$" urn:larkspin:lv2:stereo >"$logs/out" 2>"$logs/err" ||
  status=$?

fail() { echo "$1"; cat "$logs/out" "$logs/err" "$logs/ports"; exit 1; }
[ "$status" = 0 ] || fail "jalv ended with status $status"
grep -A1 "^larkspin-$$:out_l" "$logs/ports" | grep -q "playback latency = \[ 256 256 \]" ||
  fail "JACK does not know the plugin's latency: run() never ran"
grep -q "b03_gain_db_l = 6" "$logs/out" || fail "the console's commands did not arrive"
! grep -qi "error\|\*\*\*\*\*" "$logs/out" "$logs/err" || fail "jalv or the plugin reported an error"
