"""A disk in trouble: the one of forgetful.py, which hangs or is read-only for as long as a file says so.

    python3 troubled.py DIR JOURNAL

mounts it on DIR. While HANGS is there, no operation comes back; while READ_ONLY is there, none changes anything.
"""

import errno
import time
from pathlib import Path

import forgetful
import fusepy as fuse

HANGS = Path("/tmp/disk_hangs")
READ_ONLY = Path("/tmp/disk_read_only")
CHANGES = {"create", "write", "truncate", "mkdir", "rmdir", "unlink", "symlink", "link", "rename", "chmod", "chown"}


class TroubledDisk(forgetful.ForgetfulDisk):
    def __call__(self, op, path, *args):
        while HANGS.exists():
            time.sleep(0.01)
        if op in CHANGES and READ_ONLY.exists():
            raise fuse.FuseOSError(errno.EROFS)
        return super().__call__(op, path, *args)


if __name__ == "__main__":
    forgetful.main(TroubledDisk)
