#!/usr/bin/env bash
# Holds every tracked C++ file against .clang-format; with --fix rewrites them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mode=(--dry-run -Werror)
if [[ "${1:-}" == --fix ]]; then
    mode=(-i)
fi
git ls-files -z '*.h' '*.cpp' | xargs -0 -r clang-format --style=file "${mode[@]}"
