#!/usr/bin/env bash
# Every tracked .cpp is named in a CMakeLists.txt, or in a list (*.cmake) that one includes. Names are relative to the
# folder of the CMakeLists.txt; a list may stand one folder below it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Every path that a build file can mean by the words in it. The dollars are awk's.
# shellcheck disable=SC2016
listed="$(git ls-files -z -- '*CMakeLists.txt' '*.cmake' | xargs -0 awk '
    FNR == 1 {
        folder = FILENAME
        sub(/[^\/]*$/, "", folder)
        above = folder
        sub(/[^\/]*\/$/, "", above)
    }
    {
        count = split($0, words, /[ \t()"]+/)
        for (i = 1; i <= count; ++i)
            if (words[i] ~ /\.cpp$/)
            {
                print folder words[i]
                if (FILENAME ~ /\.cmake$/) print above words[i]
            }
    }')"

unlisted="$(git ls-files -- '*.cpp' | sort | comm -23 - <(sort -u <<<"$listed"))"
if [[ -n "$unlisted" ]]; then
    printf 'named in no build file, so nobody builds them:\n%s\n' "$unlisted"
    exit 1
fi
