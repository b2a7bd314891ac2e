#!/usr/bin/env bash
# Installs every Debian package that building and testing orvane-calibration needs.
# Idempotent: does nothing when all are present.
set -euo pipefail

packages=(
    build-essential g++ clang cmake ninja-build make
    libboost-dev libboost-program-options-dev libpng-dev
    libgtest-dev libgmock-dev googletest libbenchmark-dev
    libtiff-dev libhdf5-dev libcfitsio-dev pkg-config libomp-dev
    python3 python3-numpy python3-tifffile python3-h5py python3-astropy
    python3-dev pybind11-dev python3-pytest python3-ccdproc python3-matplotlib
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
echo "install-deps: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
