"""Estimate and simulate block models that are too large for one call or one machine.

`estimate` and `simulate` cut a grid into chunks, work on them in several processes by Dask, and
write each to a Zarr store as it is done; a run that was stopped goes on where the store ends. The
results are those of one call of talvorix over the whole grid. `from_dataframe` and `to_xarray` take
samples out of pandas data frames and block models into xarray datasets, whatever their size.

The packages that this needs come with ``pip install talvorix[dask]``.
"""

from talvorix_dask.frames import from_dataframe, to_xarray
from talvorix_dask.grid import Grid
from talvorix_dask.runs import Summary, estimate, simulate

__all__ = ["Grid", "Summary", "estimate", "from_dataframe", "simulate", "to_xarray"]
