#!/usr/bin/env bash
# End-to-end timing of the route listings on a full table: generates (once) a state of
# 1,000,000 IPv4 and 200,000 IPv6 routes, then runs the rova program on it, with the output
# thrown away, and reports load, selection and printing separately, with peak memory.
#
#   bench/route-listing.sh            # uses build/ (run ./rova once first to build it)
#   RUNS=5 STATE=/tmp/full.json bench/route-listing.sh
set -eo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build}
rova=$build/cli/rova
state=${STATE:-/tmp/rova-1m.json}
runs=${RUNS:-3}

[ -f "$state" ] || "$build/snapshot/rova-gen" --ipv4 1000000 --ipv6 200000 --seed 1 -o "$state"

# run ARGS...: the best of $runs runs with the output thrown away; sets wall (s) and rss (KiB).
# With `quantify` in ARGS, one more run reads the program's own selection and printing times.
run() {
  local best="" w r
  for _ in $(seq "$runs"); do
    /usr/bin/time -f "%e %M" -o /tmp/rova-bench-time "$rova" --state "$state" "$@" > /dev/null
    read -r w r < /tmp/rova-bench-time
    if [ -z "$best" ] || awk "BEGIN{exit !($w < $best)}"; then best=$w wall=$w rss=$r; fi
  done
  select="" print=""
  case " $* " in
    *" quantify "*)
      "$rova" --state "$state" "$@" | tail -n 4 > /tmp/rova-bench-tail
      select=$(sed -n 's/.*Time taken to create the routeSorter: \([0-9.]*\).*/\1/p;s/.*"quantify": \([0-9.e+-]*\).*/\1/p' /tmp/rova-bench-tail)
      print=$(sed -n 's/.*Time taken for the routes to be printed: \([0-9.]*\).*/\1/p;s/.*"rsTime": \([0-9.e+-]*\).*/\1/p' /tmp/rova-bench-tail)
      ;;
  esac
}

run show version
load=$wall loadRss=$rss
printf 'state: %s (%s)\n' "$state" "$(du -h "$state" | cut -f1)"
# The peak is the load's own (the parser's copy of the file): a listing's memory stays under
# it. bench/route_sorter_bench measures what the selection adds per route.
printf '%-40s %8s %9s %9s %9s %9s\n' command wall load select print 'peak MB'
printf '%-40s %8.2f %9s %9s %9s %9.0f\n' "show version (load only)" "$load" "$load" - - "$((loadRss / 1024))"

row() {  # label ARGS...
  local label=$1
  shift
  run "$@"
  if [ -n "$select" ]; then
    printf '%-40s %8.2f %9.2f %9.3f %9.3f %9.0f\n' "$label" "$wall" "$load" "$select" "$print" \
      "$((rss / 1024))"
  else
    printf '%-40s %8.2f %9.2f %9s %9.3f %9.0f\n' "$label" "$wall" "$load" - \
      "$(awk "BEGIN{print $wall - $load}")" "$((rss / 1024))"
  fi
}

row "show ip route" show ip route quantify
row "show ip route json" show ip route quantify json
row "show ipv6 route (wall - load)" show ipv6 route
row "show ipv6 route json (wall - load)" show ipv6 route json
row "show ip route summary (wall - load)" show ip route summary
