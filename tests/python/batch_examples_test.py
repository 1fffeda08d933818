"""The batch examples run as the batch systems would run them, here: the Slurm array's
tasks and the HTCondor jobs several at once, each with its own index or queue line,
then the merge; the merged table must be the table of one run over every directory.

    batch_examples_test.py BIN_DIR EXAMPLE_DIR
"""
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

BIN, EXAMPLES = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
RUNS = ["run-a", "run-b", "run-c", "run-d"]


def submit_macros(path):
    """The `key = value` lines of a submit description, and its queue statement."""
    macros, queue = {}, None
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            if line.split()[0].lower() == "queue":
                queue = line
                continue
            key, _, value = line.partition("=")
            macros[key.strip().lower()] = value.strip()
    return macros, queue


def expand(text, macros):
    """$(name) replaced by its value, until none is left."""
    while True:
        expanded = re.sub(r"\$\((\w+)\)", lambda m: macros[m.group(1).lower()], text)
        if expanded == text:
            return text
        text = expanded


def condor_jobs(path, folder):
    """Command lines of the jobs a submit description queues: one per line of the
    file of `queue NAME from FILE`, or one for a plain `queue`."""
    macros, queue = submit_macros(path)
    words = queue.split()
    items = [None]
    if len(words) > 1:
        assert words[2] == "from", queue
        with open(os.path.join(folder, words[3]), encoding="utf-8") as f:
            items = [line.strip() for line in f if line.strip()]
    jobs = []
    for process, item in enumerate(items):
        values = dict(macros, process=str(process))
        if item is not None:
            values[words[1].lower()] = item
        jobs.append([os.path.join(".", values["executable"])] +
                    shlex.split(expand(values.get("arguments", ""), values)))
    return jobs


class BatchExamplesTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="batch-")
        self.addCleanup(shutil.rmtree, self.folder)
        for name in os.listdir(EXAMPLES):
            shutil.copy2(os.path.join(EXAMPLES, name), self.folder)
        for seed, run in enumerate(RUNS, 1):
            self.call([os.path.join(BIN, "make-run"), "--seed", str(seed), "--particles", "60",
                       "--secondary-every", "0", run])
        with open(self.path("runs.txt"), "w", encoding="utf-8") as f:
            f.write("\n".join(RUNS) + "\n")
        self.environment = dict(os.environ, PATH=BIN + os.pathsep + os.environ["PATH"])
        self.call(["twiss-optics", *RUNS, "-o", "one.csv", "-q"])

    def path(self, name):
        return os.path.join(self.folder, name)

    def call(self, command, **extra):
        environment = dict(getattr(self, "environment", os.environ), **extra)
        subprocess.run(command, cwd=self.folder, env=environment, check=True,
                       stdout=subprocess.DEVNULL)

    def all_at_once(self, commands):
        """Starts every (command, environment) pair, then waits for all of them."""
        jobs = [subprocess.Popen(command, cwd=self.folder, env=dict(self.environment, **extra))
                for command, extra in commands]
        self.assertEqual([job.wait() for job in jobs], [0] * len(jobs))

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as f:
            return f.read()

    def assertMergedIsOneRun(self):
        self.assertEqual(self.read("twiss.optics.csv"), self.read("one.csv"))
        one = json.loads(self.read("one.json"))["planes"]
        merged = json.loads(self.read("twiss.optics.json"))["planes"]
        self.assertEqual(len(merged), len(one))
        for expected, actual in zip(one, merged):
            self.assertEqual(sorted(actual), sorted(expected))
            for key, value in expected.items():
                if isinstance(value, float):
                    self.assertAlmostEqual(actual[key], value, delta=1e-12 * abs(value))
                else:
                    self.assertEqual(actual[key], value, key)

    def test_slurm_array_tasks_then_the_merge(self):
        self.all_at_once([(["bash", "analyse.sbatch"],
                           {"SLURM_ARRAY_TASK_ID": str(i), "SLURM_CPUS_PER_TASK": "2"})
                          for i in range(len(RUNS))])
        for run in RUNS:
            self.assertTrue(os.path.isfile(self.path(run + "/twiss.moments.json")), run)
        self.call(["bash", "merge.sbatch"])
        self.assertMergedIsOneRun()

    def test_slurm_submission_sizes_the_array_and_waits_for_it(self):
        # An sbatch that notes its arguments and answers with a job number.
        fake = self.path("fake-bin")
        os.mkdir(fake)
        with open(os.path.join(fake, "sbatch"), "w", encoding="utf-8") as f:
            f.write('#!/bin/sh\necho "$@" >> submitted.txt\necho 4711\n')
        os.chmod(os.path.join(fake, "sbatch"), 0o755)
        self.call(["sh", "submit-slurm.sh"], PATH=fake + os.pathsep + self.environment["PATH"])
        self.assertEqual(self.read("submitted.txt"),
                         "--parsable --array=0-3 analyse.sbatch\n"
                         "--dependency=afterok:4711 merge.sbatch\n")
        self.assertTrue(os.path.isdir(self.path("logs")))

    def test_htcondor_jobs_then_the_merge(self):
        jobs = condor_jobs(self.path("analyse.sub"), self.folder)
        self.assertEqual(jobs, [["./analyse.sh", run, "2"] for run in RUNS])
        self.all_at_once([(job, {}) for job in jobs])
        self.assertEqual(condor_jobs(self.path("merge.sub"), self.folder),
                         [["./merge.sh", "runs.txt", "twiss.optics.csv"]])
        self.call(["./merge.sh", "runs.txt", "twiss.optics.csv"])
        self.assertMergedIsOneRun()

    def test_the_dag_runs_the_merge_after_every_analysis(self):
        lines = [line.split() for line in self.read("batch.dag").splitlines()
                 if line.strip() and not line.startswith("#")]
        self.assertEqual(lines, [["JOB", "analyse", "analyse.sub"], ["JOB", "merge", "merge.sub"],
                                 ["PARENT", "analyse", "CHILD", "merge"]])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
