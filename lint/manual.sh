#!/usr/bin/env bash
# The manual pages of the programs of remote connections name each option that the program takes, and no other. (Those of
# the tool are made from its help.)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

status=0
# compare PAGE SOURCE...: options as the page describes them, and as the sources have them for words.
compare()
{
    local page="$1" described taken
    shift
    described="$(grep -o -P '^\*\K-[a-zA-Z]+(?=\*)' "$page" | sort -u)"
    taken="$(grep -h -o -P '"\K-[a-zA-Z]+(?=")' "$@" | sort -u)"
    if [[ "$described" != "$taken" ]]; then
        printf '%s against %s:\n' "$page" "$*"
        diff <(printf '%s\n' "$described") <(printf '%s\n' "$taken") || true
        status=1
    fi
}

compare docs/man/qlnsrv.1.scd programs/qlnsrv/Options.cpp
compare docs/man/qlnsrvd.8.scd programs/qlnsrvd/Options.cpp
compare docs/man/marlek.1.scd programs/marlek/networkDBConnector.cpp
exit "$status"
