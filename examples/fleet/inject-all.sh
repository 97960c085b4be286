#!/bin/sh
# Puts a folder of driver packages into many image files, several at once, with GNU parallel:
#
#   inject-all.sh DRIVERS OUTCOMES.json IMAGE...
#
# OUTCOMES.json gets one line for each image: how kestro ended (Exitval), and what it printed (Stdout, again a JSON
# document). The exit code is the number of images that failed. JOBS is how many are worked on at once: 4.
set -eu
[ $# -ge 3 ] || { sed -n '2,7s/^# \{0,1\}//p' "$0"; exit 2; }
drivers=$1 outcomes=$2
shift 2
for program in kestro parallel; do
    command -v "$program" >/dev/null || { echo "inject-all.sh: $program is missing" >&2; exit 2; }
done
exec parallel --jobs "${JOBS:-4}" --quote --results "$outcomes" \
    kestro inject {} "$drivers" --index all --json ::: "$@" >/dev/null
