#include "text/unicode/bidi.hpp"

#include "text/unicode/tables.hpp"

#include <algorithm>

namespace vellum::unicode::bidi {

namespace {

// The deepest embedding level; deeper embeddings are ignored, as the standard says.
constexpr int max_depth = 125;

bool is_neutral(bidi_class c) {
    return c == bidi_class::b || c == bidi_class::s || c == bidi_class::ws || c == bidi_class::on;
}

// The direction a resolved class counts as for the neutral rules: numbers count as right-to-left.
std::optional<bool> strong_rtl(bidi_class c) {
    if (c == bidi_class::l) {
        return false;
    }
    if (c == bidi_class::r || c == bidi_class::en || c == bidi_class::an) {
        return true;
    }
    return std::nullopt;
}

// The weak, neutral and implicit rules (W1-W7, N1-N2, I1-I2) over one level run: the things at
// `run`, all at one explicit level, between the start and end directions `sos` and `eos`.
void resolve_run(std::vector<bidi_thing>& things, std::vector<std::size_t> const& run, bool sos, bool eos) {
    auto const cls = [&](std::size_t k) -> bidi_class& { return things[run[k]].cls; };
    std::size_t const n = run.size();
    bidi_class const sos_class = sos ? bidi_class::r : bidi_class::l;
    // W1: a combining mark takes the class of what it follows.
    for (std::size_t k = 0; k < n; ++k) {
        if (cls(k) == bidi_class::nsm) {
            cls(k) = k == 0 ? sos_class : cls(k - 1);
        }
    }
    // W2, W3: European numbers after Arabic letters are Arabic numbers; Arabic letters are R.
    bidi_class last_strong = sos_class;
    for (std::size_t k = 0; k < n; ++k) {
        auto& c = cls(k);
        if (c == bidi_class::l || c == bidi_class::r || c == bidi_class::al) {
            last_strong = c;
        } else if (c == bidi_class::en && last_strong == bidi_class::al) {
            c = bidi_class::an;
        }
    }
    for (std::size_t k = 0; k < n; ++k) {
        if (cls(k) == bidi_class::al) {
            cls(k) = bidi_class::r;
        }
    }
    // W4: one separator between two numbers of a kind joins them.
    for (std::size_t k = 1; k + 1 < n; ++k) {
        auto const before = cls(k - 1);
        auto const after = cls(k + 1);
        if (cls(k) == bidi_class::es && before == bidi_class::en && after == bidi_class::en) {
            cls(k) = bidi_class::en;
        } else if (cls(k) == bidi_class::cs && before == after &&
                   (before == bidi_class::en || before == bidi_class::an)) {
            cls(k) = before;
        }
    }
    // W5: terminators (currency signs, percent) next to European numbers become numbers.
    for (std::size_t k = 0; k < n;) {
        if (cls(k) != bidi_class::et) {
            ++k;
            continue;
        }
        std::size_t j = k;
        while (j < n && cls(j) == bidi_class::et) {
            ++j;
        }
        bool const number = (k > 0 && cls(k - 1) == bidi_class::en) || (j < n && cls(j) == bidi_class::en);
        for (std::size_t m = k; m < j; ++m) {
            if (number) {
                cls(m) = bidi_class::en;
            }
        }
        k = j;
    }
    // W6: the separators and terminators left are neutral. W7: European numbers in left-to-right
    // text are left-to-right.
    last_strong = sos_class;
    for (std::size_t k = 0; k < n; ++k) {
        auto& c = cls(k);
        if (c == bidi_class::es || c == bidi_class::et || c == bidi_class::cs || c == bidi_class::bn ||
            c == bidi_class::nsm) {
            c = bidi_class::on;
        }
        if (c == bidi_class::l || c == bidi_class::r) {
            last_strong = c;
        } else if (c == bidi_class::en && last_strong == bidi_class::l) {
            c = bidi_class::l;
        }
    }
    // N1, N2: neutrals between two strong runs of one direction take it, others the embedding's.
    int const level = n > 0 ? things[run[0]].level : 0;
    bool const embedding_rtl = level % 2 != 0;
    for (std::size_t k = 0; k < n;) {
        if (!is_neutral(cls(k))) {
            ++k;
            continue;
        }
        std::size_t j = k;
        while (j < n && is_neutral(cls(j))) {
            ++j;
        }
        bool const before = k > 0 ? strong_rtl(cls(k - 1)).value_or(embedding_rtl) : sos;
        bool const after = j < n ? strong_rtl(cls(j)).value_or(embedding_rtl) : eos;
        bool const rtl = before == after ? before : embedding_rtl;
        for (std::size_t m = k; m < j; ++m) {
            // A segment separator keeps its class, for the reset to the paragraph level.
            if (cls(m) != bidi_class::s) {
                cls(m) = rtl ? bidi_class::r : bidi_class::l;
            }
        }
        k = j;
    }
    // I1, I2: the implicit levels.
    for (std::size_t k = 0; k < n; ++k) {
        auto& t = things[run[k]];
        if (t.cls == bidi_class::s) {
            continue;
        }
        if (t.level % 2 == 0) {
            t.level += t.cls == bidi_class::r ? 1 : (t.cls == bidi_class::an || t.cls == bidi_class::en) ? 2 : 0;
        } else if (t.cls == bidi_class::l || t.cls == bidi_class::en || t.cls == bidi_class::an) {
            t.level += 1;
        }
    }
}

} // namespace


bidi_class bidi_class_of(char32_t cp) {
    return static_cast<bidi_class>(
        tables::lookup(tables::bidi, cp, static_cast<std::uint8_t>(bidi_class::l)));
}

char32_t mirrored(char32_t cp) {
    return tables::map(tables::mirror, cp);
}


bool is_strong_rtl(bidi_class c) {
    return c == bidi_class::r || c == bidi_class::al;
}

int next_level(int level, bool rtl) {
    int const next = rtl ? (level + 1) | 1 : (level + 2) & ~1;
    return next <= max_depth ? next : level;
}


// The direction of the first strong character after `from`, for a first-strong isolate.
bool first_strong_rtl(std::u32string_view text, std::size_t from) {
    int depth = 0;
    for (std::size_t i = from; i < text.size(); ++i) {
        char32_t const c = text[i];
        if (c >= 0x2066 && c <= 0x2068) {
            ++depth;
        } else if (c == 0x2069) {
            if (depth-- == 0) {
                return false;
            }
        } else if (depth == 0) {
            auto const cls = bidi_class_of(c);
            if (cls == bidi_class::l) {
                return false;
            }
            if (is_strong_rtl(cls)) {
                return true;
            }
        }
    }
    return false;
}

void add_text(std::u32string_view text, int level, std::optional<bidi_class> forced, explicit_stack& stack,
              std::vector<bidi_thing>& things, bool& needed) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t const c = text[i];
        int const here = stack.entries.empty() ? level : stack.entries.back().level;
        auto const here_forced = stack.entries.empty() ? forced : stack.entries.back().forced;
        bool const opens = (c >= 0x202a && c <= 0x202e && c != 0x202c) || (c >= 0x2066 && c <= 0x2068);
        if (opens) {
            bool const rtl = c == 0x202b || c == 0x202e || c == 0x2067 || (c == 0x2068 && first_strong_rtl(text, i + 1));
            std::optional<bidi_class> inner_forced;
            if (c == 0x202d || c == 0x202e) {
                inner_forced = c == 0x202e ? bidi_class::r : bidi_class::l;
            }
            needed = needed || rtl || inner_forced.has_value();
            stack.entries.push_back({next_level(here, rtl), inner_forced});
            things.push_back({bidi_class::bn, here, true});
            continue;
        }
        if (c == 0x202c || c == 0x2069) {
            if (!stack.entries.empty()) {
                stack.entries.pop_back();
            }
            things.push_back({bidi_class::bn, stack.entries.empty() ? level : stack.entries.back().level, true});
            continue;
        }
        auto const cls = bidi_class_of(c);
        needed = needed || is_strong_rtl(cls);
        things.push_back({here_forced && cls != bidi_class::bn ? *here_forced : cls, here});
    }
}

void resolve(std::vector<bidi_thing>& things, int base) {
    // The things the rules see, cut into level runs; the transparent ones wait.
    std::vector<std::vector<std::size_t>> runs;
    for (std::size_t i = 0; i < things.size(); ++i) {
        if (things[i].transparent) {
            continue;
        }
        if (runs.empty() || things[runs.back().back()].level != things[i].level) {
            runs.emplace_back();
        }
        runs.back().push_back(i);
    }
    for (std::size_t r = 0; r < runs.size(); ++r) {
        int const level = things[runs[r].front()].level;
        int const before = r > 0 ? things[runs[r - 1].front()].level : base;
        int const after = r + 1 < runs.size() ? things[runs[r + 1].front()].level : base;
        resolve_run(things, runs[r], std::max(level, before) % 2 != 0, std::max(level, after) % 2 != 0);
    }
    for (std::size_t i = 0; i < things.size(); ++i) {
        if (things[i].cls == bidi_class::s) {
            // L1: a preserved line end, and the white space before it, go back to the paragraph's level.
            things[i].level = base;
            for (std::size_t k = i; k-- > 0 && (things[k].cls == bidi_class::ws || things[k].transparent);) {
                things[k].level = base;
            }
        }
    }
    // A transparent thing goes with what it follows, so that it never cuts a run in two.
    for (std::size_t i = 0; i < things.size(); ++i) {
        if (things[i].transparent) {
            things[i].level = i > 0 ? things[i - 1].level : base;
        }
    }
}

std::vector<int> levels_of(std::u32string_view text, bool base_rtl) {
    int const base = base_rtl ? 1 : 0;
    explicit_stack stack;
    std::vector<bidi_thing> things;
    things.reserve(text.size());
    bool needed = false;
    add_text(text, base, std::nullopt, stack, things, needed);
    std::vector<int> levels(text.size(), base);
    if (!needed && !base_rtl) {
        return levels;
    }
    resolve(things, base);
    for (std::size_t i = 0; i < text.size(); ++i) {
        levels[i] = things[i].level;
    }
    return levels;
}

std::vector<std::size_t> visual_order(std::vector<int> const& levels) {
    std::vector<std::size_t> order(levels.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    if (levels.empty()) {
        return order;
    }
    int const highest = *std::ranges::max_element(levels);
    int lowest_odd = highest + 1;
    for (int l : levels) {
        if (l % 2 != 0) {
            lowest_odd = std::min(lowest_odd, l);
        }
    }
    // From the highest level down to the lowest odd one, reverse every run at that level or above.
    for (int level = highest; level >= lowest_odd; --level) {
        for (std::size_t i = 0; i < order.size();) {
            if (levels[order[i]] < level) {
                ++i;
                continue;
            }
            std::size_t j = i;
            while (j < order.size() && levels[order[j]] >= level) {
                ++j;
            }
            std::reverse(order.begin() + std::ptrdiff_t(i), order.begin() + std::ptrdiff_t(j));
            i = j;
        }
    }
    return order;
}

} // namespace vellum::unicode::bidi
