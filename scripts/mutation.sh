#!/usr/bin/env bash
# Measures how many planted faults the suite of one revision catches.
#   scripts/mutation.sh REV OUT SEED...
# Clones this repository at REV into OUT/tree (once), builds it, and runs the
# mutation tool (MUTATE, default ../shared/tools/mutate.py) with 10 mutants per
# seed; results go to OUT/<seed>.json, a finished seed is not run again. The
# clone's CTest stops at the first failing program: a fault counts as caught
# either way, and a caught one costs less. src/ must be the same in every
# revision compared, so that the same seeds give the same mutants.
#   ONLY=killed|survived FROM=DIR scripts/mutation.sh REV OUT SEED...
# runs only the mutants that an earlier measurement (DIR/<seed>.json) found
# killed, or survived: the killed ones first tell whether a revision still
# catches what another caught, at a fraction of the time.
set -euo pipefail
rev=$1 out=$(realpath -m "$2"); shift 2
repo=$(cd "$(dirname "$0")/.." && pwd)
mutate=${MUTATE:-$repo/../shared/tools/mutate.py}
mkdir -p "$out"
if [ ! -d "$out/tree" ]; then
  git clone -q "$repo" "$out/tree" && git -C "$out/tree" checkout -q "$rev"
  python3 - "$out/tree/CMakePresets.json" <<'PY'
import json, sys
d = json.load(open(sys.argv[1]))
d["testPresets"][0]["execution"]["stopOnFailure"] = True
json.dump(d, open(sys.argv[1], "w"), indent=2)
PY
fi
(cd "$out/tree" && scripts/bootstrap.sh && cmake --preset mingw >/dev/null && cmake --build --preset mingw >/dev/null)
first=1
for seed in "$@"; do
  if [ -f "$out/$seed.json" ] && grep -q '"interrupted": false' "$out/$seed.json"; then continue; fi
  baseline=$([ $first = 1 ] && echo "" || echo --no-baseline)
  tool=("$mutate")
  if [ -n "${ONLY:-}" ]; then
    ids=$(python3 -c 'import json, sys
d = json.load(open(sys.argv[1]))
print(",".join(str(m["id"]) for m in d["mutants"]
               if m["outcome"] != "stillborn" and (m["outcome"] == "survived") == (sys.argv[2] == "survived")))' \
      "$FROM/$seed.json" "$ONLY")
    [ -n "$ids" ] || continue
    export ZK_MUTANT_IDS=$ids ZK_MUTATE_DIR=$(dirname "$mutate")
    tool=("$repo/scripts/mutate-some.py")
  fi
  python3 "${tool[@]}" --repo "$out/tree" --seed "$seed" --count 10 --timeout 600 --out "$out/$seed.json" $baseline \
    | tail -1
  first=0
done
python3 - "$out" "$@" <<'PY'
import collections, json, os, sys
tally = collections.defaultdict(lambda: [0, 0])  # folder -> [killed, survived]
for seed in sys.argv[2:]:
    p = os.path.join(sys.argv[1], seed + ".json")
    for m in json.load(open(p))["mutants"] if os.path.exists(p) else []:
        if m["outcome"] in ("killed", "timeout", "survived"):
            for key in ("all", m["file"].split("/")[1]):
                tally[key][m["outcome"] == "survived"] += 1
for key, (k, s) in sorted(tally.items()):
    print("%-8s %3d killed %3d survived  kill rate %5.1f%%" % (key, k, s, 100.0 * k / (k + s)))
PY
