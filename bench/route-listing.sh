#!/usr/bin/env bash
# End-to-end timing of the route listings on full tables: generates each state in the run's
# own temporary directory, then runs the rova program on it, with the output thrown away, and
# reports load, selection and printing separately, with peak memory. Two tables, each of
# 1,000,000 IPv4 and 200,000 IPv6 routes:
#   spine     rova-gen --ipv4 1000000 --ipv6 200000 --seed 1: sixteen uplinks, about five
#             vias per IPv4 route
#   internet  rova-gen --profile internet --seed 1: a border router's Internet table, four
#             peers, about 1.14 vias per route
#
#   bench/route-listing.sh            # both tables; uses build/ (run ./rova once first)
#   PROFILE=internet RUNS=5 bench/route-listing.sh
#   STATE=/tmp/mine.json bench/route-listing.sh      # any state file instead
set -euo pipefail
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
runs=${RUNS:-3}
profiles=${PROFILE:-spine internet}

# run ARGS...: the best of $runs runs with the output thrown away; sets wall (s, timed to the
# microsecond around the run: /usr/bin/time reports only hundredths), cpu (user + system, s:
# steadier than the wall clock on a shared machine) and rss (KiB).
# With `quantify` in ARGS, one more run reads the program's own selection time (its printing
# time is not used: that run's output goes through a pipe, which costs more than /dev/null, so
# the table's "print" is the best run's wall less the load and the selection).
run() {
  local best="" w r u s
  for _ in $(seq "$runs"); do
    local t0 t1
    t0=$(date +%s%N)
    /usr/bin/time -f "%M %U %S" -o "$tmp/time" "$rova" --state "$state" "$@" > /dev/null
    t1=$(date +%s%N)
    w=$(awk "BEGIN{printf \"%.4f\", ($t1 - $t0) / 1e9}")
    read -r r u s < "$tmp/time"
    if [ -z "$best" ] || awk "BEGIN{exit !($w < $best)}"; then
      best=$w wall=$w rss=$r cpu=$(awk "BEGIN{print $u + $s}")
    fi
  done
  select=""
  case " $* " in
    *" quantify "*)
      "$rova" --state "$state" "$@" | tail -n 4 > "$tmp/tail"
      select=$(sed -n 's/.*Time taken to create the routeSorter: \([0-9.]*\).*/\1/p;s/.*"quantify": \([0-9.e+-]*\).*/\1/p' "$tmp/tail")
      ;;
  esac
}

# table STATE: every row for one state file.
table() {
  state=$1
  run show version
  load=$wall
  printf 'state: %s (%s)\n' "$state" "$(du -h "$state" | cut -f1)"
  # The peak is the load's own (the structural index over the whole file, with the file's
  # pages): a listing's memory stays under it. bench/route_sorter_bench measures what the
  # selection adds per route.
  printf '%-40s %8s %9s %9s %9s %9s %7s\n' command wall load select print 'peak MB' 'cpu s'
  printf '%-40s %8.3f %9.3f %9s %9s %9.0f %7.2f\n' "show version (load only)" "$load" "$load" - - \
    "$((rss / 1024))" "$cpu"
  row "show ip route" show ip route quantify
  row "show ip route json" show ip route quantify json
  row "show ipv6 route" show ipv6 route quantify
  row "show ipv6 route json" show ipv6 route quantify json
  row "show ip route summary (wall - load)" show ip route summary
  closed
}

# closed: `show ip route | head -1`, how long rova takes to exit once the pipe is closed (the
# best of $runs): the listing stops at its next write, then the process ends.
closed() {
  local ms
  ms=$(python3 - "$rova" "$state" "$runs" <<'PY'
import subprocess, sys, time
rova, state, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])
best = None
for _ in range(runs):
    p = subprocess.Popen([rova, "--state", state, "show", "ip", "route"], stdout=subprocess.PIPE)
    p.stdout.readline()
    t = time.monotonic()
    p.stdout.close()
    p.wait()
    ms = (time.monotonic() - t) * 1000
    best = ms if best is None or ms < best else best
print("%.0f" % best)
PY
)
  printf '%-40s %s ms\n' "show ip route | head -1: exit after close" "$ms"
}

row() {  # label ARGS...
  local label=$1
  shift
  run "$@"
  if [ -n "$select" ]; then
    printf '%-40s %8.3f %9.3f %9.3f %9.3f %9.0f %7.2f\n' "$label" "$wall" "$load" "$select" \
      "$(awk "BEGIN{print $wall - $load - $select}")" "$((rss / 1024))" "$cpu"
  else
    printf '%-40s %8.3f %9.3f %9s %9.3f %9.0f %7.2f\n' "$label" "$wall" "$load" - \
      "$(awk "BEGIN{print $wall - $load}")" "$((rss / 1024))" "$cpu"
  fi
}

if [ -n "${STATE:-}" ]; then
  table "$STATE"
  exit 0
fi
for profile in $profiles; do
  case $profile in
    spine) gen=(--ipv4 1000000 --ipv6 200000 --seed 1) ;;
    internet) gen=(--profile internet --seed 1) ;;
    *) echo "route-listing.sh: unknown profile $profile (spine, internet)" >&2; exit 2 ;;
  esac
  # In this run's own directory, removed on the way out. The loader reads a file changed in the
  # last two seconds whole rather than through its window (its clock may not have moved since),
  # so the runs wait until the new file is older than that.
  state=$tmp/$profile.json
  "$build/snapshot/rova-gen" "${gen[@]}" -o "$state"
  sleep 3
  echo "== $profile: rova-gen ${gen[*]}"
  table "$state"
done
