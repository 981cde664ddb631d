#!/usr/bin/env bash
# Words that have no place in this repository: paths of one machine, addresses, loose ends, swallowed failures, and
# talk about the project's own papers. The brackets keep each pattern from finding itself.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

status=0
# refuse WHAT PATTERN [GREP-OPTIONS]
refuse()
{
    local what="$1" pattern="$2"
    shift 2
    local found
    found="$(git grep -n -I -P "$@" -e "$pattern" || true)"
    if [[ -n "$found" ]]; then
        printf '%s:\n%s\n' "$what" "$found"
        status=1
    fi
}

refuse "a path of one machine" '(?<![\w.])/(wor[k]|roo[t]|hom[e]|User[s])/'
# What pictures call their own language is a name, although it looks like one.
refuse "an address of a network" '\b(http[s]?|ft[p])://(?!www\.w3\.org/2000/sv[g]\b)'
refuse "a loose end" '\b(TOD[O]|FIXM[E]|XX[X])\b'
refuse "a skipped test" 'GTEST_SKI[P]'
refuse "a swallowed exception" 'catch\s*\(\.\.\.\)\s*\{\s*[}]'
refuse "talk about papers" '\bspe[c]s?\b|\bspecificatio[n]s?\b|\bPar[t]s? [1-5]\.\d|desig[n]\.md|styl[e]\.md|\.\./share[d]/|\bissu[e] #?\d' -i
exit "$status"
