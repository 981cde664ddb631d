#!/usr/bin/env bash
# The manual pages of the programs of remote connections name each option that the program's sources have for a word, and
# no other. (Those of the tool are made from its help.)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

status=0
for page in docs/man/*.scd; do
    program="$(basename "$page")"
    program="${program%%.*}"
    if [[ ! -d "programs/$program" ]]; then
        continue
    fi
    described="$(grep -o -P '^\*\K-[a-zA-Z]+(?=\*)' "$page" | sort -u || true)"
    taken="$(git grep -h -o -P '"\K-[a-zA-Z]+(?=")' -- "programs/$program" | sort -u || true)"
    if [[ "$described" != "$taken" ]]; then
        printf '%s (<) against the sources of %s (>):\n' "$page" "$program"
        diff <(printf '%s\n' "$described") <(printf '%s\n' "$taken") || true
        status=1
    fi
done
exit "$status"
