"""Files that appear only when complete, as the orx tool writes them: under
a hidden temporary name beside the target (".orx-PID-NAME", which keeps the
extension that picks the format), renamed into place after a successful
close; a failure removes the temporary and leaves any old file as it was."""
from __future__ import annotations

import os
import threading
from pathlib import Path

_count = iter(range(1 << 62))
_lock = threading.Lock()


class SafeOutput:
    def __init__(self, final: str | os.PathLike) -> None:
        self.final = os.fspath(final)
        self.path = self.final
        if self.final in ("", "-") or self.final.startswith("|"):
            return
        target = Path(self.final)
        if target.is_symlink():  # write through the link rather than replace it
            target = target.resolve()
        if target.exists() and not target.is_file():
            return
        self.final = str(target)
        with _lock:
            n = next(_count)
        # One process writes many outputs at once from threads: a counter
        # keeps their temporaries apart.
        tag = f"{os.getpid()}" if n == 0 else f"{os.getpid()}.{n}"
        self.path = str(target.with_name(f".orx-{tag}-{target.name}"))

    def commit(self) -> None:
        if self.path == self.final:
            return
        try:
            os.chmod(self.path, os.stat(self.final).st_mode & 0o7777)
        except OSError:
            pass
        os.replace(self.path, self.final)
        self.path = self.final

    def told(self, error):
        """error with the library's mentions of the temporary name told with
        the name the caller gave."""
        if self.path != self.final and self.path in error.message:
            error.message = error.message.replace(self.path, self.final)
            base = os.path.basename
            error.message = error.message.replace(base(self.path), base(self.final))
            error.args = (error.message,)
        return error

    def discard(self) -> None:
        if self.path != self.final:
            try:
                os.unlink(self.path)
            except OSError:
                pass
