"""Nuvik from Python: the app-launch prediction facade, a launcher's suggestions and nuvik-replay's engine.

    import nuvik
    facade = nuvik.Nuvik(["markov_chain3_invalidate", "double_linear"])
    facade.update("com.whatsapp", 8, 15)
    facade.next()
    facade.next_at((8, 20), 5)
    nuvik.Suggestions().row(facade, (8, 20), count=4, exclude=["com.android.dialer"])

    nuvik.replay(frame, ["stat_counter", "markov_chain3_invalidate,double_linear"])

nuvik.fleet runs the same replay over a Dask cluster.
"""
from ._nuvik import FormatError, Nuvik, Suggestions
from ._replay import replay

__all__ = ["FormatError", "Nuvik", "Suggestions", "replay"]
