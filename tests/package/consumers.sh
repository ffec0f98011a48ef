#!/bin/sh
# Installs the build and builds the same five-line program against it, in each way that the README offers.
# usage: consumers.sh CMAKE CXX SOURCE_DIR BUILD_DIR
set -eu
cmake=$1 cxx=$2 source=$3 build=$4
here=$source/tests/package/consumer
work=$build/package
rm -rf "$work"
mkdir -p "$work"

"$cmake" --install "$build" --prefix "$work/first" >"$work/install.log"
mv "$work/first" "$work/prefix" # an installed tree may be moved
prefix=$work/prefix
libdir=$(dirname "$(find "$prefix" -name libms.a)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"

check() { # NAME PROGRAM KIND: the program runs and is linked as meant
  if readelf -d "$2" | grep -q 'NEEDED.*libms\.so'; then linked=shared; else linked=static; fi
  [ "$linked" = "$3" ] || { echo "$1: linked $linked, wanted $3"; exit 1; }
  LD_LIBRARY_PATH="$libdir" "$2" "$work/store-$1" || { echo "$1: the program failed"; exit 1; }
  echo "$1: good"
}

with_cmake() { # NAME KIND BUILD_DIR OPTION...
  name=$1 kind=$2 dir=$3
  shift 3
  [ "$kind" = shared ] && on=ON || on=OFF
  { "$cmake" -S "$here" -B "$dir" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
      -DBUILD_SHARED_LIBS="$on" "$@" && "$cmake" --build "$dir" -j2; } >"$work/$name.log" 2>&1 ||
    { cat "$work/$name.log"; exit 1; }
  check "$name" "$dir/consumer" "$kind"
}

for header in "$prefix"/include/ms/*.h "$prefix"/include/ms/kit/*.h; do
  "$cxx" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -include "$header" \
    -x c++ /dev/null || { echo "$header does not stand alone"; exit 1; }
done

for kind in static shared; do
  with_cmake "find_package-$kind" $kind "$work/found-$kind" -Dms_DIR="$libdir/cmake/ms"
  # One directory for both: only the link differs.
  with_cmake "add_subdirectory-$kind" $kind "$work/embedded" -DMS_SOURCE="$source"
done

flags=$(pkg-config --cflags ms)
"$cxx" -std=c++20 $flags "$here/consumer.cpp" -o "$work/pc-shared" $(pkg-config --libs ms)
check pkg-config-shared "$work/pc-shared" shared
"$cxx" -std=c++20 $flags "$here/consumer.cpp" -o "$work/pc-static" \
  $(pkg-config --static --libs ms | sed 's/-lms/-l:libms.a/')
check pkg-config-static "$work/pc-static" static
