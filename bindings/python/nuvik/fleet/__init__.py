"""nuvik.fleet: nuvik-replay over a Dask cluster, with results identical to one process.

Log files are read by nuvik-replay's reader, streaming, never whole. First, a task per file checks its rows and
counts each user's launches, keeping none. Then the users, in order of first appearance, are cut into shares of
about LAUNCHES_PER_TASK launches (a larger user alone); a replay task per share reads the files its users appear
in, parses and keeps only their rows, and replays every user's whole stream in log order. A worker thread thus
holds one share at a time: memory is bounded by the share size or the largest user's stream, never by the log.
The per-user sums come back and are added up in the order nuvik-replay adds them (users in order of first
appearance), so the totals are the same to the bit.

A Dask DataFrame is parsed a partition per task and shuffled by user: its partitions wait in the workers' memory
until the replay tasks take them.

Without a scheduler address, a distributed.LocalCluster of worker processes on the loopback interface runs the
tasks; with one ("tcp://HOST:8786"), an existing cluster whose workers can import nuvik and read the files.
"""
import contextlib
import glob
import logging
import math
import operator
import os
import sys
import time

import dask
import dask.dataframe as dd
import numpy as np
import pandas as pd

from .. import _nuvik
from .._replay import FRAME_SOURCE, call_text, check_report_path, ensemble_list, log_text, result_frame

# Launches per replay task: small enough to bound a worker's memory (the C++ reader holds 16 bytes per launch),
# large enough that the files are not read too many times over.
LAUNCHES_PER_TASK = 250_000
BAD_ROW_SAMPLES = 5


class FleetResult:
    """The gathered results: what nuvik-replay would have found replaying the logs as one."""

    def __init__(self, source, launches, apps, bad_rows, bad_row_samples, user_names, runs):
        self.source = source
        self.launches = launches
        self.apps = apps
        self.bad_rows = bad_rows
        self.bad_row_samples = bad_row_samples
        self.user_names = user_names
        # (label, baseline, apps, per-user totals in log order, profile added up over all users)
        self.runs = runs
        self.row = False  # replayed with a suggestion row
        # Local time of the earliest and the latest launch, seconds since 1970-01-01 00:00; None without a launch.
        self.first_launch = None
        self.last_launch = None
        self.peak_memory = {}  # worker address: peak resident bytes, at the end of the run
        self.peak_task_launches = None  # most launches a replay task held at once (files only)

    def frame(self, per_user=False):
        """The same frame as nuvik.replay."""
        return result_frame(self.runs, self.user_names, per_user, self.row)

    def report(self, format="table", per_user=False):
        """nuvik-replay's table ("table") or JSON ("json") as text."""
        return _nuvik.report(format, self.source, self.launches, self.apps, self.bad_rows, self.user_names,
                             self.runs, per_user, self.row)

    def write_report(self, path, options=""):
        """Writes nuvik-replay's HTML report (nuvik-replay --report) to path, atomically; `options` is shown in
        its header. OSError when the file cannot be written."""
        _nuvik.write_html_report(os.fspath(path), self.source, self.launches, self.apps, self.bad_rows,
                                 self.user_names, self.first_launch or 0, self.last_launch or 0, options, self.runs,
                                 self.row)


def replay(logs, ensembles, *, scheduler=None, workers=None, skip_repeats=False, kill_threshold=0.05,
           utc_offset=None, per_user=False, skip_bad_rows=False, lagging=False, row=None, dock=0, stable=False,
           progress=False, tasks=None, memory_limit=None, report=None):
    """nuvik.replay over a Dask cluster; returns the same frame.

    logs: file paths or globs ("logs/*.csv.gz": CSV or TSV, plain or gzip, as nuvik-replay reads them; together
    they are one log, in the order given, each glob's files sorted by name) or a Dask DataFrame with the columns
    of nuvik.replay. scheduler: None for a LocalCluster of `workers` processes (default: one per core), else an
    address or a distributed.Client. A bad row raises ValueError with nuvik-replay's message (for a Dask
    DataFrame, lines count within each partition); skip_bad_rows drops such rows instead. lagging, row, dock,
    stable: as in nuvik.replay. tasks: about how many replay tasks share the users (default: one per LAUNCHES_PER_TASK
    launches; a user is never split); progress: draw a progress bar on a terminal; memory_limit: of each local
    worker ("2GiB"), past which Dask spills a Dask DataFrame's waiting partitions to disk. report: as in
    nuvik.replay (FleetResult.write_report writes it from run's result).
    """
    path = check_report_path(report) if report is not None else None
    keywords = dict(skip_repeats=skip_repeats, kill_threshold=kill_threshold, utc_offset=utc_offset,
                    skip_bad_rows=skip_bad_rows, lagging=lagging, row=row, dock=dock, stable=stable)
    result = run(logs, ensembles, scheduler=scheduler, workers=workers, progress=progress, tasks=tasks,
                 memory_limit=memory_limit, **keywords)
    if path is not None:
        logs_text = "dask_frame" if _dask_frame(logs) is not None else repr(logs)
        result.write_report(path, call_text("nuvik.fleet.replay", replay, logs_text, ensembles, keywords))
    return result.frame(per_user)


def run(logs, ensembles, *, scheduler=None, workers=None, skip_repeats=False, kill_threshold=0.05, utc_offset=None,
        skip_bad_rows=False, lagging=False, row=None, dock=0, stable=False, progress=False, tasks=None,
        memory_limit=None):
    """Replays the logs on the cluster and returns the FleetResult; the arguments are those of replay."""
    ensembles = ensemble_list(ensembles)
    # Checks the ensembles and the row (ValueError) and names the runs before any task starts.
    empty = np.zeros(0, dtype=np.int64)
    runs_of = dict(lagging=lagging, row=row, dock=dock, stable=stable)
    runs = [(run["label"], run["baseline"]) for run in
            _nuvik.replay_columns(empty, [], empty, [], empty, ensembles, skip_repeats, kill_threshold,
                                  **runs_of)["runs"]]
    frame = _dask_frame(logs)
    paths = None if frame is not None else _expand(logs)
    options = dict(skip_repeats=skip_repeats, kill_threshold=kill_threshold, utc_offset=utc_offset,
                   skip_bad_rows=skip_bad_rows, runs_of=runs_of)
    with _connect(scheduler, workers, memory_limit) as client:
        if frame is not None:
            source = FRAME_SOURCE
            logs_read, futures = _submit_frame(client, frame, ensembles, tasks, **options)
        else:
            source = ", ".join(paths)
            logs_read, futures = _submit_files(client, paths, ensembles, tasks, **options)
        results = _gather(futures, progress)
        peak = client.run(_peak_memory)
    result = _combine(source, runs, logs_read, results)
    result.row = row is not None
    result.peak_memory = peak
    if frame is None:
        result.peak_task_launches = max(share["peak_launches"] for share in results)
    return result


def _submit_files(client, paths, ensembles, tasks, **options):
    """Indexes the files, then submits a replay task per share of the users; returns the indexes and the tasks."""
    # Not pure: a file may change between two runs on one cluster.
    indexes = client.gather(client.map(_index_file, paths, utc_offset=options["utc_offset"],
                                       skip_bad_rows=options["skip_bad_rows"], pure=False))
    for index in indexes:
        if "error" in index:
            raise ValueError(index["error"])
    users = {}  # name: [launches, parts it appears in], in order of first appearance
    for part, index in enumerate(indexes):
        for name, launches in zip(index.pop("users"), index.pop("user_launches")):
            user = users.setdefault(name, [0, []])
            user[0] += launches
            user[1].append(part)
    launches = sum(index["launches"] for index in indexes)
    tasks = tasks or max(1, math.ceil(launches / LAUNCHES_PER_TASK))
    futures = []
    first = 0
    for names, parts in _shares(users, math.ceil(launches / tasks)):
        futures.append(client.submit(_replay_users, [paths[part] for part in parts], names, range(first,
                                     first + len(names)), ensembles, **options, pure=False))
        first += len(names)
    return indexes, futures


def _shares(users, launches_per_share):
    """Consecutive users in shares of at most launches_per_share launches (a larger user alone), each with the
    parts its users appear in."""
    names, parts, launches = [], set(), 0
    for name, (user_launches, user_parts) in users.items():
        if names and launches + user_launches > launches_per_share:
            yield names, sorted(parts)
            names, parts, launches = [], set(), 0
        names.append(name)
        parts.update(user_parts)
        launches += user_launches
    if names:
        yield names, sorted(parts)


def _index_file(path, utc_offset, skip_bad_rows):
    try:
        return _nuvik.index_file(path, utc_offset, skip_bad_rows)
    except ValueError as error:
        return {"error": str(error)}


def _replay_users(paths, names, keys, ensembles, skip_repeats, kill_threshold, utc_offset, skip_bad_rows, runs_of):
    """Replays a share of the users, reading only their rows of the files; keys: their places in the log."""
    result = _nuvik.replay_files(paths, names, ensembles, skip_repeats, kill_threshold, utc_offset, skip_bad_rows,
                                 **runs_of)
    return {
        "keys": list(keys),
        "users": result["users"],
        "runs": [(run["apps"], run["users"], run["profile"]) for run in result["runs"]],
        "apps": set(result["app_names"]),
        "launches": result["launches"],
        "bad_rows": result["bad_rows"],
        "bad_row_samples": result["bad_row_samples"],
        "peak_launches": result["peak_launches"],
        "dates": (result["first_launch"], result["last_launch"]),
    }


def _submit_frame(client, frame, ensembles, tasks, **options):
    """Parses the partitions, then submits the replay tasks that gather each share of the users from every
    partition; returns the partitions' summaries and the tasks."""
    sources = [f"{FRAME_SOURCE} partition {i}" for i in range(frame.npartitions)]
    parsed = client.compute([dask.delayed(_parse_partition, pure=True)(part, i, sources[i], options["utc_offset"],
                                                                      options["skip_bad_rows"])
                             for i, part in enumerate(frame.to_delayed())])
    logs_read = client.gather(client.map(_summary_of, parsed))
    for summary in logs_read:
        if "error" in summary:
            raise ValueError(summary["error"])
    launches = sum(summary["launches"] for summary in logs_read)
    tasks = tasks or max(1, math.ceil(launches / LAUNCHES_PER_TASK))
    # Each part is split by user into one piece per task; a task gathers its pieces of every part.
    splits = client.map(_split, parsed, tasks=tasks)
    return logs_read, [client.submit(_replay_share, client.map(operator.itemgetter(t), splits), sources, ensembles,
                                     options["skip_repeats"], options["kill_threshold"], options["skip_bad_rows"],
                                     options["runs_of"])
                       for t in range(tasks)]


def _peak_memory():
    """This process's peak resident memory in bytes."""
    import resource

    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024


def _dask_frame(logs):
    return logs if isinstance(logs, dd.DataFrame) else None


def _expand(logs):
    """Paths of the logs in order; each glob's matches sorted by name."""
    if isinstance(logs, (str, os.PathLike)):
        logs = [logs]
    paths = []
    for log in map(os.fspath, logs):
        matches = sorted(glob.glob(log)) if glob.has_magic(log) else [log]
        if not matches:
            raise ValueError(f"no file matches '{log}'")
        paths.extend(matches)
    if not paths:
        raise ValueError("no log to replay")
    return paths


@contextlib.contextmanager
def _connect(scheduler, workers, memory_limit):
    """A client of the given scheduler, or of a LocalCluster of worker processes on the loopback interface."""
    from distributed import Client, LocalCluster

    if isinstance(scheduler, Client):
        yield scheduler
    elif scheduler is not None:
        with Client(scheduler) as client:
            if workers:
                client.wait_for_workers(workers)
            yield client
    else:
        with LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                          host="127.0.0.1", dashboard_address=None, silence_logs=logging.ERROR,
                          memory_limit=memory_limit or "auto") as cluster, \
                Client(cluster) as client:
            yield client


def _columns_frame(columns, part):
    """A parsed log's launches as a frame: user, local time, app, and the log order (part, order)."""
    return pd.DataFrame({
        "user": np.asarray(columns["user_names"], dtype=object)[columns["user"]],
        "time": columns["time"],
        "app": np.asarray(columns["app_names"], dtype=object)[columns["app"]],
        "part": np.full(len(columns["time"]), part, dtype=np.int64),
        "order": columns["order"],
    })


def _parse_partition(frame, part, source, utc_offset, skip_bad_rows):
    try:
        columns = _nuvik.parse_columns(log_text(frame), source, utc_offset, skip_bad_rows)
    except ValueError as error:
        return None, {"error": str(error)}
    summary = {key: columns[key] for key in ("launches", "bad_rows", "bad_row_samples")}
    return _columns_frame(columns, part), summary


def _summary_of(parsed):
    return parsed[1]


def _split(parsed, tasks):
    """A part's launches in `tasks` pieces, every user's launches in one piece (by a hash of the name)."""
    frame = parsed[0]
    task = pd.util.hash_pandas_object(frame["user"], index=False).to_numpy() % tasks
    return [frame[task == t] for t in range(tasks)]


def _local_time(seconds):
    return pd.Timestamp(int(seconds), unit="s").strftime("%Y-%m-%d %H:%M:%S")


def _replay_share(pieces, sources, ensembles, skip_repeats, kill_threshold, skip_bad_rows, runs_of):
    """Replays every user of a share in log order; the results say where each user first appears."""
    share = pd.concat(pieces, ignore_index=True).sort_values(["part", "order"], kind="stable", ignore_index=True)
    # Each file is in time order per user; a user's rows must also not go back in time from one file to the next.
    latest = share.groupby("user", sort=False)["time"].cummax()
    earlier = (share["time"] < latest.groupby(share["user"], sort=False).shift()).to_numpy()
    samples = []
    if earlier.any():
        for row in np.flatnonzero(earlier)[:BAD_ROW_SAMPLES]:
            user = share["user"].iat[row]
            samples.append(f"{sources[share['part'].iat[row]]}: time {_local_time(share['time'].iat[row])} of user "
                           f"'{user}' is earlier than that of a row in an earlier log; the rows of each user must "
                           f"be in time order")
        if not skip_bad_rows:
            raise ValueError(samples[0])
        share = share[~earlier].reset_index(drop=True)
    users, user_names = pd.factorize(share["user"])
    apps, app_names = pd.factorize(share["app"])
    result = _nuvik.replay_columns(users, list(user_names), apps, list(app_names), share["time"].to_numpy(),
                                   ensembles, skip_repeats, kill_threshold, **runs_of)
    first = np.unique(users, return_index=True)[1]  # codes number users in order of appearance
    return {
        "keys": list(zip(share["part"].to_numpy()[first].tolist(), share["order"].to_numpy()[first].tolist())),
        "users": result["users"],
        "runs": [(run["apps"], run["users"], run["profile"]) for run in result["runs"]],
        "apps": set(app_names),
        "launches": len(share),
        "bad_rows": int(earlier.sum()),
        "bad_row_samples": samples,
        "dates": (result["first_launch"], result["last_launch"]),
    }


def _gather(futures, progress):
    """The futures' results in order, each fetched as its task ends so that no worker keeps it (the list is
    emptied); draws a progress bar on a terminal meanwhile."""
    from distributed import as_completed

    bar = _ProgressBar(len(futures)) if progress and sys.stderr.isatty() else None
    places = {future.key: place for place, future in enumerate(futures)}
    results = [None] * len(futures)
    completed = as_completed(futures, with_results=True)
    futures.clear()
    for done, (future, result) in enumerate(completed, 1):
        results[places[future.key]] = result
        if bar:
            bar.draw(done)
    if bar:
        bar.close()
    return results


class _ProgressBar:
    WIDTH = 40

    def __init__(self, total):
        self.total = total
        self.start = time.monotonic()
        self.shown = False

    def draw(self, done):
        if time.monotonic() - self.start < 1 and done < self.total:
            return
        filled = self.WIDTH * done // self.total
        sys.stderr.write(f"\r[{'#' * filled}{' ' * (self.WIDTH - filled)}] {done}/{self.total} tasks, "
                         f"{time.monotonic() - self.start:.0f} s")
        sys.stderr.flush()
        self.shown = True

    def close(self):
        if self.shown:
            sys.stderr.write("\r\033[K")
            sys.stderr.flush()


def _combine(source, runs, logs_read, results):
    """Per-user results in log order (users by first appearance), added up as nuvik-replay adds them; the
    tasks' profiles added up."""
    users = sorted((key, name, tuple(totals[u] for _, totals, _ in result["runs"]))
                   for result in results for u, (key, name) in enumerate(zip(result["keys"], result["users"])))
    combined = []
    for r, (label, baseline) in enumerate(runs):
        apps = set().union(*(result["runs"][r][0] for result in results))
        profile = _nuvik.add_profiles(result["runs"][r][2] for result in results)
        combined.append((label, baseline, len(apps), [totals[r] for _, _, totals in users], profile))
    samples = [sample for summary in logs_read for sample in summary["bad_row_samples"]]
    samples += [sample for result in results for sample in result["bad_row_samples"]]
    bad_rows = sum(summary["bad_rows"] for summary in logs_read) + sum(result["bad_rows"] for result in results)
    result = FleetResult(source, sum(result["launches"] for result in results),
                         len(set().union(*(result["apps"] for result in results))), bad_rows,
                         samples[:BAD_ROW_SAMPLES], [name for _, name, _ in users], combined)
    dates = [result["dates"] for result in results if result["dates"][0] is not None]
    if dates:
        result.first_launch = min(first for first, _ in dates)
        result.last_launch = max(last for _, last in dates)
    return result
