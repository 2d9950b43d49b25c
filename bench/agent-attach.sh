#!/usr/bin/env bash
# End-to-end timing of commands attached to a state agent, against the same commands on the
# state file: generates (once per run) a state of 1,000,000 IPv4 and 200,000 IPv6 routes (the
# spine table of bench/route-listing.sh), starts rova-agent on it under a name of its own, and
# times whole rova processes (wall and processor time, the median of RUNS; the first line's
# time is that of `| head -1`), reading their output as it comes. The agent and its store are
# removed on the way out, whatever happens.
#
#   bench/agent-attach.sh                     # uses build/ (ninja -C build rova rova-agent rova-gen)
#   RUNS=5 STATE=/tmp/mine.json bench/agent-attach.sh
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
agent=$build/agent/rova-agent
runs=${RUNS:-5}
name=bench-$$
tmp=$(mktemp -d)
agent_pid=""
cleanup() {
  if [ -n "$agent_pid" ]; then kill "$agent_pid" 2>/dev/null || true; wait "$agent_pid" 2>/dev/null || true; fi
  rm -f "/dev/shm/rova-agent.$name"
  rm -rf "$tmp"
}
trap cleanup EXIT

state=${STATE:-}
if [ -z "$state" ]; then
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

t0=$(date +%s%N)
"$agent" --state "$state" --name "$name" > "$tmp/ready" 2> "$tmp/agent.log" &
agent_pid=$!
while ! grep -q ready "$tmp/ready" 2>/dev/null; do
  kill -0 "$agent_pid" || { cat "$tmp/agent.log"; exit 1; }
  sleep 0.05
done
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
