#!/usr/bin/env bash
# Arrows between layers only point down. Reads the #include "..." lines of tracked files; one line per offence.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

status=0
offence()
{
    printf '%s\n' "$1"
    status=1
}

# "file:line:header" for each quoted include under the given folders.
quoted_includes()
{
    git ls-files -z -- "$@" |
        { grep -z -E '\.(h|cpp)$' || true; } |
        xargs -0 -r grep -H -n -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' |
        sed -E 's/^([^:]+:[0-9]+):[^"]*"([^"]+)".*/\1:\2/' || true
}

is_public() { [[ -f "include/$1" ]]; }

# Support knows nothing of databases and connections; the export mark is the one header that all layers share.
while IFS=: read -r file line header; do
    if [[ "$(basename "$header")" =~ ^(rfm|rds)_ && "$header" != rfm_Export.h ]]; then
        offence "$file:$line: support/ reaches up to $header"
    fi
done < <(quoted_includes support)

# Connections know nothing of databases.
while IFS=: read -r file line header; do
    if [[ "$(basename "$header")" == rfm_* && "$header" != rfm_Export.h ]]; then
        offence "$file:$line: rds/ reaches up to $header"
    fi
done < <(quoted_includes rds)

# What is installed must be complete in itself.
while IFS=: read -r file line header; do
    if ! is_public "$header"; then
        offence "$file:$line: a public header includes $header, which is not installed"
    fi
done < <(quoted_includes include)

# Examples and benchmarks are users like any other: public headers and their own. A microbenchmark measures parts of
# the inside, so it may name them; the demo's viewer shares the layout of a recorded run with the recorder.
while IFS=: read -r file line header; do
    if ! is_public "$header" && [[ ! -f "$(dirname "$file")/$header" && "$header" != results_layout.h &&
        "$file" != *_microbench.cpp ]]; then
        offence "$file:$line: $header is not a public header"
    fi
done < <(quoted_includes examples bench)

# Programs too, but a tool that looks into damaged files shares the homes of the stored structures, and what reads their
# numbers and bytes; both ends of a remote connection share programs/farend; the tool records a solver's runs with
# programs/syrthes; and the file assistant is a back end's far half, so it stands on the files, the streams and the
# status checker themselves. URLs are taken apart in one place.
readonly bytes_of_files='^(omi_Swapper|rfm_FileRepr|rfm_StoredOffset|utl_UrlParser)\.h$'
readonly halves_of_back_ends='^(rfm_DBStatusChecker|rfm_FileReprLocal|utl_BinIStream|utl_BinOStream|utl_File)\.h$'
while IFS=: read -r file line header; do
    if ! is_public "$header" && [[ ! -f "$(dirname "$file")/$header" && ! -f "programs/farend/$header" &&
        ! -f "programs/syrthes/$header" &&
        "$header" != *Format.h && ! "$header" =~ $bytes_of_files ]] &&
        ! [[ "$file" == programs/rfmT_FileAssistant/* && "$header" =~ $halves_of_back_ends ]]; then
        offence "$file:$line: $header is neither a public header nor the home of a stored structure"
    fi
done < <(quoted_includes programs)

exit "$status"
