#!/usr/bin/env bash
# Plays the built plug-in in jalv, an outside LV2 host, under a private JACK dummy server, with
# MIDI from pelma_jack_probe, which records and measures the output.
#   jalv-plays-pelma.sh BUILD_DIR PROBE
set -euo pipefail
build="$1"
probe="$2"
work="$(mktemp -d)"
# One name per build folder: JACK keeps only eight server slots, and a slot left by a killed
# server is reused only by a server of the same name. Two checkouts never share a server.
server="pelma-jalv-$(printf '%s' "$build" | md5sum | cut -c1-8)"
export JACK_DEFAULT_SERVER="$server" JACK_NO_START_SERVER=1
export LV2_PATH="$build/lv2:/usr/lib/lv2" PELMA_BANKS_DIR="$work/banks"

jackd_pid=""
jalv_pid=""
cleanup() {
  exec 3>&- 2>/dev/null || true
  # jalv leaves first, then the server, each waited for, so the server unregisters cleanly.
  if [ -n "$jalv_pid" ]; then kill "$jalv_pid" 2>/dev/null || true; wait "$jalv_pid" 2>/dev/null || true; fi
  if [ -n "$jackd_pid" ]; then kill "$jackd_pid" 2>/dev/null || true; wait "$jackd_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

jackd -n "$server" -d dummy -r 48000 -p 256 >"$work/jackd.log" 2>&1 &
jackd_pid=$!
if ! jack_wait -s "$server" -w -t 10 >/dev/null; then
  echo "jackd did not start" && cat "$work/jackd.log"
  exit 1
fi

# jalv's console reads commands from standard input: a FIFO held open keeps it running. Opened
# read-write first, so neither side ever blocks on the other.
mkfifo "$work/stdin"
exec 3<>"$work/stdin"
jalv -n pelma_jalv -x -c osc1_wave=3 -c cutoff=20000 urn:pelma:synth \
  <"$work/stdin" >"$work/jalv.log" 2>&1 &
jalv_pid=$!

if ! "$probe" pelma_jalv; then
  echo "--- jalv" && cat "$work/jalv.log"
  echo "--- jackd" && cat "$work/jackd.log"
  exit 1
fi
