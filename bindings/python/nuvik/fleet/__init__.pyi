import os
from typing import Any, Iterable, Optional, Union

import dask.dataframe as dd
import pandas as pd
from distributed import Client

Logs = Union[str, os.PathLike[str], Iterable[Union[str, os.PathLike[str]]], dd.DataFrame]
LAUNCHES_PER_TASK: int

class FleetResult:
    source: str
    launches: int
    apps: int
    bad_rows: int
    bad_row_samples: list[str]
    user_names: list[str]
    runs: list[Any]
    row: bool
    first_launch: Optional[int]
    last_launch: Optional[int]
    peak_memory: dict[str, int]
    peak_task_launches: Optional[int]
    def frame(self, per_user: bool = False) -> pd.DataFrame: ...
    def report(self, format: str = "table", per_user: bool = False) -> str: ...
    def write_report(self, path: Union[str, os.PathLike[str]], options: str = "") -> None: ...

def replay(logs: Logs, ensembles: Union[str, Iterable[str]], *, scheduler: Union[None, str, Client] = None,
           workers: Optional[int] = None, skip_repeats: bool = False, kill_threshold: float = 0.05,
           utc_offset: Optional[str] = None, per_user: bool = False, skip_bad_rows: bool = False,
           lagging: bool = False, row: Optional[int] = None, dock: int = 0, stable: bool = False,
           progress: bool = False, tasks: Optional[int] = None, memory_limit: Union[None, int, str] = None,
           report: Union[None, str, os.PathLike[str]] = None) -> pd.DataFrame: ...
def run(logs: Logs, ensembles: Union[str, Iterable[str]], *, scheduler: Union[None, str, Client] = None,
        workers: Optional[int] = None, skip_repeats: bool = False, kill_threshold: float = 0.05,
        utc_offset: Optional[str] = None, skip_bad_rows: bool = False, lagging: bool = False,
        row: Optional[int] = None, dock: int = 0, stable: bool = False, progress: bool = False,
        tasks: Optional[int] = None, memory_limit: Union[None, int, str] = None) -> FleetResult: ...
