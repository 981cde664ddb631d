#!/usr/bin/env bash
# Every variable that the library's sources ask the environment for is one that `rfm doctor` tells about.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly doctor=programs/rfm/doctor.cpp
status=0
while IFS= read -r variable; do
    if ! grep -q -F "{\"$variable\"," "$doctor"; then
        printf '%s does not tell about %s\n' "$doctor" "$variable"
        status=1
    fi
done < <(git grep -h -o -P '(?:getenv|getSubDirPath)\("\K[A-Za-z_]+' -- rfm rds support | sort -u)
exit "$status"
