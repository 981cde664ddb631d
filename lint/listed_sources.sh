#!/usr/bin/env bash
# Every tracked .cpp is named in a CMakeLists.txt of its folder or of one above it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

status=0
while IFS= read -r source; do
    folder="$(dirname "$source")"
    listed=0
    while true; do
        relative="${source#"$folder"/}"
        if [[ "$folder" == . ]]; then
            relative="$source"
        fi
        if [[ -f "$folder/CMakeLists.txt" ]] &&
            tr -s ' \t()"' '\n' <"$folder/CMakeLists.txt" | grep -x -F -- "$relative" >/dev/null; then
            listed=1
            break
        fi
        if [[ "$folder" == . ]]; then
            break
        fi
        folder="$(dirname "$folder")"
    done
    if ((listed == 0)); then
        printf '%s: named in no CMakeLists.txt, so nobody builds it\n' "$source"
        status=1
    fi
done < <(git ls-files '*.cpp')
exit "$status"
