"""nuvik.replay: nuvik-replay's engine on a pandas DataFrame."""
import inspect
import os

import pandas as pd

from . import _nuvik

# The engine's totals tuples: the sums, then the means.
SUMS = ["users", "launches", "scored", "apps", "sum_map", "sum_recall", "seconds", "sum_hit1", "sum_hit3", "sum_hit5",
        "sum_mrr5", "sum_ndcg5", "sum_row_hit", "sum_dock_or_row_hit", "sum_churn", "churn_count"]
MEANS = ["map", "recall_at_5", "hit_at_1", "hit_at_3", "hit_at_5", "mrr_at_5", "ndcg_at_5", "row_hit",
         "dock_or_row_hit", "churn", "us_per_launch"]
# The suggestion row's measures, in a frame only when replayed with a row.
ROW_COLUMNS = {"sum_row_hit", "sum_dock_or_row_hit", "sum_churn", "churn_count", "row_hit", "dock_or_row_hit", "churn"}
COUNTS = {"users", "launches", "scored", "apps", "churn_count"}
FRAME_SOURCE = "DataFrame"


def ensemble_list(ensembles):
    """The ensembles as a list of texts: one str is one ensemble."""
    return [ensembles] if isinstance(ensembles, str) else list(ensembles)


def log_text(frame):
    """The frame's columns timestamp, app and (optional) user as the CSV nuvik-replay reads.

    Rows are numbered as in that CSV: the header is line 1, the frame's first row line 2.
    Datetime columns are written as local wall-clock time (a time zone is dropped, not converted).
    """
    if not isinstance(frame, pd.DataFrame):
        raise TypeError(f"expected a pandas DataFrame, not {type(frame).__name__}")
    names = {str(name).strip().lower(): name for name in frame.columns}
    missing = [name for name in ("timestamp", "app") if name not in names]
    if missing:
        raise ValueError(f"the frame has no column {', '.join(map(repr, missing))}; "
                         f"it needs 'timestamp' and 'app' (and optionally 'user'), found {list(frame.columns)}")
    wanted = [name for name in ("user", "timestamp", "app") if name in names]
    columns = {name: frame[names[name]] for name in wanted}
    time = columns["timestamp"]
    if isinstance(time.dtype, pd.DatetimeTZDtype):
        columns["timestamp"] = time.dt.tz_localize(None)
    return pd.DataFrame(columns).to_csv(index=False, date_format="%Y-%m-%d %H:%M:%S.%f", lineterminator="\n")


def result_frame(runs, user_names, per_user, row=False):
    """The result frame of runs given as (label, baseline, apps, per-user totals in log order, profile).

    Totals are engine tuples (SUMS, then MEANS); a run's are added up by the engine in log order, as
    nuvik-replay adds them. The columns: ensemble, [user,] the sums and the means but seconds, the row's
    measures only with `row`.
    """
    fields = SUMS + MEANS
    kept = [i for i, name in enumerate(fields) if name != "seconds" and (row or name not in ROW_COLUMNS)]
    rows = []
    for label, _, apps, users, _ in runs:
        if per_user:
            rows.extend([label, name, *(user[i] for i in kept)] for name, user in zip(user_names, users))
        else:
            total = _nuvik.add_up(users, apps)
            rows.append([label, *(total[i] for i in kept)])
    columns = ["ensemble", *(["user"] if per_user else []), *(fields[i] for i in kept)]
    frame = pd.DataFrame(rows, columns=columns)
    return frame.astype({name: "int64" for name in COUNTS if name in frame})


def engine_runs(result):
    """(label, baseline, apps, per-user totals, profile) of every run of an engine result."""
    return [(run["label"], run["baseline"], len(run["apps"]), run["users"], run["profile"]) for run in result["runs"]]


def call_text(name, function, logs, ensembles, keywords):
    """A call as a report's header shows it: the keywords that differ from the function's defaults."""
    defaults = inspect.signature(function).parameters
    given = "".join(f", {key}={value!r}" for key, value in keywords.items() if value != defaults[key].default)
    return f"{name}({logs}, {ensemble_list(ensembles)!r}{given})"


def check_report_path(report):
    """The report's path as text, after checking that a file can be written there (OSError)."""
    path = os.fspath(report)
    _nuvik.prepare_file_target(path)
    return path


def write_report(path, result, runs, row, options):
    """Writes nuvik-replay's HTML report of an engine result's log and of runs as engine_runs gives them."""
    _nuvik.write_html_report(path, result["source"], result["launches"], result["apps"], result["bad_rows"],
                             result["users"], result["first_launch"] or 0, result["last_launch"] or 0, options,
                             runs, row)


def replay(frame, ensembles, *, skip_repeats=False, kill_threshold=0.05, utc_offset=None, per_user=False,
           skip_bad_rows=False, lagging=False, row=None, dock=0, stable=False, report=None):
    """Replays a launch log held in a pandas DataFrame, as nuvik-replay does.

    frame: columns 'timestamp' ("YYYY-MM-DD HH:MM[:SS]" local time, datetimes, or epoch seconds with
    utc_offset such as "+02:00"), 'app' and optionally 'user' (one facade per user); each user's rows in
    time order. ensembles: nuvik-replay's notation, e.g. ["stat_counter", "knn_regression:5,linear"].
    lagging: after each ensemble, a run "<ensemble> (lagging)" scoring the list the facade showed before each
    launch (nuvik-replay --lagging). row: the size of the suggestion row every run shows before each launch,
    beside a dock of the user's `dock` most launched apps, kept in place with `stable` (nuvik-replay --row,
    --dock, --stable).
    Returns one row per run, the two baselines last (with per_user: per run and user, users in order of
    first appearance) with the columns ensemble, [user,] users, launches, scored, apps, sum_map, sum_recall,
    sum_hit1, sum_hit3, sum_hit5, sum_mrr5, sum_ndcg5, map, recall_at_5, hit_at_1, hit_at_3, hit_at_5,
    mrr_at_5, ndcg_at_5, us_per_launch; with a row also sum_row_hit, sum_dock_or_row_hit, sum_churn,
    churn_count, row_hit, dock_or_row_hit, churn. A bad row raises ValueError with nuvik-replay's message,
    numbered as the line of frame.to_csv(index=False); skip_bad_rows drops such rows instead.
    report: a path where nuvik-replay's HTML report of the replay is written (nuvik-replay --report); checked
    before the replay, OSError when it cannot be written.
    """
    path = check_report_path(report) if report is not None else None
    result = _nuvik.replay_text(log_text(frame), FRAME_SOURCE, ensemble_list(ensembles), skip_repeats,
                                kill_threshold, utc_offset, skip_bad_rows, lagging=lagging, row=row, dock=dock,
                                stable=stable)
    runs = engine_runs(result)
    if path is not None:
        keywords = dict(skip_repeats=skip_repeats, kill_threshold=kill_threshold, utc_offset=utc_offset,
                        skip_bad_rows=skip_bad_rows, lagging=lagging, row=row, dock=dock, stable=stable)
        write_report(path, result, runs, row is not None,
                     call_text("nuvik.replay", replay, "frame", ensembles, keywords))
    return result_frame(runs, result["users"], per_user, row is not None)
