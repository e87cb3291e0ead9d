"""What a traced command did to a disk: the operations, in the order in which they took effect."""
import os
import re
from dataclasses import dataclass, field

CALLS = ("openat open creat close dup dup2 dup3 fcntl lseek read readv write writev pwrite64 ftruncate truncate rename "
         "renameat renameat2 link linkat unlink unlinkat mkdir mkdirat rmdir symlink symlinkat fsync fdatasync syncfs "
         "sync copy_file_range sendfile fallocate clone clone3 vfork fork unshare").split()
LINE = re.compile(r"^(\d+) +(?:<\.\.\. (\w+) resumed>|(\w+)\()(.*)$")
RESULT = re.compile(r"^(.*)\) += (-?\d+|\?).*$")
TEXT = re.compile(r'"((?:\\x[0-9a-f]{2})*)"')


@dataclass
class Names:
    """One atomic change of names; None where a name goes."""
    changes: dict
    folder: str
    call: str


@dataclass
class Bytes:
    inode: int
    offset: int
    data: bytes
    call: str


@dataclass
class Size:
    inode: int
    size: int
    call: str


@dataclass
class Sync:
    """Of a file's contents, or of the names in a folder."""
    inode: int | None
    folder: str | None
    call: str


@dataclass
class OpenFile:
    path: str
    inode: int | None = None
    offset: int = 0
    append: bool = False


@dataclass
class Process:
    files: dict = field(default_factory=dict)
    elsewhere: bool = False  # has a view of the file system of its own


class Recording:
    def __init__(self, names, sizes, is_tracked):
        self.names = dict(names)  # path: inode
        self.sizes = dict(sizes)
        self.is_tracked = is_tracked
        self.processes = {}
        self.operations = []
        self.next_inode = max(self.sizes, default=0) + 1

    def replay(self, lines):
        unfinished = {}
        for line in lines:
            match = LINE.match(line)
            if not match:
                continue
            process, resumed, call, rest = match.groups()
            if rest.endswith("<unfinished ...>"):
                unfinished[process] = (call, rest[:-len("<unfinished ...>")])
                continue
            if resumed:
                call, begun = unfinished.pop(process, (resumed, ""))
                rest = begun + rest
            ended = RESULT.match(rest)
            if not ended or ended.group(2) == "?" or int(ended.group(2)) < 0:
                continue
            self._process(process, unfinished)
            getattr(self, "_" + call, self._unknown)(process, ended.group(1), int(ended.group(2)), call)

    def _process(self, number, unfinished=()):
        if number not in self.processes:
            parents = [p for p in unfinished if unfinished[p][0] in ("clone", "clone3", "vfork", "fork")]
            self._inherit(parents[-1] if parents else None, number, unfinished[parents[-1]][1] if parents else "")
        return self.processes[number]

    def _inherit(self, parent, child, arguments):
        former = self.processes.get(parent, Process())
        shared = "CLONE_FILES" in arguments
        self.processes[child] = Process(former.files if shared else dict(former.files), former.elsewhere)

    # Arguments.
    @staticmethod
    def _texts(arguments):
        return [bytes.fromhex(text.replace("\\x", "")) for text in TEXT.findall(arguments)]

    @staticmethod
    def _numbers(arguments):
        return [int(n) for n in re.findall(r"(?:^|, )(-?\d+)(?=$|,)", arguments)]

    def _paths(self, process, arguments):
        """The paths in a call's arguments, each with the folder before it."""
        paths = []
        for match in re.finditer(r'(?:(\d+|AT_FDCWD), )?"((?:\\x[0-9a-f]{2})*)"', arguments):
            path = bytes.fromhex(match.group(2).replace("\\x", "")).decode(errors="surrogateescape")
            if match.group(1) and match.group(1) != "AT_FDCWD" and not path.startswith("/"):
                folder = self._process(process).files.get(int(match.group(1)))
                path = os.path.join(folder.path if folder else "/nowhere", path)
            paths.append(os.path.normpath(path))
        return paths

    def _file(self, process, arguments):
        return self._process(process).files.get(self._numbers(arguments)[0])

    # Operations.
    def _rename_to(self, changes, path, call):
        changes = {name: inode for name, inode in changes.items() if self.is_tracked(name)}
        if changes:
            self.operations.append(Names(changes, os.path.dirname(path), f"{call} {path}"))
            for name, inode in changes.items():
                self.names[name] = inode
                if inode is None:
                    del self.names[name]

    def _make(self, path, call):
        inode = self.next_inode
        self.next_inode += 1
        self.sizes[inode] = None if call.startswith("mkdir") else 0
        self._rename_to({path: inode}, path, call)
        return inode

    def _resize(self, inode, size, call):
        if self.sizes[inode] != size:
            self.sizes[inode] = size
            self.operations.append(Size(inode, size, call))

    def _put(self, file, offset, data, call):
        if file.inode is not None:
            self.sizes[file.inode] = max(self.sizes[file.inode], offset + len(data))
            self.operations.append(Bytes(file.inode, offset, data, f"{call} {file.path}"))

    # Calls.
    def _openat(self, process, arguments, result, call):
        path = self._paths(process, arguments)[0]
        file = OpenFile(path, append="O_APPEND" in arguments)
        self._process(process).files[result] = file
        if not self.is_tracked(path) or self._process(process).elsewhere:
            return
        if path not in self.names:
            assert "O_CREAT" in arguments, f"{path} is not known"
            self._make(path, "open")
        file.inode = self.names[path]
        if "O_TRUNC" in arguments:
            self._resize(file.inode, 0, f"truncation of {path}")

    _open = _creat = _openat

    def _close(self, process, arguments, result, call):
        self._process(process).files.pop(self._numbers(arguments)[0], None)

    def _dup(self, process, arguments, result, call):
        files = self._process(process).files
        files[result] = files.get(self._numbers(arguments)[0])

    _dup2 = _dup3 = _dup

    def _fcntl(self, process, arguments, result, call):
        if "F_DUPFD" in arguments:
            self._dup(process, arguments, result, call)
        elif "F_SETFL" in arguments and self._file(process, arguments):
            self._file(process, arguments).append = "O_APPEND" in arguments

    def _lseek(self, process, arguments, result, call):
        if self._file(process, arguments):
            self._file(process, arguments).offset = result

    def _read(self, process, arguments, result, call):
        if self._file(process, arguments):
            self._file(process, arguments).offset += result

    _readv = _read

    def _write(self, process, arguments, result, call):
        file = self._file(process, arguments)
        if file and file.inode is not None:
            data = b"".join(self._texts(arguments))[:result]
            assert len(data) == result, f"{file.path}: {len(data)} of {result} bytes were recorded"
            start = self.sizes[file.inode] if file.append else file.offset
            self._put(file, start, data, call)
            file.offset = start + result

    _writev = _write

    def _pwrite64(self, process, arguments, result, call):
        file = self._file(process, arguments)
        if file:
            start = self.sizes.get(file.inode, 0) if file.append else self._numbers(arguments)[-1]
            self._put(file, start, b"".join(self._texts(arguments))[:result], call)

    def _ftruncate(self, process, arguments, result, call):
        file = self._file(process, arguments)
        if file and file.inode is not None:
            self._resize(file.inode, self._numbers(arguments)[-1], f"{call} {file.path}")

    def _names_call(self, process, arguments, call, change):
        if not self._process(process).elsewhere:
            change(self._paths(process, arguments))

    def _rename(self, process, arguments, result, call):
        def change(paths):
            old, new = paths
            assert self.sizes.get(self.names.get(old), 0) is not None, "a folder is renamed"
            if self.names.get(old) != self.names.get(new):
                self._rename_to({old: None, new: self.names.get(old)}, new, call)
        self._names_call(process, arguments, call, change)

    _renameat = _renameat2 = _rename

    def _link(self, process, arguments, result, call):
        self._names_call(process, arguments, call,
                         lambda paths: self._rename_to({paths[1]: self.names.get(paths[0])}, paths[1], call))

    _linkat = _link

    def _unlink(self, process, arguments, result, call):
        self._names_call(process, arguments, call, lambda paths: self._rename_to({paths[0]: None}, paths[0], call))

    _unlinkat = _rmdir = _unlink

    def _mkdir(self, process, arguments, result, call):
        self._names_call(process, arguments, call,
                         lambda paths: self.is_tracked(paths[0]) and self._make(paths[0], call))

    _mkdirat = _mkdir

    def _fsync(self, process, arguments, result, call):
        file = self._file(process, arguments)
        if file and file.inode is not None and self.sizes[file.inode] is not None:
            self.operations.append(Sync(file.inode, None, f"{call} {file.path}"))
        elif file:
            self.operations.append(Sync(None, file.path, f"{call} {file.path}"))

    _fdatasync = _fsync

    def _sync(self, process, arguments, result, call):
        self.operations.append(Sync(None, None, call))

    _syncfs = _sync

    def _clone(self, process, arguments, result, call):
        if str(result) not in self.processes:
            self._inherit(process, str(result), arguments)

    _clone3 = _vfork = _fork = _clone

    def _unshare(self, process, arguments, result, call):
        self._process(process).elsewhere |= "CLONE_NEWNS" in arguments

    def _unknown(self, process, arguments, result, call):
        file = self._file(process, arguments) if self._numbers(arguments) else None
        assert not (file and file.inode is not None), f"{call} is not followed: {arguments}"
