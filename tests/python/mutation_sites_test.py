"""The fault sites found in a small source: each operator's changes, nothing in comments,
strings or preprocessor lines, and the same draw for the same seed."""
import os
import subprocess
import sys
import unittest

TOOLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools")
sys.path.insert(0, TOOLS)
from mutation_sites import file_sites, masked  # noqa: E402

SOURCE = """#include <vector> // 3 < 4
// if (a < b) return 1;
int f(int a, int b) {
  const char *text = "a < b && 2.5";
  if (a < b && b != 7)
    return 2;
  if (a >= b)
    throw Refusal("x",
                  3);
  return a * 0.5 > 1e-3 || text[0] == 'x';
}
const Entry table[] = {
    {"kV", 1000.0},
    {"V", 1.0},
};
"""


def changes(operator):
    lines = SOURCE.split("\n")
    return sorted((s.line + 1, s.apply_lines(lines).strip())
                  for s in file_sites("f.cpp", SOURCE) if s.operator == operator)


class MutationSitesTest(unittest.TestCase):
    def test_masking_keeps_columns_and_code_only(self):
        code = masked(SOURCE)
        self.assertEqual(len(code), len(SOURCE))
        self.assertEqual(code.split("\n")[0], " " * len(SOURCE.split("\n")[0]))
        self.assertEqual(code.split("\n")[3], '  const char *text = "            ";')

    def test_comparisons_reversed_or_strictness_toggled(self):
        self.assertEqual(changes("compare"), [
            (5, "if (a < b && b == 7)"), (5, "if (a <= b && b != 7)"),
            (5, "if (a > b && b != 7)"), (7, "if (a <= b)"), (7, "if (a > b)"),
            (10, "return a * 0.5 < 1e-3 || text[0] == 'x';"),
            (10, "return a * 0.5 > 1e-3 || text[0] != 'x';"),
            (10, "return a * 0.5 >= 1e-3 || text[0] == 'x';")])

    def test_logic_swapped(self):
        self.assertEqual(changes("logic"), [
            (5, "if (a < b || b != 7)"),
            (10, "return a * 0.5 > 1e-3 && text[0] == 'x';")])

    def test_integers_step_and_floats_scale(self):
        self.assertEqual(changes("integer"), [
            (5, "if (a < b && b != 6)"), (5, "if (a < b && b != 8)"),
            (6, "return 1;"), (6, "return 3;"),
            (9, "2);"), (9, "4);"),
            (10, "return a * 0.5 > 1e-3 || text[(-1)] == 'x';"),
            (10, "return a * 0.5 > 1e-3 || text[1] == 'x';")])
        self.assertEqual(changes("floating")[:2], [
            (10, "return a * (0.5 * 10) > 1e-3 || text[0] == 'x';"),
            (10, "return a * (0.5 / 10) > 1e-3 || text[0] == 'x';")])
        self.assertEqual(len(changes("floating")), 8)  # 0.5, 1e-3, 1000.0, 1.0

    def test_conditions_negated_and_guards_dropped(self):
        self.assertEqual(changes("negate"), [(5, "if (!(a < b && b != 7))"),
                                             (7, "if (!(a >= b))")])
        self.assertEqual(changes("guard"), [(6, "{}"), (8, "{}")])
        lines = SOURCE.split("\n")
        guard = [s for s in file_sites("f.cpp", SOURCE) if s.operator == "guard"][1]
        self.assertEqual(guard.apply(SOURCE).split("\n")[6:9],
                         lines[6:7] + ["    {}", "  return a * 0.5 > 1e-3 || text[0] == 'x';"])

    def test_table_fields_from_the_neighbour(self):
        self.assertEqual(changes("table"), [(13, '{"V", 1000.0},'), (13, '{"kV", 1.0},'),
                                            (14, '{"V", 1000.0},'), (14, '{"kV", 1.0},')])

    def test_every_site_changes_the_source_and_names_are_unique(self):
        sites = file_sites("f.cpp", SOURCE)
        lines = SOURCE.split("\n")
        self.assertTrue(all(s.apply(SOURCE) != SOURCE for s in sites))
        names = [s.ident(lines) for s in sites]
        self.assertEqual(len(names), len(set(names)))


    def test_a_seed_draws_the_same_mutants(self):
        def drawn(seed):
            return subprocess.run([sys.executable, os.path.join(TOOLS, "mutate-random.py"),
                                   "--list", "--count", "5", "--seed", str(seed)],
                                  capture_output=True, text=True, check=True).stdout
        self.assertEqual(drawn(3), drawn(3))
        self.assertNotEqual(drawn(3), drawn(4))
        self.assertEqual(drawn(3).count("\n"), 5 * 3)


if __name__ == "__main__":
    unittest.main()
