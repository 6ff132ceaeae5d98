#!/usr/bin/env bash
# The guest program's start-up time and memory, in the bench summary's form:
#   guest start-up: time from exec to the connect window on screen (median of
#     RUNS starts, each with fresh settings)
#   guest memory: peak RSS (VmHWM) at the connect window, and after joining a
#     stand-in host with the co-op editor open (1920 x 1080 picture) and a
#     stroke drawn
#
#   bench/bench_guest.sh [BUILD_DIR] [RUNS]     (inside the root; needs Xvfb)
set -euo pipefail
BUILD="$(cd "${1:-build-bench}" && pwd)"
RUNS="${2:-7}"
SRC="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
GUEST="$BUILD/src/guest/pennoria-guest"
[ -x "$GUEST" ] || { echo "no $GUEST: build the pennoria-guest target" >&2; exit 1; }
WORK="$(mktemp -d)"
PIDS=()
cleanup() {
  local pid
  for pid in "${PIDS[@]}"; do kill -KILL "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
  rm -rf "$WORK"
}
trap cleanup EXIT
export LIBGL_ALWAYS_SOFTWARE=1
unset QT_QPA_PLATFORM

Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp 3>"$WORK/display" 2>/dev/null &
PIDS+=($!)
for _ in $(seq 1 50); do [ -s "$WORK/display" ] && break; sleep 0.1; done
export DISPLAY=":$(head -n 1 "$WORK/display")"

now_ms() { echo $(($(date +%s%N) / 1000000)); }
window_of() { xdotool search --all --onlyvisible --pid "$1" --name "$2" 2>/dev/null | tail -n 1 || true; }
# User and system CPU time of a process so far, in ms (the machine's load does
# not stretch it the way it stretches wall time).
cpu_ms() { awk -v hz="$(getconf CLK_TCK)" '{print int(($14 + $15) * 1000 / hz)}' "/proc/$1/stat"; }
peak_rss_kib() { awk '/^VmHWM:/{print $2}' "/proc/$1/status"; }
mib() { awk -v k="$1" 'BEGIN{printf "%.1f", k / 1024}'; }

times=()
cpus=()
connect_kib=0
for run in $(seq 1 "$RUNS"); do
  home="$WORK/home-$run"
  mkdir -p "$home"
  t0=$(now_ms)
  XDG_CONFIG_HOME="$home" "$GUEST" >"$WORK/guest-$run.log" 2>&1 &
  pid=$!
  PIDS+=("$pid")
  id=""
  while [ -z "$id" ] && [ $(($(now_ms) - t0)) -lt 20000 ]; do
    id=$(window_of "$pid" "^Pennoria: Draw Guest\$")
  done
  [ -n "$id" ] || {
    echo "guest start-up: no connect window within 20 s; its output:" >&2
    cat "$WORK/guest-$run.log" >&2
    exit 1
  }
  times+=($(($(now_ms) - t0)))
  cpus+=($(cpu_ms "$pid"))
  sleep 1
  kib=$(peak_rss_kib "$pid")
  [ "$kib" -gt "$connect_kib" ] && connect_kib=$kib
  if [ "$run" -lt "$RUNS" ]; then
    kill -TERM "$pid"
    wait "$pid" 2>/dev/null || true
  fi
done

# The last guest joins a stand-in host, opens the editor and draws.
PORT=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
python3 "$SRC/tests/e2e/guest-host.py" "$PORT" >"$WORK/host.log" 2>&1 &
PIDS+=($!)
sleep 0.5
xdotool windowfocus --sync "$id" 2>/dev/null || true
xdotool type --delay 20 "127.0.0.1:$PORT"
xdotool key Return
editor=""
for _ in $(seq 1 80); do
  editor=$(window_of "$pid" "Co-op Canvas")
  [ -n "$editor" ] && break
  sleep 0.25
done
[ -n "$editor" ] || { echo "guest memory: the co-op editor did not open" >&2; exit 1; }
xdotool windowmove --sync "$editor" 0 0 windowsize --sync "$editor" 1200 800
sleep 1
xdotool mousemove --sync 200 300 mousedown 1
for i in $(seq 1 20); do xdotool mousemove $((200 + 40 * i)) $((300 + 10 * i)); sleep 0.02; done
xdotool mouseup 1
sleep 1
editor_kib=$(peak_rss_kib "$pid")

sorted=($(printf '%s\n' "${times[@]}" | sort -n))
median=${sorted[$((${#sorted[@]} / 2))]}
cpu_sorted=($(printf '%s\n' "${cpus[@]}" | sort -n))
cpu_median=${cpu_sorted[$((${#cpu_sorted[@]} / 2))]}
load=$(cut -d' ' -f1 /proc/loadavg)
verdict() { [ "$1" -le "$2" ] && echo met || echo MISSED; }
echo "guest start-up: median $median ms to the connect window, $cpu_median ms of CPU ($RUNS runs, min ${sorted[0]}, max ${sorted[-1]}, load $load) [target <= 1000 ms: $(verdict "$median" 1000)]"
echo "guest memory: peak RSS $(mib "$connect_kib") MiB at the connect window, $(mib "$editor_kib") MiB with the co-op editor open and a stroke drawn [target <= 256 MiB: $(verdict "$editor_kib" 262144)]"
