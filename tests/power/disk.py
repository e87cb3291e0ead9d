"""A disk that loses power: what may be found on it, by the operations that came before and those that were synced.

A file's bytes are sure once the file is synced, a folder's names once the folder is. Until then each file holds
what any number of its operations, from the last sync on, had made of it, a write cut where a block ends; and each
folder the names that any number of its changes had made. On a loose disk, which keeps no order, any of a folder's changes
may be missing, whatever came later, and a file may have its new size and none of its new bytes. A rename is always whole.
"""
import itertools
import math

from recording import Bytes, Names, Size

BLOCK = 4096


class Disk:
    def __init__(self, roots, names, contents, operations):
        self.roots = roots
        self.names = names  # path: inode
        self.contents = contents  # inode: bytes, or None for a folder
        self.operations = operations

    def _apply(self, content, operation):
        content = content or b""
        if isinstance(operation, Size):
            return content[:operation.size].ljust(operation.size, b"\0")
        end = operation.offset + len(operation.data)
        return content[:operation.offset].ljust(operation.offset, b"\0") + operation.data + content[end:]

    def _split(self, moment):
        """The operations up to a moment: of names and of each file, and how many of each are on the disk for sure."""
        names, data, sure_names, sure_data = [], {}, set(), {}
        for operation in self.operations[:moment]:
            if isinstance(operation, Names):
                names.append(operation)
            elif isinstance(operation, (Bytes, Size)):
                data.setdefault(operation.inode, []).append(operation)
            else:
                everything = operation.inode is None and operation.folder is None
                sure_names.update(i for i, name in enumerate(names) if everything or name.folder == operation.folder)
                for inode in data if everything else [operation.inode]:
                    sure_data[inode] = len(data.get(inode, []))
        return names, data, sure_names, sure_data

    def _name_choices(self, names, sure, loose):
        """For each folder the sets of changes that may be there; one that is sure holds those before it."""
        folders = {}
        for index, change in enumerate(names):
            folders.setdefault(change.folder, []).append(index)
        choices = []
        for changes in folders.values():
            first = max((i + 1 for i, index in enumerate(changes) if index in sure), default=0)
            open_ones = changes[first:]
            if loose and len(open_ones) <= 10:
                subsets = itertools.product(*((True, False) for _ in open_ones))
                choices.append([changes[:first] + list(itertools.compress(open_ones, s)) for s in subsets])
            else:
                choices.append([changes[:end] for end in range(len(changes), first - 1, -1)])
                if loose:
                    choices[-1] += [changes[:first] + open_ones[:i] + open_ones[i + 1:] for i in range(len(open_ones))]
        return choices

    def _variants(self, inode, operations, sure, loose):
        """The contents that a file may have, the newest first."""
        content = self.contents.get(inode, b"")
        for operation in operations[:sure]:
            content = self._apply(content, operation)
        variants = [content]
        for operation in operations[sure:]:
            if isinstance(operation, Bytes):
                cut = BLOCK - operation.offset % BLOCK
                while cut < len(operation.data):
                    part = Bytes(inode, operation.offset, operation.data[:cut], "")
                    variants.append(self._apply(content, part))
                    cut += BLOCK
            content = self._apply(content, operation)
            variants.append(content)
        if loose and operations[sure:]:
            variants.append(variants[0][:len(content)].ljust(len(content), b"\0"))
        return list(dict.fromkeys(reversed(variants)))

    def _tree(self, names, content_of):
        """The paths that are reached from the top, each with its content; None for a folder."""
        found = {}
        for path in sorted(names):
            parent = path.rpartition("/")[0]
            if path in self.roots or found.get(parent, b"") is None:
                inode = names[path]
                found[path] = None if self.contents.get(inode, b"") is None else content_of(inode)
        return found

    def _names(self, changes, chosen):
        names = dict(self.names)
        for index in sorted(chosen):
            for path, inode in changes[index].changes.items():
                names[path] = inode
        return {path: inode for path, inode in names.items() if inode is not None}

    def whole(self, moment):
        """What every process sees at that moment."""
        changes, data, _, _ = self._split(moment)
        latest = {inode: self._variants(inode, ops, len(ops), False)[0] for inode, ops in data.items()}
        return self._tree(self._names(changes, range(len(changes))),
                          lambda inode: latest.get(inode, self.contents.get(inode, b"")))

    def states(self, moment, loose, most, random):
        """What may be found when the power goes at that moment: all of it, or `most` drawn at random."""
        changes, data, sure_names, sure_data = self._split(moment)
        name_choices = self._name_choices(changes, sure_names, loose)
        variants = {inode: self._variants(inode, operations, sure_data.get(inode, 0), loose)
                    for inode, operations in data.items()}
        open_files = [inode for inode, contents in variants.items() if len(contents) > 1]
        choices = name_choices + [variants[inode] for inode in open_files]
        for chosen in self._choose(choices, most, random):
            names = self._names(changes, itertools.chain(*chosen[:len(name_choices)]))
            picked = dict(zip(open_files, chosen[len(name_choices):]))
            yield self._tree(names, lambda inode: picked[inode] if inode in picked else
                             variants[inode][0] if inode in variants else self.contents.get(inode, b""))

    @staticmethod
    def _choose(choices, most, random):
        if math.prod(map(len, choices)) <= most:
            return itertools.product(*choices)
        drawn = [tuple(random.choice(choice) for choice in choices) for _ in range(most)]
        # Each on its own as old as it may be while all others are new, which is where most losses show.
        alone = [tuple(choice[-1 if i == oldest else 0] for i, choice in enumerate(choices))
                 for oldest in range(len(choices))]
        return [tuple(choice[0] for choice in choices), tuple(choice[-1] for choice in choices), *alone, *drawn]
