#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
# Safe to run any number of times; does nothing when everything is present.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libboost-dev
  libpugixml-dev
  libsqlite3-dev
  libspdlog-dev libfmt-dev
  libcereal-dev
  libcli11-dev
  nlohmann-json3-dev
  libpci-dev pci.ids pciutils
  lshw memtester fio util-linux
  libgtest-dev libgmock-dev librapidcheck-dev libbenchmark-dev
  clang clang-format
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
