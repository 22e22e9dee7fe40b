"""What the operators change, and what they leave alone."""

import unittest

import operators
import report
from source import masked, surroundings

SOURCE = '''#include "a.h" // 1 == 2

struct Row {
    int number;
    int other() const;
};

constexpr Row rows[] = {
    {1, "one"},
    {2, "two"},
};

int Client::send(int count)
{
    const Guard guard(this);
    QNetworkRequest request(url);
    if (!count || m_closed)
        return 0;
    first(count);
    m_sent += count; // "not a text"
    if (const int left = rest(request))
        Q_EMIT sent(left);
    return count < 100 ? Mode::Plain : Mode::Packed;
}
'''


def changed(operator, source=SOURCE):
    """The lines that each mutant changes, as it has them."""
    found = []
    for mutant in operators.mutants("a.cpp", source)[operator]:
        lines = operators.mutated(source, mutant).splitlines()
        found.append([line.strip() for line in lines if line not in source.splitlines()])
    return found


class Operators(unittest.TestCase):
    def test_negated(self):
        self.assertEqual(changed("negated"), [
            ["if (!(!count || m_closed))"],
            ["return !(count < 100) ? Mode::Plain : Mode::Packed;"],
            ["if (count || m_closed)"]])

    def test_a_negation_is_negated_once(self):
        self.assertEqual(changed("negated", "    if (!reply->isOpen())\n"),
                         [["if (reply->isOpen())"]])

    def test_the_condition_of_a_loop(self):
        self.assertEqual(changed("negated", "    for (int i = 0; more(i); ++i)\n"),
                         [["for (int i = 0; !(more(i)); ++i)"]])

    def test_swapped(self):
        self.assertEqual(changed("swapped"), [
            ["if (!count && m_closed)"], ["m_sent -= count; // \"not a text\""],
            ["return count <= 100 ? Mode::Plain : Mode::Packed;"]])

    def test_constant(self):
        self.assertEqual(changed("constant"), [
            ['{0, "one"},'], ['{3, "two"},'], ["return 1;"],
            ["return count < 101 ? Mode::Plain : Mode::Packed;"], ["return {};"],
            ["return count < 100 ? Mode::Packed : Mode::Packed;"],
            ["return count < 100 ? Mode::Plain : Mode::Plain;"]])

    def test_removed(self):
        removed = [SOURCE[mutant.start:mutant.end]
                   for mutant in operators.mutants("a.cpp", SOURCE)["removed"]]
        self.assertEqual(removed, ["const Guard guard(this);", "first(count);",
                                   "m_sent += count;", "Q_EMIT sent(left);"])

    def test_reordered(self):
        mutant, = operators.mutants("a.cpp", SOURCE)["reordered"]
        self.assertEqual(mutant.new, "m_sent += count;\n    first(count);")

    def test_emptied(self):
        self.assertEqual(changed("emptied"), [['{1, ""},'], ['{2, ""},']])

    def test_table(self):
        rows = [operators.mutated(SOURCE, mutant).split("= {")[1].split("};")[0].split()
                for mutant in operators.mutants("a.cpp", SOURCE)["table"]]
        self.assertEqual(rows, [["{2,", '"two"},'], ["{1,", '"two"},', "{2,", '"one"},'],
                                ["{1,", '"one"},']])

    def test_names_are_unique(self):
        names = [mutant.id for found in operators.mutants("a.cpp", SOURCE).values()
                 for mutant in found]
        self.assertEqual(len(names), len(set(names)))
        self.assertIn("a.cpp:23:constant.2", names)


class Source(unittest.TestCase):
    def test_masking_keeps_places(self):
        self.assertEqual([len(line) for line in masked(SOURCE).split("\n")],
                         [len(line) for line in SOURCE.split("\n")])

    def test_a_statement_of_several_lines_is_found_whole(self):
        code = "{\n    a();\n    b(c,\n      d);\n}\n"
        self.assertEqual(surroundings(code, code.index("d"), code.index("d") + 1), (3, 4))


class Report(unittest.TestCase):
    def test_a_mutant_is_recognized_elsewhere(self):
        mutant = operators.mutants("a.cpp", SOURCE)["swapped"][0]
        lower = "\n\n" + SOURCE
        same = operators.mutants("a.cpp", lower)["swapped"][0]
        self.assertEqual(report.key("a.cpp", report.diff("a.cpp", SOURCE, mutant)),
                         report.key("a.cpp", report.diff("a.cpp", lower, same)))


if __name__ == "__main__":
    unittest.main()
