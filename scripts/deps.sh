#!/usr/bin/env bash
# Installs the Debian packages the build needs, when some are missing.
# Sourced by the other scripts; does nothing when everything is present.

# Installs those of the named packages that are missing.
lmimage_install_packages() {
  local missing=()
  local pkg
  for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  if [ "$(id -u)" -ne 0 ] || ! command -v apt-get >/dev/null; then
    echo "missing packages: ${missing[*]} (install them with apt-get as root)" >&2
    return 1
  fi
  echo "installing: ${missing[*]}"
  apt-get update -qq && apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

lmimage_install_deps() {
  lmimage_install_packages cmake g++ make pkg-config googletest libgtest-dev libgmock-dev libbenchmark-dev \
    libpng-dev libjpeg62-turbo-dev libstb-dev ninja-build python3 \
    libastcenc-dev libsquish-dev astcenc libnvtt-bin etc1tool
}
