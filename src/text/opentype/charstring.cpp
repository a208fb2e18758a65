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
    std::size_t walker_stems = 0;
    std::size_t walker_calls = 0;
    bool walker_accented = false;

    // Hint operators take their operands in pairs; an odd one out in front is the glyph's width.
    void count_stems() { walker_stems += walker_stack.size() / 2; }

    result<step> call(cff::index const& subrs, std::vector<bool>& marks, int depth) {
        if (walker_stack.empty()) {
            return fail("charstring: subroutine call without a number");
        }
        if (++walker_calls > max_calls) {
            return fail("charstring: too many subroutine calls");
        }
        double const operand = walker_stack.back();
        walker_stack.pop_back();
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
        return run(subrs.index_items[static_cast<std::size_t>(number)], depth + 1);
    }

    result<step> run(data code, int depth) {
        if (depth > max_depth) {
            return fail("charstring: subroutines nest too deep");
        }
        reader::cursor c{.cursor_data = code};
        while (c.has(1)) {
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
            } else {
                switch (b0) {
                case 1:  // hstem
                case 3:  // vstem
                case 18: // hstemhm
                case 23: // vstemhm
                    count_stems();
                    walker_stack.clear();
                    break;
                case 19: // hintmask
                case 20: // cntrmask
                    // Operands here are vertical stems whose operator was left out; the mask that
                    // follows has one bit per stem.
                    count_stems();
                    walker_stack.clear();
                    c.skip((walker_stems + 7) / 8);
                    break;
                case 10: { // callsubr
                    auto r = call(walker_local, walker_local_marks, depth);
                    if (!r || *r == step::ended) {
                        return r;
                    }
                    break;
                }
                case 29: { // callgsubr
                    auto r = call(walker_global, walker_global_marks, depth);
                    if (!r || *r == step::ended) {
                        return r;
                    }
                    break;
                }
                case 11: // return
                    return step::go_on;
                case 14: // endchar
                    // Four operands (five with a width) make it the accented-character form.
                    if (walker_stack.size() >= 4) {
                        walker_accented = true;
                    }
                    return step::ended;
                case 12: {
                    auto const b1 = c.u8();
                    if (b1 < 34 || b1 > 37) {
                        // Everything but the flex operators is arithmetic or storage, which could
                        // compute what a later call takes.
                        return fail("charstring: operator 12 " + std::to_string(b1) + " is not followed");
                    }
                    walker_stack.clear();
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
                    walker_stack.clear();
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
    return walk_outcome{.outcome_accented = w.walker_accented};
}

} // namespace vellum::opentype::charstring
