#!/usr/bin/env bash
# <ostrel/ostrel.h> must include every public header of the client library
# (clientapis/src/ostrel/*.h and xmlscript/*.h, listed now, so a header added
# later is caught) and must compile on its own with -Wall -Wextra -Werror.
#
# Usage: umbrella_header_test.sh SOURCE_DIR CXX_COMPILER [-I... more include flags]
set -euo pipefail

source=$1
cxx=$2
shift 2

dir=$source/clientapis/src/ostrel
umbrella=$dir/ostrel.h
missing=0
shopt -s nullglob
for header in "$dir"/*.h "$dir"/xmlscript/*.h; do
  name=${header#"$dir"/}
  [ "$name" = ostrel.h ] && continue
  if ! grep -Eq "^#include [<\"]ostrel/${name//./\\.}[>\"]" "$umbrella"; then
    echo "FAIL: ostrel/ostrel.h does not include ostrel/$name" >&2
    missing=1
  fi
done
[ "$missing" -eq 0 ] || exit 1

echo '#include <ostrel/ostrel.h>' |
  "$cxx" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -x c++ - "$@"
echo "PASS"
