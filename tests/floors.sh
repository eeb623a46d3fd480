#!/bin/sh
# Fails when a source file includes a floor above its own, or a floor that is none.
#
#     tests/floors.sh [FOLDER]      FOLDER is src/ by default
#
# The order of the floors, lowest first; a file includes only its own and those before it.
set -eu
floors="platform base meta search net client app"

# Prints every include of a higher or unknown floor below folder $1, as "file:line: #include".
violations() {
    allowed=""
    for floor in $floors; do
        allowed="${allowed:+$allowed|}$floor"
        [ -d "$1/$floor" ] || continue
        grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' --include='*.h' --include='*.cpp' \
            "$1/$floor" | grep -vE "#[[:space:]]*include[[:space:]]*\"($allowed)/" || true
    done
}

# The check itself must be able to fail: a floor that includes upwards, one that includes a file by
# a name that is not rooted, and one that is in order.
specimen=$(mktemp -d)
trap 'rm -rf "$specimen"' EXIT
mkdir "$specimen/base" "$specimen/net"
printf '#include "net/Door.h"\n' >"$specimen/base/Upwards.cpp"
printf '  # include "Door.h"\n' >"$specimen/net/Unrooted.h"
printf '#include <vector>\n#include "base/Output.h"\n#include "net/Door.h"\n' >"$specimen/net/Good.cpp"
if [ "$(violations "$specimen" | wc -l)" -ne 2 ]; then
    echo "floors: the check no longer finds what it should find" >&2
    exit 2
fi

folder=${1:-$(dirname "$0")/../src}
found=$(violations "$folder")
if [ -n "$found" ]; then
    echo "floors: includes of a higher floor, or not rooted at src/:" >&2
    echo "$found" >&2
    exit 1
fi
echo "floors: every include under $folder stays on its floor or below"
