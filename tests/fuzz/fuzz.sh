#!/usr/bin/env bash
# Runs the fuzz targets for as long as asked:
#
#   tests/fuzz/fuzz.sh [SECONDS [TARGET...]]
#
# SECONDS per target (default 600); TARGET one of fuzz_loader, fuzz_value_text, fuzz_command,
# fuzz_round_trip, fuzz_netlink (default: all five, one after the other). They run in the sanitizer build of
# ./run-tests (build-asan/: clang, AddressSanitizer, UndefinedBehaviorSanitizer, libFuzzer),
# which this builds first when needed. Each starts from its seed corpus (tests/fuzz/corpus/)
# and from what earlier runs found (build-asan/tests/fuzz/corpus/), adds what it finds to the
# latter, and leaves a failing input in build-asan/tests/fuzz/artifacts/. FUZZ_JOBS=N runs N
# processes per target (libFuzzer's -fork). The targets make their temporary directories in
# build-asan/tests/fuzz/tmp/, empty again when they end. tests/fuzz/README.md says what each
# target checks.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/setup.sh"

seconds="${1:-600}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_loader fuzz_value_text fuzz_command fuzz_round_trip fuzz_netlink)

rova_ensure_packages "${ROVA_PACKAGES[@]}" "${ROVA_TEST_PACKAGES[@]}"
dir="$ROVA_ROOT/build-asan"
export ROVA_RECONFIGURE=1
rova_build "$dir" "${ROVA_SANITIZER_BUILD[@]}"

declare -A corpus=([fuzz_loader]=loader [fuzz_value_text]=value-text [fuzz_command]=command
  [fuzz_round_trip]=round-trip [fuzz_netlink]=netlink)
# More inputs to start from (read only: libFuzzer adds what it finds to the first folder).
declare -A seeds=([fuzz_loader]="$ROVA_ROOT/examples"
  [fuzz_round_trip]="$ROVA_ROOT/tests/fuzz/corpus/loader")
declare -A options=([fuzz_command]="-dict=$ROVA_ROOT/tests/fuzz/command.dict -max_len=1024"
  [fuzz_round_trip]="-dict=$ROVA_ROOT/tests/fuzz/command.dict -max_len=4096")
artifacts="$dir/tests/fuzz/artifacts"
mkdir -p "$artifacts"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TMPDIR="$dir/tests/fuzz/tmp"
mkdir -p "$TMPDIR"

status=0
for t in "${targets[@]}"; do
  name="${corpus[$t]:-}"
  [ -n "$name" ] || { rova_log "unknown fuzz target $t"; exit 2; }
  found="$dir/tests/fuzz/corpus/$name"
  mkdir -p "$found"
  log="$dir/tests/fuzz/$t.log"
  rova_log "== $t for $seconds s (log: $log)"
  # shellcheck disable=SC2086 # the options and seed folders are words
  if ! "$dir/tests/fuzz/$t" -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
      -fork="${FUZZ_JOBS:-0}" -artifact_prefix="$artifacts/$t-" ${options[$t]:-} \
      "$found" "$ROVA_ROOT/tests/fuzz/corpus/$name" ${seeds[$t]:-} >"$log" 2>&1; then
    status=1
    rova_log "$t FAILED: see $log and $artifacts"
  fi
  # What it did: executions, coverage (edges and features), corpus size.
  grep -E '^(#[0-9]+[[:space:]]+DONE|stat::number_of_executed_units|stat::peak_rss_mb)' "$log" |
    sed 's/^/   /' >&2 || true
done
exit $status
