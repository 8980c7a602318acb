"""What each rule makes of a function, and what it leaves alone."""

import sys
import unittest

sys.dont_write_bytecode = True
from rules import RULES, mutants_of, sequence  # noqa: E402


def made(rule, *lines, head='int f() {'):
    """What the rule makes of a function with these lines: the lines that change, as they are then."""
    text = '\n'.join([head, *('    ' + line for line in lines), '}', ''])
    return [mutant.after for mutant in mutants_of('f.cpp', text) if mutant.rule == rule]


class Rules(unittest.TestCase):
    def test_a_store_is_dropped_and_what_controls_it_stays(self):
        self.assertEqual([';', 'if (a) {}', 'else {}', ';', ';'],
                         made('drop a store', 'a = b;', 'if (a) b.storeRelease(c);', 'else ++b;', 'x[i].y += 2;',
                              '--n;'))

    def test_a_call_is_dropped_over_several_lines_too(self):
        self.assertEqual([';', 'for (int i = 0; i < 3; ++i) {}', ';'],
                         made('drop a call', 'f(a);', 'for (int i = 0; i < 3; ++i) g(i);', 'each(a, [&](int& b) {',
                              '    return b;', '});'))

    def test_declarations_and_returns_are_not_dropped(self):
        for rule in ('drop a store', 'drop a call'):
            self.assertEqual([], made(rule, 'const int a = f();', 'Thing b(a);', 'const auto c = [&] { return 1; };',
                                      'return g(a);', 'static_assert(sizeof(int) == 4, "so");',
                                      'Word* d = g<3>(a);', 'uint32_t e;'))

    def test_a_jump_is_dropped(self):
        self.assertEqual(['if (a) {}', 'case State::over: {}'],
                         made('drop a jump', 'while (b) {', '    if (a) continue;', '}', 'switch (c) {',
                              'case State::over: break;', '}', 'return 3;'))

    def test_a_condition_is_never_and_always_met(self):
        self.assertEqual(['if (false) g();', 'while (false) h();'],
                         made('never', 'if (a == (b + 1)) g();', 'while (c) h();'))
        self.assertEqual(['if (true) g();'], made('always', 'if (a == (b + 1)) g();', 'while (c) h();'))
        self.assertEqual(['if (const int e = g(); false) h();'], made('never', 'if (const int e = g(); e != 0) h();'))
        self.assertEqual([], made('never', 'if (Peer* peer = find(a)) return peer;'))

    def test_either_side_of_a_condition_is_dropped(self):
        self.assertEqual(['return b[1];', 'return a(x, y);'], made('weaken a condition', 'return a(x, y) && b[1];'))
        self.assertCountEqual(['if (b && c) f();', 'if (a == 1) f();', 'if (a == 1 || c) f();',
                               'if (a == 1 || b) f();'],
                              made('weaken a condition', 'if (a == 1 || b && c) f();'))

    def test_operands_are_whole(self):
        self.assertEqual(['x = s::b == T{2};', "x = a != 'q';"],
                         made('weaken a condition', "x = a != 'q' && s::b == T{2};"))
        self.assertEqual(['g(b, c);', 'g(a, c);'], made('weaken a condition', 'g(a || b, c);'))

    def test_neighbours_are_swapped_unless_one_declares_or_jumps(self):
        self.assertEqual(['b(); a = 1;'],
                         made('swap neighbours', 'a = 1;', 'b();', 'const int c = 2;', 'd();', 'return c;'))
        self.assertEqual(['--b; a = b;', 'a = b; b = c;'],
                         sorted(made('swap neighbours', 'e.a = 1;', 'e.b = 2;', 'b = c;', 'a = b;', '--b;')))
        self.assertEqual([], made('swap neighbours', 'if (a) b();', 'c();', '{', '    d();', '}', 'e();'))

    def test_stores_without_an_order_are_not_swapped(self):
        self.assertEqual([], made('swap neighbours', 'a.b.storeRelaxed(1);', 'a.c.storeRelaxed(d());'))
        self.assertEqual(['a.b.storeRelaxed(2); a.b.storeRelaxed(1);'],
                         made('swap neighbours', 'a.b.storeRelaxed(1);', 'a.b.storeRelaxed(2);'))
        self.assertEqual(['a.c.storeRelease(2); a.b.storeRelaxed(1);'],
                         made('swap neighbours', 'a.b.storeRelaxed(1);', 'a.c.storeRelease(2);'))

    def test_a_function_without_a_result_returns_early(self):
        self.assertEqual(['return;', 'if (a) return;'],
                         made('return early', 'g();', 'if (a) h();', head='void X::f(int a) {'))
        self.assertEqual([], made('return early', 'g();'))
        self.assertEqual(['return;'], made('return early', 'const auto h = [&] {', '    g();', '    return 1;', '};',
                                           'k();', head='void f() {'))

    def test_boundaries_move_by_one(self):
        self.assertEqual(['if (a <= b) g<int>(c << 2);'], made('shift a boundary', 'if (a < b) g<int>(c << 2);'))
        self.assertEqual(['a = b;'], made('shift by one', 'a = b + 1;', 'a = b - 10;', 'a = b - 1.5;'))

    def test_questions_are_turned_round(self):
        self.assertEqual(['if (a != 0) g();', 'if (found) g();', 'c = a == b;'],
                         made('negate', 'if (a == 0) g();', 'if (!found) g();', 'c = a != b;'))
        self.assertEqual(['return false;', 'return 0;'],
                         made('wrong result', 'return true;', 'return -1;', 'return a;'))

    def test_orders_become_relaxed(self):
        self.assertEqual(['a.storeRelaxed(1);', 'b = c.loadRelaxed();', 'd.load(std::memory_order_relaxed);'],
                         made('relax an order', 'a.storeRelease(1);', 'b = c.loadAcquire();',
                              'd.load(std::memory_order_acquire);'))

    def test_only_code_in_functions_is_changed(self):
        text = '''#include <a>
namespace n {
constexpr int a = 1 + 1;
// f(); a = b; if (a == b) c();
struct S {
    int b = a - 1;
    bool loadAcquire() const;
};
extern "C" {
/* f(); */
int g(const char* text = "a == b; f();");
}
}  // namespace n
'''
        self.assertEqual([], mutants_of('s.h', text))

    def test_a_mutant_knows_its_place(self):
        text = 'void f() {\n    g();  // why\n}\n'
        (mutant,) = [mutant for mutant in mutants_of('p.cpp', text) if mutant.rule == 'drop a call']
        self.assertEqual(('p.cpp', 2, 'g(); // why', '; // why'),
                         (mutant.path, mutant.line, mutant.before, mutant.after))
        self.assertEqual('void f() {\n    ;  // why\n}\n',
                         text[:mutant.start] + mutant.replacement + text[mutant.end:])

    def test_the_seed_decides_the_order_and_each_rule_has_its_turn(self):
        text = 'int f() {\n' + '    if (a == 1 && b < 2) c = d + 1;\n    g();\n' * 20 + '    return 0;\n}\n'
        mutants = mutants_of('p.cpp', text)
        self.assertEqual(sequence(mutants, 1), sequence(mutants, 1))
        self.assertNotEqual(sequence(mutants, 1), sequence(mutants, 2))
        self.assertEqual(set(mutants), set(sequence(mutants, 1)))
        rules = [mutant.rule for mutant in sequence(mutants, 1)]
        present = [rule for rule in RULES if rule in rules]
        self.assertEqual(present, rules[:len(present)])


if __name__ == '__main__':
    unittest.main()
