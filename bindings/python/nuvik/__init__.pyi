import os
from typing import Iterable, Optional, Union

import pandas as pd

from ._nuvik import FormatError as FormatError
from ._nuvik import Nuvik as Nuvik
from ._nuvik import Suggestions as Suggestions

def replay(frame: pd.DataFrame, ensembles: Union[str, Iterable[str]], *, skip_repeats: bool = False,
           kill_threshold: float = 0.05, utc_offset: Optional[str] = None, per_user: bool = False,
           skip_bad_rows: bool = False, lagging: bool = False, row: Optional[int] = None, dock: int = 0,
           stable: bool = False, report: Union[None, str, os.PathLike[str]] = None) -> pd.DataFrame: ...
