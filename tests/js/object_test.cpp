// Properties, arrays, enumeration, accessors, host collections, scopes and references, errors, calls and
// the reporting of uncaught values.
#include "js/scope.hpp"
#include "test_host.hpp"
#include "util/result.hpp"

#include <cstdio>

using namespace vellum::js;
using namespace vellum::js::eval;
using namespace vellum::js::eval::testing;

namespace {

js_prop_string k(char const* name) {
    return key_of_utf8(name);
}

std::vector<std::string> names_of(std::vector<js_prop_string> const& keys) {
    std::vector<std::string> out;
    for (auto const& key : keys) {
        out.push_back(key_to_utf8(key));
    }
    return out;
}

using strings = std::vector<std::string>;

} // namespace

TEST(property_keys, integer_text_is_normalised) {
    EXPECT_EQ(key_of_utf8("1"), key_of_int(1));
    EXPECT_EQ(key_of_utf8("-5"), key_of_int(-5));
    EXPECT_EQ(key_of_utf8("0"), key_of_int(0));
    for (char const* not_int : {"01", "+1", "-0", "1.0", " 1", "", "99999999999999999999", "1e3"}) {
        SCOPED_TRACE(not_int);
        EXPECT_TRUE(std::holds_alternative<js_prop_utf8>(key_of_utf8(not_int)));
    }
    auto nul = vellum::jsstring::js_string(std::u32string(U"a\0b", 3));
    js_prop_string key = key_of_string(nul);
    ASSERT_TRUE(std::holds_alternative<js_prop_string_nulls>(key));
    EXPECT_EQ(key_to_string(key), nul);
    // Array indices stop below 2^32 - 1.
    EXPECT_EQ(array_index(key_of_int(4294967294)), 4294967294u);
    EXPECT_FALSE(array_index(key_of_int(4294967295)));
    EXPECT_FALSE(array_index(key_of_int(-1)));
}

TEST_F(engine_test, string_and_number_keys_name_one_property) {
    js_object o = new_object(engine);
    ok(put(engine, o, ok(to_prop_string(engine, str("1"))), str("one")));
    EXPECT_EQ(ok(get(engine, o, ok(to_prop_string(engine, num(1))))), str("one"));
    EXPECT_EQ(ok(get(engine, o, ok(to_prop_string(engine, dbl(1.0))))), str("one"));
    EXPECT_EQ(o->obj_properties.length(), 1u);
    // A key with NUL is its own property, not the same as the text before the NUL.
    auto nul = vellum::jsstring::js_string(std::u32string(U"a\0", 2));
    ok(put(engine, o, key_of_string(nul), num(2)));
    EXPECT_EQ(ok(get(engine, o, k("a"))), undefined());
    EXPECT_EQ(ok(get(engine, o, key_of_string(nul))), num(2));
}

TEST_F(engine_test, get_and_put_along_the_prototype_chain) {
    js_object proto = new_object(engine);
    define_value(proto, "shared", num(1));
    js_object child = new_object_of(engine, class_object{}, yes_proto{.proto = proto});
    EXPECT_EQ(ok(get(engine, child, k("shared"))), num(1));
    EXPECT_EQ(ok(get(engine, child, k("missing"))), undefined());
    // Writing an inherited plain value makes an own property and leaves the prototype alone.
    ok(put(engine, child, k("shared"), num(2)));
    EXPECT_EQ(ok(get(engine, child, k("shared"))), num(2));
    EXPECT_EQ(ok(get(engine, proto, k("shared"))), num(1));
    EXPECT_TRUE(has_property(engine, child, k("shared")));
    EXPECT_FALSE(has_own_property(engine, proto, k("other")));
}

TEST_F(engine_test, read_only_properties_ignore_writes_silently) {
    js_object o = new_object(engine);
    define_value(o, "fixed", num(1), attrs{}.with(attr::read_only));
    auto r = put(engine, o, k("fixed"), num(2));
    EXPECT_EQ(ok(std::move(r)), num(2));
    EXPECT_EQ(ok(get(engine, o, k("fixed"))), num(1));
    // Read-only on a prototype also prevents the shadowing own property.
    js_object child = new_object_of(engine, class_object{}, yes_proto{.proto = o});
    ok(put(engine, child, k("fixed"), num(3)));
    EXPECT_FALSE(has_own_property(engine, child, k("fixed")));
    // A write keeps the attributes of the property it replaces.
    define_value(o, "hidden", num(1), attrs{}.with(attr::no_enum));
    ok(put(engine, o, k("hidden"), num(5)));
    auto pos = find_own_property(o, k("hidden"));
    ASSERT_TRUE(pos);
    EXPECT_TRUE(o->obj_properties[*pos].property_attrs.has(attr::no_enum));
    // The characters and length of a string are read-only too.
    js_object s = ok(to_object(engine, str("ab")));
    ok(put(engine, s, k("length"), num(9)));
    ok(put(engine, s, key_of_int(0), str("z")));
    EXPECT_EQ(ok(get(engine, s, k("length"))), num(2));
    EXPECT_EQ(ok(get(engine, s, key_of_int(0))), str("a"));
}

TEST_F(engine_test, delete_answers_by_attribute) {
    js_object o = new_object(engine);
    EXPECT_TRUE(delete_property(o, k("absent")));
    define_value(o, "a", num(1));
    define_value(o, "kept", num(2), attrs{}.with(attr::no_delete));
    define_value(o, "c", num(3));
    EXPECT_FALSE(delete_property(o, k("kept")));
    EXPECT_TRUE(delete_property(o, k("a")));
    EXPECT_EQ(names_of(enumerate_own(engine, o)), (strings{"kept", "c"}));
    EXPECT_FALSE(delete_property(ok(to_object(engine, str("x"))), k("length")));
}

TEST_F(engine_test, arrays_have_holes_and_ignore_their_prototypes_at_indices) {
    js_object arr = new_array(engine, {num(10)});
    ok(put(engine, arr, key_of_int(3), num(13)));
    EXPECT_EQ(array_length(arr), 4u);
    // Array.prototype[1] is set, yet the hole at 1 reads as undefined.
    ok(put(engine, engine.array_prototype, key_of_int(1), str("proto")));
    EXPECT_EQ(ok(get(engine, engine.array_prototype, key_of_int(1))), str("proto"));
    EXPECT_EQ(ok(get(engine, arr, key_of_int(1))), undefined());
    EXPECT_FALSE(has_property(engine, arr, key_of_int(1)));
    EXPECT_EQ(ok(get(engine, arr, key_of_int(99))), undefined());
    // "01" is no index: an ordinary property, and the length stays.
    ok(put(engine, arr, ok(to_prop_string(engine, str("01"))), str("named")));
    EXPECT_EQ(array_length(arr), 4u);
    EXPECT_EQ(ok(get(engine, arr, key_of_int(1))), undefined());
    EXPECT_EQ(ok(get(engine, arr, k("01"))), str("named"));
    // Deleting an item makes a hole; beyond the end is true.
    EXPECT_TRUE(delete_property(arr, key_of_int(0)));
    EXPECT_EQ(ok(get(engine, arr, key_of_int(0))), undefined());
    EXPECT_EQ(array_length(arr), 4u);
    EXPECT_TRUE(delete_property(arr, key_of_int(50)));
    // A read-only item keeps its value; a no_delete item stays.
    std::get<class_array>(arr->obj_class).array_items[3] =
        item{.item_value = num(13), .item_attrs = attrs{}.with(attr::read_only).with(attr::no_delete)};
    ok(put(engine, arr, key_of_int(3), num(0)));
    EXPECT_EQ(ok(get(engine, arr, key_of_int(3))), num(13));
    EXPECT_FALSE(delete_property(arr, key_of_int(3)));
}

TEST_F(engine_test, array_lengths_are_checked) {
    js_object arr = new_array(engine, {num(1), num(2), num(3)});
    ok(set_array_length(engine, arr, num(1)));
    EXPECT_EQ(array_length(arr), 1u);
    ok(set_array_length(engine, arr, str("3")));
    EXPECT_EQ(array_length(arr), 3u);
    EXPECT_EQ(ok(get(engine, arr, key_of_int(2))), undefined());
    EXPECT_EQ(thrown(set_array_length(engine, arr, num(-1))), "RangeError: invalid array length");
    EXPECT_EQ(thrown(set_array_length(engine, arr, dbl(1.5))), "RangeError: invalid array length");
    // A write far past the end would need gigabytes of holes: refused, not attempted.
    EXPECT_EQ(thrown(put(engine, arr, key_of_int(4000000000), num(1))), "RangeError: invalid array length");
    EXPECT_EQ(array_length(arr), 3u);
    // Beyond the largest index the key is an ordinary name.
    ok(put(engine, arr, key_of_int(4294967295), num(1)));
    EXPECT_EQ(array_length(arr), 3u);
    EXPECT_EQ(ok(get(engine, arr, key_of_int(4294967295))), num(1));
}

TEST_F(engine_test, enumeration_is_a_snapshot_with_hiding) {
    js_object proto = new_object(engine);
    define_value(proto, "inherited", num(1));
    define_value(proto, "hidden", num(1));
    define_value(proto, "quiet", num(1), attrs{}.with(attr::no_enum));
    js_object o = new_object_of(engine, class_object{}, yes_proto{.proto = proto});
    define_value(o, "b", num(1));
    define_value(o, "a", num(1));
    // An own property that is not enumerable hides the enumerable one of the same name above it.
    define_value(o, "hidden", num(2), attrs{}.with(attr::no_enum));
    auto names = enumerate(engine, o);
    EXPECT_EQ(names_of(names), (strings{"b", "a", "inherited"}));
    // The loop deletes "a" and adds "c" after taking the names: "a" still comes, "c" does not.
    EXPECT_TRUE(delete_property(o, k("a")));
    define_value(o, "c", num(1));
    EXPECT_EQ(names_of(names), (strings{"b", "a", "inherited"}));
    // Array indices come first, holes skipped, then the named properties in insertion order.
    js_object arr = new_array(engine, {num(1)});
    define_value(arr, "x", num(1));
    ok(put(engine, arr, key_of_int(2), num(3)));
    EXPECT_EQ(names_of(enumerate_own(engine, arr)), (strings{"0", "2", "x"}));
    EXPECT_EQ(names_of(enumerate_own(engine, ok(to_object(engine, str("ab"))))), (strings{"0", "1"}));
}

TEST_F(engine_test, accessors_run_with_the_original_object_as_this) {
    js_object proto = new_object(engine);
    js_value seen_this;
    js_value stored;
    js_object getter = func([&](js&, js_value const& self, std::vector<js_value> const&) -> expr_res<js_value> {
        seen_this = self;
        return num(7);
    });
    js_object setter = func([&](js&, js_value const&, std::vector<js_value> const& args) -> expr_res<js_value> {
        stored = arg(args, 0);
        return undefined();
    });
    define_own_property(proto, k("x"), prop_accessor{.getter = getter, .setter = setter}, {});
    define_own_property(proto, k("ro"), prop_accessor{.getter = getter}, {});
    js_object o = new_object_of(engine, class_object{}, yes_proto{.proto = proto});
    EXPECT_EQ(ok(get(engine, o, k("x"))), num(7));
    EXPECT_EQ(seen_this, js_value{o});
    EXPECT_EQ(ok(put(engine, o, k("x"), num(9))), num(9));
    EXPECT_EQ(stored, num(9));
    EXPECT_FALSE(has_own_property(engine, o, k("x")));
    // A getter without a setter ignores writes.
    ok(put(engine, o, k("ro"), num(1)));
    EXPECT_FALSE(has_own_property(engine, o, k("ro")));
    // A host getter reads through the host; a host setter is a host function call.
    auto g = std::make_shared<test_getter>();
    g->value = str("host");
    js_value host_stored;
    auto s = std::make_shared<test_func>();
    s->fn = [&](js&, js_value const&, std::vector<js_value> const& args) -> expr_res<js_value> {
        host_stored = arg(args, 0);
        return undefined();
    };
    define_own_property(o, k("h"), prop_host{.host_getter = host_accessor{.accessor_host = g}, .host_setter = host_accessor{.accessor_host = s}}, {});
    EXPECT_EQ(ok(get(engine, o, k("h"))), str("host"));
    EXPECT_EQ(g->reads, 1);
    ok(put(engine, o, k("h"), num(4)));
    EXPECT_EQ(host_stored, num(4));
    // A shared cell: the property and the variable it stands for are one storage place.
    auto cell = std::make_shared<js_value>(num(1));
    define_own_property(o, k("v"), prop_ref{.ref_cell = cell}, {});
    ok(put(engine, o, k("v"), num(2)));
    EXPECT_EQ(*cell, num(2));
    *cell = num(3);
    EXPECT_EQ(ok(get(engine, o, k("v"))), num(3));
}

TEST_F(engine_test, host_collections_answer_first) {
    auto c = std::make_shared<test_collection>();
    c->items = {str("first"), str("second")};
    c->named["byName"] = num(5);
    js_object coll = new_object_of(engine, class_host_collection{.host_collection = c}, yes_proto{.proto = engine.object_prototype});
    define_value(coll, "own", num(1));
    EXPECT_EQ(ok(get(engine, coll, key_of_int(1))), str("second"));
    EXPECT_EQ(ok(get(engine, coll, k("byName"))), num(5));
    EXPECT_EQ(ok(get(engine, coll, k("own"))), num(1));
    EXPECT_EQ(ok(get(engine, coll, key_of_int(5))), undefined());
    EXPECT_TRUE(has_property(engine, coll, key_of_int(0)));
    // The host takes writes of its items; other writes become ordinary properties.
    ok(put(engine, coll, key_of_int(0), str("changed")));
    EXPECT_EQ(c->items[0], str("changed"));
    EXPECT_FALSE(find_own_property(coll, key_of_int(0)));
    ok(put(engine, coll, k("extra"), num(2)));
    EXPECT_EQ(ok(get(engine, coll, k("extra"))), num(2));
    EXPECT_EQ(names_of(enumerate_own(engine, coll)), (strings{"0", "1", "byName", "own", "extra"}));
    EXPECT_EQ(class_name(engine, coll), "TestCollection");
}

TEST(js_object_ref, misuse_is_an_internal_error) {
    js_object_ref r;
    auto message = [](auto&& f) {
        try {
            f();
        } catch (vellum::internal_error const& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(message([&] { r.get(); }), "cannot get null js_object_ref");
    EXPECT_EQ(message([&] { r.clear(); }), "cannot clear null js_object_ref");
    object_data data;
    r.set(js_object{.object_rec = &data});
    EXPECT_EQ(r.get().object_rec, &data);
    EXPECT_EQ(message([&] { r.set(js_object{.object_rec = &data}); }), "cannot set non-null js_object_ref");
    r.clear();
    EXPECT_FALSE(r.ref_object);
}

TEST_F(engine_test, engine_error_table) {
    struct row {
        js_error kind;
        char const* detail;
        char const* text;
    };
    row const rows[] = {
        {js_error::not_object, "", "TypeError: value is not an object"},
        {js_error::not_object_or_null, "", "TypeError: value is not an object or null"},
        {js_error::not_array, "", "TypeError: object is not an array"},
        {js_error::not_string, "", "TypeError: object is not a string"},
        {js_error::not_boolean, "", "TypeError: object is not a boolean"},
        {js_error::not_number, "", "TypeError: object is not a number"},
        {js_error::not_date, "", "TypeError: object is not a date"},
        {js_error::not_regexp, "", "TypeError: object is not a regexp"},
        {js_error::not_function, "", "TypeError: object is not a function"},
        {js_error::not_constructor, "", "TypeError: object is not a constructor"},
        {js_error::illegal_constructor, "", "TypeError: illegal constructor"},
        {js_error::invalid_this, "", "TypeError: invalid this value"},
        {js_error::invalid_arguments, "", "TypeError: invalid arguments"},
        {js_error::invalid_array_length, "", "RangeError: invalid array length"},
        {js_error::invalid_regexp, "", "SyntaxError: invalid regular expression"},
        {js_error::invalid_uri, "", "URIError: invalid URI"},
        {js_error::undefined_to_object, "", "TypeError: undefined value is not an object"},
        {js_error::null_to_object, "", "TypeError: null value is not an object"},
        {js_error::get_reference_error, "x", "ReferenceError: no such property: x"},
        {js_error::put_reference_error, "", "ReferenceError: invalid assignment"},
        {js_error::eval_syntax_error, "bad", "SyntaxError: syntax error in eval: bad"},
        {js_error::range_error, "digits", "RangeError: range_error: digits"},
        {js_error::func_syntax_error, "bad", "SyntaxError: function syntax error: bad"},
        {js_error::func_arguments_syntax, "", "SyntaxError: syntax error in function arguments"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.text);
        exception e = throw_error(engine, js_error_res{.error_kind = r.kind, .error_detail = vellum::jsstring::from_utf8(r.detail)});
        EXPECT_EQ(thrown_text(e.exception_value), r.text);
        js_object o = std::get<js_object>(e.exception_value);
        EXPECT_EQ(std::get<yes_proto>(o->obj_prototype).proto, native_error_prototype(engine, error_type(r.kind)));
        EXPECT_EQ(class_name(engine, o), "Error");
        // The instance has its message only; the name comes from the prototype.
        EXPECT_EQ(names_of(enumerate_own(engine, o)), (strings{"message"}));
    }
    // Every kind's prototype leads to Error.prototype.
    js_object range = engine.range_error_prototype;
    EXPECT_EQ(std::get<yes_proto>(range->obj_prototype).proto, engine.error_prototype);
}

TEST_F(engine_test, names_resolve_along_the_scope_chain) {
    define_value(engine.global_object, "g", num(1));
    js_object with_obj = new_object(engine);
    define_value(with_obj, "w", num(2));
    js_object catch_obj = new_object(engine);
    define_value(catch_obj, "e", num(3));
    js_array<variable> vars;
    vars.push_back(variable{.variable_name = "v", .variable_value = num(4), .variable_no_delete = true});
    vars.push_back(variable{.variable_name = "d", .variable_value = num(5)});
    std::vector<scope> chain = {catch_scope{.scope_object = catch_obj}, activation_scope{.scope_variables = vars},
                                normal_scope{.scope_object = with_obj}, normal_scope{.scope_object = engine.global_object}};
    struct row {
        char const* name;
        js_value value;
    };
    for (row const& r : {row{"g", num(1)}, row{"w", num(2)}, row{"e", num(3)}, row{"v", num(4)}}) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(ok(get_value(engine, lookup(engine, chain, r.name))), r.value);
    }
    reference e = lookup(engine, chain, "e");
    EXPECT_TRUE(std::holds_alternative<catch_reference>(e));
    // A call through a catch name or a variable has the global object as `this`; through a `with`
    // object, that object.
    EXPECT_EQ(this_of_reference(engine, e), js_value{engine.global_object});
    EXPECT_EQ(this_of_reference(engine, lookup(engine, chain, "v")), js_value{engine.global_object});
    EXPECT_EQ(this_of_reference(engine, lookup(engine, chain, "w")), js_value{with_obj});
    // An unknown name: reading throws, typeof does not, writing creates a global.
    reference missing = lookup(engine, chain, "nowhere");
    EXPECT_TRUE(std::holds_alternative<baseless_reference>(missing));
    EXPECT_EQ(thrown(get_value(engine, missing)), "ReferenceError: no such property: nowhere");
    EXPECT_EQ(ok(typeof_reference(engine, missing)), "undefined");
    EXPECT_EQ(ok(typeof_reference(engine, lookup(engine, chain, "g"))), "number");
    ok(put_value(engine, missing, num(6)));
    EXPECT_EQ(ok(get(engine, engine.global_object, k("nowhere"))), num(6));
    // delete: catch names and fixed variables stay; a deletable variable loses its name until assigned.
    EXPECT_FALSE(delete_reference(e));
    EXPECT_FALSE(delete_reference(lookup(engine, chain, "v")));
    reference d = lookup(engine, chain, "d");
    EXPECT_TRUE(delete_reference(d));
    EXPECT_TRUE(std::holds_alternative<baseless_reference>(lookup(engine, chain, "d")));
    ok(put_value(engine, d, num(8)));
    EXPECT_EQ(ok(get_value(engine, lookup(engine, chain, "d"))), num(8));
    EXPECT_TRUE(delete_reference(missing));
}

TEST_F(engine_test, call_and_construct_dispatch) {
    EXPECT_EQ(thrown(call(engine, undefined(), num(1), {})), "TypeError: object is not a function");
    EXPECT_EQ(thrown(call(engine, undefined(), new_object(engine), {})), "TypeError: object is not a function");
    EXPECT_EQ(thrown(construct(engine, num(1), {})), "TypeError: value is not an object");
    EXPECT_EQ(thrown(construct(engine, new_object(engine), {})), "TypeError: object is not a constructor");
    EXPECT_EQ(thrown(construct(engine, returning(undefined()), {})), "TypeError: object is not a constructor");
    // Missing arguments read as undefined.
    js_value second = str("unset");
    js_object f = func([&](js&, js_value const&, std::vector<js_value> const& args) -> expr_res<js_value> {
        second = arg(args, 1);
        return undefined();
    });
    ok(call(engine, undefined(), f, {num(1)}));
    EXPECT_EQ(second, undefined());
    // Host constructors: `new` makes the object; a plain call is refused unless the host allows it.
    auto ctor_host = std::make_shared<test_constructor>();
    js_object ctor = new_function(engine, host_constructor{.constructor_host = ctor_host});
    js_value made = ok(construct(engine, ctor, {num(3)}));
    EXPECT_EQ(ok(get(engine, std::get<js_object>(made), k("made"))), num(3));
    EXPECT_EQ(thrown(call(engine, undefined(), ctor, {})), "TypeError: illegal constructor");
    ctor_host->callable = true;
    EXPECT_EQ(ok(call(engine, undefined(), ctor, {})), str("called as function"));
}

TEST_F(engine_test, script_functions_run_through_the_installed_hook) {
    js_object f = new_function(engine, javascript_func{});
    // A function record without compiled instructions: a clear internal error, not a made-up result.
    EXPECT_THROW(call(engine, undefined(), f, {}), vellum::internal_error);
    // With a runner installed, `new` makes an object from f.prototype, and a returned object wins.
    js_value returned = undefined();
    engine.js_hooks.call_javascript = [&](js& e, js_object, javascript_func const&, js_value const& self,
                                          std::vector<js_value> const&) -> expr_res<js_value> {
        ok(put(e, std::get<js_object>(self), k("set"), num(1)));
        return returned;
    };
    js_object proto = new_object(engine);
    define_value(f, "prototype", proto);
    js_value made = ok(construct(engine, f, {}));
    js_object m = std::get<js_object>(made);
    EXPECT_EQ(std::get<yes_proto>(m->obj_prototype).proto, proto);
    EXPECT_EQ(ok(get(engine, m, k("set"))), num(1));
    js_object other = new_object(engine);
    returned = other;
    EXPECT_EQ(ok(construct(engine, f, {})), js_value{other});
    // A prototype that is no object falls back to Object.prototype.
    define_value(f, "prototype", num(1));
    returned = undefined();
    js_object plain = std::get<js_object>(ok(construct(engine, f, {})));
    EXPECT_EQ(std::get<yes_proto>(plain->obj_prototype).proto, engine.object_prototype);
}

TEST_F(engine_test, make_regexp_sets_its_properties) {
    js_object r = make_regexp(engine, vellum::jsstring::from_utf8("a+"), nullptr, 0, true, false, true);
    EXPECT_EQ(class_name(engine, r), "RegExp");
    EXPECT_EQ(ok(get(engine, r, k("source"))), str("a+"));
    EXPECT_EQ(ok(get(engine, r, k("global"))), js_value{true});
    EXPECT_EQ(ok(get(engine, r, k("multiline"))), js_value{true});
    EXPECT_EQ(ok(get(engine, r, k("lastIndex"))), num(0));
    ok(put(engine, r, k("lastIndex"), num(3)));
    ok(put(engine, r, k("global"), false));
    EXPECT_EQ(ok(get(engine, r, k("lastIndex"))), num(3));
    EXPECT_EQ(ok(get(engine, r, k("global"))), js_value{true});
    EXPECT_TRUE(enumerate_own(engine, r).empty());
}

TEST_F(engine_test, new_regexp_checks_pattern_and_flags) {
    auto s = [](char const* text) { return vellum::jsstring::from_utf8(text); };
    js_object r = ok(new_regexp(engine, s("(a)|b"), s("mi")));
    auto const& c = std::get<class_regexp>(r->obj_class);
    EXPECT_EQ(c.regexp_captures, 1);
    EXPECT_FALSE(c.regexp_global);
    EXPECT_TRUE(c.regexp_ignore_case);
    EXPECT_TRUE(c.regexp_multiline);
    for (auto [pattern, flags] : {std::pair{"(", ""}, {"a{2,1}", ""}, {"a", "gg"}, {"a", "x"}}) {
        SCOPED_TRACE(std::string(pattern) + "/" + flags);
        EXPECT_EQ(thrown(new_regexp(engine, s(pattern), s(flags))), "SyntaxError: invalid regular expression");
    }
}

TEST_F(engine_test, regexp_exec_builds_the_match_array) {
    auto s = [](char const* text) { return vellum::jsstring::from_utf8(text); };
    js_object r = ok(new_regexp(engine, s("(\\d+)(x)?"), s("")));
    // Not global: lastIndex is neither read nor written.
    ok(put(engine, r, k("lastIndex"), num(5)));
    js_value m = ok(regexp_exec(engine, r, s("ab 42 7")));
    js_object a = std::get<js_object>(m);
    EXPECT_EQ(array_length(a), 3u);
    EXPECT_EQ(ok(get(engine, a, k("0"))), str("42"));
    EXPECT_EQ(ok(get(engine, a, k("1"))), str("42"));
    EXPECT_EQ(ok(get(engine, a, k("2"))), undefined());
    EXPECT_EQ(ok(get(engine, a, k("index"))), num(3));
    EXPECT_EQ(ok(get(engine, a, k("input"))), str("ab 42 7"));
    EXPECT_EQ(ok(get(engine, r, k("lastIndex"))), num(5));
    EXPECT_EQ(thrown(regexp_exec(engine, num(1), s("a"))), "TypeError: object is not a regexp");
}

TEST_F(engine_test, global_regexp_exec_walks_through_lastIndex) {
    auto s = [](char const* text) { return vellum::jsstring::from_utf8(text); };
    js_object r = ok(new_regexp(engine, s("a."), s("g")));
    std::vector<std::int64_t> indices;
    for (int i = 0; i < 5; ++i) {
        js_value m = ok(regexp_exec(engine, r, s("a1 a2 a3")));
        if (std::holds_alternative<js_null>(m)) {
            break;
        }
        indices.push_back(std::get<std::int64_t>(std::get<number>(ok(get(engine, std::get<js_object>(m), k("index"))))));
    }
    EXPECT_EQ(indices, (std::vector<std::int64_t>{0, 3, 6}));
    // The failed search reset lastIndex, so the next one starts over.
    EXPECT_EQ(ok(get(engine, r, k("lastIndex"))), num(0));
    ok(put(engine, r, k("lastIndex"), num(99)));
    EXPECT_EQ(ok(regexp_exec(engine, r, s("a1"))), js_value{js_null{}});
    EXPECT_EQ(ok(get(engine, r, k("lastIndex"))), num(0));

    js_object slow = ok(new_regexp(engine, s("(a+)+b"), s("")));
    EXPECT_EQ(thrown(regexp_exec(engine, slow, s(std::string(30, 'a').c_str()))),
              "RangeError: range_error: regular expression too complex");
}

namespace {

// Runs f with an engine whose log goes to a temporary file, and gives what was written.
template <class F>
std::string logged(F&& f) {
    std::FILE* out = std::tmpfile();
    vellum::log::log l{.log_stderr = vellum::log::console_log::console_log{.progname = "vellum", .console_out = out}};
    auto engine = new_engine(l, nullptr, std::make_shared<test_host>());
    f(*engine);
    std::rewind(out);
    std::string text;
    char buf[256];
    while (std::fgets(buf, sizeof buf, out)) {
        text += buf;
    }
    std::fclose(out);
    return text;
}

} // namespace

TEST(report_exception, positions_come_from_file_name_and_line_number) {
    // An uncaught `throw "x"` has no position.
    EXPECT_EQ(logged([](js& e) { report_exception(e, str("x")); }), "vellum: error: x\n");
    // An error object annotated by a script frame: its file and line, and its text. Without the standard
    // library there is no toString, so the name and message are used.
    EXPECT_EQ(logged([](js& e) {
                  exception ex = throw_error(e, js_error::not_function);
                  js_object o = std::get<js_object>(ex.exception_value);
                  define_value(o, "fileName", str("doc.html"));
                  define_value(o, "lineNumber", num(12));
                  report_exception(e, o);
              }),
              "vellum: doc.html:12: error: TypeError: object is not a function\n");
    // A toString of the value's own is what the message says.
    EXPECT_EQ(logged([](js& e) {
                  js_object o = new_object(e);
                  auto h = std::make_shared<test_func>();
                  h->fn = [](js&, js_value const&, std::vector<js_value> const&) -> expr_res<js_value> { return str("custom"); };
                  define_value(o, "toString", new_function(e, host_func{.func_host = h}));
                  define_value(o, "fileName", str("a.js"));
                  report_exception(e, o);
              }),
              "vellum: a.js: error: custom\n");
}

TEST_F(engine_test, the_innermost_frame_annotates_a_thrown_object) {
    exception ex = throw_error(engine, js_error::not_object);
    annotate_exception(ex.exception_value, "inner.js", 4);
    annotate_exception(ex.exception_value, "outer.js", 9);
    js_object o = std::get<js_object>(ex.exception_value);
    EXPECT_EQ(ok(get(engine, o, k("fileName"))), str("inner.js"));
    EXPECT_EQ(ok(get(engine, o, k("lineNumber"))), num(4));
    // Without a known line only the file is set; a primitive is left as it is.
    js_object p = new_object(engine);
    annotate_exception(p, "f.js", std::nullopt);
    EXPECT_EQ(ok(get(engine, p, k("lineNumber"))), undefined());
    EXPECT_EQ(ok(get(engine, p, k("fileName"))), str("f.js"));
    js_value s = str("x");
    annotate_exception(s, "f.js", 1);
    EXPECT_EQ(s, str("x"));
}

TEST_F(engine_test, for_in_instanceof_and_in_on_any_value) {
    EXPECT_TRUE(ok(enum_prop_names(engine, js_null{})).empty());
    EXPECT_TRUE(ok(enum_prop_names(engine, undefined())).empty());
    EXPECT_EQ(names_of(ok(enum_prop_names(engine, str("ab")))), (strings{"0", "1"}));
    js_object f = returning(undefined());
    js_object proto = new_object(engine);
    define_value(f, "prototype", proto);
    js_object child = new_object_of(engine, class_object{}, yes_proto{.proto = proto});
    js_object grandchild = new_object_of(engine, class_object{}, yes_proto{.proto = child});
    EXPECT_TRUE(ok(instance_of(engine, grandchild, f)));
    EXPECT_FALSE(ok(instance_of(engine, proto, f)));
    EXPECT_FALSE(ok(instance_of(engine, num(1), f)));
    EXPECT_EQ(thrown(instance_of(engine, child, num(1))), "TypeError: value is not an object");
    EXPECT_EQ(thrown(instance_of(engine, child, proto)), "TypeError: object is not a function");
    define_value(f, "prototype", num(1));
    EXPECT_EQ(thrown(instance_of(engine, child, f)), "TypeError: function has no prototype object");
    define_value(proto, "x", num(1));
    EXPECT_TRUE(ok(in_operator(engine, str("x"), grandchild)));
    EXPECT_FALSE(ok(in_operator(engine, str("y"), grandchild)));
    js_object arr = new_array(engine, {num(1)});
    EXPECT_TRUE(ok(in_operator(engine, num(0), arr)));
    EXPECT_TRUE(ok(in_operator(engine, str("0"), arr)));
    EXPECT_EQ(thrown(in_operator(engine, str("x"), str("abc"))), "TypeError: value is not an object");
}
