// `Array` and the members of `Array.prototype`. The methods are generic, as the standard makes them: they
// work on any object through `length` and its indexed properties, holes included.
#include "js/builtins.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <cmath>
#include <string>

namespace vellum::js::eval::builtins {

namespace {

js_prop_string index_key(std::int64_t i) {
    return key_of_int(i);
}

expr_res<js_value> get_index(js& engine, js_object o, std::int64_t i) {
    return get(engine, o, index_key(i));
}

// Whether a write at the index would take effect: not at a read-only element, nor at one with a getter
// and no setter, nor beyond the end of an array whose length is read-only.
bool index_writable(js_object o, std::int64_t i) {
    js_prop_string const key = index_key(i);
    if (std::holds_alternative<cannot_put>(can_put(o, key))) {
        return false;
    }
    auto const* a = std::get_if<class_array>(&o->obj_class);
    if (a == nullptr) {
        return true;
    }
    if (static_cast<std::size_t>(i) >= a->array_items.length()) {
        return !array_length_read_only(o);
    }
    auto const* it = std::get_if<item>(&a->array_items[static_cast<std::size_t>(i)]);
    return it == nullptr || !it->item_attrs.has(attr::read_only);
}

// The methods write and delete elements as assignment and `delete` do, except that what cannot be done
// throws a TypeError rather than passing unnoticed.
expr_res<js_value> put_index(js& engine, js_object o, std::int64_t i, js_value const& v) {
    if (!index_writable(o, i)) {
        return type_error(engine, "cannot write array element " + std::to_string(i));
    }
    return put(engine, o, index_key(i), v);
}

std::optional<exception> delete_index(js& engine, js_object o, std::int64_t i) {
    if (!delete_property(o, index_key(i))) {
        return type_error(engine, "cannot delete array element " + std::to_string(i));
    }
    return std::nullopt;
}

// Sets `length`: directly for an array, by assignment for any other object. An array that cannot be
// cut short enough, for an element that may not be deleted, throws.
expr_res<js_value> put_length(js& engine, js_object o, std::int64_t n) {
    if (std::holds_alternative<class_array>(o->obj_class)) {
        if (auto r = set_array_length(engine, o, int_value(n)); is_exception(r)) {
            return r;
        }
        if (array_length(o) != n) {
            return type_error(engine, "cannot delete array element " + std::to_string(array_length(o) - 1));
        }
        return int_value(n);
    }
    return put(engine, o, key_of_utf8("length"), int_value(n));
}

// Moves the element at `from` to `to`, or makes `to` a hole if `from` is one.
std::optional<exception> move_index(js& engine, js_object o, std::int64_t from, std::int64_t to) {
    if (has_property(engine, o, index_key(from))) {
        js_value v;
        if (auto e = take(get_index(engine, o, from), v)) {
            return e;
        }
        if (auto r = put_index(engine, o, to, v); is_exception(r)) {
            return std::get<exception>(r);
        }
        return std::nullopt;
    }
    return delete_index(engine, o, to);
}

// Array-likes may claim any length up to 2^32 - 1 while holding a handful of elements
// (`{0: 'a', length: 4294967295}`); visiting every index of such a length takes hours. Past this many
// indices, when the elements held are far fewer, the methods visit only the indices held somewhere on
// the prototype chain.
constexpr std::int64_t sparse_walk_above = std::int64_t{1} << 16;

// The array indices of [lo, hi) that the object or one of its prototypes holds, ascending; nothing when
// an object on the chain answers for indices itself (a host collection), since only a visit of every
// index is sure to find those.
std::optional<std::vector<std::int64_t>> held_indices(js_object o, std::int64_t lo, std::int64_t hi) {
    std::vector<std::int64_t> held;
    auto const keep = [&](std::int64_t i) {
        if (i >= lo && i < hi) {
            held.push_back(i);
        }
    };
    for (std::optional<js_object> cur = o; cur; cur = prototype_of(*cur)) {
        object_class const& c = (*cur)->obj_class;
        if (std::holds_alternative<class_host_collection>(c)) {
            return std::nullopt;
        }
        if (auto const* a = std::get_if<class_array>(&c)) {
            for (std::size_t i = 0; i < a->array_items.length(); ++i) {
                if (!std::holds_alternative<no_item>(a->array_items[i])) {
                    keep(static_cast<std::int64_t>(i));
                }
            }
        }
        if (auto const* str = std::get_if<class_string>(&c)) {
            for (std::size_t i = 0; i < str->string_value.length(); ++i) {
                keep(static_cast<std::int64_t>(i));
            }
        }
        auto const& props = (*cur)->obj_properties;
        for (std::size_t i = 0; i < props.length(); ++i) {
            if (auto const index = array_index(props[i].property_name)) {
                keep(static_cast<std::int64_t>(*index));
            }
        }
    }
    std::ranges::sort(held);
    held.erase(std::unique(held.begin(), held.end()), held.end());
    return held;
}

// A figure that changes when properties or elements are added anywhere on the chain, so that a walk
// over held indices knows to look again after a callback.
std::size_t chain_extent(js_object o) {
    std::size_t n = 0;
    for (std::optional<js_object> cur = o; cur; cur = prototype_of(*cur)) {
        n += (*cur)->obj_properties.length() + 1;
        if (auto const* a = std::get_if<class_array>(&(*cur)->obj_class)) {
            n += a->array_items.length();
        }
    }
    return n;
}

// The indices of [lo, hi) a method must look at, upward or downward: every one for an ordinary length,
// only the held ones (looked up again when the chain has grown) for a vast and sparse one. The method
// still checks `has_property` at each, as for every index.
class index_walk {
public:
    index_walk(js_object o, std::int64_t lo, std::int64_t hi, bool down)
        : o_(o), lo_(lo), hi_(hi), down_(down), next_(down ? hi - 1 : lo) {
        if (hi - lo > sparse_walk_above) {
            look();
        }
    }

    std::optional<std::int64_t> next() {
        if (!sparse_) {
            if (down_ ? next_ < lo_ : next_ >= hi_) {
                return std::nullopt;
            }
            std::int64_t const k = next_;
            next_ += down_ ? -1 : 1;
            return k;
        }
        if (chain_extent(o_) != extent_) {
            look();
        }
        if (pos_ >= held_.size()) {
            return std::nullopt;
        }
        std::int64_t const k = down_ ? held_[held_.size() - 1 - pos_] : held_[pos_];
        ++pos_;
        next_ = down_ ? k - 1 : k + 1;
        return k;
    }

private:
    // Lists the held indices not yet passed; a walk stays sparse only while they are few.
    void look() {
        std::int64_t const lo = down_ ? lo_ : next_;
        std::int64_t const hi = down_ ? next_ + 1 : hi_;
        auto held = held_indices(o_, lo, std::max(lo, hi));
        sparse_ = held && static_cast<std::int64_t>(held->size()) * 4 < hi - lo;
        if (sparse_) {
            held_ = std::move(*held);
            pos_ = 0;
            extent_ = chain_extent(o_);
        }
    }

    js_object o_;
    std::int64_t lo_;
    std::int64_t hi_;
    bool down_;
    std::int64_t next_;
    bool sparse_ = false;
    std::vector<std::int64_t> held_;
    std::size_t pos_ = 0;
    std::size_t extent_ = 0;
};

// For the methods that move elements (reverse, shift, unshift) over a vast and sparse array-like: the
// loop positions that involve a held index, which `related` lists for each held index, ascending;
// nothing when every position must be visited.
template <class Related>
std::optional<std::vector<std::int64_t>> sparse_positions(js_object o, std::int64_t len, Related related) {
    if (len <= sparse_walk_above) {
        return std::nullopt;
    }
    auto held = held_indices(o, 0, len);
    if (!held || static_cast<std::int64_t>(held->size()) * 4 >= len) {
        return std::nullopt;
    }
    std::vector<std::int64_t> positions;
    for (std::int64_t h : *held) {
        related(h, positions);
    }
    std::ranges::sort(positions);
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    return positions;
}

// Removes the last of `len` elements (pop and shift), giving `result`.
expr_res<js_value> drop_last(js& engine, js_object o, std::int64_t len, js_value const& result) {
    if (auto e = delete_index(engine, o, len - 1)) {
        return *e;
    }
    if (auto r = put_length(engine, o, len - 1); is_exception(r)) {
        return r;
    }
    return result;
}

// The arrays whose `join` is running: an array that contains itself joins as the empty string inside,
// where it would otherwise recurse without end.
thread_local std::vector<object_data*> joining;

expr_res<js_value> join(js& engine, js_object o, js_value const& separator, bool locale) {
    std::uint32_t len = 0;
    if (auto e = take(length_of(engine, o), len)) {
        return *e;
    }
    js_string sep = text(",");
    if (!std::holds_alternative<js_undefined>(separator)) {
        if (auto e = take(to_string(engine, separator), sep)) {
            return *e;
        }
    }
    if (std::find(joining.begin(), joining.end(), o.object_rec) != joining.end()) {
        return js_string{};
    }
    joining.push_back(o.object_rec);
    std::u32string out;
    std::optional<exception> failed;
    // Separators written so far; element k follows the k-th. Indices no object holds read as undefined
    // and join as nothing, so a vast sparse array-like costs its separators only.
    std::int64_t separators = 0;
    auto const separate_to = [&](std::int64_t k) {
        if (k <= separators) {
            return true;
        }
        if (!sep.empty()) {
            if (out.size() + static_cast<std::size_t>(k - separators) * sep.length() > jsstring::max_length) {
                failed = throw_error(engine, js_error_res{.error_kind = js_error::range_error,
                                                          .error_detail = text("string too long")});
                return false;
            }
            for (; separators < k; ++separators) {
                out += sep.code_points();
            }
        }
        separators = k;
        return true;
    };
    index_walk walk(o, 0, len, false);
    for (auto k = walk.next(); k && !failed; k = walk.next()) {
        if (!separate_to(*k)) {
            break;
        }
        std::int64_t const i = *k;
        js_value v;
        if ((failed = take(get_index(engine, o, i), v))) {
            break;
        }
        if (std::holds_alternative<js_undefined>(v) || std::holds_alternative<js_null>(v)) {
            continue;
        }
        if (locale) {
            js_object element;
            js_value f;
            if ((failed = take(to_object(engine, v), element)) ||
                (failed = take(get_named(engine, element, "toLocaleString"), f)) ||
                (failed = take(call(engine, element, f, {}), v))) {
                break;
            }
        }
        js_string s;
        if ((failed = take(to_string(engine, v), s))) {
            break;
        }
        if (out.size() + s.length() > jsstring::max_length) {
            failed = throw_error(engine, js_error_res{.error_kind = js_error::range_error,
                                                      .error_detail = text("string too long")});
            break;
        }
        out += s.code_points();
    }
    if (!failed && len > 0) {
        separate_to(std::int64_t{len} - 1);
    }
    joining.pop_back();
    if (failed) {
        return *failed;
    }
    return js_string(std::move(out));
}

expr_res<js_value> concat(js& engine, js_object self, std::vector<js_value> const& args) {
    js_array<js_array_item> out;
    // The elements of arrays are copied as plain values; an element with a getter is read through it.
    auto append = [&](js_value const& v) -> std::optional<exception> {
        auto const* o = std::get_if<js_object>(&v);
        auto const* a = o ? std::get_if<class_array>(&(*o)->obj_class) : nullptr;
        if (a == nullptr) {
            out.push_back(item{.item_value = v});
            return std::nullopt;
        }
        for (std::size_t i = 0; i < a->array_items.length(); ++i) {
            js_array_item const& element = a->array_items[i];
            if (std::holds_alternative<no_item>(element)) {
                out.push_back(no_item{});
                continue;
            }
            if (auto const* it = std::get_if<item>(&element)) {
                out.push_back(item{.item_value = it->item_value});
                continue;
            }
            js_value value;
            if (auto e = take(get_index(engine, *o, static_cast<std::int64_t>(i)), value)) {
                return e;
            }
            out.push_back(item{.item_value = std::move(value)});
        }
        return std::nullopt;
    };
    if (auto e = append(self)) {
        return *e;
    }
    for (auto const& v : args) {
        if (auto e = append(v)) {
            return *e;
        }
    }
    return new_object_of(engine, class_array{.array_items = out}, yes_proto{.proto = engine.array_prototype});
}

// Stable merge sort, bottom-up so that its depth does not grow with the array. `compare(a, b)` gives a
// negative number when a goes before b; a comparator that contradicts itself cannot break it, and what
// it throws ends the sort.
template <class Compare>
std::optional<exception> merge_sort(std::vector<std::size_t>& order, Compare compare) {
    std::size_t const n = order.size();
    std::vector<std::size_t> merged(n);
    for (std::size_t width = 1; width < n; width *= 2) {
        for (std::size_t lo = 0; lo < n; lo += 2 * width) {
            std::size_t const mid = std::min(lo + width, n);
            std::size_t const hi = std::min(lo + 2 * width, n);
            std::size_t i = lo;
            std::size_t j = mid;
            std::size_t k = lo;
            while (i < mid && j < hi) {
                double r = 0;
                if (auto e = take(compare(order[j], order[i]), r)) {
                    return e;
                }
                merged[k++] = r < 0 ? order[j++] : order[i++];
            }
            while (i < mid) {
                merged[k++] = order[i++];
            }
            while (j < hi) {
                merged[k++] = order[j++];
            }
        }
        order.swap(merged);
    }
    return std::nullopt;
}

expr_res<js_value> sort(js& engine, js_object o, js_value const& comparator) {
    if (!std::holds_alternative<js_undefined>(comparator) && !is_callable(comparator)) {
        return throw_error(engine, js_error::not_function);
    }
    std::uint32_t len = 0;
    if (auto e = take(length_of(engine, o), len)) {
        return *e;
    }
    // Values are sorted; undefined values follow them, and holes come last.
    std::vector<js_value> values;
    std::uint32_t undefineds = 0;
    for (std::uint32_t i = 0; i < len; ++i) {
        if (!has_property(engine, o, index_key(i))) {
            continue;
        }
        js_value v;
        if (auto e = take(get_index(engine, o, i), v)) {
            return *e;
        }
        if (std::holds_alternative<js_undefined>(v)) {
            ++undefineds;
        } else {
            values.push_back(std::move(v));
        }
    }
    std::vector<std::size_t> order(values.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::optional<exception> failed;
    if (std::holds_alternative<js_undefined>(comparator)) {
        std::vector<js_string> texts(values.size());
        for (std::size_t i = 0; i < values.size() && !failed; ++i) {
            failed = take(to_string(engine, values[i]), texts[i]);
        }
        if (!failed) {
            failed = merge_sort(order, [&](std::size_t a, std::size_t b) -> expr_res<double> {
                auto const c = texts[a] <=> texts[b];
                return c < 0 ? -1.0 : (c > 0 ? 1.0 : 0.0);
            });
        }
    } else {
        failed = merge_sort(order, [&](std::size_t a, std::size_t b) -> expr_res<double> {
            js_value r;
            if (auto e = take(call(engine, undefined(), comparator, {values[a], values[b]}), r)) {
                return *e;
            }
            double d = 0;
            if (auto e = take(to_double_value(engine, r), d)) {
                return *e;
            }
            return std::isnan(d) ? 0.0 : d;
        });
    }
    if (failed) {
        return *failed;
    }
    std::uint32_t at = 0;
    for (std::size_t i : order) {
        if (auto r = put_index(engine, o, at++, values[i]); is_exception(r)) {
            return r;
        }
    }
    for (std::uint32_t k = 0; k < undefineds; ++k) {
        if (auto r = put_index(engine, o, at++, undefined()); is_exception(r)) {
            return r;
        }
    }
    for (; at < len; ++at) {
        if (auto e = delete_index(engine, o, at)) {
            return *e;
        }
    }
    return o;
}

expr_res<js_value> splice(call_info const& c, js_object o, std::int64_t len) {
    js& engine = c.engine;
    std::int64_t start = 0;
    if (auto e = take(relative_index(engine, c.arg(0), len, 0), start)) {
        return *e;
    }
    std::int64_t remove = 0;
    if (c.args.size() >= 2) {
        double d = 0;
        if (auto e = take(to_integer(engine, c.arg(1)), d)) {
            return *e;
        }
        remove = static_cast<std::int64_t>(std::min(std::max(d, 0.0), static_cast<double>(len - start)));
    } else if (!c.args.empty()) {
        remove = len - start;
    }
    std::vector<js_value> removed;
    js_object out = new_array(engine, {});
    for (std::int64_t k = 0; k < remove; ++k) {
        if (has_property(engine, o, index_key(start + k))) {
            js_value v;
            if (auto e = take(get_index(engine, o, start + k), v)) {
                return *e;
            }
            if (auto r = put_index(engine, out, k, v); is_exception(r)) {
                return r;
            }
        }
    }
    if (auto r = put_length(engine, out, remove); is_exception(r)) {
        return r;
    }
    std::int64_t const insert = c.args.size() > 2 ? static_cast<std::int64_t>(c.args.size()) - 2 : 0;
    if (insert < remove) {
        for (std::int64_t k = start; k < len - remove; ++k) {
            if (auto e = move_index(engine, o, k + remove, k + insert)) {
                return *e;
            }
        }
        for (std::int64_t k = len; k > len - remove + insert; --k) {
            if (auto e = delete_index(engine, o, k - 1)) {
                return *e;
            }
        }
    } else if (insert > remove) {
        for (std::int64_t k = len - remove; k > start; --k) {
            if (auto e = move_index(engine, o, k + remove - 1, k + insert - 1)) {
                return *e;
            }
        }
    }
    for (std::int64_t k = 0; k < insert; ++k) {
        if (auto r = put_index(engine, o, start + k, c.args[static_cast<std::size_t>(k) + 2]);
            is_exception(r)) {
            return r;
        }
    }
    if (auto r = put_length(engine, o, len - remove + insert); is_exception(r)) {
        return r;
    }
    return out;
}

expr_res<js_value> index_of(call_info const& c, js_object o, std::int64_t len, bool last) {
    if (len == 0) {
        return int_value(-1);
    }
    std::int64_t from = last ? len - 1 : 0;
    if (c.args.size() >= 2) {
        double d = 0;
        if (auto e = take(to_integer(c.engine, c.arg(1)), d)) {
            return *e;
        }
        double const n = static_cast<double>(len);
        if (last) {
            from = static_cast<std::int64_t>(d >= 0 ? std::min(d, n - 1) : std::max(n + d, -1.0));
        } else {
            from = static_cast<std::int64_t>(d >= 0 ? std::min(d, n) : std::max(n + d, 0.0));
        }
    }
    js_value const wanted = c.arg(0);
    index_walk walk = last ? index_walk(o, 0, from + 1, true) : index_walk(o, from, len, false);
    for (auto k = walk.next(); k; k = walk.next()) {
        if (!has_property(c.engine, o, index_key(*k))) {
            continue;
        }
        js_value v;
        if (auto e = take(get_index(c.engine, o, *k), v)) {
            return *e;
        }
        if (strict_equality_comparison(v, wanted)) {
            return int_value(*k);
        }
    }
    return int_value(-1);
}

// forEach, map and filter: the callback sees each present element, its index and the object.
expr_res<js_value> iterate(call_info const& c, js_object o, std::int64_t len, array_func f) {
    js_value const callback = c.arg(0);
    if (!is_callable(callback)) {
        return throw_error(c.engine, js_error::not_function);
    }
    js_object const out = new_array(c.engine, {});
    if (f == array_func::array_map) {
        if (auto r = put_length(c.engine, out, len); is_exception(r)) {
            return r;
        }
    }
    std::int64_t kept = 0;
    index_walk walk(o, 0, len, false);
    for (auto k = walk.next(); k; k = walk.next()) {
        if (!has_property(c.engine, o, index_key(*k))) {
            continue;
        }
        js_value v;
        if (auto e = take(get_index(c.engine, o, *k), v)) {
            return *e;
        }
        js_value r;
        if (auto e = take(call(c.engine, c.arg(1), callback, {v, int_value(*k), o}), r)) {
            return *e;
        }
        if (f == array_func::array_map) {
            if (auto p = put_index(c.engine, out, *k, r); is_exception(p)) {
                return p;
            }
        } else if (f == array_func::array_filter && to_boolean(r)) {
            if (auto p = put_index(c.engine, out, kept++, v); is_exception(p)) {
                return p;
            }
        }
    }
    if (f == array_func::array_for_each) {
        return undefined();
    }
    return out;
}

expr_res<js_value> array_constructor(call_info const& c) {
    if (c.args.size() == 1 && std::holds_alternative<number>(c.args[0])) {
        double const d = to_double(std::get<number>(c.args[0]));
        js_object a = new_array(c.engine, {});
        if (auto r = set_array_length(c.engine, a, number_value(d)); is_exception(r)) {
            return r;
        }
        return a;
    }
    return new_array(c.engine, c.args);
}

// The members that work on `this` as an object with a length.
expr_res<js_value> generic_member(call_info const& c, array_func f) {
    js& engine = c.engine;
    js_object o;
    if (auto e = take(to_object(engine, c.this_value), o)) {
        return *e;
    }
    if (f == array_func::array_to_string) {
        js_value join_func;
        if (auto e = take(get_named(engine, o, "join"), join_func)) {
            return *e;
        }
        if (is_callable(join_func)) {
            return call(engine, o, join_func, {});
        }
        return text("[object " + class_name(engine, o) + "]");
    }
    if (f == array_func::array_concat) {
        return concat(engine, o, c.args);
    }
    std::uint32_t len32 = 0;
    if (auto e = take(length_of(engine, o), len32)) {
        return *e;
    }
    std::int64_t const len = len32;
    switch (f) {
    case array_func::array_to_locale_string:
        return join(engine, o, undefined(), true);
    case array_func::array_join:
        return join(engine, o, c.arg(0), false);
    case array_func::array_pop: {
        if (len == 0) {
            if (auto r = put_length(engine, o, 0); is_exception(r)) {
                return r;
            }
            return undefined();
        }
        js_value v;
        if (auto e = take(get_index(engine, o, len - 1), v)) {
            return *e;
        }
        return drop_last(engine, o, len, v);
    }
    case array_func::array_push: {
        std::int64_t n = len;
        for (auto const& v : c.args) {
            if (auto r = put_index(engine, o, n++, v); is_exception(r)) {
                return r;
            }
        }
        if (auto r = put_length(engine, o, n); is_exception(r)) {
            return r;
        }
        return int_value(n);
    }
    case array_func::array_reverse: {
        // Each position pairs `lower` with its mirror `upper`; a pair matters when either is held.
        auto const sparse = sparse_positions(o, len, [&](std::int64_t h, std::vector<std::int64_t>& out) {
            out.push_back(std::min(h, len - 1 - h));
        });
        std::size_t pos = 0;
        for (std::int64_t lower = 0; lower < len - 1 - lower; ++lower) {
            if (sparse) {
                if (pos >= sparse->size() || (*sparse)[pos] >= len - 1 - (*sparse)[pos]) {
                    break;
                }
                lower = (*sparse)[pos++];
            }
            std::int64_t const upper = len - 1 - lower;
            bool const has_lower = has_property(engine, o, index_key(lower));
            bool const has_upper = has_property(engine, o, index_key(upper));
            js_value lv;
            js_value uv;
            if (has_lower) {
                if (auto e = take(get_index(engine, o, lower), lv)) {
                    return *e;
                }
            }
            if (has_upper) {
                if (auto e = take(get_index(engine, o, upper), uv)) {
                    return *e;
                }
            }
            for (auto [at, present, v] :
                 {std::tuple{lower, has_upper, uv}, std::tuple{upper, has_lower, lv}}) {
                if (!present) {
                    if (auto e = delete_index(engine, o, at)) {
                        return *e;
                    }
                } else if (auto r = put_index(engine, o, at, v); is_exception(r)) {
                    return r;
                }
            }
        }
        return o;
    }
    case array_func::array_shift: {
        if (len == 0) {
            if (auto r = put_length(engine, o, 0); is_exception(r)) {
                return r;
            }
            return undefined();
        }
        js_value first;
        if (auto e = take(get_index(engine, o, 0), first)) {
            return *e;
        }
        // Position k moves element k down to k - 1: it matters when either is held.
        auto const sparse = sparse_positions(o, len, [&](std::int64_t h, std::vector<std::int64_t>& out) {
            for (std::int64_t k : {h, h + 1}) {
                if (k >= 1 && k < len) {
                    out.push_back(k);
                }
            }
        });
        if (sparse) {
            for (std::int64_t k : *sparse) {
                if (auto e = move_index(engine, o, k, k - 1)) {
                    return *e;
                }
            }
        } else {
            for (std::int64_t k = 1; k < len; ++k) {
                if (auto e = move_index(engine, o, k, k - 1)) {
                    return *e;
                }
            }
        }
        return drop_last(engine, o, len, first);
    }
    case array_func::array_unshift: {
        auto const count = static_cast<std::int64_t>(c.args.size());
        // Position k moves element k - 1 up to k + count - 1: it matters when either is held.
        auto const sparse = sparse_positions(o, len, [&](std::int64_t h, std::vector<std::int64_t>& out) {
            for (std::int64_t k : {h + 1, h - count + 1}) {
                if (k >= 1 && k <= len) {
                    out.push_back(k);
                }
            }
        });
        if (sparse) {
            for (auto k = sparse->rbegin(); k != sparse->rend(); ++k) {
                if (auto e = move_index(engine, o, *k - 1, *k + count - 1)) {
                    return *e;
                }
            }
        } else {
            for (std::int64_t k = len; k > 0; --k) {
                if (auto e = move_index(engine, o, k - 1, k + count - 1)) {
                    return *e;
                }
            }
        }
        for (std::int64_t k = 0; k < count; ++k) {
            if (auto r = put_index(engine, o, k, c.args[static_cast<std::size_t>(k)]); is_exception(r)) {
                return r;
            }
        }
        if (auto r = put_length(engine, o, len + count); is_exception(r)) {
            return r;
        }
        return int_value(len + count);
    }
    case array_func::array_sort:
        return sort(engine, o, c.arg(0));
    case array_func::array_slice: {
        std::int64_t start = 0;
        std::int64_t end = 0;
        if (auto e = take(relative_index(engine, c.arg(0), len, 0), start)) {
            return *e;
        }
        if (auto e = take(relative_index(engine, c.arg(1), len, len), end)) {
            return *e;
        }
        js_object out = new_array(engine, {});
        index_walk walk(o, start, end, false);
        for (auto k = walk.next(); k; k = walk.next()) {
            if (!has_property(engine, o, index_key(*k))) {
                continue;
            }
            js_value v;
            if (auto e = take(get_index(engine, o, *k), v)) {
                return *e;
            }
            if (auto r = put_index(engine, out, *k - start, v); is_exception(r)) {
                return r;
            }
        }
        if (auto r = put_length(engine, out, std::max<std::int64_t>(end - start, 0)); is_exception(r)) {
            return r;
        }
        return out;
    }
    case array_func::array_splice:
        return splice(c, o, len);
    case array_func::array_index_of:
        return index_of(c, o, len, false);
    case array_func::array_last_index_of:
        return index_of(c, o, len, true);
    case array_func::array_for_each:
    case array_func::array_map:
    case array_func::array_filter:
        return iterate(c, o, len, f);
    case array_func::array_constructor:
    case array_func::array_is_array:
    case array_func::array_to_string:
    case array_func::array_concat:
        break;
    }
    throw internal_error("call_array: unexpected function.");
}

} // namespace

expr_res<js_value> call_array(call_info const& c, array_func f) {
    if (f == array_func::array_constructor) {
        return array_constructor(c);
    }
    if (f == array_func::array_is_array) {
        js_value const v = c.arg(0);
        auto const* o = std::get_if<js_object>(&v);
        return o != nullptr && std::holds_alternative<class_array>((*o)->obj_class);
    }
    return generic_member(c, f);
}

expr_res<js_value> call_array_host(call_info const& c, array_host_func f) {
    auto const* o = std::get_if<js_object>(&c.this_value);
    bool const is_array = o != nullptr && std::holds_alternative<class_array>((*o)->obj_class);
    switch (f) {
    case array_host_func::array_get_length:
        if (!is_array) {
            return undefined();
        }
        return int_value(array_length(*o));
    case array_host_func::array_set_length:
        if (is_array) {
            return set_array_length(c.engine, *o, c.arg(0));
        }
        // An object that only inherits from Array.prototype keeps its own plain `length`.
        if (o != nullptr) {
            define_own_property(*o, key_of_utf8("length"), prop_value{.value = c.arg(0)}, {});
        }
        return c.arg(0);
    }
    throw internal_error("call_array_host: unexpected function.");
}

void install_array(js& engine) {
    js_object const proto = engine.array_prototype;
    js_object const ctor = define_constructor(
        engine, "Array", standard_func{.standard_kind = array_func::array_constructor}, 1, proto);
    define_method(engine, ctor, "isArray", standard_func{.standard_kind = array_func::array_is_array}, 1);
    js_object const getter =
        builtin_function(engine, standard_func{.standard_kind = array_host_func::array_get_length}, 0);
    js_object const setter =
        builtin_function(engine, standard_func{.standard_kind = array_host_func::array_set_length}, 1);
    define_own_property(proto, key_of_utf8("length"),
                        prop_host{.host_getter = js_accessor{.accessor_func = getter},
                                  .host_setter = accessor{js_accessor{.accessor_func = setter}}},
                        attrs{}.with(attr::no_enum).with(attr::no_delete));
    define_methods(engine, proto,
                   {
                       {"toString", {array_func::array_to_string}, 0},
                       {"toLocaleString", {array_func::array_to_locale_string}, 0},
                       {"join", {array_func::array_join}, 1},
                       {"concat", {array_func::array_concat}, 1},
                       {"pop", {array_func::array_pop}, 0},
                       {"push", {array_func::array_push}, 1},
                       {"reverse", {array_func::array_reverse}, 0},
                       {"shift", {array_func::array_shift}, 0},
                       {"unshift", {array_func::array_unshift}, 1},
                       {"sort", {array_func::array_sort}, 1},
                       {"slice", {array_func::array_slice}, 2},
                       {"splice", {array_func::array_splice}, 2},
                       {"indexOf", {array_func::array_index_of}, 1},
                       {"lastIndexOf", {array_func::array_last_index_of}, 1},
                       {"forEach", {array_func::array_for_each}, 1},
                       {"map", {array_func::array_map}, 1},
                       {"filter", {array_func::array_filter}, 1},
                   });
}

} // namespace vellum::js::eval::builtins
