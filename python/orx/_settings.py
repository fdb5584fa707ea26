"""A format's own settings (compression, quality...) by name, resolved into
the positions of its capability table, as `orx formats` lists them."""
from __future__ import annotations

from typing import Mapping, Sequence

from ._ffi import ffi, lib, start


def _folded(text: str) -> str:
    """Names and choices match ignoring case, "-" and "_" standing for spaces."""
    return text.lower().replace("-", " ").replace("_", " ")


def _text(p) -> str:
    return ffi.string(p).decode() if p != ffi.NULL else ""


def table(key: str) -> list[tuple[str, dict[str, int] | None]]:
    """The settings of the format with that key, in table order: each name
    with its choices (name to value), or None for one that takes a number
    (`orx.format_settings("exr")`)."""
    start()
    entries, first, second, count = (ffi.new("ORX_CAP_ENTRY **"), ffi.new("int32_t *"),
                                     ffi.new("int32_t *"), ffi.new("int32_t *"))
    lib.ORX_info_get_specific(key.encode(), ffi.NULL, entries, first, second, count)
    out = []
    for i in range(count[0] if entries[0] != ffi.NULL else 0):
        e = entries[0][i]
        choices = None
        if not e.is_value or e.list != ffi.NULL:
            choices, k = {}, 0
            while e.list != ffi.NULL and e.list.entries[k].name != ffi.NULL:
                choices[_text(e.list.entries[k].name)] = e.list.entries[k].value
                k += 1
        out.append((_text(e.name), choices))
    return out


def by_position(key: str, named: Mapping[str, str | int | float]) -> Sequence[int | float | None]:
    """The settings asked for by name ({"compression": "dwaa", "quality": 95})
    as values by position; ValueError names a setting the format lacks or a
    choice outside its list, with what it offers."""
    offered = table(key)
    values: list[int | float | None] = [None] * len(offered)
    for name, asked in named.items():
        at = next((i for i, (n, _) in enumerate(offered) if _folded(n) == _folded(name)), None)
        if at is None:
            raise ValueError(f"the {key} format has no setting {name!r} (its settings: "
                             f"{', '.join(n for n, _ in offered) or 'none'})")
        choices = offered[at][1]
        if choices is None:
            values[at] = asked
            continue
        value = next((v for c, v in choices.items() if _folded(c) == _folded(str(asked))), None)
        if value is None:
            raise ValueError(f"{offered[at][0]} is one of {', '.join(choices)}, not {asked!r}")
        values[at] = value
    return values
