#!/bin/bash
# Installs what vorna's build and tests need on Debian 12 (bookworm). Asks for nothing. A second run finds all present,
# and needs no network. Run as root, or as a user who may sudo.
#
#   tools/install-deps.sh            what `make demo` and `make test` need
#   tools/install-deps.sh --dev      also clang and its tools, gcovr, and what compares benchmarks
#
# pybind11 2.13 and magic_enum, both header-only, come from trixie of the same archive. The pin forbids every other
# package of that suite (-1), so nothing else can move, now or at a later upgrade.
set -euo pipefail
case "${1:-}" in
  "" | --dev) ;;
  *) sed -n '2,9s/^# \{0,1\}//p' "$0"; [ "$1" = --help ] && exit 0; exit 2 ;;
esac
SUDO=; [ "$(id -u)" = 0 ] || SUDO=sudo
# sudo drops the environment, hence env behind it; a changed configuration file stays as the machine's owner left it
APT="$SUDO env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 -o Acquire::Retries=3
  -o Dpkg::Options::=--force-confold"
BASE="g++ make cmake ninja-build pkg-config ccache mold
  python3 python3-dev python3-pytest python3-numpy python3-exceptiongroup python3-tomli python3-zmq python3-matplotlib
  libzmq3-dev cppzmq-dev libcereal-dev libconcurrentqueue-dev libusb-1.0-0-dev libudev1 liblog4cpp5-dev
  libgtest-dev libgmock-dev libbenchmark-dev"
[ "${1:-}" != --dev ] || BASE="$BASE clang libclang-rt-dev llvm clang-format clang-tidy gcovr
  libbenchmark-tools python3-scipy"
TRIXIE="pybind11-dev=2.13 libmagicenum-dev=0.9" # name=least version

if ! command -v dpkg-query >/dev/null; then
  echo "install-deps: this is no Debian; install by its own means: $BASE $TRIXIE" >&2
  exit 1
fi

have() { # name [least version]
  local state
  state=$(dpkg-query -W -f '${db:Status-Status} ${Version}' "$1" 2>/dev/null) && [ "${state%% *}" = installed ] &&
    { [ -z "${2:-}" ] || dpkg --compare-versions "${state#* }" ge "$2"; }
}

missing=()
for package in $BASE; do have "$package" || missing+=("$package"); done
fromTrixie=()
for entry in $TRIXIE; do have "${entry%%=*}" "${entry#*=}" || fromTrixie+=("${entry%%=*}"); done
if [ $((${#missing[@]} + ${#fromTrixie[@]})) = 0 ]; then
  echo "install-deps: all present"
  exit 0
fi
echo "install-deps: installing ${missing[*]} ${fromTrixie[*]}"
if [ -n "$SUDO" ] && ! command -v sudo >/dev/null; then
  echo "install-deps: that needs root, and there is no sudo here; run tools/install-deps.sh as root first" >&2
  exit 1
fi
$APT update -q
if [ ${#fromTrixie[@]} -gt 0 ]; then
  . /etc/os-release
  if [ "${VERSION_CODENAME:-}" = bookworm ]; then
    # the archive's address is read from the machine's own bookworm source, never written here
    site=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Codename: bookworm' | sort -u | head -1)
    [ -n "$site" ] || { echo "install-deps: no bookworm source is configured; add one and run apt-get update" >&2; exit 1; }
    printf 'Types: deb\nURIs: %s\nSuites: trixie\nComponents: main\nArchitectures: %s\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' \
      "$site" "$(dpkg --print-architecture)" | $SUDO tee /etc/apt/sources.list.d/vorna-trixie.sources >/dev/null
    names=(); for entry in $TRIXIE; do names+=("${entry%%=*}"); done
    printf 'Package: *\nPin: release n=trixie\nPin-Priority: -1\n\nPackage: %s\nPin: release n=trixie\nPin-Priority: 500\n' \
      "${names[*]}" | $SUDO tee /etc/apt/preferences.d/vorna-trixie >/dev/null
    $APT update -q
  fi
  missing+=("${fromTrixie[@]}")
fi
$APT install -y -q --no-install-recommends "${missing[@]}"
echo "install-deps: done"
