"""Whether a host behind a fault is as promised."""
import collections
import os
import re
import typing

REMOVALS = {"remove_answer": ("answer", 1), "remove_bridge_mapping": ("add_bridge_mapping", 1),
            "remove_dhcp_mac_to_ip": ("add_dhcp_mac_to_ip", 2), "remove_nat_portfwd": ("add_nat_portfwd", 3)}
KEY_WORDS = dict(REMOVALS.values())
# What the injected fault kept from being removed, or a file in it.
REFUSED_REMOVAL = re.compile(r"^\d+ +(?:unlink|unlinkat|rmdir)\(.*\(INJECTED\)$", re.M)
# Network 0 is the default bridge's also where no record says so.
IMPLIED = "answer HBL_DEFAULT_BRIDGE_VNET 0"


class Rules(typing.NamedTuple):
    """What holds for a command besides."""
    editor: bool = False         # it writes all of its changes or none
    removes_first: bool = False  # the former database goes, network by network, before the new one comes
    begins_anew: bool = False    # a database that it cannot read is kept as a backup, and default networks take its place
    stripped: str | None = None  # the network that it takes apart when it fails


def read(folder, name):
    try:
        with open(os.path.join(folder, name), errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return None


def replayed(database):
    """The records by their keys that a database means, with what is drawn at random made alike."""
    if database is None:
        return None
    text = re.sub(r"(172\.16|192\.168)(\.\d+){2}", "SUBNET", database)
    text = re.sub(r"\b[0-9A-F]{40}\b", "HASH", text)
    records = {}
    for line in text.splitlines():
        words = line.split()
        kind, count = REMOVALS.get(words[0], (words[0], KEY_WORDS.get(words[0], 0))) if words else ("", 0)
        key = (kind, *words[1:count + 1])
        records.pop(key, None)
        if words and words[0] not in REMOVALS and line != IMPLIED:
            records[key] = line.rstrip()  # a journal ends a forward without a description differently
    return records


class Host:
    """What one run has left in its folder."""

    def __init__(self, folder):
        self.folder = folder
        self.ended = read(folder, "stop.state") is not None
        self.before = replayed(read(folder, "before.database"))

    def database(self, stage):
        return replayed(read(self.folder, f"{stage}.database"))

    def outcome(self, stage):
        return (read(self.folder, f"{stage}.status"), self.database(stage))

    def state(self, stage):
        return collections.Counter((read(self.folder, f"{stage}.state") or "").splitlines())

    def refused(self):
        """The temporary files whose one removal has failed: they stay, and harm nobody."""
        removals = REFUSED_REMOVAL.findall(read(self.folder, "trace") or "")
        return {name for removal in removals for name in re.findall(r"\borvane\.\w{6}(?:\.lck)?", removal)}

    def complaints(self):
        """What the daemons have written to the log, with numbers made alike."""
        lines = (read(self.folder, "stop.log") or "").splitlines()
        return {re.sub("[0-9]+", "#", line) for line in lines if line.startswith("zelan-")}

    def has_way_back(self, stage):
        return read(self.folder, f"{stage}.undo") is not None


def is_file_hash(key):
    return key[-1].endswith("_CFG_HASH")


def is_of(network, key):
    """Whether a record belongs to the network that the command takes apart when it fails."""
    return network is not None and (key[-1].startswith(f"VNET_{network}_") or key[1:2] == (network,))


def edited(records):
    """Without what a step behind the change notes of the file that it writes."""
    return {key: record for key, record in (records or {}).items() if not is_file_hash(key)}


def judge_database(host, twin, rules):
    status, database = host.outcome("disturbed")
    before, after = host.before, twin.database("disturbed")
    if rules.removes_first and status != "0\n":
        return None  # it goes record by record, and the same command again completes that
    if database is None:
        return None if before is None or has_begun_anew(host, rules) else "the database is gone"
    original = replayed(read(twin.folder, "original.database"))
    if rules.editor and not host.has_way_back("disturbed") and edited(database) not in map(edited, (before, after, original)):
        return "the editor's change is neither written nor not written"
    if rules.editor and host.has_way_back("disturbed") and status == "0\n":
        return "the editor tells a success that its next change takes back"
    # A file that could not be read where the editor rehearses is written once more than needed, which is noted.
    beyond = {key for key in database.keys() - (after or {}).keys() if rules.editor and is_file_hash(key)}
    if status == "0\n" and {key: database[key] for key in database.keys() - beyond} != after:
        return "the command tells a success that is none"
    for key, record in database.items():
        if is_of(rules.stripped, key):
            continue
        if record not in ((before or {}).get(key), (after or {}).get(key), (original or {}).get(key)):
            return f"the database holds a record of neither the state before nor the one after: {record}"
    lost = [key for key in before or {} if key in (after or {}) and key not in database and not is_of(rules.stripped, key)]
    # A kill between the two lines of a record that is replaced.
    if len(lost) > 1 or any((before or {})[key] == after[key] for key in lost if not is_file_hash(key)):
        return f"the database has lost {lost}"
    return None


def is_said(line, complaints):
    """A daemon that cannot have a confinement, or the kernel's way of carrying frames, says so once and goes on without."""
    return line.startswith("process ") and any(word in text for text in complaints for word in ("cannot", "are copied"))


def names(lines):
    found = (line.split()[1] for line in lines.elements() if line.startswith("process "))
    return sorted(name for name in found if name != "zelan-copy")


def is_taken_apart(host, rules):
    database = host.database("disturbed") or {}
    return any(is_of(rules.stripped, key) and key not in database for key in host.before or {})


def has_begun_anew(host, rules):
    """The networks of before ran on, and did not let the default ones take their place."""
    kept = replayed(read(host.folder, "disturbed.backup"))
    return rules.begins_anew and host.database("disturbed") is None and kept is not None and kept == host.before


def difference(host, twin, stage, left_out=()):
    """What lines of a state differ, but for those that begin with a word that is left out."""
    seen, wanted = host.state(stage), twin.state(stage)
    new = host.complaints() - twin.complaints() if names(seen) == names(wanted) else set()

    def matters(line):
        kind, *rest = line.split()
        left = kind == "temporary" and host.refused() and host.refused() >= set(rest)
        return kind not in left_out and not left and not is_said(line, new)

    lines = [f"-{line}" for line in sorted((wanted - seen).elements()) if matters(line)]
    lines += [f"+{line}" for line in sorted((seen - wanted).elements()) if matters(line)]
    return f"after '{stage}' the host differs: " + "; ".join(lines) if lines else None


def judge(folder, twin_folder, rules):
    """The first thing that is not as promised, or None."""
    host, twin = Host(folder), Host(twin_folder)
    if not host.ended:
        return "the host did not come to its end"
    if host.outcome("disturbed")[0] == "124\n":
        return "the disturbed command did not end"
    bad = judge_database(host, twin, rules)
    if bad:
        return bad
    if is_taken_apart(host, rules) or has_begun_anew(host, rules):
        return difference(host, twin, "stop", left_out=("files",))
    # Once more behind a success, or for the first time behind a failure.
    if host.outcome("again") not in (twin.outcome("disturbed"), twin.outcome("again")):
        return "the same command again does not give the undisturbed result"
    if host.has_way_back("again"):
        return "the way back stays"
    return difference(host, twin, "again") or difference(host, twin, "stop")
