"""python3 -m nuvik.fleet LOG... --compare E1 E2 ...: nuvik-replay's table (or JSON) from a Dask cluster."""
import argparse
import shlex
import sys
import time

from . import run
from .._replay import check_report_path

PROGRAM = "python3 -m nuvik.fleet"


def parse_arguments(argv):
    parser = argparse.ArgumentParser(
        prog=PROGRAM,
        description="Replays launch logs through Nuvik ensembles on a Dask cluster (a local one by default) and "
                    "prints the same table or JSON as nuvik-replay would for the logs taken together as one.",
        epilog="Logs: CSV or TSV, plain or gzip, as nuvik-replay reads them; globs are expanded and sorted. "
               "Ensembles: nuvik-replay's notation, e.g. markov_chain3_invalidate,double_linear or "
               "knn_regression:5. Put the logs before --compare, or end the list with '--'.")
    parser.add_argument("logs", nargs="+", metavar="LOG", help="launch logs or globs, e.g. 'fleet/*.csv.gz'")
    parser.add_argument("--compare", nargs="+", metavar="ENSEMBLE", help="ensembles replayed on the same logs")
    parser.add_argument("--predictors", default="stat_counter", help="one ensemble (default: stat_counter)")
    parser.add_argument("--scheduler", metavar="ADDR", help="an existing scheduler, e.g. tcp://10.0.0.5:8786; "
                                                            "default: a local cluster")
    parser.add_argument("--workers", type=int, metavar="N",
                        help="worker processes of the local cluster (default: one per core); with --scheduler, "
                             "wait for N workers")
    parser.add_argument("--memory-limit", metavar="SIZE",
                        help="memory of each local worker, e.g. 2GiB, past which Dask spills to disk "
                             "(default: the machine's memory shared among the workers)")
    parser.add_argument("--format", choices=("table", "json"), default="table", help="output format")
    parser.add_argument("--per-user", action="store_true", help="add a table per user")
    parser.add_argument("--skip-repeats", action="store_true", help="ignore a launch of the app launched just before")
    parser.add_argument("--kill-threshold", type=float, default=0.05, help="kill-list threshold of the facade")
    parser.add_argument("--utc-offset", help="local time offset for epoch timestamps, e.g. +02:00")
    parser.add_argument("--skip-bad-rows", action="store_true", help="count and skip malformed rows")
    parser.add_argument("--lagging", action="store_true",
                        help="after each ensemble, score the list the facade showed before each launch")
    parser.add_argument("--row", type=int, metavar="K", help="score the row of K suggestions a launcher would show")
    parser.add_argument("--dock", type=int, default=0, metavar="N",
                        help="with --row: leave the user's N most launched apps to a dock beside it")
    parser.add_argument("--stable", action="store_true", help="with --row: keep the previous row's apps in place")
    parser.add_argument("--report", metavar="FILE.html",
                        help="write nuvik-replay's HTML report: intervals over users, paired comparisons, learning, "
                             "hours")
    parser.add_argument("--stats", action="store_true",
                        help="print launches per second and each worker's peak memory to standard error")
    arguments = parser.parse_args(argv)
    if arguments.workers is not None and arguments.workers < 1:
        parser.error("--workers must be at least 1")
    if arguments.row is not None and not 1 <= arguments.row < 2**64:
        parser.error("--row must be a count of at least 1")
    if not 0 <= arguments.dock < 2**64:
        parser.error("--dock must be a count")
    if arguments.row is None and (arguments.dock or arguments.stable):
        parser.error("--dock and --stable need --row")
    return arguments


def main(argv=None):
    argv = sys.argv[1:] if argv is None else list(argv)
    arguments = parse_arguments(argv)
    start = time.monotonic()
    try:
        if arguments.report is not None:
            check_report_path(arguments.report)
        result = run(arguments.logs, arguments.compare or [arguments.predictors], scheduler=arguments.scheduler,
                     workers=arguments.workers, memory_limit=arguments.memory_limit,
                     skip_repeats=arguments.skip_repeats,
                     kill_threshold=arguments.kill_threshold, utc_offset=arguments.utc_offset,
                     skip_bad_rows=arguments.skip_bad_rows, lagging=arguments.lagging, row=arguments.row,
                     dock=arguments.dock, stable=arguments.stable, progress=True)
    except (ValueError, OSError) as error:
        print(f"{PROGRAM}: {error}", file=sys.stderr)
        return 1
    if result.bad_rows:
        print(f"{PROGRAM}: skipped {result.bad_rows} bad row{'' if result.bad_rows == 1 else 's'}"
              f"{', the first:' if result.bad_rows > len(result.bad_row_samples) else ':'}", file=sys.stderr)
        for sample in result.bad_row_samples:
            print(f"  {sample}", file=sys.stderr)
    if arguments.stats:
        seconds = time.monotonic() - start
        memory = ", ".join(f"{peak / 2**20:.0f}" for peak in result.peak_memory.values())
        print(f"{PROGRAM}: {result.launches} launches in {seconds:.1f} s: {result.launches / seconds:.0f} launches/s; "
              f"peak memory per worker: {memory} MiB", file=sys.stderr)
        if result.peak_task_launches is not None:
            print(f"{PROGRAM}: a replay task held at most {result.peak_task_launches} launches at once",
                  file=sys.stderr)
    sys.stdout.write(result.report(arguments.format, arguments.per_user))
    sys.stdout.flush()
    if arguments.report is not None:
        written = time.monotonic()
        try:
            result.write_report(arguments.report, " ".join([PROGRAM, shlex.join(argv)]))
        except OSError as error:
            print(f"{PROGRAM}: {error}", file=sys.stderr)
            return 1
        if arguments.stats:
            print(f"{PROGRAM}: report written in {time.monotonic() - written:.2f} s", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
