"""The tests of a build, each run by itself, and which lines each of them reaches. For script/coverage and script/mutate."""
import collections
import hashlib
import json
import os
import signal
import subprocess
import time

TREE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(TREE, "build-coverage")
MAP = os.path.join(BUILD, "reached.json")
PRODUCT = ("lib", "apps", "daemons")

Test = collections.namedtuple("Test", "name command folder seconds skipped labels")


def listed_files():
    """Every file of the tree that is no product of a build, relative to the root."""
    listed = subprocess.run(["git", "-C", TREE, "ls-files", "-co", "--exclude-standard"], check=True,
                            capture_output=True, text=True).stdout.split("\n")
    return [name for name in listed if name and os.path.isfile(os.path.join(TREE, name))]


def tests_of(build):
    """All tests of a build but the slow ones, by their names."""
    listed = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True, capture_output=True).stdout
    found = {}
    for test in json.loads(listed)["tests"]:
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
        if "slow" not in properties.get("LABELS", []):
            found[test["name"]] = Test(test["name"], test["command"], properties.get("WORKING_DIRECTORY", build),
                                       properties.get("TIMEOUT", 120.0), properties.get("SKIP_RETURN_CODE"),
                                       properties.get("LABELS", []))
    return found


def run(test, before=(), seconds=None):
    """Whether the test passed or skipped itself, with `before` in front of its command, and the seconds it took."""
    start = time.monotonic()
    process = subprocess.Popen([*before, *test.command], cwd=test.folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        passed = process.wait(timeout=seconds or test.seconds) in (0, test.skipped)
    except subprocess.TimeoutExpired:
        passed = False
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
    return passed, time.monotonic() - start


def digest():
    """Changes with everything that the build and the tests are made of."""
    total = hashlib.sha1()
    for name in sorted(listed_files()):
        if name.startswith((*(folder + "/" for folder in PRODUCT), "tests/", "tools/", "CMake")):
            with open(os.path.join(TREE, name), "rb") as file:
                total.update(name.encode() + b"\0" + hashlib.sha1(file.read()).digest())
    return total.hexdigest()


class Reached:
    """tests: names. lines: of each file those with code, and the numbers of the tests that reach each of them."""

    def __init__(self, tests=(), lines=None):
        self.tests = list(tests)
        self.lines = lines or collections.defaultdict(dict)

    def add(self, number, file, line, count):
        reaching = self.lines[file].setdefault(line, [])
        if count > 0:
            reaching.append(number)

    def save(self):
        with open(MAP + ".new", "w", encoding="utf-8") as file:
            json.dump({"digest": digest(), "tests": self.tests, "lines": self.lines}, file)
        os.rename(MAP + ".new", MAP)

    def at(self, file, line):
        """The names of the tests that reach the line; None for one without code that runs, such as a table's."""
        numbers = self.lines.get(file, {}).get(line)
        return None if numbers is None else {self.tests[number] for number in numbers}

    def near(self, file):
        """The names of the tests that reach any line of the file, or else of its folder."""
        folder = os.path.dirname(file)
        for names in ([file], [name for name in self.lines if os.path.dirname(name) == folder]):
            numbers = {number for name in names for reaching in self.lines.get(name, {}).values() for number in reaching}
            if numbers:
                return {self.tests[number] for number in numbers}
        return set()


def load():
    """What the last run of script/coverage found, unless something has changed since."""
    if not os.path.exists(MAP):
        return None
    with open(MAP, encoding="utf-8") as file:
        found = json.load(file)
    if found["digest"] != digest():
        return None
    lines = {name: {int(line): numbers for line, numbers in of.items()} for name, of in found["lines"].items()}
    return Reached(found["tests"], lines)
