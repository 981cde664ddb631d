#!/bin/bash
# Runs the solver, the recorder beside it and a viewer in a third process, all at once, and checks that what
# the viewer saw equals the solver's own files.
#
#   run_demo.sh [OUTPUT_FOLDER]
#
# OUTPUT_FOLDER (./demo-output when not given) is made anew each time; a folder that was not made here is left alone. The
# programs are those of the release build, or of the folder that DEMO_BIN names. Exit code 0: all three processes ended
# well and everything is equal.
set -u

readonly steps=1000  # about 15 s of the solver on one core
readonly period=20   # steps between two increments

readonly package_case=/usr/share/syrthes/tests/cas_3disks3d
readonly package_profile=/usr/lib/syrthes/bin/syrthes.profile
readonly marker=.made-by-the-demo

say() { printf 'demo: %s\n' "$*"; }
fail() { printf 'demo: FAILED: %s\n' "$*" >&2; exit 1; }

if [ $# -gt 1 ]; then
    echo "usage: run_demo.sh [OUTPUT_FOLDER]" >&2
    exit 2
fi
here=$(cd "$(dirname "$0")" && pwd) || exit 1
bin=${DEMO_BIN:-$here/../build/release/bin}
bin=$(cd "$bin" 2>/dev/null && pwd) || fail "there is no folder $bin: build first"
output=${1:-demo-output}

for program in rfm follow_results; do
    [ -x "$bin/$program" ] || fail "there is no program $bin/$program: build first"
done
for needed in "$package_case" "$package_profile" /usr/bin/python3; do
    [ -e "$needed" ] || fail "$needed is missing: install the packages syrthes, syrthes-tests and python3"
done

# The solver starts a compiler and a program of its own: each of the three gets a process group, so that
# nothing of theirs is left behind however this script ends.
solver='' recorder='' viewer=''
clean_up() {
    for group in $viewer $recorder $solver; do
        kill -TERM -- "-$group" 2>/dev/null
    done
    wait 2>/dev/null
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

make_output_folder() {
    if [ -e "$output" ]; then
        [ -f "$output/$marker" ] || fail "$output exists and was not made by this demo: name another folder"
        rm -rf "$output" || fail "$output can't be removed"
    fi
    if ! mkdir -p "$output" || ! : >"$output/$marker"; then
        fail "$output can't be made"
    fi
    output=$(cd "$output" && pwd)
}

# The case is used as the package has it, but for the length of the run and how often it writes results.
prepare_case() {
    cp -r "$package_case" "$output/case" || fail "the case can't be copied"
    chmod -R u+w "$output/case"
    LC_ALL=C sed -e "s/^NOMBRE DE PAS DE TEMPS SOLIDES=.*/NOMBRE DE PAS DE TEMPS SOLIDES= $steps/" \
        -e "s/^PAS DES SORTIES CHRONO SOLIDE ITERATIONS=.*/PAS DES SORTIES CHRONO SOLIDE ITERATIONS= $period/" \
        "$package_case/syrthes/3disks3d.syd" >"$output/case/syrthes/demo.syd" || fail "the case can't be written"
}

# Its exit code goes to a file, under its final name in one step: the recorder waits for it. The solver's
# script can end with 0 after a failure, so its own last word is asked for too.
run_solver() {
    cd "$output/case/syrthes" || return 1
    (
        set +u
        # shellcheck source=/dev/null
        . "$package_profile"
        exec /usr/bin/python3 syrthes.py -n 1 -d demo.syd
    ) >"$output/solver.log" 2>&1
    local code=$?
    if [ $code -eq 0 ] && ! LC_ALL=C grep -aq 'FIN NORMALE DU PROGRAMME' "$output/solver.log"; then
        code=1
    fi
    echo $code >"$output/solver.status.new" && mv "$output/solver.status.new" "$output/solver.status"
    return $code
}

make_output_folder
prepare_case
say "solver, recorder and viewer start: $steps steps, an increment every $period of them"

set -m
"$bin/follow_results" --picture "$output/temperature.png" --report "$output/viewer.txt" "$output/run.rdx" &
viewer=$!
"$bin/rfm" import syrthes "$output/case/syrthes/demo.syd" "$output/run.rdx" --status "$output/solver.status" \
    --command "syrthes.py -n 1 -d demo.syd" >"$output/recorder.log" &
recorder=$!
run_solver &
solver=$!
set +m

# A solver that fails makes the recorder publish that the run has failed, and the viewer end by itself: all are waited
# for. When another one fails first, the solver would run on for nothing; and a recorder that was killed published
# nothing, so that the viewer would wait for it.
failure=
while [ -n "$solver$recorder$viewer" ]; do
    wait -n -p ended $solver $recorder $viewer
    code=$?
    case $ended in
        "$solver") name=solver solver='' ;;
        "$recorder") name=recorder recorder='' ;;
        "$viewer") name=viewer viewer='' ;;
    esac
    [ $code -eq 0 ] && continue
    failure=${failure:-the $name ended with $code}
    if [ -n "$solver" ] || [ $code -ge 128 ]; then
        break
    fi
done
if [ -n "$failure" ]; then
    [[ $failure == "the solver"* ]] && tail -n 20 "$output/solver.log" >&2
    fail "$failure (the solver's own words: $output/solver.log)"
fi

say "comparing with the solver's own files: what the viewer saw while it ran, and the database as it is now"
"$bin/follow_results" --print-checksums "$output/run.rdx" >"$output/database.txt" ||
    fail "the finished database can't be read"
/usr/bin/python3 "$here/check_results.py" "$output/case/syrthes/resu1.rdt" "$output/case/syrthes/resu1.his" \
    "$output/viewer.txt" "$output/database.txt" || fail "the viewer did not see what the solver wrote"
[ -s "$output/temperature.png" ] || fail "there is no picture"

say "all equal"
say "database: $output/run.rdx"
say "picture:  $output/temperature.png"
