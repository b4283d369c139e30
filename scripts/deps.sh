# Sourced by the scripts: installs the Debian packages named in $@ that are
# not yet installed (as root, or through sudo when available).
install_missing() {
  local missing=()
  for pkg in "$@"; do
    dpkg -s "$pkg" >/dev/null 2>&1 || missing+=("$pkg")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local sudo=""
  [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null && sudo="sudo"
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

BUILD_PACKAGES=(cmake ninja-build g++ clang libclang-rt-14-dev binutils libgtest-dev libbenchmark-dev ffmpeg)
# What scripts/coverage needs besides the build packages.
COVERAGE_PACKAGES=(gcovr)
# What the foreign legs of scripts/test need: cross compilers, qemu-user and
# wine (GoogleTest is built from libgtest-dev's sources).
FOREIGN_PACKAGES=(g++-arm-linux-gnueabihf g++-s390x-linux-gnu g++-mingw-w64-x86-64 g++-mingw-w64-i686
  qemu-user wine64)
