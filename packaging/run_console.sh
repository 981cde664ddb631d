#!/usr/bin/env bash
# Keeps a text true: run_console.sh FILE FOLDER [FROM=TO] runs its blocks that are fenced as ```console, one after the
# other in one shell and on a terminal, and compares what comes out. In a block a line that begins with "$ " is a
# command, one that begins with "> " goes on with it, and the others are what it prints; ... in them stands for any
# text. A command that fails is a difference, whatever it prints. With FROM=TO each FROM in a command is run as TO.
set -euo pipefail

text="$(realpath "$1")"
folder="$2"
replacement="${3:-}"
from="${replacement%%=*}"
to="${replacement#*=}"

commands=()
expected=()
isInside=0
while IFS= read -r line; do
    if [[ "$line" == '```console' ]]; then
        isInside=1
    elif [[ "$line" == '```'* ]]; then
        isInside=0
    elif ((isInside)) && [[ "$line" == '$ '* ]]; then
        commands+=("${line:2}")
        expected+=("")
    elif ((isInside)) && [[ "$line" == '> '* ]]; then
        commands[-1]+=$'\n'"${line:2}"
    elif ((isInside)); then
        expected[-1]+="$line"$'\n'
    fi
done <"$text"
if ((${#commands[@]} == 0)); then
    printf '%s holds no block that is fenced as console\n' "$text" >&2
    exit 1
fi

# The commands as one script; a line with a mark no command prints goes before each and behind it.
session="$(mktemp)"
trap 'rm -f "$session"' EXIT
mark=$'\001'
{
    printf 'stty cols 100 rows 50\nexport TERM=dumb PAGER=cat\n'
    for index in "${!commands[@]}"; do
        command="${commands[index]}"
        if [[ -n "$from" ]]; then
            command="${command//"$from"/"$to"}"
        fi
        printf "printf '%s%d\\\\n'\n%s\nprintf '%s=%%d\\\\n' \$?\n" "$mark" "$index" "$command" "$mark"
    done
} >"$session"
# A terminal turns each line end into two characters.
output="$(cd "$folder" && script -qec "bash --norc '$session'" /dev/null </dev/null | tr -d '\r')"

# Without the empty lines at its end: one often separates commands in a text.
Trimmed()
{
    local lines="$1"
    while [[ "$lines" == *$'\n' ]]; do lines="${lines%$'\n'}"; done
    printf '%s' "$lines"
}

# What a command may print, as a pattern of the shell.
Pattern() { sed -e 's/[][\\*?()|+@!]/\\&/g' -e 's/\.\.\./*/g' <<<"$1"; }

failures=0
for index in "${!commands[@]}"; do
    found="${output#*"$mark$index"$'\n'}"
    if [[ "$found" == "$output" ]]; then
        printf 'not reached: %s\n' "${commands[index]}"
        failures=$((failures + 1))
        continue
    fi
    code="${found#*"$mark"=}"
    code="${code%%$'\n'*}"
    found="$(Trimmed "${found%%"$mark"=*}")"
    pattern="$(Pattern "$(Trimmed "${expected[index]}")")"
    # The pattern is one, so it stands without quotes.
    # shellcheck disable=SC2053
    if [[ "$code" != 0 || "$found" != $pattern ]]; then
        printf '$ %s\n--- expected:\n%s--- found, exit code %s:\n%s\n' \
            "${commands[index]}" "${expected[index]}" "$code" "$found"
        failures=$((failures + 1))
    fi
done
printf '%d commands of %s, %d differ\n' "${#commands[@]}" "$(basename "$text")" "$failures"
((failures == 0))
