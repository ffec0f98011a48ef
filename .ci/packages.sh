# shellcheck shell=bash disable=SC2034
# Sourced by ./demo and ./test: the Debian packages that a build needs, and how they get here.
packages_build=(g++ cmake ninja-build ccache pkg-config libgtest-dev libbenchmark-dev libgmime-3.0-dev
  libcli11-dev libgcrypt20-dev nlohmann-json3-dev)
# For the other targets: Windows with mingw-w64 and wine, 32-bit Linux.
packages_windows=(g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix libgcrypt-mingw-w64-dev)
packages_wine=(wine wine64)
packages_x86=(g++-multilib gcc-multilib)
packages_check=(clang clang-format clang-tidy)

# try PACKAGE...: as need does, but says no instead of ending the script.
try() { (need "$@"); }

# need PACKAGE...: installs those that are missing; ends the script, with their names, where it may not.
need() {
  local missing=() package root=()
  if ! command -v dpkg-query >/dev/null; then
    echo "This is not a Debian-like system; what has to be there: $*"
    return
  fi
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  if [ "$(id -u)" -ne 0 ]; then
    if ! sudo -n true 2>/dev/null; then
      echo "Missing packages, and no right to install them. As root:" >&2
      echo "  apt-get install ${missing[*]}" >&2
      exit 1
    fi
    root=(sudo -n)
  fi
  echo "Installing ${missing[*]}"
  local log
  log=$(mktemp)
  if ! { "${root[@]}" apt-get update &&
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y --no-install-recommends "${missing[@]}"; } </dev/null >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "Could not install ${missing[*]}" >&2
    exit 1
  fi
  rm -f "$log"
}

# The DLLs with which Debian's 64-bit wine runs 32-bit Windows programs. apt has them under another
# architecture; they are fetched and unpacked beside the system, where nothing is installed.
wine32_dlls() { # DIRECTORY
  [ ! -e "$1/i386-windows" ] || return 0
  local work version options wine=/usr/lib/x86_64-linux-gnu/wine
  version=$(dpkg-query -W -f '${Version}' libwine 2>/dev/null) && [ -d $wine ] || return 1
  work=$(mktemp -d) || return 1
  mkdir -p "$1" "$work/state/lists/partial" "$work/cache/archives/partial"
  touch "$work/state/status"
  options=(-o APT::Architecture=i386 -o APT::Architectures=i386 -o APT::Sandbox::User=root
    -o Dir::State="$work/state" -o Dir::State::status="$work/state/status" -o Dir::Cache="$work/cache")
  # Sources that know nothing of that architecture make the update fail; the download decides.
  if (
    cd "$work" || exit 1
    apt-get "${options[@]}" update
    apt-get "${options[@]}" download "libwine:i386=$version" && dpkg-deb -x libwine_*.deb .
  ) </dev/null >"$work/log" 2>&1; then
    local dlls=$work/usr/lib/i386-linux-gnu/wine/i386-windows
    ln -sfn $wine/x86_64-unix $wine/x86_64-windows "$1/" &&
      cp -L $wine/i386-windows/zlib1.dll "$dlls/" && mv "$dlls" "$1/"
  else
    tail -n 5 "$work/log"
  fi
  rm -rf "$work"
  [ -e "$1/i386-windows" ]
}
