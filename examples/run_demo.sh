#!/bin/bash
# Runs the solver, the recorder beside it and a viewer in a third process, all at once, and checks that what
# the viewer saw equals the solver's own files.
#
#   run_demo.sh BIN_FOLDER [OUTPUT_FOLDER]
#
# BIN_FOLDER holds record_solver and follow_results. OUTPUT_FOLDER (./demo-output when not given) is made anew
# each time; a folder that was not made here is left alone. Exit code 0: all three processes ended well and
# everything is equal.
set -u

readonly steps=1000  # about 15 s of the solver on one core
readonly period=20   # steps between two increments

readonly package_case=/usr/share/syrthes/tests/cas_3disks3d
readonly package_profile=/usr/lib/syrthes/bin/syrthes.profile
readonly marker=.made-by-the-demo

say() { printf 'demo: %s\n' "$*"; }
fail() { printf 'demo: FAILED: %s\n' "$*" >&2; exit 1; }

[ $# -ge 1 ] && [ $# -le 2 ] || { echo "usage: run_demo.sh BIN_FOLDER [OUTPUT_FOLDER]" >&2; exit 2; }
here=$(cd "$(dirname "$0")" && pwd) || exit 1
bin=$(cd "$1" && pwd) || fail "there is no folder $1"
output=${2:-demo-output}

for program in record_solver follow_results; do
    [ -x "$bin/$program" ] || fail "there is no program $bin/$program: build it first"
done
for needed in "$package_case" "$package_profile" /usr/bin/python3; do
    [ -e "$needed" ] || fail "$needed is missing: install the packages syrthes, syrthes-tests and python3"
done

# The solver starts a compiler and a program of its own: each of the three gets a process group, so that
# nothing of theirs is left behind however this script ends.
solver= recorder= viewer=
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
    mkdir -p "$output" && : >"$output/$marker" || fail "$output can't be made"
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
"$bin/record_solver" "$output/case/syrthes/demo.syd" "$output/run.rdx" "$output/solver.status" \
    "syrthes.py -n 1 -d demo.syd" &
recorder=$!
run_solver &
solver=$!
set +m

# The viewer ends by itself when the recorder has published the end, also the end of a run that failed. A
# recorder that could not do so would leave it waiting.
wait $solver
solver_code=$?
solver=
wait $recorder
recorder_code=$?
recorder=
if [ $recorder_code -gt 1 ] || { [ $recorder_code -ne 0 ] && ! [ -e "$output/run.rdx" ]; }; then
    fail "the recorder ended with $recorder_code"
fi
wait $viewer
viewer_code=$?
viewer=

[ $solver_code -eq 0 ] || { tail -n 20 "$output/solver.log" >&2; fail "the solver ended with $solver_code"; }
[ $recorder_code -eq 0 ] || fail "the recorder ended with $recorder_code"
[ $viewer_code -eq 0 ] || fail "the viewer ended with $viewer_code"

say "comparing with the solver's own files: what the viewer saw while it ran, and the database as it is now"
"$bin/follow_results" --print-checksums "$output/run.rdx" >"$output/database.txt" ||
    fail "the finished database can't be read"
/usr/bin/python3 "$here/check_results.py" "$output/case/syrthes/resu1.rdt" "$output/case/syrthes/resu1.his" \
    "$output/viewer.txt" "$output/database.txt" || fail "the viewer did not see what the solver wrote"
[ -s "$output/temperature.png" ] || fail "there is no picture"

say "all equal"
say "database: $output/run.rdx"
say "picture:  $output/temperature.png"
