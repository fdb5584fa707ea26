"""orx.Image: a numpy array with the description of the image it came from."""
from __future__ import annotations

from typing import Any

import numpy as np

from .description import Description


class Image(np.ndarray):
    """A (height, width, channels) array, row 0 at the top, channels ordered
    colour, matte, auxiliary; `description` holds windows, channel groups,
    gamma, chromaticities, aspect, frame, header texts and attributes, and
    its fields read as attributes of the image too (`img.gamma`)."""

    description: Description

    @classmethod
    def wrap(cls, array: np.ndarray, description: Description) -> "Image":
        image = array.view(cls)
        image.description = description
        return image

    def __array_finalize__(self, obj: Any) -> None:
        self.description = getattr(obj, "description", None)

    def __getattr__(self, name: str) -> Any:
        d = self.__dict__.get("description")
        if d is not None and not name.startswith("_") and hasattr(d, name):
            return getattr(d, name)
        raise AttributeError(name)

    def __reduce__(self):
        return (Image.wrap, (np.asarray(self), self.description))
