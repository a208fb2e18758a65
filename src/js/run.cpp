#include "js/run.hpp"

#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"
#include "js/parse.hpp"
#include "js/scope.hpp"
#include "util/result.hpp"
#include "util/stack.hpp"

#include <cstdint>
#include <pthread.h>
#include <string>
#include <utility>

namespace vellum::js::eval {

namespace {

using vm::binary_kind;
using vm::op_code;

/// The names a `for-in` loop has still to visit.
struct name_iterator {
    std::vector<js_prop_string> iter_names;
    std::size_t iter_next = 0;
};

/// An entry of a frame's scope stack: a `try` handler (its exception register and handler offset), or
/// the catch or with scope a statement pushed on the scope chain.
enum class js_scope_kind : std::uint8_t { js_try_scope, js_catch_scope, js_with_scope };

struct js_scope {
    js_scope_kind kind = js_scope_kind::js_try_scope;
    int try_register = 0;
    int try_handler = 0;
};

/// The state of one run of a `func_ops`.
struct frame {
    vm::func_ops const& code;
    context ctx;
    std::vector<js_value> vars;
    std::vector<reference> refs;
    std::vector<int> addrs;
    std::vector<name_iterator> iters;
    std::vector<js_scope> scopes;
    /// The frame's own variables when they live in an activation scope.
    std::optional<js_array<eval::variable>> activation;
    /// Per global access site: where the property was found last time.
    std::vector<std::uint32_t> global_hints;
    js_value completion;
};

frame new_frame(vm::func_ops const& code, context ctx) {
    return frame{.code = code,
                 .ctx = std::move(ctx),
                 .vars = std::vector<js_value>(static_cast<std::size_t>(code.num_vars)),
                 .refs = std::vector<reference>(static_cast<std::size_t>(code.num_refs)),
                 .addrs = std::vector<int>(static_cast<std::size_t>(code.num_addrs)),
                 .iters = std::vector<name_iterator>(static_cast<std::size_t>(code.num_iters)),
                 .scopes = {},
                 .activation = std::nullopt,
                 .global_hints = std::vector<std::uint32_t>(static_cast<std::size_t>(code.num_global_sites)),
                 .completion = undefined()};
}

/// The lowest address of the stack the code runs on, or null if the system does not tell.
char const* stack_low_end() {
    if (char const* own = stack::own_stack_low()) {
        return own;
    }
    thread_local char const* const low = [] {
        pthread_attr_t attr;
        if (pthread_getattr_np(pthread_self(), &attr) != 0) {
            return static_cast<char const*>(nullptr);
        }
        void* addr = nullptr;
        std::size_t size = 0;
        int const rc = pthread_attr_getstack(&attr, &addr, &size);
        pthread_attr_destroy(&attr);
        return rc == 0 ? static_cast<char const*>(addr) : nullptr;
    }();
    return low;
}

/// The stack that nested script calls may use, from the outermost one: some 170,000 calls deep. A
/// runaway recursion stops there, rather than filling the whole (very large) stack the program runs
/// on, which took gigabytes of memory and many seconds before the error.
constexpr std::uintptr_t max_script_stack = std::uintptr_t{512} << 20;

/// Where the outermost script call running on this thread began, and how many are nested in it.
thread_local std::uintptr_t outermost_call = 0;
thread_local int script_calls = 0;

/// Counts a script call in for as long as it runs.
struct call_guard {
    call_guard() {
        if (script_calls++ == 0) {
            outermost_call = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        }
    }

    ~call_guard() { --script_calls; }

    call_guard(call_guard const&) = delete;
    call_guard& operator=(call_guard const&) = delete;
};

/// Whether a script call may go one level deeper. Calls recurse the run loop, so the depth of script
/// recursion is bounded by the stack: a runaway recursion becomes a `RangeError` while some stack is
/// left, and before it has used `max_script_stack`, rather than a crash of the whole program.
bool stack_left() {
    constexpr std::ptrdiff_t reserve = 256 * 1024;
    char const* low = stack_low_end();
    char const* here = static_cast<char const*>(__builtin_frame_address(0));
    auto const at = reinterpret_cast<std::uintptr_t>(here);
    if (script_calls > 0 && outermost_call > at && outermost_call - at > max_script_stack) {
        return false;
    }
    return low == nullptr || here - low > reserve;
}

/// Takes the value of a result, or keeps what was thrown and says so.
template <class T>
bool failed(expr_res<T>& r, js_value& thrown) {
    if (auto* e = std::get_if<exception>(&r)) {
        thrown = std::move(e->exception_value);
        return true;
    }
    return false;
}

relational_kind relational_of(binary_kind k) {
    switch (k) {
    case binary_kind::less_than:
        return relational_kind::less_than;
    case binary_kind::greater_than:
        return relational_kind::greater_than;
    case binary_kind::less_than_or_equal:
        return relational_kind::less_than_or_equal;
    case binary_kind::greater_than_or_equal:
        return relational_kind::greater_than_or_equal;
    case binary_kind::bitwise_and:
    case binary_kind::bitwise_or:
    case binary_kind::bitwise_xor:
    case binary_kind::plus:
    case binary_kind::minus:
    case binary_kind::multiply:
    case binary_kind::divide:
    case binary_kind::remainder:
    case binary_kind::equal:
    case binary_kind::not_equal:
    case binary_kind::strict_equal:
    case binary_kind::strict_not_equal:
    case binary_kind::left_shift:
    case binary_kind::signed_right_shift:
    case binary_kind::unsigned_right_shift:
        break;
    }
    throw internal_error("relational_of: not a comparison");
}

/// Stores a value; a number over a number is copied without going through the variant's assignment.
[[gnu::always_inline]] inline void set_value(js_value& to, js_value const& from) {
    auto const* n = std::get_if<number>(&from);
    if (auto* m = std::get_if<number>(&to); n != nullptr && m != nullptr) {
        *m = *n;
        return;
    }
    to = from;
}

/// Whether two property keys are equal, with the common case (plain text keys) first.
[[gnu::always_inline]] inline bool same_key(js_prop_string const& a, js_prop_string const& b) {
    auto const* x = std::get_if<js_prop_utf8>(&a);
    auto const* y = std::get_if<js_prop_utf8>(&b);
    if (x != nullptr && y != nullptr) {
        // Variable names are short: compare in place rather than through the library's memcmp.
        std::string const& p = x->prop_text;
        std::string const& q = y->prop_text;
        if (p.size() != q.size()) {
            return false;
        }
        for (std::size_t i = 0; i < p.size(); ++i) {
            if (p[i] != q[i]) {
                return false;
            }
        }
        return true;
    }
    return a == b;
}

/// Numbers whose doubles are exact: integers of at most 53 bits, and doubles.
inline bool exact_double(number n, double& d) {
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        constexpr std::int64_t limit = std::int64_t{1} << 53;
        if (*i > limit || *i < -limit) {
            return false;
        }
        d = static_cast<double>(*i);
        return true;
    }
    d = std::get<double>(n);
    return true;
}

/// Stores a number or a boolean, in place when the register already holds one of that type.
[[gnu::always_inline]] inline void store_number(js_value& to, number n) {
    if (auto* m = std::get_if<number>(&to)) {
        *m = n;
        return;
    }
    to = n;
}

[[gnu::always_inline]] inline void store_bool(js_value& to, bool b) {
    if (auto* m = std::get_if<bool>(&to)) {
        *m = b;
        return;
    }
    to = b;
}

/// The operators of loop counters on two integers, or on an integer and a double (a literal such as
/// `1e7`), done in place; false for everything else.
inline bool fast_number_binary(binary_kind k, number const& a, number const& b, js_value& out) {
    auto const* x = std::get_if<std::int64_t>(&a);
    auto const* y = std::get_if<std::int64_t>(&b);
    if (x != nullptr && y != nullptr) {
        switch (k) {
        case binary_kind::plus:
            // Integers wrap at 64 bits, as everywhere in the engine.
            store_number(out, number{static_cast<std::int64_t>(static_cast<std::uint64_t>(*x) + static_cast<std::uint64_t>(*y))});
            return true;
        case binary_kind::minus:
            store_number(out, number{static_cast<std::int64_t>(static_cast<std::uint64_t>(*x) - static_cast<std::uint64_t>(*y))});
            return true;
        case binary_kind::less_than:
            store_bool(out, *x < *y);
            return true;
        case binary_kind::greater_than:
            store_bool(out, *x > *y);
            return true;
        case binary_kind::less_than_or_equal:
            store_bool(out, *x <= *y);
            return true;
        case binary_kind::greater_than_or_equal:
            store_bool(out, *x >= *y);
            return true;
        case binary_kind::equal:
        case binary_kind::strict_equal:
            store_bool(out, *x == *y);
            return true;
        case binary_kind::not_equal:
        case binary_kind::strict_not_equal:
            store_bool(out, *x != *y);
            return true;
        case binary_kind::bitwise_and:
        case binary_kind::bitwise_or:
        case binary_kind::bitwise_xor:
        case binary_kind::multiply:
        case binary_kind::divide:
        case binary_kind::remainder:
        case binary_kind::left_shift:
        case binary_kind::signed_right_shift:
        case binary_kind::unsigned_right_shift:
            return false;
        }
        return false;
    }
    double p = 0;
    double q = 0;
    if (!exact_double(a, p) || !exact_double(b, q)) {
        return false;
    }
    // Comparisons of doubles are false with NaN, as the language wants.
    switch (k) {
    case binary_kind::less_than:
        store_bool(out, p < q);
        return true;
    case binary_kind::greater_than:
        store_bool(out, p > q);
        return true;
    case binary_kind::less_than_or_equal:
        store_bool(out, p <= q);
        return true;
    case binary_kind::greater_than_or_equal:
        store_bool(out, p >= q);
        return true;
    case binary_kind::bitwise_and:
    case binary_kind::bitwise_or:
    case binary_kind::bitwise_xor:
    case binary_kind::plus:
    case binary_kind::minus:
    case binary_kind::multiply:
    case binary_kind::divide:
    case binary_kind::remainder:
    case binary_kind::equal:
    case binary_kind::not_equal:
    case binary_kind::strict_equal:
    case binary_kind::strict_not_equal:
    case binary_kind::left_shift:
    case binary_kind::signed_right_shift:
    case binary_kind::unsigned_right_shift:
        return false;
    }
    return false;
}

/// A binary operator on two numbers, the common case of loops and arithmetic.
js_value number_binary(binary_kind k, number a, number b, bool& done) {
    done = true;
    switch (k) {
    case binary_kind::plus:
        return add_numbers(a, b);
    case binary_kind::minus:
        return arithmetic(arith_op::subtract, a, b);
    case binary_kind::multiply:
        return arithmetic(arith_op::multiply, a, b);
    case binary_kind::divide:
        return arithmetic(arith_op::divide, a, b);
    case binary_kind::remainder:
        return arithmetic(arith_op::remainder, a, b);
    case binary_kind::equal:
    case binary_kind::strict_equal:
        return numbers_equal(a, b);
    case binary_kind::not_equal:
    case binary_kind::strict_not_equal:
        return !numbers_equal(a, b);
    case binary_kind::less_than:
        return less_than_numbers(a, b) == relational_comparison_res::relational_true;
    case binary_kind::greater_than:
        return less_than_numbers(b, a) == relational_comparison_res::relational_true;
    case binary_kind::less_than_or_equal:
        return less_than_numbers(b, a) == relational_comparison_res::relational_false;
    case binary_kind::greater_than_or_equal:
        return less_than_numbers(a, b) == relational_comparison_res::relational_false;
    case binary_kind::bitwise_and:
    case binary_kind::bitwise_or:
    case binary_kind::bitwise_xor:
    case binary_kind::left_shift:
    case binary_kind::signed_right_shift:
    case binary_kind::unsigned_right_shift:
        break;
    }
    done = false;
    return undefined();
}

expr_res<js_value> binary_value(js& engine, binary_kind k, js_value const& a, js_value const& b) {
    if (auto const* x = std::get_if<number>(&a)) {
        if (auto const* y = std::get_if<number>(&b)) {
            bool done = false;
            js_value r = number_binary(k, *x, *y, done);
            if (done) {
                return r;
            }
        }
    }
    auto from_bool = [](expr_res<bool> r, bool negate_it) -> expr_res<js_value> {
        if (auto const* e = std::get_if<exception>(&r)) {
            return *e;
        }
        return js_value{std::get<bool>(r) != negate_it};
    };
    switch (k) {
    case binary_kind::plus:
        return add(engine, a, b);
    case binary_kind::minus:
        return numeric_op(engine, arith_op::subtract, a, b);
    case binary_kind::multiply:
        return numeric_op(engine, arith_op::multiply, a, b);
    case binary_kind::divide:
        return numeric_op(engine, arith_op::divide, a, b);
    case binary_kind::remainder:
        return numeric_op(engine, arith_op::remainder, a, b);
    case binary_kind::equal:
        return from_bool(equality_comparison(engine, a, b), false);
    case binary_kind::not_equal:
        return from_bool(equality_comparison(engine, a, b), true);
    case binary_kind::strict_equal:
        return js_value{strict_equality_comparison(a, b)};
    case binary_kind::strict_not_equal:
        return js_value{!strict_equality_comparison(a, b)};
    case binary_kind::less_than:
    case binary_kind::greater_than:
    case binary_kind::less_than_or_equal:
    case binary_kind::greater_than_or_equal:
        return from_bool(relational(engine, relational_of(k), a, b), false);
    case binary_kind::bitwise_and:
        return bitwise(engine, int32_op::bitwise_and, a, b);
    case binary_kind::bitwise_or:
        return bitwise(engine, int32_op::bitwise_or, a, b);
    case binary_kind::bitwise_xor:
        return bitwise(engine, int32_op::bitwise_xor, a, b);
    case binary_kind::left_shift:
        return bitwise(engine, int32_op::left_shift, a, b);
    case binary_kind::signed_right_shift:
        return bitwise(engine, int32_op::signed_right_shift, a, b);
    case binary_kind::unsigned_right_shift:
        return bitwise(engine, int32_op::unsigned_right_shift, a, b);
    }
    throw internal_error("binary_value: unexpected operator");
}

/// The activation scope `depth` activation scopes along the chain.
js_array<eval::variable> const* activation_at(std::vector<scope> const& chain, int depth) {
    for (scope const& s : chain) {
        if (auto const* a = std::get_if<activation_scope>(&s)) {
            if (depth == 0) {
                return &a->scope_variables;
            }
            --depth;
        }
    }
    return nullptr;
}

js_object arguments_of(js& engine, js_object callee, std::vector<js_value> const& args) {
    js_object a = new_object_of(engine, class_special{.special_name = "Arguments"}, yes_proto{.proto = engine.object_prototype});
    attrs const hidden = attrs{}.with(attr::no_enum);
    define_value(a, "callee", callee, hidden);
    define_value(a, "length", number{static_cast<std::int64_t>(args.size())}, hidden);
    for (std::size_t i = 0; i < args.size(); ++i) {
        define_own_property(a, key_of_int(static_cast<std::int64_t>(i)), prop_value{.value = args[i]}, attrs{});
    }
    return a;
}

/// The `this` of a call that names none.
js_value global_this(js const& engine, js_value const& this_value) {
    if (std::holds_alternative<js_undefined>(this_value) || std::holds_alternative<js_null>(this_value)) {
        return engine.global_object;
    }
    return this_value;
}

/// A property store: the `length` of an array cuts or extends its elements, unless it is read-only;
/// anything else is `put`.
expr_res<js_value> put_property(js& engine, js_object o, js_prop_string const& key, js_value const& value) {
    if (std::holds_alternative<class_array>(o->obj_class)) {
        if (auto const* k = std::get_if<js_prop_utf8>(&key);
            k != nullptr && k->prop_text == "length" && !array_length_read_only(o)) {
            return set_array_length(engine, o, value);
        }
    }
    return put(engine, o, key, value);
}

bool is_direct_eval(js const& engine, bool candidate, js_value const& fn) {
    if (!candidate || engine.eval_function.object_rec == nullptr) {
        return false;
    }
    auto const* o = std::get_if<js_object>(&fn);
    return o != nullptr && *o == engine.eval_function;
}

std::vector<js_value> arguments_from(frame const& fr, int list) {
    auto const& operands = fr.code.op_arg_lists[static_cast<std::size_t>(list)];
    std::vector<js_value> args;
    args.reserve(operands.size());
    for (vm::js_operand o : operands) {
        args.push_back(o.is_const() ? fr.code.op_consts[static_cast<std::size_t>(-o.operand - 1)]
                                    : fr.vars[static_cast<std::size_t>(o.operand)]);
    }
    return args;
}

/// Marks a thrown value with the source of the code it passes through. Code without a source (text
/// given to `eval` or `new Function` by the embedding) leaves it to a frame that has one.
void mark_thrown(js_value const& thrown, context const& ctx, std::optional<int> line) {
    std::string const file = resource::locator::locator_to_string(ctx.source_locator);
    if (!file.empty()) {
        annotate_exception(thrown, file, line);
    }
}

/// Runs a frame from offset 0: the completion value at the end, a return value, or a thrown value.
stmt_res run(js& engine, frame& fr) {
    vm::func_ops const& code = fr.code;
    std::vector<vm::js_op> const& ops = code.ops;
    int const end = static_cast<int>(ops.size());
    js_value* const regs = fr.vars.data();
    js_value const* const consts = code.op_consts.data();
    auto val = [&](std::int32_t o) __attribute__((always_inline)) -> js_value const& {
        return o < 0 ? consts[-o - 1] : regs[o];
    };
    auto name = [&](std::int32_t i) -> std::string const& { return code.op_names[static_cast<std::size_t>(i)]; };
    js_prop_string const* const keys = code.op_keys.data();
    auto key = [&](std::int32_t i) __attribute__((always_inline)) -> js_prop_string const& { return keys[i]; };
    auto object_in = [&](std::int32_t r, char const* what) -> js_object {
        auto const* o = std::get_if<js_object>(&regs[r]);
        if (o == nullptr) {
            throw internal_error(what);
        }
        return *o;
    };
    js_object const global_object = engine.global_object;
    // The global object's own plain properties can be read and written in place; a host collection
    // answers for its properties itself.
    bool const global_plain = !std::holds_alternative<class_host_collection>(global_object->obj_class);
    int pc = 0;
    js_value thrown;
    while (true) {
        while (pc < end) {
            vm::js_op const& op = ops[static_cast<std::size_t>(pc)];
            switch (op.code) {
            case op_code::js_op_abort:
                throw internal_error("js_op_abort");
            case op_code::js_op_set_completion:
                set_value(fr.completion, val(op.op_a));
                ++pc;
                continue;
            case op_code::js_op_copy:
                set_value(regs[op.op_a], regs[op.op_b]);
                ++pc;
                continue;
            case op_code::js_op_const:
                set_value(regs[op.op_a], consts[op.op_b]);
                ++pc;
                continue;
            case op_code::js_op_new_object:
                regs[op.op_a] = new_object(engine);
                ++pc;
                continue;
            case op_code::js_op_new_array:
                regs[op.op_a] = new_array(engine, {});
                ++pc;
                continue;
            case op_code::js_op_this:
                regs[op.op_a] = fr.ctx.this_value;
                ++pc;
                continue;
            case op_code::js_op_func_expr: {
                auto const& def = code.op_funcs[static_cast<std::size_t>(op.op_b)];
                std::vector<scope> chain = fr.ctx.scope_chain;
                std::optional<js_array<eval::variable>> own_name;
                if (def.func_syntax->func_ident) {
                    // The function's own name, visible inside it only.
                    own_name = js_array<eval::variable>{};
                    own_name->push_back(eval::variable{.variable_name = *def.func_syntax->func_ident,
                                                       .variable_value = undefined(),
                                                       .variable_no_delete = true});
                    chain.insert(chain.begin(), activation_scope{.scope_variables = *own_name});
                }
                js_object f = make_script_function(engine, fr.ctx.source_locator, std::move(chain), def.func_syntax,
                                                   def.func_compiled);
                if (own_name) {
                    (*own_name)[0].variable_value = f;
                }
                regs[op.op_a] = f;
                ++pc;
                continue;
            }
            case op_code::js_op_get_variable:
                if (!fr.activation) {
                    throw internal_error("js_op_get_variable: no variable scope");
                }
                regs[op.op_a] = (*fr.activation)[static_cast<std::size_t>(op.op_c)].variable_value;
                ++pc;
                continue;
            case op_code::js_op_set_variable: {
                if (!fr.activation) {
                    throw internal_error("js_op_set_variable: no variable scope");
                }
                eval::variable& v = (*fr.activation)[static_cast<std::size_t>(op.op_b)];
                if (v.variable_name.empty()) {
                    v.variable_name = name(op.op_a);
                }
                v.variable_value = val(op.op_c);
                ++pc;
                continue;
            }
            case op_code::js_op_get_parent_variable: {
                auto const* a = activation_at(fr.ctx.scope_chain, op.op_b);
                if (a == nullptr) {
                    throw internal_error("js_op_get_parent_variable: no variable scope");
                }
                regs[op.op_a] = (*a)[static_cast<std::size_t>(op.op_d)].variable_value;
                ++pc;
                continue;
            }
            case op_code::js_op_set_parent_variable: {
                auto const* a = activation_at(fr.ctx.scope_chain, op.op_a);
                if (a == nullptr) {
                    throw internal_error("js_op_set_parent_variable: no variable scope");
                }
                eval::variable& v = (*a)[static_cast<std::size_t>(op.op_c)];
                if (v.variable_name.empty()) {
                    v.variable_name = name(op.op_b);
                }
                v.variable_value = val(op.op_d);
                ++pc;
                continue;
            }
            case op_code::js_op_get_global: {
                js_prop_string const& k = key(op.op_b);
                std::uint32_t& hint = fr.global_hints[static_cast<std::size_t>(op.op_c)];
                auto& props = *global_object->obj_properties.array_storage;
                if (global_plain && hint < props.size() && same_key(props[hint].property_name, k)) {
                    if (auto const* pv = std::get_if<prop_value>(&props[hint].property_value)) {
                        set_value(regs[op.op_a], pv->value);
                        ++pc;
                        continue;
                    }
                }
                if (auto at = find_own_property(global_object, k)) {
                    hint = static_cast<std::uint32_t>(*at);
                }
                auto r = get(engine, global_object, k);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_put_global: {
                js_prop_string const& k = key(op.op_a);
                std::uint32_t& hint = fr.global_hints[static_cast<std::size_t>(op.op_c)];
                auto& props = *global_object->obj_properties.array_storage;
                if (global_plain && hint < props.size() && same_key(props[hint].property_name, k) &&
                    !props[hint].property_attrs.has(attr::read_only)) {
                    if (auto* pv = std::get_if<prop_value>(&props[hint].property_value)) {
                        set_value(pv->value, val(op.op_b));
                        ++pc;
                        continue;
                    }
                }
                auto r = put(engine, global_object, k, val(op.op_b));
                if (failed(r, thrown)) {
                    break;
                }
                if (auto at = find_own_property(global_object, k)) {
                    hint = static_cast<std::uint32_t>(*at);
                }
                ++pc;
                continue;
            }
            case op_code::js_op_lookup:
                fr.refs[static_cast<std::size_t>(op.op_a)] = lookup(engine, fr.ctx.scope_chain, name(op.op_b));
                ++pc;
                continue;
            case op_code::js_op_lookup_then_get_value: {
                auto r = get_value(engine, lookup(engine, fr.ctx.scope_chain, name(op.op_b)));
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_get_value: {
                auto r = get_value(engine, fr.refs[static_cast<std::size_t>(op.op_b)]);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_put_value: {
                auto r = put_value(engine, fr.refs[static_cast<std::size_t>(op.op_a)], val(op.op_b));
                if (failed(r, thrown)) {
                    break;
                }
                ++pc;
                continue;
            }
            case op_code::js_op_to_number: {
                if (std::holds_alternative<number>(regs[op.op_b])) {
                    set_value(regs[op.op_a], regs[op.op_b]);
                    ++pc;
                    continue;
                }
                auto r = to_number(engine, regs[op.op_b]);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::get<number>(r);
                ++pc;
                continue;
            }
            case op_code::js_op_to_object: {
                js_value const& v = val(op.op_b);
                if (std::holds_alternative<js_object>(v)) {
                    regs[op.op_a] = v;
                    ++pc;
                    continue;
                }
                auto r = to_object(engine, v);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::get<js_object>(r);
                ++pc;
                continue;
            }
            case op_code::js_op_get_property: {
                js_object o = object_in(op.op_b, "js_op_get_property: not an object");
                auto k = to_prop_string(engine, val(op.op_c));
                if (failed(k, thrown)) {
                    break;
                }
                auto r = get(engine, o, std::get<js_prop_string>(k));
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_get_property_id: {
                js_object o = object_in(op.op_b, "js_op_get_property_id: not an object");
                auto r = get(engine, o, key(op.op_c));
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_put: {
                js_object o = object_in(op.op_a, "js_op_put: not an object");
                auto k = to_prop_string(engine, val(op.op_b));
                if (failed(k, thrown)) {
                    break;
                }
                auto r = put_property(engine, o, std::get<js_prop_string>(k), val(op.op_c));
                if (failed(r, thrown)) {
                    break;
                }
                ++pc;
                continue;
            }
            case op_code::js_op_put_id: {
                js_object o = object_in(op.op_a, "js_op_put_id: not an object");
                if (op.op_flag != 0) {
                    // A property of an object literal.
                    define_own_property(o, key(op.op_b), prop_value{.value = val(op.op_c)}, attrs{});
                    ++pc;
                    continue;
                }
                auto r = put_property(engine, o, key(op.op_b), val(op.op_c));
                if (failed(r, thrown)) {
                    break;
                }
                ++pc;
                continue;
            }
            case op_code::js_op_call_ref: {
                reference const& ref = fr.refs[static_cast<std::size_t>(op.op_b)];
                js_value const& fn = regs[op.op_c];
                std::vector<js_value> args = arguments_from(fr, op.op_d);
                bool global_ref = std::holds_alternative<baseless_reference>(ref);
                if (auto const* o = std::get_if<object_reference>(&ref)) {
                    global_ref = o->ref_base == global_object;
                }
                auto r = is_direct_eval(engine, op.op_flag != 0 && global_ref, fn)
                             ? call_eval(engine, fr.ctx, arg(args, 0))
                             : call(engine, this_of_reference(engine, ref), fn, args);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_call_value: {
                js_value const& fn = regs[op.op_b];
                std::vector<js_value> args = arguments_from(fr, op.op_d);
                auto r = is_direct_eval(engine, op.op_flag != 0, fn) ? call_eval(engine, fr.ctx, arg(args, 0))
                                                                     : call(engine, global_object, fn, args);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_call_method: {
                js_object self = object_in(op.op_b, "js_op_call_method: this must be object");
                js_value const& fn = regs[op.op_c];
                std::vector<js_value> args = arguments_from(fr, op.op_d);
                auto r = is_direct_eval(engine, op.op_flag != 0, fn) ? call_eval(engine, fr.ctx, arg(args, 0))
                                                                     : call(engine, self, fn, args);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_new: {
                std::vector<js_value> args = arguments_from(fr, op.op_d);
                auto r = construct(engine, regs[op.op_b], args);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_typeof_ref: {
                auto r = typeof_reference(engine, fr.refs[static_cast<std::size_t>(op.op_b)]);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = jsstring::from_utf8(std::get<std::string>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_typeof_value:
                regs[op.op_a] = jsstring::from_utf8(type_of(val(op.op_b)));
                ++pc;
                continue;
            case op_code::js_op_delete:
                regs[op.op_a] = delete_reference(fr.refs[static_cast<std::size_t>(op.op_b)]);
                ++pc;
                continue;
            case op_code::js_op_delete_obj_prop: {
                js_object o = object_in(op.op_b, "js_op_delete_obj_prop: not an object");
                auto k = to_prop_string(engine, val(op.op_c));
                if (failed(k, thrown)) {
                    break;
                }
                regs[op.op_a] = delete_property(o, std::get<js_prop_string>(k));
                ++pc;
                continue;
            }
            case op_code::js_op_delete_obj_prop_id: {
                js_object o = object_in(op.op_b, "js_op_delete_obj_prop_id: not an object");
                regs[op.op_a] = delete_property(o, key(op.op_c));
                ++pc;
                continue;
            }
            case op_code::js_op_delete_global:
                regs[op.op_a] = delete_property(global_object, key(op.op_b));
                ++pc;
                continue;
            case op_code::js_op_unary: {
                auto r = unary(engine, static_cast<unary_op>(op.op_flag), val(op.op_b));
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_binary: {
                js_value const& a = val(op.op_b);
                js_value const& b = val(op.op_c);
                auto const* x = std::get_if<number>(&a);
                auto const* y = std::get_if<number>(&b);
                if (x != nullptr && y != nullptr) {
                    if (fast_number_binary(static_cast<binary_kind>(op.op_flag), *x, *y, regs[op.op_a])) {
                        ++pc;
                        continue;
                    }
                    bool done = false;
                    js_value r = number_binary(static_cast<binary_kind>(op.op_flag), *x, *y, done);
                    if (done) {
                        regs[op.op_a] = std::move(r);
                        ++pc;
                        continue;
                    }
                }
                auto r = binary_value(engine, static_cast<binary_kind>(op.op_flag), a, b);
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::move(std::get<js_value>(r));
                ++pc;
                continue;
            }
            case op_code::js_op_instance_of: {
                auto r = instance_of(engine, val(op.op_b), val(op.op_c));
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::get<bool>(r);
                ++pc;
                continue;
            }
            case op_code::js_op_in: {
                auto r = in_operator(engine, val(op.op_b), val(op.op_c));
                if (failed(r, thrown)) {
                    break;
                }
                regs[op.op_a] = std::get<bool>(r);
                ++pc;
                continue;
            }
            case op_code::js_op_jump_if: {
                js_value const& v = regs[op.op_a];
                auto const* b = std::get_if<bool>(&v);
                bool truth = b != nullptr ? *b : to_boolean(v);
                pc = truth == (op.op_flag != 0) ? op.op_b : pc + 1;
                continue;
            }
            case op_code::js_op_jump:
                pc = op.op_a;
                continue;
            case op_code::js_op_jump_indirect:
                pc = fr.addrs[static_cast<std::size_t>(op.op_a)];
                continue;
            case op_code::js_op_set_address:
                fr.addrs[static_cast<std::size_t>(op.op_a)] = op.op_b;
                ++pc;
                continue;
            case op_code::js_op_set_address_relative:
                fr.addrs[static_cast<std::size_t>(op.op_a)] = pc + op.op_b;
                ++pc;
                continue;
            case op_code::js_op_enum_prop_names: {
                auto r = enum_prop_names(engine, val(op.op_b));
                if (failed(r, thrown)) {
                    break;
                }
                fr.iters[static_cast<std::size_t>(op.op_a)] =
                    name_iterator{.iter_names = std::move(std::get<std::vector<js_prop_string>>(r))};
                ++pc;
                continue;
            }
            case op_code::js_op_iter_has_next: {
                name_iterator const& it = fr.iters[static_cast<std::size_t>(op.op_b)];
                regs[op.op_a] = it.iter_next < it.iter_names.size();
                ++pc;
                continue;
            }
            case op_code::js_op_iter_get_next: {
                name_iterator& it = fr.iters[static_cast<std::size_t>(op.op_b)];
                if (it.iter_next >= it.iter_names.size()) {
                    throw internal_error("iterator exhausted");
                }
                regs[op.op_a] = key_to_string(it.iter_names[it.iter_next++]);
                ++pc;
                continue;
            }
            case op_code::js_op_return:
                return return_res{.res_value = val(op.op_a)};
            case op_code::js_op_throw:
                thrown = val(op.op_a);
                break;
            case op_code::js_op_push_try:
                fr.scopes.push_back(js_scope{.kind = js_scope_kind::js_try_scope, .try_register = op.op_a, .try_handler = op.op_b});
                ++pc;
                continue;
            case op_code::js_op_push_catch: {
                // The catch name lives in an object of its own; it has no prototype, so that inherited
                // names such as `toString` are not found in it.
                js_object holder = new_object_of(engine, class_object{}, no_proto{});
                define_value(holder, name(op.op_a), regs[op.op_b], attrs{}.with(attr::no_delete));
                fr.ctx.scope_chain.insert(fr.ctx.scope_chain.begin(), catch_scope{.scope_object = holder});
                fr.scopes.push_back(js_scope{.kind = js_scope_kind::js_catch_scope});
                ++pc;
                continue;
            }
            case op_code::js_op_push_with: {
                auto r = to_object(engine, val(op.op_a));
                if (failed(r, thrown)) {
                    break;
                }
                fr.ctx.scope_chain.insert(fr.ctx.scope_chain.begin(), normal_scope{.scope_object = std::get<js_object>(r)});
                fr.scopes.push_back(js_scope{.kind = js_scope_kind::js_with_scope});
                ++pc;
                continue;
            }
            case op_code::js_op_pop_try:
                if (fr.scopes.empty() || fr.scopes.back().kind != js_scope_kind::js_try_scope) {
                    throw internal_error("try stack underflow");
                }
                fr.scopes.pop_back();
                ++pc;
                continue;
            case op_code::js_op_pop_catch:
                if (fr.scopes.empty() || fr.scopes.back().kind != js_scope_kind::js_catch_scope ||
                    fr.ctx.scope_chain.empty() || !std::holds_alternative<catch_scope>(fr.ctx.scope_chain.front())) {
                    throw internal_error("catch stack underflow");
                }
                fr.scopes.pop_back();
                fr.ctx.scope_chain.erase(fr.ctx.scope_chain.begin());
                ++pc;
                continue;
            case op_code::js_op_pop_with:
                if (fr.scopes.empty() || fr.scopes.back().kind != js_scope_kind::js_with_scope ||
                    fr.ctx.scope_chain.empty() || !std::holds_alternative<normal_scope>(fr.ctx.scope_chain.front())) {
                    throw internal_error("with stack underflow");
                }
                fr.scopes.pop_back();
                fr.ctx.scope_chain.erase(fr.ctx.scope_chain.begin());
                ++pc;
                continue;
            }
            // Only a thrown value leaves the switch with `break`: unwind to the nearest handler.
            goto unwind;
        }
        return normal_res{.res_value = fr.completion};

    unwind:
        // A frame that knows the line marks the thrown value; one that does not (a `throw` statement has
        // no line of its own) leaves it to the frame that called it, or to the end of the program.
        if (auto line = vm::line_of(code, pc)) {
            mark_thrown(thrown, fr.ctx, line);
        }
        while (true) {
            if (fr.scopes.empty()) {
                return throw_res{.res_value = std::move(thrown)};
            }
            js_scope s = fr.scopes.back();
            fr.scopes.pop_back();
            auto& chain = fr.ctx.scope_chain;
            if (s.kind == js_scope_kind::js_try_scope) {
                regs[s.try_register] = std::move(thrown);
                pc = s.try_handler;
                break;
            }
            if (s.kind == js_scope_kind::js_with_scope) {
                if (chain.empty() || !std::holds_alternative<normal_scope>(chain.front())) {
                    throw internal_error("with scope chain underflow");
                }
            } else if (chain.empty() || !std::holds_alternative<catch_scope>(chain.front())) {
                throw internal_error("catch scope chain underflow");
            }
            chain.erase(chain.begin());
        }
    }
}

/// Declares the functions and `var` names of global or eval code before it runs.
void declare(js& engine, context const& ctx, vm::func_ops const& code) {
    bool const eval_code = ctx.type_of_code == type_of_code::eval_code;
    for (auto const& [name, def] : code.var_defs) {
        std::optional<js_value> value;
        if (auto const* f = std::get_if<vm::func_decl>(&def)) {
            value = make_script_function(engine, ctx.source_locator, ctx.scope_chain, f->decl_syntax, f->decl_ops);
        }
        if (ctx.variable_object) {
            js_array<eval::variable> const& vars = *ctx.variable_object;
            bool found = false;
            for (std::size_t i = 0; i < vars.length(); ++i) {
                if (vars[i].variable_name == name) {
                    found = true;
                    if (value) {
                        vars[i].variable_value = *value;
                    }
                    break;
                }
            }
            if (!found) {
                vars.push_back(eval::variable{.variable_name = name,
                                              .variable_value = value ? *value : undefined(),
                                              .variable_no_delete = !eval_code});
            }
            continue;
        }
        js_prop_string const key = key_of_utf8(name);
        attrs const a = eval_code ? attrs{} : attrs{}.with(attr::no_delete);
        if (value) {
            if (find_own_property(engine.global_object, key)) {
                (void)put(engine, engine.global_object, key, *value);
            } else {
                define_own_property(engine.global_object, key, prop_value{.value = *value}, a);
            }
        } else if (!has_property(engine, engine.global_object, key)) {
            define_own_property(engine.global_object, key, prop_value{.value = undefined()}, a);
        }
    }
}

expr_res<js_value> result_of(stmt_res const& r, char const* where) {
    return std::visit(overloaded{
                          [](normal_res const& n) -> expr_res<js_value> { return n.res_value.value_or(undefined()); },
                          [&](break_res const&) -> expr_res<js_value> {
                              throw internal_error(std::string(where) + ": unexpected break/continue/return");
                          },
                          [&](continue_res const&) -> expr_res<js_value> {
                              throw internal_error(std::string(where) + ": unexpected break/continue/return");
                          },
                          [&](return_res const&) -> expr_res<js_value> {
                              throw internal_error(std::string(where) + ": unexpected break/continue/return");
                          },
                          [](throw_res const& t) -> expr_res<js_value> { return exception{.exception_value = t.res_value}; },
                      },
                      r);
}

/// What a call gives: the returned value, `undefined` at the end of the body, or what was thrown.
expr_res<js_value> call_result(stmt_res r) {
    if (auto* ret = std::get_if<return_res>(&r)) {
        return std::move(ret->res_value);
    }
    if (std::holds_alternative<normal_res>(r)) {
        return undefined();
    }
    if (auto* t = std::get_if<throw_res>(&r)) {
        return exception{.exception_value = std::move(t->res_value)};
    }
    throw internal_error("do_call: unexpected break/continue");
}

bool chain_is_global(js const& engine, std::vector<scope> const& chain) {
    if (chain.size() != 1) {
        return false;
    }
    auto const* n = std::get_if<normal_scope>(&chain.front());
    return n != nullptr && n->scope_object == engine.global_object;
}

context global_context(js const& engine, resource::locator::locator const& locator, type_of_code kind) {
    return context{.source_locator = locator,
                   .type_of_code = kind,
                   .scope_chain = {normal_scope{.scope_object = engine.global_object}},
                   .variable_object = std::nullopt,
                   .this_value = engine.global_object};
}

expr_res<js_value> parse_and_eval(js& engine, context const& ctx, js_string const& text) {
    auto parsed = parse::parse_string(engine, jsstring::to_utf8(text));
    if (auto const* e = std::get_if<vellum::js::js_error>(&parsed)) {
        return throw_error(engine, js_error_res{.error_kind = js_error::eval_syntax_error,
                                                .error_detail = jsstring::from_utf8(e->error_message)});
    }
    return run_code(engine, ctx, std::get<source_elements>(parsed));
}

expr_res<js_value> make_function(js& engine, js_string const& params, js_string const& body) {
    std::string source = "(function (" + jsstring::to_utf8(params) + "\n) {\n" + jsstring::to_utf8(body) + "\n})";
    auto parsed = parse::parse_string(engine, source);
    if (auto const* e = std::get_if<vellum::js::js_error>(&parsed)) {
        return throw_error(engine, js_error_res{.error_kind = js_error::func_syntax_error,
                                                .error_detail = jsstring::from_utf8(e->error_message)});
    }
    // The text must be exactly one function expression: a body such as "}, function () {" would
    // otherwise smuggle in more.
    auto const& elements = std::get<source_elements>(parsed);
    ref<vellum::js::func_expr> f;
    if (elements.size() == 1) {
        if (auto const* s = std::get_if<ref<statement>>(&elements[0])) {
            if (auto const* x = std::get_if<expr_stmt>(&(*s)->stmt_node)) {
                if (auto const* fe = std::get_if<func_expr_expr>(&x->expr_value->expr_node)) {
                    f = fe->func_value;
                }
            }
        }
    }
    if (!f) {
        return throw_error(engine, js_error::func_arguments_syntax);
    }
    if (auto failure = check_syntax(true, {}, f->func_body)) {
        return throw_error(engine, js_error_res{.error_kind = js_error::func_syntax_error,
                                                .error_detail = jsstring::from_utf8(syntax_error_name(failure->failure_error))});
    }
    auto ops = vm::compile_function({}, vm::global_scope::global_scope_available, f->func_params, f->func_body);
    context ctx = global_context(engine, resource::locator::locator{}, type_of_code::global_code);
    return make_script_function(engine, ctx.source_locator, ctx.scope_chain, f, ops);
}

} // namespace

js_object make_script_function(js& engine,
                               resource::locator::locator const& locator,
                               std::vector<scope> chain,
                               ref<vellum::js::func_expr> syntax,
                               ref<vm::func_ops> ops) {
    auto const params = static_cast<std::int64_t>(syntax->func_params.size());
    js_object f = new_function(engine, javascript_func{.func_filename = locator,
                                                       .func_scope_chain = std::move(chain),
                                                       .func_syntax = std::move(syntax),
                                                       .func_ops = std::move(ops)});
    define_value(f, "length", number{params}, all_attrs);
    js_object proto = new_object(engine);
    define_value(proto, "constructor", f, attrs{}.with(attr::no_enum));
    define_value(f, "prototype", proto, attrs{}.with(attr::no_enum).with(attr::no_delete));
    return f;
}

expr_res<js_value> do_call(js& engine, js_object func, javascript_func const& f, js_value const& this_value,
                           std::vector<js_value> const& args) {
    if (!f.func_ops) {
        throw internal_error("do_call: script function without compiled instructions");
    }
    if (!stack_left()) {
        return throw_error(engine, js_error_res{.error_kind = js_error::range_error,
                                                .error_detail = jsstring::from_utf8("too much recursion")});
    }
    call_guard const counted;
    vm::func_ops const& code = *f.func_ops;
    context ctx{.source_locator = f.func_filename,
                .type_of_code = type_of_code::function_code,
                .scope_chain = {},
                .variable_object = std::nullopt,
                .this_value = global_this(engine, this_value)};
    if (code.vars_in_regs) {
        ctx.scope_chain = f.func_scope_chain;
        frame fr = new_frame(code, std::move(ctx));
        for (std::size_t i = 0; i < code.var_defs.size(); ++i) {
            std::visit(overloaded{
                           [&](vm::param const& p) { fr.vars[i] = arg(args, static_cast<std::size_t>(p.position)); },
                           [](vm::variable const&) {},
                           [](vm::arguments_object const&) -> void {
                               throw internal_error("proc_var_defs_in_regs: unexpected arguments");
                           },
                           [](vm::func_decl const&) -> void {
                               throw internal_error("proc_var_defs_in_regs: unexpected func_decl");
                           },
                       },
                       code.var_defs[i].second);
        }
        return call_result(run(engine, fr));
    }
    js_array<eval::variable> vars;
    vars.reserve_for(code.var_defs.size());
    for (auto const& [name, def] : code.var_defs) {
        js_value v = std::visit(overloaded{
                                    [&](vm::param const& p) { return arg(args, static_cast<std::size_t>(p.position)); },
                                    [](vm::variable const&) { return undefined(); },
                                    [&](vm::arguments_object const&) -> js_value { return arguments_of(engine, func, args); },
                                    // Made below, once the scope they close over exists.
                                    [](vm::func_decl const&) { return undefined(); },
                                },
                                def);
        vars.push_back(eval::variable{.variable_name = name, .variable_value = std::move(v), .variable_no_delete = true});
    }
    ctx.scope_chain.reserve(f.func_scope_chain.size() + 1);
    ctx.scope_chain.push_back(activation_scope{.scope_variables = vars});
    ctx.scope_chain.insert(ctx.scope_chain.end(), f.func_scope_chain.begin(), f.func_scope_chain.end());
    ctx.variable_object = vars;
    for (std::size_t i = 0; i < code.var_defs.size(); ++i) {
        if (auto const* d = std::get_if<vm::func_decl>(&code.var_defs[i].second)) {
            vars[i].variable_value = make_script_function(engine, f.func_filename, ctx.scope_chain, d->decl_syntax, d->decl_ops);
        }
    }
    frame fr = new_frame(code, std::move(ctx));
    fr.activation = vars;
    return call_result(run(engine, fr));
}

expr_res<js_value> run_code(js& engine, context const& ctx, source_elements const& statements) {
    bool const eval_code = ctx.type_of_code == type_of_code::eval_code;
    if (auto failure = check_syntax(false, {}, statements)) {
        js_string const message = jsstring::from_utf8(syntax_error_name(failure->failure_error));
        if (eval_code) {
            return throw_error(engine, js_error_res{.error_kind = js_error::eval_syntax_error, .error_detail = message});
        }
        js_object e = new_error(engine, native_error::syntax_error, message);
        mark_thrown(e, ctx, failure->failure_line);
        return exception{.exception_value = e};
    }
    auto code = vm::compile_program(statements, chain_is_global(engine, ctx.scope_chain)
                                                    ? vm::global_scope::global_scope_available
                                                    : vm::global_scope::global_scope_hidden);
    declare(engine, ctx, *code);
    frame fr = new_frame(*code, ctx);
    if (ctx.variable_object) {
        fr.activation = *ctx.variable_object;
    }
    stmt_res r = run(engine, fr);
    if (auto const* t = std::get_if<throw_res>(&r); t != nullptr && !eval_code) {
        mark_thrown(t->res_value, ctx, std::nullopt);
    }
    if (std::holds_alternative<normal_res>(r) || std::holds_alternative<throw_res>(r)) {
        return result_of(r, eval_code ? "call_eval" : "eval_program");
    }
    if (eval_code) {
        throw internal_error("call_eval: unexpected break/continue/return");
    }
    throw internal_error("eval_program: unexpected stmt_res: return");
}

program_res eval_program(js& engine, resource::locator::locator const& locator, source_elements const& statements) {
    auto r = run_code(engine, global_context(engine, locator, type_of_code::global_code), statements);
    if (auto* e = std::get_if<exception>(&r)) {
        return std::move(*e);
    }
    return program_ok{};
}

expr_res<js_value> call_eval(js& engine, context const& ctx, js_value const& code) {
    auto const* text = std::get_if<js_string>(&code);
    if (text == nullptr) {
        return code;
    }
    context eval_ctx = ctx;
    eval_ctx.type_of_code = type_of_code::eval_code;
    return parse_and_eval(engine, eval_ctx, *text);
}

void install_vm(js& engine) {
    engine.js_hooks.call_javascript = [](js& e, js_object f, javascript_func const& j, js_value const& self,
                                         std::vector<js_value> const& args) { return do_call(e, f, j, self, args); };
    engine.js_hooks.make_function = [](js& e, js_string const& params, js_string const& body) {
        return make_function(e, params, body);
    };
    engine.js_hooks.indirect_eval = [](js& e, js_value const& code) -> expr_res<js_value> {
        auto const* text = std::get_if<js_string>(&code);
        if (text == nullptr) {
            return code;
        }
        return parse_and_eval(e, global_context(e, resource::locator::locator{}, type_of_code::eval_code), *text);
    };
}

} // namespace vellum::js::eval
