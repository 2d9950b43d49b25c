# Shared by ./rova and ./run-tests: install what is missing, configure and build.
# Sourced, not run. Everything it prints goes to stderr so that the program's own
# stdout (JSON in particular) stays clean.

ROVA_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Debian packages the program needs to build (lld links the program with its functions in the
# order a short command runs them).
ROVA_PACKAGES=(
  cmake ninja-build g++ pkg-config lld
  libboost-dev libsimdjson-dev libedit-dev
)
# What the tests and benchmarks need beyond that (iproute2: the live tests' namespaces; clang
# and its libFuzzer, in libclang-rt-14-dev: the sanitizer build and the fuzz targets;
# pybind11-dev and python3-dev: the Python module, which python3-pytest tests).
ROVA_TEST_PACKAGES=(
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libabsl-dev
  python3 tmux time iproute2
  clang libclang-rt-14-dev
  pybind11-dev python3-dev python3-pytest
)

# The sanitizer build of ./run-tests, also the one tests/fuzz/fuzz.sh runs the fuzzers in:
# clang with AddressSanitizer, UndefinedBehaviorSanitizer and libFuzzer. It compiles every file
# on its own (no unity batches), so that a file missing an include fails there.
ROVA_SANITIZER_BUILD=(
  Debug all -DROVA_WERROR=ON -DROVA_TESTS=ON -DROVA_BENCH=OFF -DROVA_SANITIZE=ON -DROVA_FUZZ=ON
  -DROVA_UNITY=OFF -DCMAKE_CXX_COMPILER=clang++
)

rova_log() { printf '%s\n' "$*" >&2; }

# rova_ensure_packages PACKAGE...: installs those of the packages that are missing.
rova_ensure_packages() {
  local missing=() p
  for p in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
      missing+=("$p")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null 2>&1 || { rova_log "rova: need root or sudo to install: ${missing[*]}"; return 1; }
    sudo=(sudo)
  fi
  rova_log "rova: installing ${missing[*]} ..."
  local log
  log="$(mktemp)"
  if ! { "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq &&
         "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
           --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    rova_log "rova: package installation failed"
    return 1
  fi
  rm -f "$log"
}

# rova_build DIR BUILD_TYPE TARGET [extra cmake args...]: configures DIR when it is new (and,
# with ROVA_RECONFIGURE=1, when the arguments differ from its last configuration: afresh, since
# CMake cannot change the compiler of a configured folder), then lets ninja decide what is
# stale.
# TARGET "all" builds everything. Two runs never build one folder at once: the second waits.
# Output is shown only when something fails.
rova_build() {
  local dir="$1" type="$2" target="$3"
  shift 3
  mkdir -p "$dir"
  local lock="$dir/.rova-build.lock"
  exec {ROVA_LOCK_FD}>"$lock"
  if ! flock -n "$ROVA_LOCK_FD"; then
    rova_log "rova: waiting for another build in $dir ..."
    flock "$ROVA_LOCK_FD"
  fi
  local log status=0
  log="$(mktemp)"
  local args="$type $*"
  if [ ! -f "$dir/build.ninja" ] || { [ "${ROVA_RECONFIGURE:-0}" = 1 ] &&
       [ "$(cat "$dir/.rova-configured" 2>/dev/null)" != "$args" ]; }; then
    if [ ! -f "$dir/build.ninja" ]; then
      if [ "$target" = all ]; then
        rova_log "rova: first build in $dir (a few minutes on two cores) ..."
      else
        rova_log "rova: first build in $dir (two to three minutes on two cores) ..."
      fi
    fi
    rm -rf "$dir/CMakeCache.txt" "$dir/CMakeFiles"
    if cmake -S "$ROVA_ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" "$@" >"$log" 2>&1; then
      printf '%s' "$args" >"$dir/.rova-configured"
    else
      cat "$log" >&2
      rova_log "rova: configuration failed"
      status=1
    fi
  fi
  if [ $status -eq 0 ] && ! cmake --build "$dir" --target "$target" -- -j"$(nproc)" >"$log" 2>&1; then
    grep -v '^\[' "$log" | head -200 >&2
    rova_log "rova: build failed"
    status=1
  fi
  rm -f "$log"
  flock -u "$ROVA_LOCK_FD"
  exec {ROVA_LOCK_FD}>&-
  return $status
}
