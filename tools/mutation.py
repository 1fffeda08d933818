"""A copy of the tree in which one small fault at a time is built and tested.

Shared by tools/mutate.py (the listed mutants) and tools/mutate-random.py (mutants drawn
at random). A fault that makes a test fail kills its mutant; one that makes the tests
run out of time hangs; one that every test passes survives; one that does not build is
reported by the caller (the listed mutants count it as killed).
"""
import os
import shutil
import subprocess
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def run(command, cwd, timeout=None):
    """Exit status of a command, or None when it ran out of time."""
    try:
        return subprocess.run(command, cwd=cwd, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return None


class Workshop:
    """The tree's files copied to a temporary folder and built there once."""

    def __init__(self):
        self.work = tempfile.mkdtemp(prefix="mutate-")
        self.tree = os.path.join(self.work, "tree")
        self.build = os.path.join(self.work, "build")
        self.jobs = str(os.cpu_count() or 2)
        files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT,
                               capture_output=True, text=True, check=True).stdout.split()
        for name in files:
            os.makedirs(os.path.dirname(os.path.join(self.tree, name)) or self.tree,
                        exist_ok=True)
            shutil.copy2(os.path.join(ROOT, name), os.path.join(self.tree, name))
        if not self.builds(["cmake", "-S", self.tree, "-B", self.build,
                            "-DCMAKE_BUILD_TYPE=Release"]) or not self.builds():
            raise SystemExit("mutate: the unchanged tree does not build")

    def builds(self, command=None):
        return run(command or ["cmake", "--build", self.build, "-j", self.jobs], self.tree) == 0

    def read(self, name):
        with open(os.path.join(self.tree, name), encoding="utf-8") as f:
            return f.read()

    def outcome(self, name, mutated, timeout):
        """Builds and tests the tree with the file's text replaced: "killed", "hang",
        "survived" or "unbuilt"; the file is restored afterwards."""
        path = os.path.join(self.tree, name)
        original = self.read(name)
        with open(path, "w", encoding="utf-8") as f:
            f.write(mutated)
        try:
            if not self.builds():
                return "unbuilt"
            status = run(["ctest", "-j", self.jobs, "--stop-on-failure", "--timeout", "120"],
                         self.build, timeout=timeout)
            return "hang" if status is None else ("killed" if status != 0 else "survived")
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original)
            # The restored file must be newer than the objects built from the mutant.
            os.utime(path)

    def close(self):
        shutil.rmtree(self.work, ignore_errors=True)
