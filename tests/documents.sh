#!/usr/bin/env bash
# Holds texts against the sources that they speak of: documents.sh limits (each test that docs/limits.md names is there),
# documents.sh tutorial (each line of code in docs/tutorial.md stands in an example), documents.sh performance (each workload
# of the benchmarks has its row and its explanation in docs/performance.md).
# The backquotes are those of the texts.
# shellcheck disable=SC2016
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

failures=0
tell()
{
    printf '%s\n' "$*" >&2
    failures=$((failures + 1))
}

# A name without its suite, `.Name`, belongs to the suite of the name before it.
Limits()
{
    local tests suite='' name count=0
    tests="$(cat tests/*/*.cpp | tr -d '\n' | grep -oE 'TEST(_F|_P)?\( *[A-Za-z0-9_]+, *[A-Za-z0-9_]+' |
        sed -E 's/.*\( *//; s/, */./')"
    while IFS= read -r name; do
        [[ "$name" == .* ]] || suite="${name%%.*}"
        grep -qxF "${suite}.${name#*.}" <<<"$tests" || tell "docs/limits.md: there is no test $suite.${name#*.}"
        count=$((count + 1))
    done < <(grep -oE '`[A-Za-z0-9_]*\.[A-Z][A-Za-z0-9]{12,}`' docs/limits.md | tr -d '`')
    ((count > 50)) || tell "docs/limits.md: only $count tests are found in it"
}

Tutorial()
{
    local line count=0
    while IFS= read -r line; do
        grep -qF -- "$line" examples/*.cpp || tell "docs/tutorial.md: in no example: $line"
        count=$((count + 1))
    done < <(sed -n '/^```cpp$/,/^```$/{/^```/!p}' docs/tutorial.md | sed -E 's/^ +//; /^$/d')
    ((count > 20)) || tell "docs/tutorial.md: only $count lines of code are found in it"
}

Performance()
{
    local name count=0
    while IFS= read -r name; do
        grep -qE "^$name  +" docs/performance.md || tell "docs/performance.md: no row of $name"
        grep -qF "**$name**" docs/performance.md || tell "docs/performance.md: nothing explains $name"
        count=$((count + 1))
    done < <(grep -oE '\.name = "[^"]+"' bench/report.cpp | cut -d '"' -f 2)
    ((count > 20)) || tell "bench/report.cpp: only $count workloads are found in it"
}

case "${1:-}" in
    limits) Limits ;;
    tutorial) Tutorial ;;
    performance) Performance ;;
    *) tell "usage: documents.sh limits|tutorial|performance" ;;
esac
((failures == 0))
