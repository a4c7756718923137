#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and checks it as a user would meet it:
# the files in place, the version lines, the bundled example run from the installed copy,
# and a program of the user's own (consumer/) built against the installed CMake package.
#
#   check_install.sh <build dir> <project version> <C++ compiler> [extra linker flags]
set -euo pipefail
unset KAVRI_JOB_SCHED

BUILD=$(realpath "$1")
VERSION=$2
CXX=$3
LINK_FLAGS=${4:-}
HERE=$(dirname "$(realpath "$0")")
ROOT=$(mktemp -d /tmp/kavri-install.XXXXXX)
trap 'rm -rf "$ROOT"' EXIT
PREFIX=$ROOT/prefix

fail() {
  echo "FAIL: $*"
  exit 1
}

cmake --install "$BUILD" --prefix "$PREFIX" >"$ROOT/install.log" ||
  { cat "$ROOT/install.log"; fail "cmake --install"; }

for f in bin/kavri_siteenergy bin/kavri_jobscript lib/libkavri_core.a \
  include/kavri/kavri_inp.h include/kavri/job_scripts.h include/kavri/util.h \
  include/kavri/cli_options.h include/kavri/kavri_version.h \
  lib/cmake/Kavri/KavriConfig.cmake lib/cmake/Kavri/KavriConfigVersion.cmake \
  lib/cmake/Kavri/KavriTargets.cmake share/man/man1/kavri_siteenergy.1 \
  share/man/man1/kavri_jobscript.1 share/doc/kavri/README.md \
  share/doc/kavri/examples/anthracene/kavri.inp \
  share/doc/kavri/examples/anthracene/anthracene.cif \
  share/doc/kavri/examples/anthracene/data/SE_einternal-h.dat; do
  [ -f "$PREFIX/$f" ] || fail "not installed: $f"
done
for tool in kavri_siteenergy kavri_jobscript; do
  head -n 1 "$PREFIX/share/man/man1/$tool.1" | grep -q "^\.TH $tool 1 .*KAVRI $VERSION" ||
    fail "man page of $tool: $(head -n 1 "$PREFIX/share/man/man1/$tool.1")"
done

[ "$("$PREFIX/bin/kavri_jobscript" --version)" = \
  "kavri_jobscript (KAVRI charge-transport suite) $VERSION" ] || fail "kavri_jobscript --version"
[ "$("$PREFIX/bin/kavri_siteenergy" --version)" = \
  "KAVRI version 2022A (2.3.3), build on Apr 14 2022" ] || fail "kavri_siteenergy --version"

RUN=$ROOT/run
cp -r "$PREFIX/share/doc/kavri/examples/anthracene" "$RUN"
(cd "$RUN" && "$PREFIX/bin/kavri_siteenergy" >"$ROOT/run.log") ||
  { cat "$ROOT/run.log"; fail "installed kavri_siteenergy on the installed example"; }
grep -qx '\*\*\* Successfully done\.' "$ROOT/run.log" || fail "example run did not succeed"
for f in EH.dat EL.dat; do
  [ -s "$RUN/data/$f" ] || fail "the installed example wrote no $f"
done

if ! { cmake -S "$HERE/consumer" -B "$ROOT/consumer" -DCMAKE_PREFIX_PATH="$PREFIX" \
  -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_EXE_LINKER_FLAGS="$LINK_FLAGS" &&
  cmake --build "$ROOT/consumer"; } >"$ROOT/consumer.log" 2>&1; then
  cat "$ROOT/consumer.log"
  fail "consumer build against the installed package"
fi
[ "$(cd "$RUN" && "$ROOT/consumer/kavri_consumer")" = "KAVRI $VERSION: slurm job scripts" ] ||
  fail "consumer output"
echo "PASS: installed tree, example and consumer build"
