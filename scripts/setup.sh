# shellcheck shell=bash
# What the scripts share; sourced with errexit, nounset and pipefail on.

fail() {
  printf '%s: %s\n' "$0" "$1" >&2
  exit 1
}

# quietly COMMAND...: runs it without input and shows what it prints only when it fails.
quietly() {
  local output status=0
  output=$("$@" 2>&1 </dev/null) || status=$?
  if ((status != 0)); then
    printf '%s\n%s: failed: %s\n' "$output" "$0" "$*" >&2
  fi
  return "$status"
}

is_installed() {
  dpkg-query --show --showformat='${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

# need PACKAGE...: installs those of these Debian packages that are missing.
need() {
  local package missing=() as_root=()
  if ! command -v dpkg-query apt-get >/dev/null; then
    fail "not a Debian system. Install what Debian calls $*, then use cmake --list-presets"
  fi
  for package; do
    is_installed "$package" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    return
  fi
  if ((EUID != 0)); then
    if ! command -v sudo >/dev/null; then
      fail "packages are missing. As root, run: apt-get install ${missing[*]}"
    fi
    as_root=(sudo)
  fi
  as_root+=(env DEBIAN_FRONTEND=noninteractive)
  printf 'Installing %s\n' "${missing[*]}"
  quietly "${as_root[@]}" apt-get update
  quietly "${as_root[@]}" apt-get install --yes --no-install-recommends "${missing[@]}"
}

# need_for_examples [PACKAGE...]: what the library and its examples are built with, and these.
need_for_examples() {
  need g++ cmake ninja-build libxxhash-dev libcli11-dev libcsv-dev libeigen3-dev "$@"
}

# need_for_cluster [PACKAGE...]: also the examples of several processes, and these.
need_for_cluster() {
  need_for_examples libopenmpi-dev openmpi-bin "$@"
}

need_for_tests() {
  need_for_cluster abigail-tools clang libclang-rt-14-dev pkg-config python3 libgtest-dev libgmock-dev \
    libbenchmark-dev
}

need_for_coverage() {
  need_for_tests
  need gcovr
}

need_for_proofs() {
  need_for_tests
  need g++-aarch64-linux-gnu qemu-user valgrind
}

need_for_benchmarks() {
  need g++ cmake ninja-build libxxhash-dev libbenchmark-dev libopenblas-dev python3 python3-numpy \
    python3-pandas
}

# Words before a program with ThreadSanitizer, which ends at once where the kernel puts libraries at
# addresses of more than 28 random bits. Not every container may switch that off; most machines need
# not.
fixed_addresses=(setarch --addr-no-randomize)
if ! "${fixed_addresses[@]}" true 2>/dev/null; then
  fixed_addresses=()
fi
