"""Nuvik from Python: the app-launch prediction facade and nuvik-replay's engine.

    import nuvik
    facade = nuvik.Nuvik(["markov_chain3_invalidate", "double_linear"])
    facade.update("com.whatsapp", 8, 15)
    facade.next()

    nuvik.replay(frame, ["stat_counter", "markov_chain3_invalidate,double_linear"])

nuvik.fleet runs the same replay over a Dask cluster.
"""
from ._nuvik import FormatError, Nuvik
from ._replay import replay

__all__ = ["FormatError", "Nuvik", "replay"]
