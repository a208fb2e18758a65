#include "js/parse.hpp"

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vellum::js {
namespace {

using parse::parse_string;

source_elements parsed(std::string const& src) {
    auto r = parse_string(src);
    auto const* e = std::get_if<js_error>(&r);
    EXPECT_EQ(e, nullptr) << src << ": " << (e ? e->error_message : "");
    return e ? source_elements{} : std::get<source_elements>(r);
}

js_error error_of(std::string const& src) {
    auto r = parse_string(src);
    auto const* e = std::get_if<js_error>(&r);
    EXPECT_NE(e, nullptr) << src << " parsed";
    return e ? *e : js_error{};
}

statement const& stmt_at(source_elements const& els, std::size_t i) {
    return *std::get<ref<statement>>(els.at(i));
}

expr const& expr_of_stmt(statement const& s) { return *std::get<expr_stmt>(s.stmt_node).expr_value; }

TEST(parse, accepts_and_rejects_the_edge_cases) {
    struct case_t {
        char const* name;
        char const* src;
        bool ok;
    };
    std::vector<case_t> cases = {
        {"division chain", "a = b / c / d", true},
        {"regexp method", "a = /b/.test(c)", true},
        {"regexp class holds slash", "x = /[/]/", true},
        {"regexp raw line feed", "x = /a\nb/", true},
        {"paren object", "({}).x", true},
        {"call of function expression", "(function(){})()", true},
        {"block then member", "{}.x", false},
        {"anonymous function statement", "function(){}", false},
        {"trailing comma object", "var o = {a: 1, }", true},
        {"getter in literal", "var o = {get a() {}}", false},
        {"keyword after dot", "a.class; a.true; a.if", true},
        {"keyword as property name", "x = {if: 1}", true},
        {"octal literal", "x = 017", false},
        {"if at end", "if (a)\n", false},
        {"for header newline", "for (;\n)", false},
        {"do while then newline", "do x; while (y)\nz", true},
        {"do while then brace", "{ do x; while (y) }", true},
        {"do while at end", "do x; while (y)", true},
        {"block comment no line end", "a /* newline\ninside */ ++b", false},
        {"newline before prefix inc", "a\n++b", true},
        {"nbsp", "a =\xC2\xA0" "1", false},
        {"html comment opener", "<!-- x = 1", true},
        {"reserved word", "var class = 1", false},
        {"let is an identifier", "var let = 1, yield = 2", true},
        {"function declaration in block", "if (a) { function f() {} }", true},
        {"switch", "switch (a) { case 1: b; default: c; case 2: d }", true},
        {"try forms", "try {} catch (e) {} try {} finally {} try {} catch (e) {} finally {}", true},
        {"labels and jumps", "l: for (;;) { continue l; break l }", true},
        {"for in forms", "for (a in b); for (var a in b); for (var i = 0, j; i < 1; i++);", true},
        {"in inside for init parens", "for (var a = (b in c); a; );", true},
        {"new forms", "new A; new A(); new new A()(); new A.b().c", true},
        {"array holes", "x = [,,]; y = [a,,b,]; z = [,a]", true},
        {"empty program", "", true},
        {"unterminated string", "x = 'abc", false},
        {"one plus one a", "x = 1a", false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto r = parse_string(c.src);
        auto const* e = std::get_if<js_error>(&r);
        EXPECT_EQ(e == nullptr, c.ok) << c.src << (e ? ": " + e->error_message : std::string());
    }
}

TEST(parse, divides_after_an_operand_on_the_next_line) {
    auto els = parsed("x = a\n/b/g");
    ASSERT_EQ(els.size(), 1u);
    auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    auto const& outer = std::get<binary_expr>(a.assign_value->expr_node);
    EXPECT_EQ(outer.binary_operator, binary_op{multiplicative_op::divide});
    EXPECT_TRUE(std::get_if<id_expr>(&outer.binary_right->expr_node));
}

TEST(parse, regexp_literal_keeps_pattern_and_flags) {
    auto els = parsed("a = /[/]\\//gi");
    auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    auto const& r = *std::get<regexp_ob>(a.assign_value->expr_node).regexp_ob_value;
    EXPECT_EQ(jsstring::to_utf8(r.regexp_pattern), "[/]\\/");
    EXPECT_EQ(r.regexp_flags, "gi");
}

TEST(parse, return_before_a_line_end_returns_nothing) {
    auto els = parsed("function f() { return\nx }");
    ASSERT_EQ(els.size(), 1u);
    auto const& f = *std::get<ref<func_decl>>(els[0]);
    ASSERT_EQ(f.func_decl_body.size(), 2u);
    auto const& r = std::get<return_stmt>(stmt_at(f.func_decl_body, 0).stmt_node);
    EXPECT_FALSE(r.return_value.has_value());
    EXPECT_EQ(r.return_line, 1);
    EXPECT_TRUE(std::get_if<id_expr>(&expr_of_stmt(stmt_at(f.func_decl_body, 1)).expr_node));
}

TEST(parse, increment_after_a_line_end_is_a_prefix) {
    auto els = parsed("a\n++b");
    ASSERT_EQ(els.size(), 2u);
    EXPECT_TRUE(std::get_if<id_expr>(&expr_of_stmt(stmt_at(els, 0)).expr_node));
    auto const& p = std::get<prefix_expr>(expr_of_stmt(stmt_at(els, 1)).expr_node);
    EXPECT_EQ(p.prefix_operator, prefix_op::increment);
    EXPECT_EQ(p.prefix_line, 2);
}

TEST(parse, block_comment_with_line_feed_is_no_line_end) {
    auto e = error_of("a /* one\ntwo */ ++b");
    EXPECT_EQ(e.error_message, "unexpected token identifier(\"b\")");
    EXPECT_EQ(e.error_line, 2);
}

TEST(parse, errors_name_the_token_and_line) {
    auto e = error_of("x = 1;\ny = 017;");
    EXPECT_EQ(e.error_message, "unexpected token int(17)");
    EXPECT_EQ(e.error_line, 2);
    EXPECT_EQ(error_of("if (a)\n").error_message, "unexpected token eof");
    EXPECT_EQ(error_of("{}.x").error_message, "unexpected token punctuator(\".\")");
    EXPECT_EQ(error_of("x = \"a\" \"b\"").error_message, "unexpected token \"b\"");
    EXPECT_EQ(error_of("var o = {get a() {}}").error_message, "unexpected token identifier(\"a\")");
}

TEST(parse, raw_line_feed_in_string_is_not_counted) {
    auto e = error_of("x = 'a\nb';\n@");
    EXPECT_EQ(e.error_line, 2); // the '@' stands on line 3 of the text
    EXPECT_EQ(e.error_message, "unexpected token unknown(\"@\")");
}

TEST(parse, escaped_identifier_is_another_name) {
    auto els = parsed("a\\u0041 = aA");
    auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    EXPECT_EQ(std::get<id_expr>(a.assign_target->expr_node).id_name, "a\\u0041");
    EXPECT_EQ(std::get<id_expr>(a.assign_value->expr_node).id_name, "aA");
}

TEST(parse, octal_escape_in_string_is_one_element) {
    auto els = parsed("x = \"\\017\"");
    auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    auto const& s = std::get<string_expr>(a.assign_value->expr_node).string_value;
    ASSERT_EQ(s.length(), 1u);
    EXPECT_EQ(s[0], U'\017');
}

TEST(parse, else_binds_to_the_nearest_if) {
    auto els = parsed("if (a) if (b) x; else y;");
    auto const& outer = std::get<if_stmt>(stmt_at(els, 0).stmt_node);
    EXPECT_TRUE(std::get_if<if_else_stmt>(&outer.if_then->stmt_node));
}

TEST(parse, builds_operators_with_precedence) {
    auto els = parsed("x = a + b * c, d || e && f;");
    auto const& comma = std::get<binary_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    EXPECT_EQ(comma.binary_operator, binary_op{comma_op{}});
    auto const& assign = std::get<assign_expr>(comma.binary_left->expr_node);
    auto const& plus = std::get<binary_expr>(assign.assign_value->expr_node);
    EXPECT_EQ(plus.binary_operator, binary_op{additive_op::plus});
    EXPECT_EQ(std::get<binary_expr>(plus.binary_right->expr_node).binary_operator,
              binary_op{multiplicative_op::multiply});
    auto const& lor = std::get<logical_expr>(comma.binary_right->expr_node);
    EXPECT_EQ(lor.logical_operator, logical_op::logical_or);
    EXPECT_EQ(std::get<logical_expr>(lor.logical_right->expr_node).logical_operator, logical_op::logical_and);
}

TEST(parse, compound_assignment_and_postfix_carry_lines) {
    auto els = parsed("\nx\n>>>= 1; y++");
    auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    EXPECT_EQ(a.assign_operator, assign_op{shift_op::unsigned_right_shift});
    EXPECT_EQ(a.assign_line, 3);
    auto const& p = std::get<postfix_expr>(expr_of_stmt(stmt_at(els, 1)).expr_node);
    EXPECT_EQ(p.postfix_operator, postfix_op::increment);
}

TEST(parse, array_literals_count_holes) {
    auto els = parsed("x = [,,]; y = [a,,b,,]; z = [a,]");
    auto arr = [&](std::size_t i) {
        auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, i)).expr_node);
        return std::get<array_expr>(a.assign_value->expr_node).array_value;
    };
    EXPECT_EQ(std::get<array_elision>(arr(0)).elision_count, 2);
    auto y = std::get<array_elements>(arr(1));
    ASSERT_EQ(y.elements_list.size(), 2u);
    EXPECT_EQ(y.elements_list[0].element_holes_before, 0);
    EXPECT_EQ(y.elements_list[1].element_holes_before, 1);
    EXPECT_EQ(y.elements_trailing_holes, 1);
    EXPECT_EQ(std::get<array_elements>(arr(2)).elements_trailing_holes, 0);
}

TEST(parse, object_literal_property_names) {
    auto els = parsed("x = {a: 1, 'b': 2, 3: 4, if: 5, null: 6}");
    auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 0)).expr_node);
    auto const& props = std::get<object_expr>(a.assign_value->expr_node).object_props;
    ASSERT_EQ(props.size(), 5u);
    EXPECT_EQ(std::get<std::string>(props[0].first), "a");
    EXPECT_EQ(jsstring::to_utf8(std::get<jsstring::js_string>(props[1].first)), "b");
    EXPECT_EQ(std::get<number>(props[2].first), number{std::int64_t{3}});
    EXPECT_EQ(std::get<std::string>(props[3].first), "if");
    EXPECT_EQ(std::get<std::string>(props[4].first), "null");
}

TEST(parse, functions_and_statements_in_order) {
    auto els = parsed("function f(a, b) { var c = a; return c }\nvar g = function h() {};\nf(1, 2);");
    ASSERT_EQ(els.size(), 3u);
    auto const& f = *std::get<ref<func_decl>>(els[0]);
    EXPECT_EQ(f.func_decl_ident, "f");
    EXPECT_EQ(f.func_decl_params, (std::vector<std::string>{"a", "b"}));
    ASSERT_EQ(f.func_decl_body.size(), 2u);
    auto const& v = std::get<variable_stmt>(stmt_at(els, 1).stmt_node);
    auto const& fe = std::get<func_expr_expr>((*v.variable_decls.at(0).var_init)->expr_node);
    EXPECT_EQ(fe.func_value->func_ident, "h");
    auto const& call = std::get<expr_args>(expr_of_stmt(stmt_at(els, 2)).expr_node);
    EXPECT_EQ(call.expr_args_args.size(), 2u);
    EXPECT_EQ(call.expr_args_line, 3);
}

TEST(parse, numbers_keep_their_representation) {
    auto els = parsed("a = 9223372036854775807; b = 9223372036854775808; c = 0x10; d = 1.5; e = 2.");
    auto num = [&](std::size_t i) {
        auto const& a = std::get<assign_expr>(expr_of_stmt(stmt_at(els, i)).expr_node);
        return std::get<number_expr>(a.assign_value->expr_node).number_value;
    };
    EXPECT_EQ(num(0), number{std::int64_t{9223372036854775807}});
    EXPECT_EQ(num(1), number{9223372036854775808.0});
    EXPECT_EQ(num(2), number{std::int64_t{16}});
    EXPECT_EQ(num(3), number{1.5});
    EXPECT_EQ(num(4), number{2.0});
}

TEST(parse, deep_program_parses_in_order) {
    std::string src;
    for (int i = 0; i < 20000; ++i) {
        src += "x" + std::to_string(i) + " = " + std::to_string(i) + "\n";
    }
    auto els = parsed(src);
    ASSERT_EQ(els.size(), 20000u);
    auto const& last = std::get<assign_expr>(expr_of_stmt(stmt_at(els, 19999)).expr_node);
    EXPECT_EQ(std::get<id_expr>(last.assign_target->expr_node).id_name, "x19999");
}

TEST(parse, syntax_nodes_stay_small) {
    // One expression node is made per operator and operand of every script.
    EXPECT_LE(sizeof(expr), 64u);
}

TEST(parse, frees_very_deep_trees) {
    // A left-deep chain of 300000 additions and 100000 nested `if`s: freeing them must not recurse
    // once per level.
    std::string chain = "x = a";
    for (int i = 0; i < 300000; ++i) {
        chain += "+a";
    }
    std::string ifs;
    for (int i = 0; i < 100000; ++i) {
        ifs += "if (a) ";
    }
    ifs += "x;";
    for (auto const* src : {&chain, &ifs}) {
        auto r = parse_string(*src);
        ASSERT_TRUE(std::get_if<source_elements>(&r));
        EXPECT_EQ(std::get<source_elements>(r).size(), 1u);
    }
}

TEST(parse, reads_a_stream) {
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::string src = "var a = 1;\nb = a +\n 2\n";
    std::fwrite(src.data(), 1, src.size(), f);
    std::rewind(f);
    auto r = parse::parse_stream(f);
    std::fclose(f);
    ASSERT_TRUE(std::get_if<source_elements>(&r));
    EXPECT_EQ(std::get<source_elements>(r).size(), 2u);
}

} // namespace
} // namespace vellum::js
