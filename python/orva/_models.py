# SPDX-License-Identifier: Apache-2.0
"""What has to be known about a sensor model to explain what it sees."""

from __future__ import annotations

from typing import NamedTuple, Optional, Tuple


class Model(NamedTuple):
    """A sensor model."""

    name: str
    number: int
    grid: Optional[Tuple[int, int]]  #: lines and columns of a frame, where it has an order
    uses_calibration: bool
    has_points: bool


_MODELS = {
    model.name: model
    for model in (
        Model("TS4B", 33, (192, 128), True, True),
        Model("TS6", 64, (192, 128), True, True),
        Model("NV2", 16, (56, 192), False, True),
        Model("TS4A", 32, None, False, True),
        Model("KR7", 1, None, False, False),
        Model("TS4", 48, None, False, False),
    )
}


def find_model(name: str) -> Model:
    """The model of that name, in any case."""
    model = _MODELS.get(str(name).upper())
    if model is None:
        raise ValueError(f"there is no model {str(name)!r}. Known are TS4B, TS6, NV2, TS4A, KR7 and TS4.")
    return model
