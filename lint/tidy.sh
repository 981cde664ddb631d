#!/usr/bin/env bash
# clang-tidy over the sources of a configured build tree: tidy.sh BUILD-FOLDER JOBS [PLACE...]
# A place is the beginning of the paths to look at, such as rfm/impl; without one it is all of them.
# A source that was clean is looked at again only when it, a header that it reaches, or the rules have changed: the
# stamp of a clean run is named by the digest of all of them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# tidy.sh --one BUILD-FOLDER DIGEST SOURCE: one source, for the parallel run below.
if [[ "$1" == --one ]]; then
    build="$2"
    stamp="$build/tidy/$3"
    source="$4"
    if [[ ! -e "$stamp" ]]; then
        if ! output="$(clang-tidy --quiet -p "$build" "$source" 2>&1)"; then
            printf '%s\n' "$output"
            exit 1
        fi
        : >"$stamp"
    fi
    exit 0
fi

build="$1"
jobs="$2"
places="$(printf '%s\n' "${@:3}")"
mkdir -p "$build/tidy"

rules="$({
    git ls-files -z '*.clang-tidy' | xargs -0 cat cmake/Warnings.cmake lint/tidy.sh
    clang-tidy --version
} | sha256sum | cut -c 1-64)"

# "digest file" for each tracked source of the build: the digest covers the file and all that it includes in quotes,
# followed by the file's own name, since headers are named as their class and so unlike each other.
digests()
{
    git ls-files -z '*.h' '*.cpp' | xargs -0 -r sha256sum | awk -v rules="$rules" '
        function base(path) { sub(/.*\//, "", path); return path }
        function reach(path,   list, i, n)
        {
            if (seen[path]) return
            seen[path] = 1
            text = text own[path]
            n = split(includes[path], list, "\n")
            for (i = 1; i < n; ++i) reach(home[list[i]])
        }
        {
            path = $2
            own[path] = $1
            if (path ~ /\.h$/) home[base(path)] = path
            while ((getline line < path) > 0)
                if (line ~ /^[ \t]*#[ \t]*include[ \t]*"/)
                {
                    split(line, piece, "\"")
                    includes[path] = includes[path] base(piece[2]) "\n"
                }
            close(path)
        }
        END {
            for (path in own)
                if (path ~ /\.cpp$/)
                {
                    delete seen
                    text = rules
                    seen[""] = 1
                    reach(path)
                    print text, path
                }
        }' | while read -r text path; do
        printf '%s %s\n' "$(printf '%s' "$text" | sha256sum | cut -c 1-64)" "$path"
    done
}

# Only what the build compiles has a command to look at it with; the rest is reported by the check of listed sources.
digests | sort -k 2 | while read -r digest path; do
    if [[ -n "$places" ]] && ! awk -v path="$path" 'index(path, $0) == 1 { found = 1 } END { exit !found }' <<<"$places"; then
        continue
    fi
    if grep -q -F "\"file\": \"$PWD/$path\"" "$build/compile_commands.json"; then
        printf '%s %s\n' "$digest" "$path"
    fi
done | xargs -r -P "$jobs" -L 1 lint/tidy.sh --one "$build"
