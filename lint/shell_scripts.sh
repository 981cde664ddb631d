#!/usr/bin/env bash
# Every tracked shell script, with or without an ending, goes through shellcheck.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

git grep -l -I -E '^#!.*\b(bash|sh)$' -- . ':!*.md' | tr '\n' '\0' | xargs -0 -r shellcheck
