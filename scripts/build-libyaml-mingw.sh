#!/usr/bin/env bash
# Builds libyaml for a MinGW-w64 target from Debian's source package of
# libyaml and installs it, with a pkg-config file and a link to the build
# machine's header-only RapidJSON and CLI11, under build/deps/<triplet>. Built
# once per target: later runs find the installed copy and only renew the links.
#
# Usage: scripts/build-libyaml-mingw.sh i686-w64-mingw32|x86_64-w64-mingw32
# Needs the deb-src entry that scripts/install-deps-windows.sh enables.
set -euo pipefail
triplet=${1:?usage: $0 i686-w64-mingw32|x86_64-w64-mingw32}
root=$(cd "$(dirname "$0")/.." && pwd)
deps=$root/build/deps
prefix=$deps/$triplet
stamp=$prefix/lib/pkgconfig/yaml-0.1.pc

# The header-only libraries of the build machine, each linked on its own so
# that /usr/include itself never reaches the cross compiler.
mkdir -p "$prefix/include"
ln -sfn /usr/include/rapidjson "$prefix/include/rapidjson"
ln -sfn /usr/include/CLI "$prefix/include/CLI"
[[ -f $stamp ]] && exit 0

mkdir -p "$deps/src"
exec 9>"$deps/.lock"
flock 9
[[ -f $stamp ]] && exit 0

# The source package, fetched once for all targets.
source_dir=$(find "$deps/src" -maxdepth 1 -type d -name 'libyaml-*' | head -n 1)
if [[ -z $source_dir ]]; then
  if ! (cd "$deps/src" && apt-get source -qq libyaml >/dev/null 2>"$deps/src/apt-source.log"); then
    echo "build-libyaml-mingw: 'apt-get source libyaml' failed; run scripts/install-deps.sh" \
         "--windows as root to enable the deb-src entry. apt said:" >&2
    cat "$deps/src/apt-source.log" >&2
    exit 1
  fi
  source_dir=$(find "$deps/src" -maxdepth 1 -type d -name 'libyaml-*' | head -n 1)
fi
version=${source_dir##*/libyaml-}
echo "build-libyaml-mingw: building libyaml $version for $triplet"

work=$deps/build-libyaml-$triplet
rm -rf "$work"
cmake -S "$source_dir" -B "$work" -G Ninja -Wno-dev \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/$triplet.cmake" \
      -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF \
      -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
cmake --build "$work" -j 2 >/dev/null
cmake --install "$work" >/dev/null

# The headers of the static library need YAML_DECLARE_STATIC, or they
# declare every function as imported from a DLL.
mkdir -p "$prefix/lib/pkgconfig"
cat >"$stamp.tmp" <<PC
prefix=$prefix
includedir=\${prefix}/include
libdir=\${prefix}/lib

Name: LibYAML
Description: Library to parse and emit YAML (static, $triplet)
Version: $version
Cflags: -I\${includedir} -DYAML_DECLARE_STATIC
Libs: -L\${libdir} -lyaml
PC
mv "$stamp.tmp" "$stamp"
rm -rf "$work"
