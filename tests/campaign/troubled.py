"""A disk in trouble: the one of forgetful.py, which hangs or is read-only for as long as a file says so.

    python3 troubled.py DIR JOURNAL

mounts it on DIR. While READ_ONLY is there, no operation changes anything. While HANGS is there, no write comes back, nor any
operation behind it; HELD tells thread and file of that write and, when it has come back, for how many seconds it hung.
"""

import errno
import time
from pathlib import Path

import forgetful
import fusepy as fuse

HANGS = Path("/tmp/disk_hangs")
READ_ONLY = Path("/tmp/disk_read_only")
HELD = Path("/tmp/disk_held")
CHANGES = {"create", "write", "truncate", "mkdir", "rmdir", "unlink", "symlink", "link", "rename", "chmod", "chown"}


def hold(who):
    began = time.monotonic()
    with HELD.open("a") as held:
        held.write(who)
        held.flush()
        while HANGS.exists():
            time.sleep(0.01)
        held.write(f" {time.monotonic() - began}\n")


class TroubledDisk(forgetful.ForgetfulDisk):
    def __call__(self, op, path, *args):
        if op == "write" and HANGS.exists():
            hold(f"{fuse.fuse_get_context()[2]} {Path(path).name}")
        if op in CHANGES and READ_ONLY.exists():
            raise fuse.FuseOSError(errno.EROFS)
        return super().__call__(op, path, *args)


if __name__ == "__main__":
    forgetful.main(TroubledDisk)
