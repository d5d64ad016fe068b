"""A disk that forgets what was not synced: a FUSE file system in memory that also tells, for each moment, what a
machine would find on it if the power went right then.

    python3 forgetful.py DIR JOURNAL

mounts it on DIR, with the folders "disk", "memory" and "marks" in it, and writes one JSON line per change to JOURNAL:

    {"seq": 7, "op": "write", "path": "/disk/a.wav", "by": "sox", "now": "6a..", "disk": {"/disk/a.wav": "59..", ...}}

`now` is a digest of the file's content as programs see it (null: gone), `disk` what has changed on the worst disk since
the line before: digest by path, null for a file that is no longer there. The worst disk is the meanest that a
file system may leave, step by step:

- The content of a file is that of its last fsync. A file that was written after it counts as lost, whatever it was.
- A name is there when its folder was synced after it was made, and the folder's own name likewise, up to the root.
- A name that was removed is gone at once.
- A rename is one step: a file whose old name was safe has its old or its new one; both ways the file is there.
- Below "memory" nothing outlasts anything, as in /dev/shm.

All programs, the daemon's children too, come through the kernel to this one place, in one order.
"""

import errno
import hashlib
import json
import os
import stat
import sys
import time
from pathlib import Path

import fusepy as fuse

ROOT_FOLDERS = ("disk", "memory", "marks")


def digest(data):
    return hashlib.sha1(data).hexdigest()


class File:
    kind = stat.S_IFREG

    def __init__(self, mode, owner):
        self.mode, self.owner = mode, owner
        self.data = bytearray()
        self.synced = None  # digest of the content at the last fsync; None: never, or written since
        self.links = 1
        self.time = time.time()


class Folder:
    kind = stat.S_IFDIR

    def __init__(self, mode, owner):
        self.mode, self.owner = mode, owner
        self.entries = {}
        self.synced = {}  # the names that are safe, each with what it stands for
        self.time = time.time()


class Link:
    kind = stat.S_IFLNK

    def __init__(self, target, owner):
        self.mode, self.owner, self.target = 0o777, owner, target
        self.time = time.time()


class ForgetfulDisk(fuse.Operations):
    def __init__(self, journal):
        self.root = Folder(0o755, (0, 0))
        for name in ROOT_FOLDERS:
            self.root.entries[name] = Folder(0o777, (0, 0))
        self.root.synced = dict(self.root.entries)
        self.handles = {}
        self.next_handle = 1
        self.journal = journal
        self.seq = 0
        self.told = {}

    # -- the worst disk ----------------------------------------------------------------------------------------------

    def worst_disk(self):
        found = {}

        def walk(folder, path):
            for name, node in folder.synced.items():
                if folder.entries.get(name) is not node:
                    continue
                if isinstance(node, Folder):
                    walk(node, f"{path}/{name}")
                elif isinstance(node, File) and node.synced is not None:
                    found[f"{path}/{name}"] = node.synced

        walk(self.root.entries["disk"], "/disk")
        return found

    def tell(self, op, path, node=None):
        disk = self.worst_disk()
        changed = {name: None for name in self.told if name not in disk}
        changed.update((name, value) for name, value in disk.items() if self.told.get(name) != value)
        self.told = disk
        self.seq += 1
        now = digest(node.data) if isinstance(node, File) else None
        line = {"seq": self.seq, "op": op, "path": path, "by": self.caller(), "now": now, "disk": changed}
        self.journal.write(json.dumps(line) + "\n")

    @staticmethod
    def caller():
        try:
            return Path(f"/proc/{fuse.fuse_get_context()[2]}/comm").read_text().rstrip("\n")
        except OSError:
            return "?"

    # -- looking up --------------------------------------------------------------------------------------------------

    def find(self, path):
        node = self.root
        for name in path.strip("/").split("/"):
            if not name:
                continue
            if not isinstance(node, Folder):
                raise fuse.FuseOSError(errno.ENOTDIR)
            if name not in node.entries:
                raise fuse.FuseOSError(errno.ENOENT)
            node = node.entries[name]
        return node

    def place(self, path):
        folder, _, name = path.rpartition("/")
        return self.find(folder), name

    def node(self, path, handle):
        return self.handles[handle] if handle in self.handles else self.find(path)

    def keep(self, node):
        handle, self.next_handle = self.next_handle, self.next_handle + 1
        self.handles[handle] = node
        return handle

    @staticmethod
    def owner():
        uid, gid, _ = fuse.fuse_get_context()
        return uid, gid

    # -- operations --------------------------------------------------------------------------------------------------

    def getattr(self, path, fh=None):
        node = self.node(path, fh)
        size = len(node.data) if isinstance(node, File) else 0
        links = node.links if isinstance(node, File) else 1
        return {
            "st_mode": node.kind | node.mode,
            "st_nlink": links,
            "st_size": size,
            "st_blocks": (size + 511) // 512,
            "st_uid": node.owner[0],
            "st_gid": node.owner[1],
            "st_mtime": node.time,
            "st_ctime": node.time,
            "st_atime": node.time,
        }

    def readdir(self, path, fh):
        return [".", "..", *self.find(path).entries]

    def readlink(self, path):
        return self.find(path).target

    def opendir(self, path):
        return self.keep(self.find(path))

    def releasedir(self, path, fh):
        self.handles.pop(fh, None)
        return 0

    def create(self, path, mode, fi=None):
        folder, name = self.place(path)
        node = File(mode & 0o7777, self.owner())
        folder.entries[name] = node
        self.tell("create", path, node)
        return self.keep(node)

    def open(self, path, flags):
        return self.keep(self.find(path))

    def release(self, path, fh):
        self.handles.pop(fh, None)
        return 0

    def read(self, path, size, offset, fh):
        return bytes(self.node(path, fh).data[offset : offset + size])

    def write(self, path, data, offset, fh):
        node = self.node(path, fh)
        if offset > len(node.data):
            node.data.extend(bytes(offset - len(node.data)))
        node.data[offset : offset + len(data)] = data
        node.synced = None
        node.time = time.time()
        self.tell("write", path, node)
        return len(data)

    def truncate(self, path, length, fh=None):
        node = self.node(path, fh)
        del node.data[length:]
        node.data.extend(bytes(length - len(node.data)))
        node.synced = None
        self.tell("truncate", path, node)

    def fsync(self, path, datasync, fh):
        node = self.node(path, fh)
        node.synced = digest(node.data)
        self.tell("fsync", path, node)
        return 0

    def fsyncdir(self, path, datasync, fh):
        folder = self.node(path, fh)
        folder.synced = dict(folder.entries)
        self.tell("fsyncdir", path)
        return 0

    def mkdir(self, path, mode):
        folder, name = self.place(path)
        if name in folder.entries:
            raise fuse.FuseOSError(errno.EEXIST)
        folder.entries[name] = Folder(mode & 0o7777, self.owner())
        self.tell("mkdir", path)

    def rmdir(self, path):
        folder, name = self.place(path)
        if folder.entries[name].entries:
            raise fuse.FuseOSError(errno.ENOTEMPTY)
        del folder.entries[name]
        self.tell("rmdir", path)

    def unlink(self, path):
        folder, name = self.place(path)
        if name not in folder.entries:
            raise fuse.FuseOSError(errno.ENOENT)
        folder.entries.pop(name)
        self.tell("unlink", path)

    def symlink(self, target, source):
        folder, name = self.place(target)
        folder.entries[name] = Link(source, self.owner())
        self.tell("symlink", target)

    def link(self, target, source):
        folder, name = self.place(target)
        folder.entries[name] = self.find(source)
        folder.entries[name].links += 1
        self.tell("link", target)

    # The library renames a file that is removed while it is open; to the programs it is removed.
    def rename(self, old, new):
        source, old_name = self.place(old)
        target, new_name = self.place(new)
        node = source.entries.pop(old_name)
        was_safe = source.synced.get(old_name) is node
        target.entries[new_name] = node
        if was_safe and not new_name.startswith(".fuse_hidden"):
            target.synced[new_name] = node
        self.tell("rename", f"{old} {new}", node)

    def chmod(self, path, mode):
        self.find(path).mode = mode & 0o7777
        return 0

    def chown(self, path, uid, gid):
        self.find(path).owner = (uid, gid)
        return 0

    def utimens(self, path, times=None):
        self.find(path).time = times[1] if times else time.time()
        return 0

    def statfs(self, path):
        free = 1 << 19
        blocks = {"f_bsize": 4096, "f_frsize": 4096, "f_blocks": 2 * free, "f_bfree": free, "f_bavail": free}
        return {**blocks, "f_namemax": 255}


def main(disk=ForgetfulDisk):
    mount_point, journal = sys.argv[1:]
    os.umask(0)
    with open(journal, "w", buffering=1) as lines:
        fuse.FUSE(
            disk(lines),
            mount_point,
            foreground=True,
            nothreads=True,  # one operation after the other: the order in the journal is the order on the disk
            allow_other=True,
            attr_timeout=0,
            entry_timeout=0,
        )


if __name__ == "__main__":
    main()
