"""Tests of tools/mutants.py and of what tools/mutate.py reports."""

import contextlib
import io
import itertools
import os
import subprocess
import sys
import tempfile
import time
import unittest
from unittest import mock

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools"))

import mutants  # noqa: E402
import mutate  # noqa: E402


def changes(*lines):
    """{operator: [text]} of the second of several lines, the first of which opens a block."""
    source = mutants.Source("a.cpp", "\n".join(("void F() {",) + lines))
    return {name: [" / ".join(new) for new in found] for name, found in source.changes(1).items()}


class Lines(unittest.TestCase):
    def test_what_is_no_code_has_no_change(self):
        for line in ("", "}", "});", "// a < b", "/* 1 */", "#include <a.h>", "#define A 1",
                     "namespace tiv {", "using A = B<1>;", "class A;", "struct B : C;", "private:",
                     "A& operator=(const A&) = delete;", "virtual int F() = 0;",
                     'static_assert(sizeof(A) == 1, "no");', 'extern "C" {'):
            self.assertEqual({}, changes(line), line)

    def test_second_line_of_a_directive_is_no_code(self):
        self.assertEqual({}, mutants.Source("a.cpp", "#define A \\\n    return 1;").changes(1))

    def test_second_line_of_an_assertion_of_the_compiler_is_no_code(self):
        source = mutants.Source("a.cpp", "{\nstatic_assert(A == 1 &&\n    B == 2);\nC(1);")
        self.assertEqual({}, source.changes(2))
        self.assertIn("constant", source.changes(3))

    def test_comment_over_several_lines_is_no_code(self):
        self.assertEqual({}, mutants.Source("a.cpp", "/*\n a = 1;\n*/").changes(1))

    def test_comment_behind_code_stays(self):
        self.assertEqual({"constant": ["int a = 1;  // 0"]}, changes("int a = 0;  // 0"))

    def test_nothing_but_texts_changes_in_a_literal(self):
        self.assertEqual({"text": ['F("b < 1");', 'F("a < 2");'], "drop": [""]},
                         changes('F("a < 1");'))

    def test_character_literal_stays(self):
        self.assertEqual({}, changes("case '1':"))


class Operators(unittest.TestCase):
    def test_comparison_moves_its_border_or_turns(self):
        self.assertEqual(["if (a <= b) {", "if (a >= b) {"], changes("if (a < b) {")["comparison"])
        self.assertEqual(["return a != b;"], changes("return a == b;")["comparison"])

    def test_brackets_of_templates_are_no_comparison(self):
        self.assertEqual({}, changes("std::map<A, B> a;"))
        self.assertEqual({}, changes("x->y(a >> b, c << d),"))

    def test_condition_is_negated_whole(self):
        self.assertEqual(["if (!(f(a) || b)) {"], changes("if (f(a) || b) {")["condition"])
        self.assertEqual(["} else if (!(a)) {"], changes("} else if (a) {")["condition"])
        self.assertEqual(["} while (!(a));"], changes("} while (a);")["condition"])

    def test_condition_over_two_lines_is_left(self):
        self.assertEqual({"connective": ["if (a ||"]}, changes("if (a &&", "    b) {"))

    def test_references_are_no_connective(self):
        self.assertEqual({}, changes("void F(A&& a) {"))

    def test_sign(self):
        self.assertEqual(["x = a - b;"], changes("x = a + b;")["sign"])
        self.assertEqual(["x -= b;"], changes("x += b;")["sign"])
        self.assertEqual({}, changes("f(-a,"))

    def test_joined_texts_are_no_sum(self):
        for line in ('F(a + "",', "F('' + a,", 'a += "";', "return a + std::to_string(b);"):
            self.assertNotIn("sign", changes(line), line)

    def test_constant_goes_by_one_and_between_0_and_1(self):
        self.assertEqual(["F(1);"], changes("F(0);")["constant"])
        self.assertEqual(["F(0U);"], changes("F(1U);")["constant"])
        self.assertEqual(["F(9999);", "F(10001);"], changes("F(10'000);")["constant"])
        self.assertEqual(["F(0xe);", "F(0x10);"], changes("F(0x0F);")["constant"])
        self.assertEqual(["F(037);", "F(041);"], changes("F(040);")["constant"])

    def test_digits_of_names_and_fractions_are_no_constant(self):
        self.assertEqual({"drop": [""]}, changes("f2(uint32_t, 1.5, a.b1);"))

    def test_truth(self):
        self.assertEqual(["return false;"], changes("return true;")["truth"])

    def test_escapes_and_conversions_of_a_text_stay(self):
        self.assertEqual({"text": ['G("b%5d\\x41\\n%lu!",']}, changes('G("a%5d\\x41\\n%lu!",'))

    def test_last_letter_goes_round(self):
        self.assertEqual({"text": ['G("a",']}, changes('G("z",'))


class Statements(unittest.TestCase):
    def test_calls_assignments_and_jumps_are_dropped(self):
        for line in ("F();", "a.b->c(d, e(f));", "(void)F();", "a = b;", "a[i] |= b;", "++a;",
                     "a.b++;", "*a = b;", "a::B<C>(d).e();", "out << a << b;", "break;", "return;",
                     "throw A(b);"):
            self.assertEqual([""], changes(line).get("drop"), line)

    def test_declarations_and_results_are_not(self):
        for line in ("int a;", "const auto b = F();", "A* c = d;", "std::vector<A> e(f);",
                     "A& g = h;", "int Member() const;", "return a;"):
            self.assertNotIn("drop", changes(line), line)

    def test_constructor_is_declared(self):
        source = mutants.Source("a.h", "class A : B {\n public:\n    A();")
        self.assertEqual({}, source.changes(2))

    def test_part_of_a_statement_is_not_dropped(self):
        source = mutants.Source("a.cpp", "const int a =\n    F(b);")
        self.assertEqual({}, source.changes(1))

    def test_neighbours_are_swapped(self):
        self.assertEqual(["G(a); / F();"], changes("F();", "G(a);")["swap"])
        self.assertEqual(["b = a; / a = c;"], changes("a = c;", "b = a;")["swap"])

    def test_what_has_no_order_is_not(self):
        self.assertNotIn("swap", changes("a = b;", "c = d;"))
        self.assertNotIn("swap", changes("F();", "F();"))
        self.assertNotIn("swap", changes("F();", "return;"))
        self.assertNotIn("swap", changes("F();", "int a = 0;"))


def order(*lines):
    """Whether the last two of several lines of a function have an order."""
    source = mutants.Source("a.cpp", "\n".join(["void F() {"] + ["    " + line for line in lines]))
    return source.has_order(len(lines) - 1)


class Order(unittest.TestCase):
    def test_calls_have_one(self):
        self.assertTrue(order("F();", "G();"))
        self.assertTrue(order("a = F();", "b = G();"))
        self.assertTrue(order("F();", "b = c;"))

    def test_assignments_that_use_each_other_have_one(self):
        self.assertTrue(order("a = c;", "b = a;"))
        self.assertTrue(order("a = b;", "b = c;"))
        self.assertTrue(order("a.b = c;", "d = a;"))
        self.assertTrue(order("A a;", "a.b = c;", "a.b = F();"))
        self.assertTrue(order("A a;", "a.b = c;", "d = F(a);"))

    def test_other_assignments_have_none(self):
        self.assertFalse(order("*a = c;", "*ab = c + 1;"))
        self.assertFalse(order("a.b = static_cast<int>(d.e);", "a.c = d.f;  // a"))
        self.assertTrue(order('a["b"] = c;', 'a["d"] = e;'))

    def test_call_does_not_see_an_object_of_the_function(self):
        self.assertFalse(order("A a{};", "a.b = c;", "a.d = F(c);"))
        self.assertFalse(order("const A<B> a;", "a.d = F(c);", "a.b = c;"))
        self.assertFalse(order("a->b = c->d;", "a->e = static_cast<int>(f.size());"))
        self.assertTrue(order("a.b = c;", "a.d = F(c);"))
        self.assertTrue(order("A& a = d;", "a.b = c;", "a.d = F(c);"))
        self.assertTrue(order("return a;", "a.b = c;", "a.d = F(c);"))

    def test_fields_of_a_record_have_none(self):
        for head in ("void A::ToObject(Json& b) const {", "void A::FromObject(const Json& b) {"):
            self.assertFalse(mutants.Source("a.cpp", head + "\n    F(b);\n    G(b);").has_order(1))

    def test_fields_of_a_generated_message_have_none(self):
        self.assertFalse(order("a->set_b(c);", "a->set_d(e.f);"))
        self.assertTrue(order("a.set_b(c);", "a.set_b(e);"))
        self.assertTrue(order("a.set_b(c);", "d.set_e(c);"))
        self.assertTrue(order("a.set_b(c);", "a.set_d(F());"))

    def test_end_of_an_argument_list_has_none(self):
        self.assertFalse(order("F(a);", "va_end(a);"))

    def test_message_has_none_with_what_it_does_not_tell(self):
        self.assertFalse(order('TIV_LOGE("a is %d", b);', "c.d = e;"))
        self.assertFalse(order("c.d = e;", 'TIV_EVENT("a");'))
        self.assertTrue(order("a = b;", 'TIV_LOGE("a is %d", a);'))
        self.assertTrue(order("a.b = c;", 'TIV_LOGE("a is %d", a.d);'))
        self.assertTrue(order("a = b;", 'TIV_LOGE("a is %d", F());'))
        self.assertTrue(order("a = F();", 'TIV_LOGE("a");'))


def unlocks_last(*lines):
    """Whether the Unlock among the lines of a function does what its end does."""
    source = mutants.Source("a.cpp", "\n".join(["void F() {"] + list(lines) + ["}"]))
    return source.ends_with_its_lock(1 + lines.index("    a.Unlock();"))


class Unlocks(unittest.TestCase):
    lock = "    tiv::MutexLock a(b);"
    unlock = "    a.Unlock();"

    def test_lock_that_was_made_last_goes_first(self):
        self.assertTrue(unlocks_last("    A c;", self.lock, "    d.swap(e);", self.unlock))
        self.assertTrue(unlocks_last(self.lock, self.unlock, "    return 0;"))
        self.assertTrue(unlocks_last(self.lock, "    for (;;) {", "        A c;", "    }",
                                     self.unlock))

    def test_what_was_made_behind_the_lock_goes_before_it(self):
        for line in ("A c;", "const auto c = d;", "A<B> c(d);", "tiv::MutexLock c(d);"):
            self.assertFalse(unlocks_last(self.lock, "    " + line, self.unlock), line)

    def test_what_is_done_behind_it_is_done_without_the_lock(self):
        self.assertFalse(unlocks_last(self.lock, self.unlock, "    F();"))
        self.assertFalse(unlocks_last(self.lock, self.unlock, "    return F();"))

    def test_lock_of_an_outer_block_lasts_longer(self):
        lines = ("void F() {", self.lock, "    if (c) {", "    " + self.unlock, "    }", "    G();")
        source = mutants.Source("a.cpp", "\n".join(lines))
        self.assertFalse(source.ends_with_its_lock(3))


def written_first(*lines):
    """Whether the first line of a function makes a variable whose value nobody reads."""
    source = mutants.Source("a.cpp", "\n".join(["void F() {"] + ["    " + line for line in lines]))
    return source.is_written_first(1)


class FirstValues(unittest.TestCase):
    def test_replaced_before_they_are_read(self):
        self.assertTrue(written_first("int a = 0;", "a = F();"))
        self.assertTrue(written_first("bool a{false};", "{", "    G(b);", "    a = b;", "}"))
        self.assertTrue(written_first("int a = 0;", "do {", "    a = F();"))

    def test_read_or_perhaps_not_replaced(self):
        for lines in (("F(a);",), ("F(&a);", "a = b;"), ("a = a + 1;",), ("a += 1;",),
                      ("if (b) {", "    a = c;"), ("b ? c : d;", "a = e;"), ("a = [&] { b(a); };",),
                      ("while (b) {", "    a = c;"), ("try {", "    a = c;"),
                      ("F([&] {", "    a = b;"), ("b = a = c;",), ("return b;", "a = c;")):
            self.assertFalse(written_first("int a = 0;", *lines), lines)


class Draw(unittest.TestCase):
    sources = [mutants.Source("a.cpp", "{\nF(1);\nG(2);\n}"), mutants.Source("b.cpp", "{\nH(3);")]

    def test_seed_decides(self):
        first, again, other = (list(itertools.islice(mutants.draw(self.sources, seed), 5))
                               for seed in (1, 1, 2))
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)

    def test_each_mutant_comes_once(self):
        drawn = list(mutants.draw(self.sources, 1))
        self.assertEqual(9, len(drawn))
        self.assertEqual(9, len({(mutant.file, mutant.line, mutant.mutated) for mutant in drawn}))
        self.assertEqual(list(range(1, 10)), [mutant.number for mutant in drawn])


    def test_use_of_the_unused_takes_a_number_but_is_not_dropped(self):
        source = mutants.Source("a.cpp", "{\nstatic_cast<void>(a);\n(void)a;\n(void)F(a);\n}")
        self.assertEqual([4], [mutant.line for mutant in mutants.draw([source], 1)])

    def test_annotation_takes_a_number_but_is_not_changed(self):
        source = mutants.Source("a.cpp", "{\nbool A() TRY_ACQUIRE(true) { return true; }\n"
                                "void F() __attribute__((format(printf, 1, 2)));\n}")
        drawn = list(mutants.draw([source], 1))
        self.assertEqual(["bool A() TRY_ACQUIRE(true) { return false; }"],
                         [mutant.mutated for mutant in drawn])

    def test_statements_without_an_order_take_a_number_but_are_not_swapped(self):
        source = mutants.Source("a.cpp", '{\nTIV_LOGE("");\na = b;\n}')
        drawn = list(mutants.draw([source], 1))
        self.assertEqual(["drop", "drop"], [mutant.operator for mutant in drawn])
        self.assertTrue({mutant.number for mutant in drawn} < {1, 2, 3})


class Build(unittest.TestCase):
    def test_compiler_ends_with_the_interrupted_build(self):
        with tempfile.TemporaryDirectory() as work:
            ninja = os.path.join(work, "ninja")
            with open(ninja, "w", encoding="utf-8") as script:
                script.write("#!/bin/sh\nsleep 600 &\n"
                             "echo $! >$DIR/made\nmv $DIR/made $DIR/pid\nwait\n")
            os.chmod(ninja, 0o755)
            places = {"PATH": work + os.pathsep + os.environ["PATH"], "DIR": work}
            with mock.patch.dict(os.environ, places):
                compiler = self.interrupt(mutate.Bench(work, 1), os.path.join(work, "pid"))
            self.assertTrue(has_ended(compiler))

    def interrupt(self, bench, place):
        """Stops a build as soon as its compiler runs; the compiler's process id."""
        def stop(process):
            process.stdout.close()
            deadline = time.monotonic() + 10
            while not os.path.exists(place):
                self.assertLess(time.monotonic(), deadline)
                time.sleep(0.01)
            raise KeyboardInterrupt
        with mock.patch.object(subprocess.Popen, "communicate", stop):
            with self.assertRaises(KeyboardInterrupt):
                bench.build([("a", "test_a")])
        with open(place, encoding="utf-8") as process:
            return int(process.read())


def has_ended(process):
    """Whether a process is gone, or a zombie, within ten seconds."""
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        try:
            with open(f"/proc/{process}/stat", encoding="utf-8") as stat:
                if stat.read().rsplit(")", 1)[1].split()[0] == "Z":
                    return True
        except (FileNotFoundError, ProcessLookupError):
            return True
    return False


class Report(unittest.TestCase):
    mutant = mutants.Mutant(1, "src/a.cpp", 2, "drop", "F();", "", [""])

    def is_allowed(self, line, source=("G();", "  F();"), at=2):
        return mutate.is_allowed(self.mutant._replace(line=at), [line], list(source))

    def test_allowed_is_what_names_file_and_both_texts(self):
        self.assertTrue(self.is_allowed("src/a.cpp: F(); => : it has no effect"))
        for line in ("src/b.cpp: F(); => : x", "src/a.cpp: F() => : x", "src/a.cpp: F(); => a: x",
                     "src/a.cpp: F(); =>"):
            self.assertFalse(self.is_allowed(line), line)

    def test_text_at_two_places_is_allowed_with_the_line_in_front_of_it(self):
        source = ("G();", "  F();", "H();", "F();")
        self.assertFalse(self.is_allowed("src/a.cpp: F(); => : x", source))
        self.assertTrue(self.is_allowed("src/a.cpp: G(); >> F(); => : x", source))
        self.assertFalse(self.is_allowed("src/a.cpp: H(); >> F(); => : x", source))

    def test_several_lines_in_front_are_named_where_one_is_not_enough(self):
        source = ("G();", "F();", "H();", "G();", "F();")
        self.assertFalse(self.is_allowed("src/a.cpp: G(); >> F(); => : x", source))
        self.assertFalse(self.is_allowed("src/a.cpp: H(); / G(); >> F(); => : x", source))
        self.assertTrue(self.is_allowed("src/a.cpp: K(); / G(); >> F(); => : x",
                                        ("G();", "F();", "K();", "G();", "F();"), 5))

    def score(self, killed, allowed, survived):
        text = io.StringIO()
        with contextlib.redirect_stdout(text):
            good = mutate.score("a", dict(zip(mutate.STAGES, killed)), allowed, survived)
        return good, text.getvalue().splitlines()

    def test_score_before_and_after_the_allowed(self):
        self.assertEqual((True, [
            "a: 95 of 100 killed (unit 90, neighbours 4, end-to-end 1), 0 survived, 5 allowed",
            "a: 95.0 %, without the allowed 100.0 %"]), self.score((90, 4, 1), 5, 0))

    def test_one_survivor_or_too_many_allowed_is_wrong(self):
        self.assertFalse(self.score((99, 0, 0), 0, 1)[0])
        self.assertFalse(self.score((94, 0, 0), 6, 0)[0])

    def test_list_of_the_allowed_names_one_place_each(self):
        for line in mutate.read_allowed(os.path.join(mutate.ROOT, "tools", "mutants_allowed.txt")):
            name, _, rest = line.partition(": ")
            with open(os.path.join(mutate.ROOT, name), encoding="utf-8") as source:
                texts = [" ".join(text.split()) for text in source.read().split("\n")]
            self.assertEqual(1, len(mutate.places(texts, rest.split(" => ")[0])), line)


if __name__ == "__main__":
    unittest.main()
