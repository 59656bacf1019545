#!/usr/bin/env bash
# Runs every libFuzzer target of the fuzz preset for a while, each on a
# scratch copy of its seed corpus (new inputs never land in the tree), and
# prints per target the inputs executed and the findings.
#   scripts/fuzz.sh [seconds per target, default 60] [target names, default all]
# Build the targets first: scripts/build.sh fuzz. A finding (a crash-, leak-,
# timeout- or oom- file) stays in the scratch folder named at the end, with
# the target's log; once fixed, add it to fuzz/corpus/<Target>/ as a seed.
set -euo pipefail

seconds=${1:-60}
if ! [[ $seconds =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: $0 [seconds per target, default 60] [target names, default all]" >&2
  exit 2
fi
shift $(($# > 0 ? 1 : 0))

cd "$(dirname "$0")/.."
target_dir=build/fuzz/fuzz
targets=()
if [ $# -gt 0 ]; then
  for name in "$@"; do
    if ! [ -x "$target_dir/$name" ]; then
      echo "no fuzz target $target_dir/$name: run scripts/build.sh fuzz first" >&2
      exit 2
    fi
    targets+=("$target_dir/$name")
  done
else
  for target in "$target_dir"/Qz*Fuzz; do
    if [ -f "$target" ] && [ -x "$target" ]; then
      targets+=("$target")
    fi
  done
fi
if [ ${#targets[@]} -eq 0 ]; then
  echo "no fuzz targets in $target_dir: run scripts/build.sh fuzz first" >&2
  exit 2
fi

scratch=$(mktemp -d "${TMPDIR:-/tmp}/qz-fuzz.XXXXXX")
total_findings=0
printf '%-26s %14s %9s\n' target executions findings
for target in "${targets[@]}"; do
  name=$(basename "$target")
  work=$scratch/$name
  mkdir -p "$work/corpus" "$work/findings"
  if [ -d "fuzz/corpus/$name" ]; then
    cp -R "fuzz/corpus/$name/." "$work/corpus/"
  fi
  # A finding ends the run with a non-zero status; the table reports it.
  "$target" "$work/corpus" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$work/findings/" >"$work/log" 2>&1 || true
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -n 1)
  findings=$(find "$work/findings" -type f | wc -l)
  total_findings=$((total_findings + findings))
  printf '%-26s %14s %9d\n' "$name" "${executions:-?}" "$findings"
done
echo "logs, corpora and findings: $scratch"
if [ "$total_findings" -ne 0 ]; then
  exit 1
fi
