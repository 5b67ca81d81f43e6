# Shared by the scripts beside it; sourced, not run.

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
logs="$root/build/logs"
cores="$(nproc)"
cd "$root"

# The compiler cache needs a directory that it can write to; a service account may have no home.
if [[ -z "${CCACHE_DIR:-}" && -z "${XDG_CACHE_HOME:-}" && ! -w "${HOME:-/nonexistent}" ]]; then
  export CCACHE_DIR="$root/build/ccache"
fi

# Prefix of the commands below.
launcher=()

# quietly <log name> <command...>: the command's output goes to a log, which is printed when the command fails.
quietly() {
  local log="$logs/$1.log" status=0
  shift
  mkdir -p "$logs"
  "${launcher[@]}" "$@" >"$log" 2>&1 || status=$?
  if ((status != 0)); then
    # Without the compiler's successes.
    sed '/^\[[0-9]*\/[0-9]*\]/d' "$log" >&2
    echo "Failed with status $status: $*" >&2
  fi
  return "$status"
}

# configure <preset>: only if that was not done since the presets changed, or since the packages of the page of plans were
# installed; ninja sees to all other changes.
configure() {
  local made="build/$1/build.ninja"
  if [[ ! -e "$made" || CMakePresets.json -nt "$made" || apps/viewer/node_modules/.package-lock.json -nt "$made" ]]; then
    echo "Configuring ($1)"
    quietly "$1-configure" cmake --preset "$1"
  fi
}

# build <preset> [target...]
build() {
  local preset="$1"
  shift
  echo "Building ($preset)"
  quietly "$preset-build" cmake --build --preset "$preset" --parallel "$cores" ${1:+--target "$@"}
}

# run_in_browser <program.ts> [argument...]: one of those that open pages of the command, made anew, in a browser without a
# window.
run_in_browser() {
  scripts/setup --browser
  configure release
  build release kavo_command
  KAVO_COMMAND="$root/build/release/apps/kavo/kavo" KAVO_SOURCE_DIR="$root" KAVO_CHROMIUM="$(command -v chromium)" \
    node apps/viewer/run.mjs "$@"
}
