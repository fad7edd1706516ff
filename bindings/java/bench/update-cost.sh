#!/usr/bin/env bash
# Cost of Nuvik.update through Java against Nuvik::Update in C++, on the same
# launch stream at 200 applications, in alternating rounds so that both sides
# see the same machine load. Prints each round, the medians and their ratio.
#   update-cost.sh CPP_PROGRAM JAVA CLASSPATH JNI_DIR
# Environment: LAUNCHES (timed launches per run, 20000), ROUNDS (5),
# PREDICTORS (one ensemble, comma-separated; "markov_chain3_invalidate,linear").
# Usually run as: cmake --build build --target java-update-cost
set -euo pipefail
cpp=$1 java=$2 classpath=$3 jni_dir=$4
launches=${LAUNCHES:-20000}
rounds=${ROUNDS:-5}
IFS=, read -r -a predictors <<<"${PREDICTORS:-markov_chain3_invalidate,linear}"

median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

cpp_times=() java_times=()
echo "update at 200 apps, ${predictors[*]}, $launches timed launches per run (ns per update)"
for ((round = 1; round <= rounds; ++round)); do
  c=$("$cpp" "$launches" "${predictors[@]}")
  j=$("$java" -Djava.library.path="$jni_dir" -cp "$classpath" UpdateCost "$launches" "${predictors[@]}")
  printf 'round %d: C++ %10.1f  Java %10.1f\n' "$round" "$c" "$j"
  cpp_times+=("$c") java_times+=("$j")
done
c=$(printf '%s\n' "${cpp_times[@]}" | median)
j=$(printf '%s\n' "${java_times[@]}" | median)
awk -v c="$c" -v j="$j" 'BEGIN { printf "median: C++ %.1f ns, Java %.1f ns, Java/C++ = %.3f\n", c, j, j / c }'
