#!/usr/bin/env bash
# End-to-end timing of commands attached to a state agent, against the same commands on the
# state file: generates (once per run) a state of 1,000,000 IPv4 and 200,000 IPv6 routes (the
# spine table of bench/route-listing.sh), starts rova-agent on it under a name of its own, and
# times whole rova processes (wall and processor time, the median of RUNS; the first line's
# time is that of `| head -1`), reading their output as it comes. Then:
#   - attach itself: the processor time from the start of rova's main() to the store's tables
#     being usable, as `rova --trace` reports it, the median of ATTACH_RUNS, on a small state
#     (rova-gen's default, 1,000 routes) and on the spine table;
#   - as root, a lookup against `ip route get` on the same kernel table: a network namespace
#     loaded with the table of bench/live-listing.sh (ROUTES IPv4 and ROUTES6 IPv6 routes,
#     default 1,000,000 and 200,000) by `ip -batch`, `rova-agent --live` following it, and
#     `rova --attach show ip route A.B.C.D` and `ip route get A.B.C.D` run in turn in that
#     namespace, LOOKUP_RUNS times each (the median processor time). Without root that part is
#     skipped with a message.
# The agents, their stores and the namespace are removed on the way out, whatever happens.
# LOOKUP_ONLY=1 runs the last part alone (no state file, no agent on one); OTHER=PROGRAM adds
# that rova (another build) to the lookup's turns, attached to the same agent.
#
#   bench/agent-attach.sh                     # uses build/ (ninja -C build rova rova-agent rova-gen)
#   RUNS=5 STATE=/tmp/mine.json bench/agent-attach.sh
#   sudo LOOKUP_ONLY=1 LOOKUP_RUNS=51 OTHER=/tmp/old/rova bench/agent-attach.sh
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/peers-table.sh"
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
agent=$build/agent/rova-agent
runs=${RUNS:-5}
name=bench-$$
tmp=$(mktemp -d)
agent_pid=""
small_pid=""
live_pid=""
ns=""
stop() { if [ -n "$1" ]; then kill "$1" 2>/dev/null || true; wait "$1" 2>/dev/null || true; fi; }
cleanup() {
  stop "$agent_pid"
  stop "$small_pid"
  stop "$live_pid"
  rm -f "/dev/shm/rova-agent.$name" "/dev/shm/rova-agent.$name-small" "/dev/shm/rova-agent.$name-live"
  if [ -n "$ns" ]; then ip netns del "$ns" 2>/dev/null || true; fi
  rm -rf "$tmp"
}
trap cleanup EXIT

lookup_only=${LOOKUP_ONLY:-}
if [ -n "$lookup_only" ] && [ "$(id -u)" -ne 0 ]; then
  echo "LOOKUP_ONLY needs root (a network namespace)" >&2
  exit 1
fi
state=${STATE:-}
if [ -z "$state" ] && [ -z "$lookup_only" ]; then
  state=$tmp/spine.json
  "$build/snapshot/rova-gen" --ipv4 1000000 --ipv6 200000 --seed 1 -o "$state"
fi

# measure ARGS...: runs rova $runs times; prints the median wall and processor (user+sys)
# times in seconds, the median time to the first line of output, and the largest private
# memory seen (RssAnon, MB: what the reader holds beyond the store's pages, which it shares),
# sampled every millisecond.
measure() {
  python3 - "$runs" "$rova" "$@" <<'PY'
import os, resource, statistics, subprocess, sys, time
runs, cmd = int(sys.argv[1]), sys.argv[2:]
walls, cpus, firsts, peak = [], [], [], 0
for _ in range(runs):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    t0 = time.perf_counter()
    p = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    first = None
    fd = p.stdout.fileno()
    os.set_blocking(fd, False)
    status = "/proc/%d/status" % p.pid
    while True:
        try:
            chunk = os.read(fd, 1 << 16)
        except BlockingIOError:
            chunk = None
        if chunk == b"":
            break
        if chunk and first is None and b"\n" in chunk:
            first = time.perf_counter() - t0
        try:
            with open(status) as f:
                for line in f:
                    if line.startswith("RssAnon:"):
                        peak = max(peak, int(line.split()[1]))
        except OSError:
            pass
        if chunk is None:
            time.sleep(0.001)
    p.wait()
    walls.append(time.perf_counter() - t0)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpus.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    firsts.append(first if first is not None else walls[-1])
print("%.4f %.4f %.4f %.0f" % (statistics.median(walls), statistics.median(cpus),
                               statistics.median(firsts), peak / 1024))
PY
}

# await_ready PID FILE LOG: waits for the agent PID to say it is ready in FILE.
await_ready() {
  while ! grep -q ready "$2" 2>/dev/null; do
    kill -0 "$1" || { cat "$3"; exit 1; }
    sleep 0.05
  done
}

if [ -z "$lookup_only" ]; then
t0=$(date +%s%N)
"$agent" --state "$state" --name "$name" > "$tmp/ready" 2> "$tmp/agent.log" &
agent_pid=$!
await_ready "$agent_pid" "$tmp/ready" "$tmp/agent.log"
t1=$(date +%s%N)
printf 'state: %s (%s); agent ready in %.2f s, store %s MB of pages\n' "$state" \
  "$(du -h "$state" | cut -f1)" "$(awk "BEGIN{print ($t1 - $t0) / 1e9}")" \
  "$(du -m "/dev/shm/rova-agent.$name" | cut -f1)"

# The 100,000th route's address: a lookup in the middle of the table.
address=$("$rova" --attach="$name" show ip route |
  awk '{ for (i = 1; i <= NF; i++) if ($i ~ /^[0-9.]+\/[0-9]+$/) { if (++n == 100000) { split($i, a, "/"); print a[1]; exit } break } }' || true)
uptime
printf '%-36s %9s %9s %9s %9s   %9s %9s\n' command 'wall s' 'cpu s' '1st line' 'priv MB' \
  '--state' 'cpu s'
row() {
  local label=$1 a s
  shift
  a=$(measure --attach="$name" "$@")
  s=$(measure --state "$state" "$@")
  read -r aw ac af am <<< "$a"
  read -r sw sc _ _ <<< "$s"
  printf '%-36s %9.4f %9.4f %9.4f %9.0f   %9.3f %9.3f\n' "$label" "$aw" "$ac" "$af" "$am" "$sw" "$sc"
}
row "show version (attach only)" show version
row "show ip route $address" show ip route "$address"
row "show ip route" show ip route
row "show ip route json" show ip route json
row "show ipv6 route" show ipv6 route

# first ARGS...: the wall time from the start of `rova ARGS | head -1` to its first line (the
# median of $runs), as a reader of the page's top sees it.
first() {
  python3 - "$runs" "$rova" "$@" <<'PY'
import statistics, subprocess, sys, time
runs, cmd = int(sys.argv[1]), sys.argv[2:]
times = []
for _ in range(runs):
    t0 = time.perf_counter()
    p = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    p.stdout.readline()
    times.append(time.perf_counter() - t0)
    p.stdout.close()
    p.wait()
print("%.4f" % statistics.median(times))
PY
}
printf '%-36s %9s\n' "show ip route | head -1" "$(first --attach="$name" show ip route)"
printf '%-36s %9s\n' "show ip route json | head -1" "$(first --attach="$name" show ip route json)"

# attach_ms NAME: the median processor time from main() to the attached tables, in ms.
attach_ms() {
  local i
  for i in $(seq "${ATTACH_RUNS:-21}"); do
    "$rova" --trace --attach="$1" show version 2>&1 >/dev/null |
      sed -n 's/.*attached to .* \([0-9]*\) us of processor time.*/\1/p'
  done | sort -n | awk '{ v[NR] = $1 } END { printf "%.2f", v[int((NR + 1) / 2)] / 1000 }'
}
"$build/snapshot/rova-gen" -o "$tmp/small.json"
"$agent" --state "$tmp/small.json" --name "$name-small" > "$tmp/small-ready" 2> "$tmp/small.log" &
small_pid=$!
await_ready "$small_pid" "$tmp/small-ready" "$tmp/small.log"
echo
uptime
printf 'attach, main() to usable tables (processor ms, median of %s; `rova --trace`):\n' "${ATTACH_RUNS:-21}"
printf '  %-34s %6s ms\n' "small state (rova-gen default)" "$(attach_ms "$name-small")" \
  "spine table" "$(attach_ms "$name")"

fi

echo
if [ "$(id -u)" -ne 0 ]; then
  echo "lookup against ip route get: skipped (needs root for a network namespace)"
  exit 0
fi
routes=${ROUTES:-1000000}
routes6=${ROUTES6:-200000}
ns=rova-attach-$$
peers_namespace "$ns"
# The table of bench/live-listing.sh; an address in its 100,000th IPv4 prefix goes to $tmp/probe.
PEERS_PROBE="$tmp/probe" peers_table "$routes" "$routes6" > "$tmp/load"
ip -n "$ns" -batch "$tmp/load"
rm -f "$tmp/load"
probe=$(head -1 "$tmp/probe")
ip netns exec "$ns" "$agent" --live --name "$name-live" > "$tmp/live-ready" 2> "$tmp/live.log" &
live_pid=$!
await_ready "$live_pid" "$tmp/live-ready" "$tmp/live.log"
uptime
printf 'lookup of %s on a kernel table of %s IPv4 and %s IPv6 routes (processor ms, median of %s, run in turn):\n' \
  "$probe" "$routes" "$routes6" "${LOOKUP_RUNS:-101}"
others=()
if [ -n "${OTHER:-}" ]; then others=("$OTHER --attach=$name-live show ip route $probe"); fi
ip netns exec "$ns" python3 - "${LOOKUP_RUNS:-101}" \
  "$rova --attach=$name-live show ip route $probe" "ip route get $probe" "/bin/true" \
  "${others[@]}" <<'PY'
import resource, shlex, statistics, subprocess, sys
runs, cmds = int(sys.argv[1]), sys.argv[2:]
times = {c: [] for c in cmds}
for _ in range(runs):
    for c in cmds:
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(shlex.split(c), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        times[c].append((after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1000)
base = statistics.median(times[cmds[1]])
for c in cmds:
    m = statistics.median(times[c])
    print("  %-60s %6.2f ms  %.2fx ip route get" % (c.split("/")[-1] if c.startswith("/") else c, m, m / base))
    if c.startswith("/") and "rova" in c:
        print("    (%s)" % c.split()[0])
PY
