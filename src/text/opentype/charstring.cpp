#include "text/opentype/charstring.hpp"

#include "text/opentype/cff_font.hpp"

#include <cmath>

namespace vellum::opentype::charstring {

using reader::data;

namespace {

// Subroutine calls nest at most ten deep; the operand stack holds at most 48 numbers.
constexpr int max_depth = 10;
constexpr std::size_t max_stack = 48;
// Subroutines that call others several times could make a walk exponential in the nesting; real
// glyphs make a few dozen calls.
constexpr std::size_t max_calls = 10000;

enum class step { go_on, ended };

struct walker {
    cff::index const& walker_global;
    cff::index const& walker_local;
    std::vector<bool>& walker_global_marks;
    std::vector<bool>& walker_local_marks;
    std::vector<double> walker_stack;
    // Where each number on the stack was written: its charstring and its bytes there.
    struct origin {
        std::uint8_t const* origin_code = nullptr;
        std::size_t origin_at = 0;
        std::size_t origin_size = 0;
    };
    std::vector<origin> walker_origins;
    std::size_t walker_stems = 0;
    std::size_t walker_calls = 0;
    walk_outcome walker_outcome;

    void clear() {
        walker_stack.clear();
        walker_origins.clear();
    }

    // Hint operators take their operands in pairs; an odd one out in front is the glyph's width.
    void count_stems() { walker_stems += walker_stack.size() / 2; }

    result<step> call(data code, bool global, int depth) {
        auto const& subrs = global ? walker_global : walker_local;
        auto& marks = global ? walker_global_marks : walker_local_marks;
        if (walker_stack.empty()) {
            return fail("charstring: subroutine call without a number");
        }
        if (++walker_calls > max_calls) {
            return fail("charstring: too many subroutine calls");
        }
        double const operand = walker_stack.back();
        auto const from = walker_origins.back();
        walker_stack.pop_back();
        walker_origins.pop_back();
        if (operand != std::floor(operand)) {
            return fail("charstring: subroutine number is not an integer");
        }
        long long const number =
            static_cast<long long>(operand) + cff_font::subr_bias(subrs.index_items.size());
        if (number < 0 || number >= static_cast<long long>(subrs.index_items.size()) ||
            marks.size() != subrs.index_items.size()) {
            return fail("charstring: subroutine " + std::to_string(number) + " is not in its INDEX");
        }
        marks[static_cast<std::size_t>(number)] = true;
        if (from.origin_code != code.data() && walker_outcome.outcome_not_renumberable.empty()) {
            walker_outcome.outcome_not_renumberable =
                "charstring: subroutine " + std::to_string(number) + " is called with a number from another charstring";
        }
        walker_outcome.outcome_calls.push_back(call_site{.site_code = from.origin_code,
                                                         .site_at = from.origin_at,
                                                         .site_size = from.origin_size,
                                                         .site_global = global,
                                                         .site_target = static_cast<std::size_t>(number)});
        return run(subrs.index_items[static_cast<std::size_t>(number)], depth + 1);
    }

    result<step> run(data code, int depth) {
        if (depth > max_depth) {
            return fail("charstring: subroutines nest too deep");
        }
        reader::cursor c{.cursor_data = code};
        while (c.has(1)) {
            std::size_t const token_at = c.cursor_pos;
            auto const b0 = c.u8();
            if (b0 >= 32 || b0 == 28) {
                double v = 0;
                if (b0 == 28) {
                    v = c.i16();
                } else if (b0 <= 246) {
                    v = int(b0) - 139;
                } else if (b0 <= 250) {
                    v = (int(b0) - 247) * 256 + c.u8() + 108;
                } else if (b0 <= 254) {
                    v = -(int(b0) - 251) * 256 - c.u8() - 108;
                } else {
                    v = c.i32() / 65536.0; // 16.16 fixed
                }
                if (walker_stack.size() >= max_stack) {
                    return fail("charstring: operand stack overflow");
                }
                walker_stack.push_back(v);
                walker_origins.push_back(origin{.origin_code = code.data(), .origin_at = token_at, .origin_size = c.cursor_pos - token_at});
            } else {
                switch (b0) {
                case 1:  // hstem
                case 3:  // vstem
                case 18: // hstemhm
                case 23: // vstemhm
                    count_stems();
                    clear();
                    break;
                case 19: // hintmask
                case 20: // cntrmask
                    // Operands here are vertical stems whose operator was left out; the mask that
                    // follows has one bit per stem.
                    count_stems();
                    clear();
                    c.skip((walker_stems + 7) / 8);
                    break;
                case 10: { // callsubr
                    auto r = call(code, false, depth);
                    if (!r || *r == step::ended) {
                        return r;
                    }
                    break;
                }
                case 29: { // callgsubr
                    auto r = call(code, true, depth);
                    if (!r || *r == step::ended) {
                        return r;
                    }
                    break;
                }
                case 11: // return
                    return step::go_on;
                case 14: // endchar
                    // Four operands (five with a width) make it the accented-character form.
                    if (auto const n = walker_stack.size(); n >= 4) {
                        walker_outcome.outcome_accented = accent_parts{.parts_base = int(walker_stack[n - 2]),
                                                                       .parts_accent = int(walker_stack[n - 1])};
                    }
                    return step::ended;
                case 12: {
                    auto const b1 = c.u8();
                    if (b1 < 34 || b1 > 37) {
                        // Everything but the flex operators is arithmetic or storage, which could
                        // compute what a later call takes.
                        return fail("charstring: operator 12 " + std::to_string(b1) + " is not followed");
                    }
                    clear();
                    break;
                }
                case 4:  // vmoveto
                case 5:  // rlineto
                case 6:  // hlineto
                case 7:  // vlineto
                case 8:  // rrcurveto
                case 21: // rmoveto
                case 22: // hmoveto
                case 24: // rcurveline
                case 25: // rlinecurve
                case 26: // vvcurveto
                case 27: // hhcurveto
                case 30: // vhcurveto
                case 31: // hvcurveto
                    clear();
                    break;
                default:
                    return fail("charstring: reserved operator " + std::to_string(b0));
                }
            }
            if (!c.ok()) {
                return fail("charstring: truncated");
            }
        }
        if (!c.ok()) {
            return fail("charstring: truncated");
        }
        // Running off the end of a subroutine is taken as its return.
        return step::go_on;
    }
};

} // namespace

result<walk_outcome> mark_subrs(data charstring,
                                cff::index const& global_subrs,
                                cff::index const& local_subrs,
                                std::vector<bool>& global_marks,
                                std::vector<bool>& local_marks) {
    walker w{.walker_global = global_subrs,
             .walker_local = local_subrs,
             .walker_global_marks = global_marks,
             .walker_local_marks = local_marks};
    auto r = w.run(charstring, 0);
    if (!r) {
        return fail(r.error());
    }
    return std::move(w.walker_outcome);
}

void put_number(std::vector<std::uint8_t>& out, int v) {
    if (v >= -107 && v <= 107) {
        out.push_back(static_cast<std::uint8_t>(v + 139));
    } else if (v >= 108 && v <= 1131) {
        v -= 108;
        out.push_back(static_cast<std::uint8_t>((v >> 8) + 247));
        out.push_back(static_cast<std::uint8_t>(v));
    } else if (v >= -1131 && v <= -108) {
        v = -v - 108;
        out.push_back(static_cast<std::uint8_t>((v >> 8) + 251));
        out.push_back(static_cast<std::uint8_t>(v));
    } else {
        out.push_back(28);
        out.push_back(static_cast<std::uint8_t>(v >> 8));
        out.push_back(static_cast<std::uint8_t>(v));
    }
}

std::vector<std::uint8_t> rewritten(data code, std::vector<rewrite> const& rewrites) {
    std::vector<std::uint8_t> out;
    out.reserve(code.size() + 2 * rewrites.size());
    std::size_t at = 0;
    for (auto const& r : rewrites) {
        out.insert(out.end(), code.begin() + std::ptrdiff_t(at), code.begin() + std::ptrdiff_t(r.rewrite_at));
        put_number(out, r.rewrite_value);
        at = r.rewrite_at + r.rewrite_size;
    }
    out.insert(out.end(), code.begin() + std::ptrdiff_t(at), code.end());
    return out;
}

} // namespace vellum::opentype::charstring
