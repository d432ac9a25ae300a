#!/usr/bin/env bash
# Installs what the project needs from Debian's packages; does nothing when all are present.
# Sourced by the other scripts.
KQ_PACKAGES=(
  build-essential cmake ninja-build pkg-config
  libdcmtk-dev dcmtk libopenjp2-7-dev libopenjp2-tools
  libgtest-dev libgmock-dev libbenchmark-dev
  libacl1-dev libattr1-dev acl attr zlib1g-dev nlohmann-json3-dev
  python3-pydicom python3-numpy libgdcm-tools dicom3tools strace parallel
  openssh-server openssh-client iproute2
)
# Only the fuzz step (scripts/fuzz.sh) needs these: clang with its libFuzzer and sanitizer runtimes.
KQ_FUZZ_PACKAGES=(clang libclang-rt-14-dev)

kq_install_packages() {
  local missing=()
  local p
  for p in "${KQ_PACKAGES[@]}" "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$p")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Configures and builds into the given directory; further arguments go to cmake.
kq_build() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j"$(nproc)"
}

# Configures the Release tree of the benchmarks in the given directory and builds the targets
# named after it.
kq_build_release_targets() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$dir" -j"$(nproc)" --target "$@" >/dev/null
}
