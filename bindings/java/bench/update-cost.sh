#!/usr/bin/env bash
# Cost of Nuvik.update through Java against Nuvik::Update in C++ at 200 known
# applications, measured side by side in one process (UpdateCost.java), for
# each ensemble in ENSEMBLES, ROUNDS times.
#   update-cost.sh JAVA CLASSPATH LIBRARY_DIR
# Environment: ENSEMBLES (space-separated, each comma-separated;
# "stat_counter markov_chain3_invalidate,linear"), LAUNCHES (timed launches per
# run, 2000), ROUNDS (3). Usually: cmake --build build --target java-update-cost
set -euo pipefail
java=$1 classpath=$2 library_dir=$3
for ensemble in ${ENSEMBLES:-stat_counter markov_chain3_invalidate,linear}; do
  for ((round = 0; round < ${ROUNDS:-3}; ++round)); do
    # shellcheck disable=SC2086
    "$java" -Djava.library.path="$library_dir" -cp "$classpath" UpdateCost "${LAUNCHES:-2000}" ${ensemble//,/ }
  done
done
