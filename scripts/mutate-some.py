#!/usr/bin/env python3
# The mutation tool restricted to some of the mutants one seed draws: the ids
# in ZK_MUTANT_IDS (comma-separated). The same seed and count draw the same
# mutants with the same ids as a full run, so results compare mutant for mutant.
import os
import sys

sys.path.insert(0, os.environ["ZK_MUTATE_DIR"])
import mutate  # noqa: E402

keep = {int(x) for x in os.environ["ZK_MUTANT_IDS"].split(",") if x}
draw = mutate.choose


def choose(*args):
    mutants, sources = draw(*args)
    return [m for m in mutants if m["id"] in keep], sources


mutate.choose = choose
sys.exit(mutate.main())
