#!/usr/bin/env bash
# Installs the Debian packages Riffle needs, only those that are missing.
set -euo pipefail
packages=(g++ make cmake libgtest-dev libbenchmark-dev libcgns-dev libhdf5-dev cgns-convert
          python3-h5py python3-numpy python3-matplotlib
          libopenmpi-dev openmpi-bin clang-format)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing missing packages: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q < /dev/null
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}" < /dev/null
