"""The exceptions of the package and the capture of the library's messages.

The library reports every failure through its error service and leaves a
status.  A handler declared at start keeps the newest error message of each
thread (reports run on the thread that made the failing call), so an
exception carries the message of its own call even while other threads use
the library; warnings and notes go to the "orx" logger.
"""
from __future__ import annotations

import logging
import threading

log = logging.getLogger("orx")
_local = threading.local()

ERR_WARNING, ERR_ERROR, ERR_FATAL = 2, 3, 4
ORX_E_FIELD_MISSING = -5


class Error(Exception):
    """A failure of the library: `status` is its status code (negative), and
    `message` the message it reported (or a description of the status)."""

    def __init__(self, message: str, status: int = -1) -> None:
        super().__init__(message)
        self.status = status
        self.message = message


class NotFoundError(Error, FileNotFoundError):
    """The file cannot be opened: missing, unreadable, a directory (status -5)."""


class BadInputError(Error, ValueError):
    """The file is damaged, cut short, not of its format, or beyond the
    library's limits (-2, -7, -8, -18, -19)."""


class UnsupportedError(Error, TypeError):
    """No format for the name or key, or a layout or sample type the format or
    operator cannot handle (-4, -16)."""


class OutOfMemoryError(Error, MemoryError):
    """Memory ran out inside the library (-10)."""


class WriteError(Error, OSError):
    """Writing failed part-way (a full disk): the file was not put in place (-20)."""


_FAMILIES = {-5: NotFoundError, -2: BadInputError, -7: BadInputError, -8: BadInputError,
             -18: BadInputError, -19: BadInputError, -4: UnsupportedError,
             -16: UnsupportedError, -10: OutOfMemoryError, -20: WriteError}

_DESCRIPTIONS = {-2: "bad scanline", -4: "no such format", -5: "file cannot be opened",
                 -7: "undecodable pixel data", -8: "not a file of the format",
                 -10: "out of memory", -16: "unsupported", -18: "read failed",
                 -19: "dimensions do not fit", -20: "write failed"}


def error_from_status(status: int, message: str | None = None) -> Error:
    """The exception of a status's family, with message or the library's text."""
    text = message or last_message() or _describe(status)
    return _FAMILIES.get(status, Error)(text, status)


def _describe(status: int) -> str:
    from ._ffi import ffi, lib
    if hasattr(lib, "ORX_strerror"):
        text = lib.ORX_strerror(status)
        if text != ffi.NULL:
            return ffi.string(text).decode(errors="replace")
    return _DESCRIPTIONS.get(status, f"failed with status {status}")


def _library_message() -> str:
    """The library's own record of this thread's newest failure, when it
    keeps one."""
    from ._ffi import ffi, lib
    if hasattr(lib, "ORX_last_message"):
        text = lib.ORX_last_message()
        if text != ffi.NULL:
            return ffi.string(text).decode(errors="replace")
    return ""


def last_message() -> str:
    """The newest error the library reported on this thread since clear()."""
    return getattr(_local, "message", "")


def clear() -> None:
    _local.message = ""
    _local.status = 0


def status(returned: int = 0) -> int:
    """The status of this thread's failing call: the library's thread-local
    status when it has one, else the status seen when the failure was
    reported on this thread, else the call's own negative result, else the
    process-wide orx__err (exact while one thread uses the library)."""
    from ._ffi import HAS_STATUS, lib
    if HAS_STATUS:
        value = int(lib.ORX_last_status())
        if value:
            return value
    seen = getattr(_local, "status", 0)
    if seen:
        return seen
    if returned < 0:
        return returned
    return int(lib.orx__err) or -1


def fail(returned: int = 0, what: str | None = None) -> Error:
    """The exception for a call that just failed on this thread."""
    code = status(returned)
    text = last_message() or _library_message() or _describe(code)
    if what and what not in text:
        text = f"{what}: {text}"
    return error_from_status(code, text)


_handler = None


def install(lib, ffi) -> None:
    """Declare the handler that keeps messages instead of printing them."""
    global _handler
    # This thread's status where the library keeps one; the shared word
    # otherwise (exact only while one thread uses the library).
    has_status = hasattr(lib, "ORX_last_status")

    @ffi.callback("int(const char *, int, const char *, void *, intptr_t)")
    def handler(name, severity, message, record, data):
        text = ffi.string(message).decode(errors="replace") if message != ffi.NULL else ""
        if severity >= ERR_ERROR:
            _local.message = text
            # The library sets its status before it reports: read here, on
            # the failing thread, it is this thread's.
            _local.status = int(lib.ORX_last_status() if has_status else lib.orx__err)
        elif severity == ERR_WARNING:
            log.warning("%s", text)
        else:
            log.debug("%s", text)
        return 1 if severity == ERR_FATAL else 0  # a fatal report still ends the process

    _handler = handler
    lib.ERR_dcl_handler(ffi.NULL, handler, 0)
