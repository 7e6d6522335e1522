"""The packages of the extra, imported when they are first needed."""

from __future__ import annotations

import importlib
from typing import Any


def require(module: str, purpose: str) -> Any:
    """Import a module of the extra.

    Parameters
    ----------
    module : str
    purpose : str
        What it is needed for, for the error.

    Raises
    ------
    ImportError
        When it is not installed; the message names the extra.
    """
    try:
        return importlib.import_module(module)
    except ModuleNotFoundError as missing:
        raise ImportError(
            f"{purpose} needs the package {missing.name}, which is not installed; "
            "pip install 'talvorix[dask]' brings it"
        ) from missing
