"""nuvik.fleet on a LocalCluster of two worker processes (loopback only) equals one process, to the bit."""
import gzip
import os
import signal
import threading
import time

import dask
import dask.dataframe as dd
import pandas as pd
import pytest
from distributed import Client, LocalCluster

import nuvik
import nuvik.fleet
from nuvik import _nuvik
from conftest import (ENSEMBLES, ROW_ARGUMENTS, SAMPLE_LOG, fleet_json, frame_rows, generate, replay_json, tool_error,
                      untimed)

TWO = ["markov_chain3_invalidate,double_linear", "stat_counter"]


@pytest.fixture(scope="module")
def client():
    # A killed worker's address then fails fast for the workers fetching from it.
    with dask.config.set({"distributed.comm.timeouts.connect": "5s"}), \
            LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1", dashboard_address=None,
                         silence_logs=50) as cluster, Client(cluster) as client:
        client.wait_for_workers(2, timeout=60)
        yield client


@pytest.fixture(scope="module")
def fleet(tmp_path_factory):
    """Three gzip files of 100 users each, and the same log as one frame."""
    directory = tmp_path_factory.mktemp("fleet")
    frames = []
    for part in range(3):
        plain = directory / f"part{part}.csv"
        generate(plain, users=100, first_user=1 + 100 * part, seed=11 + part, days=2)
        frames.append(pd.read_csv(plain))
        with open(plain, "rb") as source, gzip.open(f"{plain}.gz", "wb") as target:
            target.write(source.read())
        plain.unlink()
    return str(directory / "part*.csv.gz"), pd.concat(frames, ignore_index=True)


def same(result, expected):
    row = "row_hit" in expected
    assert frame_rows(result, row) == frame_rows(expected, row)


def test_dask_frame_equals_one_process(client):
    frame = pd.read_csv(SAMPLE_LOG)
    # Partitions cut through every user's stream; the shuffle puts each stream back together.
    split = dd.from_pandas(frame, npartitions=4)
    same(nuvik.fleet.replay(split, ENSEMBLES, scheduler=client.scheduler.address, tasks=2, lagging=True, row=3),
         nuvik.replay(frame, ENSEMBLES, lagging=True, row=3))


def test_generated_fleet_equals_one_process_and_the_tool(client, fleet, tmp_path):
    pattern, frame = fleet
    expected = nuvik.replay(frame, TWO, per_user=True, lagging=True, report=tmp_path / "one.html")
    assert expected["users"].sum() == 300 * 6
    result = nuvik.fleet.run(pattern, TWO, scheduler=client, tasks=7, lagging=True)
    same(result.frame(per_user=True), expected)
    # Each run's profile, added up over the tasks, counts what one process counts.
    one = _nuvik.replay_text(frame.to_csv(index=False), "one", TWO, False, 0.05, None, False, lagging=True)
    for (label, _, _, _, profile), run in zip(result.runs, one["runs"]):
        expected_profile = run["profile"]
        assert label == run["label"]
        for key in ("by_launch_index", "by_hour", "by_day", "first_date"):
            assert profile[key] == expected_profile[key]
        # Sums of by_date depend on the order of adding.
        assert [date[0] for date in profile["by_date"]] == [date[0] for date in expected_profile["by_date"]]
        assert sum(profile["by_date"], ()) == pytest.approx(sum(expected_profile["by_date"], ()))
    output = fleet_json(pattern, "--compare", *TWO, "--scheduler", client.scheduler.address, "--lagging", "--report",
                        str(tmp_path / "fleet.html"))
    # The report's dates and every section past the summary (no timing there) are one process's; the
    # running curves are left out, their sums by date being added in another order.
    pages = [(tmp_path / name).read_text() for name in ("one.html", "fleet.html")]
    parts = [(page[page.index("<dt>dates"):page.index("<dt>options")],
              page[page.index('<h2 id="users">'):page.index('<h2 id="running">')]) for page in pages]
    assert parts[0] == parts[1]
    assert "<code>python3 -m nuvik.fleet " in pages[1] and 'class="marks"' in parts[1][1]
    tool = untimed(replay_json("-", "--compare", *TWO, "--lagging", stdin=frame.to_csv(index=False).encode())[0])
    del output["source"], tool["source"]
    assert output == tool


def test_a_killed_worker_changes_nothing_and_a_task_holds_one_share_of_the_users(client, fleet):
    pattern, frame = fleet
    tasks = 12
    result = {}
    runner = threading.Thread(target=lambda: result.update(run=nuvik.fleet.run(pattern, TWO, scheduler=client,
                                                                               tasks=tasks)))
    runner.start()
    killed = None
    deadline = time.monotonic() + 60
    while killed is None and runner.is_alive() and time.monotonic() < deadline:
        busy = client.run_on_scheduler(lambda dask_scheduler: [
            task.processing_on.address for task in dask_scheduler.tasks.values()
            if task.state == "processing" and "_replay_users" in str(task.key)])
        if busy:
            killed = client.run(os.getpid, workers=[busy[0]])[busy[0]]
            os.kill(killed, signal.SIGKILL)
        time.sleep(0.02)
    runner.join(timeout=120)
    assert killed is not None and "run" in result
    same(result["run"].frame(), nuvik.replay(frame, TWO))
    share = -(-len(frame) // tasks)
    largest = frame.groupby("user").size().max()
    # Launches held at once: a share of the users (a larger user alone), not a file, never the log.
    assert 0 < result["run"].peak_task_launches <= max(share, largest) < len(frame) // 3
    client.wait_for_workers(2, timeout=60)


def test_bad_rows_are_reported_not_lost(client, tmp_path):
    lines = open(SAMPLE_LOG).read().splitlines(keepends=True)
    first, second = tmp_path / "a.csv", tmp_path / "b.csv"
    first.write_text("".join(lines[:400]))
    second.write_text(lines[0] + "".join(lines[400:800]).replace("2024-03-1", "2024-03-x", 1))
    with pytest.raises(ValueError) as error:
        nuvik.fleet.replay([first, second], ["linear"], scheduler=client)
    assert str(error.value) == tool_error(str(second))
    result = nuvik.fleet.run([first, second], ["linear"], scheduler=client, skip_bad_rows=True)
    assert (result.bad_rows, result.launches) == (1, 798)
    assert result.bad_row_samples == [str(error.value)]
    # A user's rows must not go back in time from one file to the next.
    earlier = tmp_path / "c.csv"
    earlier.write_text(lines[0] + "user1,2024-03-01 08:00:00,com.waze\n")
    with pytest.raises(ValueError, match="user 'user1' is earlier than"):
        nuvik.fleet.replay([first, earlier], ["linear"], scheduler=client)
    skipped = nuvik.fleet.run([first, earlier], ["linear"], scheduler=client, skip_bad_rows=True)
    assert (skipped.bad_rows, skipped.launches) == (1, 399)


def test_command_on_a_local_cluster_prints_the_tools_json(sample_json):
    output = fleet_json(SAMPLE_LOG, "--compare", *ENSEMBLES, "--per-user", "--workers", "2", *ROW_ARGUMENTS)
    assert output == untimed(sample_json[0])
