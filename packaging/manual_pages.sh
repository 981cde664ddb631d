#!/usr/bin/env bash
# Makes the manual pages: manual_pages.sh RFM FOLDER SOURCE... leaves FOLDER/tools and FOLDER/remote, each to be
# installed as a folder of manual pages. Those of the tool come out of its own help, so that they can't drift away from
# it; those of the other programs from the sources, files for scdoc named PROGRAM.SECTION.scd.
set -euo pipefail

rfm="$1"
folder="$2"
sources=("${@:3}")

# Help is plain text; these mean something to scdoc, the backslash also where lines stay as they are.
Escaped() { sed -e 's/[\\_*#<>|`~.+[-]/\\&/g' -e 's/]/\\]/g'; }

AsLiteral() { sed -e 's/\\/\\\\/g'; }

# Paragraphs as they are; what is indented keeps its lines.
Body()
{
    local line isLiteral=0
    while IFS= read -r line; do
        if [[ "$line" == ' '* ]] && ((!isLiteral)); then
            printf '\n```\n'
            isLiteral=1
        elif [[ "$line" != ' '* ]] && ((isLiteral)); then
            printf '```\n\n'
            isLiteral=0
        fi
        if ((isLiteral)); then
            AsLiteral <<<"$line"
        else
            Escaped <<<"$line"
        fi
    done
    if ((isLiteral)); then
        printf '```\n'
    fi
}

# Literal TITLE: a section of lines that stay as they are, without the lines at its ends that are empty.
Literal()
{
    printf '\n# %s\n\n```\n' "$1"
    sed -e '/./,$!d' | sed -e ':again' -e '/^\n*$/{$d;N;b again' -e '}' | AsLiteral
    printf '```\n'
}

# The lines of a help: the first, those up to "examples:", those up to "usage:", that line, the rest.
CommandPage()
{
    local command="$1" help="$2"
    if ! grep -q '^examples:$' <<<"$help" || ! grep -q '^usage: ' <<<"$help"; then
        printf 'rfm %s --help: no examples or no usage\n' "$command" >&2
        return 1
    fi
    printf 'rfm-%s(1) "rfm"\n\n# NAME\n\n' "$command"
    sed -n "1s/^rfm $command: /rfm-$command - /p" <<<"$help" | Escaped
    printf '\n# SYNOPSIS\n\n'
    sed -n 's/^usage: //p' <<<"$help" | Escaped
    printf '\n# DESCRIPTION\n\n'
    sed -n '2,/^examples:$/{/^examples:$/!p}' <<<"$help" | Body
    sed -n '/^usage: /,${/^usage: /!p}' <<<"$help" | Literal OPTIONS
    sed -n '/^examples:$/,/^usage: /{/^examples:$/!{/^usage: /!p}}' <<<"$help" | Literal EXAMPLES
    printf '\n# SEE ALSO\n\n*rfm*(1)\n'
}

MainPage()
{
    printf 'rfm(1) "rfm"\n\n# NAME\n\nrfm - looks into databases of tables, arrays and streams\n'
    printf '\n# SYNOPSIS\n\n*rfm* _COMMAND_ _DATABASE_ [_OBJECT_] [_OPTIONS_]++\n*rfm* _DATABASE_\n'
    printf '\n# DESCRIPTION\n\n'
    "$rfm" --help | Body
    local topic
    while IFS= read -r topic; do
        "$rfm" help "$topic" | tail -n +3 | Literal "$(tr '[:lower:]-' '[:upper:] ' <<<"$topic")"
    done < <("$rfm" __complete help '')
    printf '\n# SEE ALSO\n\n'
    printf '%s\n' "${commands[@]}" | sed -e 's/.*/*rfm-&*(1),/' -e '$s/,$//'
}

# Compressed SOURCE-NAME FOLDER: the page on standard input, where man looks for it.
Compressed()
{
    local page="${1%.scd}"
    local target="$2/man${page##*.}"
    mkdir -p "$target"
    scdoc | gzip -9n >"$target/$page.gz"
}

rm -rf "$folder"
mapfile -t commands < <("$rfm" __complete '')
if ((${#commands[@]} == 0)); then
    printf '%s names no commands\n' "$rfm" >&2
    exit 1
fi
MainPage | Compressed rfm.1.scd "$folder/tools"
for command in "${commands[@]}"; do
    CommandPage "$command" "$("$rfm" "$command" --help)" | Compressed "rfm-$command.1.scd" "$folder/tools"
done
for source in "${sources[@]}"; do
    name="$(basename "$source")"
    Compressed "$name" "$folder/remote" <"$source"
done
