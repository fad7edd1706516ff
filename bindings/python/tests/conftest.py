"""Shared helpers: the tools' paths (set by CTest) and nuvik-replay's JSON."""
import copy
import json
import os
import subprocess
import sys

import pytest

REPLAY = os.environ.get("NUVIK_REPLAY", "nuvik-replay")
SAMPLE_LOG = os.environ.get("NUVIK_SAMPLE_LOG", "data/sample-launches.csv")
SAMPLE_LOG_BIN = os.environ.get("NUVIK_SAMPLE_LOG_BIN", "nuvik-sample-log")
BINDING_TRACE = os.environ.get("NUVIK_BINDING_TRACE", "nuvik-binding-trace")
ENSEMBLES = ["markov_chain3_invalidate,double_linear", "knn_regression:5", "stat_counter"]
# Result frame columns and their names in nuvik-replay's JSON; the row's only with a suggestion row.
TOTALS = {"launches": "launches", "scored": "scored", "apps": "apps", "sum_map": "sumMap",
          "sum_recall": "sumRecall", "sum_hit1": "sumHit1", "sum_hit3": "sumHit3", "sum_hit5": "sumHit5",
          "sum_mrr5": "sumMrr5", "sum_ndcg5": "sumNdcg5", "map": "map", "recall_at_5": "recallAt5",
          "hit_at_1": "hitAt1", "hit_at_3": "hitAt3", "hit_at_5": "hitAt5", "mrr_at_5": "mrrAt5",
          "ndcg_at_5": "ndcgAt5"}
ROW_TOTALS = {"sum_row_hit": "sumRowHit", "sum_dock_or_row_hit": "sumDockOrRowHit", "sum_churn": "sumChurn",
              "churn_count": "churnCount", "row_hit": "rowHit", "dock_or_row_hit": "dockOrRowHit", "churn": "churn"}


def totals_of(row):
    return {**TOTALS, **ROW_TOTALS} if row else TOTALS


def replay_json(*arguments, stdin=None):
    """nuvik-replay --format json, as a list of rows like nuvik.replay's (per user with --per-user)."""
    output = subprocess.run([REPLAY, *arguments, "--format", "json"], input=stdin, capture_output=True, check=True,
                            timeout=120).stdout
    report = json.loads(output)
    totals = totals_of("--row" in arguments)
    rows = []
    for run in report["results"]:
        for entry in run.get("perUser", [dict(run, user=None)]):
            users = 1 if "perUser" in run else run["users"]
            rows.append([run["name"], entry["user"], users, *(entry[key] for key in totals.values())])
    return report, rows


def frame_rows(frame, row=False):
    """A result frame's rows without the timing, comparable with replay_json's (NaN as None)."""
    user = frame["user"] if "user" in frame else [None] * len(frame)
    rows = []
    for name, who, users, values in zip(frame["ensemble"], user, frame["users"],
                                        frame[list(totals_of(row))].itertuples(index=False)):
        rows.append([name, who, users] + [None if value != value else value for value in values])
    return rows


def untimed(report):
    """A copy of a JSON report of nuvik-replay or nuvik.fleet without its timings."""
    report = copy.deepcopy(report)
    for run in report["results"]:
        for entry in [run, *run.get("perUser", [])]:
            del entry["microsPerLaunch"]
    return report


def fleet_json(*arguments):
    """python3 -m nuvik.fleet --format json, without its timings."""
    command = [sys.executable, "-m", "nuvik.fleet", *arguments, "--format", "json"]
    return untimed(json.loads(subprocess.run(command, capture_output=True, check=True, timeout=120).stdout))


def tool_error(path, *arguments):
    """nuvik-replay's message for a bad log, without the program name."""
    result = subprocess.run([REPLAY, path, *arguments], capture_output=True, text=True, timeout=60)
    assert result.returncode == 1
    return result.stderr.strip().removeprefix("nuvik-replay: ")


def generate(path, users, first_user, seed, days=3):
    subprocess.run([SAMPLE_LOG_BIN, "--users", str(users), "--first-user", str(first_user), "--seed", str(seed),
                    "--days", str(days), "--output", str(path)], check=True, timeout=60)


# A suggestion row of four beside a dock of two, kept in place.
ROW = {"row": 4, "dock": 2, "stable": True}
ROW_ARGUMENTS = ["--row", "4", "--dock", "2", "--stable"]


@pytest.fixture(scope="session")
def sample_json():
    return replay_json(SAMPLE_LOG, "--compare", *ENSEMBLES, "--per-user", *ROW_ARGUMENTS)
