# Shared by ./rova and ./run-tests: install what is missing, configure and build.
# Sourced, not run. Everything it prints goes to stderr so that the program's own
# stdout (JSON in particular) stays clean.

ROVA_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Debian packages the build and the tests need.
# The sanitizer build uses clang, whose libFuzzer (in libclang-rt-14-dev) drives the fuzz
# targets.
ROVA_PACKAGES=(
  cmake ninja-build g++ pkg-config
  libboost-dev libsimdjson-dev libedit-dev
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev
  python3 tmux libabsl-dev time
  clang libclang-rt-14-dev
)

# The sanitizer build of ./run-tests, also the one tests/fuzz/fuzz.sh runs the fuzzers in:
# clang with AddressSanitizer, UndefinedBehaviorSanitizer and libFuzzer.
ROVA_SANITIZER_BUILD=(
  Debug -DROVA_WERROR=ON -DROVA_SANITIZE=ON -DROVA_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++
)

rova_log() { printf '%s\n' "$*" >&2; }

rova_ensure_packages() {
  local missing=() p
  for p in "${ROVA_PACKAGES[@]}"; do
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

# rova_build DIR BUILD_TYPE [extra cmake args...]: configure once, then let ninja decide
# what is stale. A folder configured with other arguments (another compiler, say) is
# configured afresh. Output is shown only when something fails.
rova_build() {
  local dir="$1" type="$2"
  shift 2
  local log wanted="$type $*"
  log="$(mktemp)"
  if [ -f "$dir/build.ninja" ] && [ "$(cat "$dir/.rova-configured" 2>/dev/null)" != "$wanted" ]; then
    rova_log "rova: $dir was configured differently; configuring it afresh"
    rm -rf "$dir"
  fi
  if [ ! -f "$dir/build.ninja" ]; then
    if ! cmake -S "$ROVA_ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" "$@" >"$log" 2>&1; then
      cat "$log" >&2
      rm -f "$log"
      rova_log "rova: configuration failed"
      return 1
    fi
    printf '%s\n' "$wanted" >"$dir/.rova-configured"
  fi
  if ! cmake --build "$dir" -- -j"$(nproc)" >"$log" 2>&1; then
    grep -v '^\[' "$log" | head -200 >&2
    rm -f "$log"
    rova_log "rova: build failed"
    return 1
  fi
  rm -f "$log"
}
