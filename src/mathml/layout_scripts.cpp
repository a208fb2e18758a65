// Fractions, radicals, scripts and limits: the elements that stack boxes, placed by the font's constants
// in the manner of mathematical typesetting.
#include "mathml/layout.hpp"
#include "util/cell.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cstdio>

namespace vellum::mathml::layout {

namespace om = opentype::math;

namespace {

using C = om::constant;

// Whether a wrong number of children was given; if so the message is logged.
bool wrong_count(context const& ctx,
                 std::vector<dom::element_ref> const& kids,
                 std::size_t want,
                 std::string const& name) {
    if (kids.size() == want) {
        return false;
    }
    warn(ctx, std::to_string(kids.size()) + " children in " + name);
    return true;
}

double aligned_x(std::string const& align, double width, double room) {
    if (align == "left") {
        return 0;
    }
    if (align == "right") {
        return room - width;
    }
    return (room - width) / 2;
}

} // namespace

math layout_mfrac(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el) {
    auto const kids = element_children(el);
    if (wrong_count(ctx, kids, 2, "mfrac")) {
        return empty_math();
    }
    auto const part_st = mathml::mathstyle::for_script(st, st.displaystyle ? 0 : 1);
    // The numerator of an embellished fraction carries the operator, and its surroundings.
    auto num_env = e;
    if (num_env) {
        num_env->parent_em = true;
    }
    auto num = math_of_element(ctx, part_st, num_env, kids[0]);
    auto den = math_of_element(ctx, part_st, std::nullopt, kids[1]);
    bool const display = st.displaystyle;
    double const default_rule = constant(ctx, st, C::fraction_rule_thickness);
    double rule = default_rule;
    auto const get = [&](char const* name) -> std::optional<std::string> {
        if (auto v = attr(el, name)) {
            return v;
        }
        auto it = st.inherited.find(name);
        return it == st.inherited.end() ? std::nullopt : std::optional(it->second);
    };
    if (auto v = get("linethickness")) {
        if (*v == "thin") {
            rule = default_rule / 2;
        } else if (*v == "medium") {
            rule = default_rule;
        } else if (*v == "thick") {
            rule = default_rule * 2;
        } else if (auto m = units::parse_mathspace(*v)) {
            // A bare number or a percentage is a multiple of the default rule.
            rule =
                std::max(0.0, units::resolve(*m, st.fontsize, math_font_of(ctx, st).x_height_em * st.fontsize,
                                             default_rule));
        } else {
            warn(ctx, "linethickness: not a length: " + *v);
        }
    }
    double const ax = axis(ctx, st);
    double const em = st.fontsize;
    bool const bevelled = get("bevelled").value_or("false") == "true";
    if (bevelled) {
        // Numerator raised, a slanted stroke, denominator lowered, side by side.
        double const gap = constant(ctx, st, C::skewed_fraction_horizontal_gap);
        double const vgap = constant(ctx, st, C::skewed_fraction_vertical_gap);
        double const h = std::max(num.mup + num.mdown, den.mup + den.mdown) + vgap;
        double const num_y = -(ax + vgap / 2 + num.mdown);
        double const den_y = -(ax - vgap / 2 - den.mup);
        double const slash_w = gap;
        double const x0 = num.mwidth;
        std::vector<svg::command> line{svg::moveto{{x0 + slash_w * 0.1, -(ax - h / 2)}},
                                       svg::lineto{{x0 + slash_w * 0.9, -(ax + h / 2)}}};
        double const w = num.mwidth + slash_w + den.mwidth;
        double const thick = rule > 0 ? rule : default_rule;
        std::vector<placed> members;
        members.push_back(at(0, num_y, std::move(num)));
        members.push_back(at(
            0, 0, simple_math({stroked_path(std::move(line), thick, st.color)}, w, ax + h / 2, h / 2 - ax)));
        members.push_back(at(x0 + slash_w, den_y, std::move(den)));
        return stack(std::move(members), w);
    }
    double up;
    double down;
    if (rule > 0) {
        up = constant(
            ctx, st, display ? C::fraction_numerator_display_style_shift_up : C::fraction_numerator_shift_up);
        down = constant(ctx, st,
                        display ? C::fraction_denominator_display_style_shift_down
                                : C::fraction_denominator_shift_down);
        double const num_gap = constant(
            ctx, st, display ? C::fraction_num_display_style_gap_min : C::fraction_numerator_gap_min);
        double const den_gap = constant(
            ctx, st, display ? C::fraction_denom_display_style_gap_min : C::fraction_denominator_gap_min);
        up = std::max(up, ax + rule / 2 + num_gap + num.mdown);
        down = std::max(down, den_gap + den.mup - ax + rule / 2);
    } else {
        up = constant(ctx, st, display ? C::stack_top_display_style_shift_up : C::stack_top_shift_up);
        down = constant(ctx, st,
                        display ? C::stack_bottom_display_style_shift_down : C::stack_bottom_shift_down);
        double const gap = constant(ctx, st, display ? C::stack_display_style_gap_min : C::stack_gap_min);
        double const have = (up - num.mdown) - (den.mup - down);
        if (have < gap) {
            up += (gap - have) / 2;
            down += (gap - have) / 2;
        }
    }
    // The rule reaches a little beyond the wider part, and the fraction keeps a thin margin on each side
    // so that neighbouring fractions' rules do not touch.
    double const pad = em * 0.1;
    double const inner = std::max(num.mwidth, den.mwidth);
    double const width = inner + 2 * pad;
    std::vector<placed> members;
    double const nx = pad + aligned_x(get("numalign").value_or("center"), num.mwidth, inner);
    double const dx = pad + aligned_x(get("denomalign").value_or("center"), den.mwidth, inner);
    auto const mop = num.mop;
    members.push_back(at(nx, -up, std::move(num)));
    members.push_back(at(dx, down, std::move(den)));
    if (rule > 0) {
        double const over = em * 0.04;
        members.push_back(
            at(0, 0,
               simple_math({filled_rect(pad - over, -(ax + rule / 2), inner + 2 * over, rule, st.color)},
                           width, ax + rule / 2, 0)));
    }
    auto out = stack(std::move(members), width);
    out.mop = mop;
    return out;
}

math layout_root(context const& ctx, mathstyle const& st, dom::element_ref const& el, bool has_index) {
    auto const kids = element_children(el);
    math base;
    std::optional<math> index;
    if (has_index) {
        if (wrong_count(ctx, kids, 2, "mroot")) {
            return empty_math();
        }
        base = math_of_element(ctx, st, std::nullopt, kids[0]);
        index = math_of_element(ctx, mathml::mathstyle::for_script(st, 2), std::nullopt, kids[1]);
    } else {
        base = math_of_row(ctx, st, std::nullopt, kids);
    }
    return with_radical(ctx, st, std::move(base), std::move(index));
}

math with_radical(context const& ctx, mathstyle const& st, math base, std::optional<math> index) {
    bool const display = st.displaystyle;
    double gap = constant(ctx, st, display ? C::radical_display_style_vertical_gap : C::radical_vertical_gap);
    double const rule = constant(ctx, st, C::radical_rule_thickness);
    double const extra = constant(ctx, st, C::radical_extra_ascender);
    double const target = base.mup + base.mdown + gap + rule;
    auto sign = stretch_vertical(ctx, st, U"\u221a", target, std::nullopt);
    math radical = sign ? *sign : text_box(ctx, st, U"\u221a", "");
    // The sign's top carries the bar; room beyond what is needed goes half to the gap above the base.
    double const sign_h = radical.mup + radical.mdown;
    if (sign_h > target) {
        gap += (sign_h - target) / 2;
    }
    double const top = base.mup + gap + rule;
    double const shift = top - radical.mup;
    double const sign_w = radical.mwidth;
    double x = 0;
    std::vector<placed> members;
    if (index) {
        double const before = constant(ctx, st, C::radical_kern_before_degree);
        double const after = constant(ctx, st, C::radical_kern_after_degree);
        double const raise_pct = constant(ctx, st, C::radical_degree_bottom_raise_percent);
        double const sign_bottom = radical.mdown - shift;
        // The index's baseline stands at a share of the sign's height above its bottom.
        double const index_base = -sign_bottom + raise_pct / 100 * sign_h;
        double const iw = index->mwidth;
        members.push_back(at(std::max(0.0, before), -index_base, std::move(*index)));
        x = std::max(0.0, before + iw + after);
    }
    double const sign_x = x;
    members.push_back(at(sign_x, -shift, std::move(radical)));
    double const base_x = sign_x + sign_w;
    double const base_w = base.mwidth;
    members.push_back(at(base_x, 0, std::move(base)));
    members.push_back(at(0, 0, simple_math({filled_rect(base_x, -top, base_w, rule, st.color)}, 0, top, 0)));
    auto out = stack(std::move(members), base_x + base_w);
    out.mup = std::max(out.mup, top + extra);
    return out;
}

math attach_scripts(context const& ctx,
                    mathstyle const& st,
                    math const& base,
                    std::optional<math> const& sub,
                    std::optional<math> const& sup) {
    // The script constants are those of the base's size.
    double const sub_drop = constant(ctx, st, C::subscript_baseline_drop_min);
    double const sup_drop = constant(ctx, st, C::superscript_baseline_drop_max);
    double const after = constant(ctx, st, C::space_after_script);
    // A single letter's shape decides nothing by its box: the drops apply to taller bases.
    double const base_up = base.mtoken ? 0 : base.mup;
    double const base_down = base.mtoken ? 0 : base.mdown;
    double u = 0;
    double v = 0;
    if (sub) {
        u = std::max({constant(ctx, st, C::subscript_shift_down), base_down + sub_drop,
                      sub->mup - constant(ctx, st, C::subscript_top_max)});
        if (auto it = st.inherited.find("subscriptshift"); it != st.inherited.end()) {
            if (auto m = units::parse_mathspace(it->second)) {
                u = std::max(u, units::resolve(*m, st.fontsize, st.fontsize / 2, st.fontsize));
            }
        }
    }
    if (sup) {
        v = std::max({constant(ctx, st, C::superscript_shift_up), base_up - sup_drop,
                      sup->mdown + constant(ctx, st, C::superscript_bottom_min)});
        if (auto it = st.inherited.find("superscriptshift"); it != st.inherited.end()) {
            if (auto m = units::parse_mathspace(it->second)) {
                v = std::max(v, units::resolve(*m, st.fontsize, st.fontsize / 2, st.fontsize));
            }
        }
    }
    if (sub && sup) {
        double const gap_min = constant(ctx, st, C::sub_superscript_gap_min);
        double const gap = (v - sup->mdown) - (sub->mup - u);
        if (gap < gap_min) {
            u += gap_min - gap;
            // Then the superscript goes up as far as it may, to bring the subscript back.
            double const delta =
                constant(ctx, st, C::superscript_bottom_max_with_subscript) - (v - sup->mdown);
            if (delta > 0) {
                v += delta;
                u -= delta;
            }
        }
    }
    std::vector<placed> members;
    double const bw = base.mwidth;
    // A large operator's subscript tucks under its slant; a letter's superscript clears its slant.
    bool const largeop = base.mop && base.mop->op_largeop;
    double const sub_x = largeop ? bw - base.mitalic : bw;
    double const sup_x = largeop ? bw : bw + base.mitalic;
    members.push_back(at(0, 0, base));
    double width = bw;
    if (sub) {
        width = std::max(width, sub_x + sub->mwidth);
        members.push_back(at(sub_x, u, *sub));
    }
    if (sup) {
        width = std::max(width, sup_x + sup->mwidth);
        members.push_back(at(sup_x, -v, *sup));
    }
    auto out = stack(std::move(members), width + after);
    out.mop = base.mop;
    return out;
}

math layout_scripts(context const& ctx,
                    mathstyle const& st,
                    env const& e,
                    dom::element_ref const& el,
                    std::string const& name) {
    auto const kids = element_children(el);
    std::size_t const want = name == "msubsup" ? 3 : 2;
    if (wrong_count(ctx, kids, want, name)) {
        return empty_math();
    }
    auto const base_env =
        e ? env{env_info{.parent_em = true, .form = e->form, .height = e->height, .depth = e->depth}}
          : std::nullopt;
    auto base = math_of_element(ctx, st, base_env, kids[0]);
    auto const script_st = mathml::mathstyle::for_script(st, 1);
    std::optional<math> sub;
    std::optional<math> sup;
    if (name == "msub" || name == "msubsup") {
        sub = math_of_element(ctx, script_st, std::nullopt, kids[1]);
    }
    if (name == "msup") {
        sup = math_of_element(ctx, script_st, std::nullopt, kids[1]);
    }
    if (name == "msubsup") {
        sup = math_of_element(ctx, script_st, std::nullopt, kids[2]);
    }
    return attach_scripts(ctx, st, base, sub, sup);
}

namespace {

// Whether an under- or overscript is an accent: the attribute of the stack, or else the dictionary's
// word on the operator at the script's core.
bool is_accent(context const& ctx,
               mathstyle const& st,
               dom::element_ref const& stack_el,
               char const* attr_name,
               dom::element_ref const& script) {
    if (auto v = attr(stack_el, attr_name)) {
        return *v == "true";
    }
    if (auto core = core_op(script)) {
        return op_style_of(ctx, st, *core, op_form::postfix).accent;
    }
    return false;
}

// Whether a script is an accent mark drawn above the x-height in its own glyph (circumflex, tilde,
// macron, dots, acute, grave, caron, breve, ring), which is placed by the accent base height rather
// than stacked over the base.
bool floating_accent(dom::element_ref const& script) {
    auto const core = core_op(script);
    if (!core) {
        return false;
    }
    std::string text;
    {
        std::lock_guard guard(process_lock());
        for (auto const& c : (*core)->dom_element_children.cell_value) {
            if (auto const* t = std::get_if<dom::text_child>(&c)) {
                text += t->child_text->dom_text_value.cell_value;
            }
        }
    }
    for (char32_t c : textbuf::from_utf8(text)) {
        bool const accent = c == U'^' || c == U'~' || c == U'`' || c == 0xA8 || c == 0xAF || c == 0xB4 ||
                            (c >= 0x2C6 && c <= 0x2DD) || (c >= 0x300 && c <= 0x36F);
        bool const space = c == U' ' || c == U'\n' || c == U'\t';
        if (!accent && !space) {
            return false;
        }
    }
    return true;
}

} // namespace

math layout_underover(context const& ctx,
                      mathstyle const& st,
                      env const& e,
                      dom::element_ref const& el,
                      std::string const& name) {
    auto const kids = element_children(el);
    std::size_t const want = name == "munderover" ? 3 : 2;
    if (wrong_count(ctx, kids, want, name)) {
        return empty_math();
    }
    dom::element_ref const* under_el = nullptr;
    dom::element_ref const* over_el = nullptr;
    if (name == "munder" || name == "munderover") {
        under_el = &kids[1];
    }
    if (name == "mover") {
        over_el = &kids[1];
    }
    if (name == "munderover") {
        over_el = &kids[2];
    }
    bool const accent_under = under_el && is_accent(ctx, st, el, "accentunder", *under_el);
    bool const accent_over = over_el && is_accent(ctx, st, el, "accent", *over_el);
    auto const base_env =
        e ? env{env_info{.parent_em = true, .form = e->form, .height = e->height, .depth = e->depth}}
          : std::nullopt;
    // The base first, unstretched; a stretchy base (an arrow under a label) stretches to the scripts.
    auto base = math_of_element(ctx, st, base_env, kids[0]);
    auto const lay_script = [&](dom::element_ref const& s, bool accent, std::optional<double> width) {
        auto const sst = accent ? mathml::mathstyle::for_script(st, 0) : mathml::mathstyle::for_script(st, 1);
        if (width && core_op(s)) {
            return math_of_element(
                ctx, sst, env_info{.parent_em = false, .form = op_form::postfix, .env_width = width}, s);
        }
        return math_of_element(ctx, sst, std::nullopt, s);
    };
    std::optional<math> under =
        under_el ? std::optional(lay_script(*under_el, accent_under, std::nullopt)) : std::nullopt;
    std::optional<math> over =
        over_el ? std::optional(lay_script(*over_el, accent_over, std::nullopt)) : std::nullopt;
    // Limits on a movable operator outside display style go to the script positions.
    if (base.mop && base.mop->op_movablelimits && !st.displaystyle) {
        return attach_scripts(ctx, st, base, under, over);
    }
    // Stretchy scripts and base take the widest of the stack.
    double width = std::max({base.mwidth, under ? under->mwidth : 0.0, over ? over->mwidth : 0.0});
    if (under_el && core_op(*under_el)) {
        under = lay_script(*under_el, accent_under, width);
    }
    if (over_el && core_op(*over_el)) {
        over = lay_script(*over_el, accent_over, width);
    }
    if (core_op(kids[0]) && !(base.mop && base.mop->op_largeop)) {
        double const w = std::max(under ? under->mwidth : 0.0, over ? over->mwidth : 0.0);
        if (w > base.mwidth) {
            base = math_of_element(
                ctx, st, env_info{.parent_em = true, .form = op_form::infix, .env_width = w}, kids[0]);
        }
    }
    width = std::max({base.mwidth, under ? under->mwidth : 0.0, over ? over->mwidth : 0.0});
    bool const limits = base.mop && base.mop->op_largeop;
    std::vector<placed> members;
    double const bx = (width - base.mwidth) / 2;
    double const base_up = base.mup;
    double const base_down = base.mdown;
    double const italic = limits ? base.mitalic : 0;
    auto const mop = base.mop;
    members.push_back(at(bx, 0, std::move(base)));
    if (over) {
        double y;
        if (limits) {
            double const gap = std::max(constant(ctx, st, C::upper_limit_gap_min),
                                        constant(ctx, st, C::upper_limit_baseline_rise_min) - over->mdown);
            y = base_up + gap + over->mdown;
        } else if (accent_over && floating_accent(*over_el)) {
            // An accent designed to sit on a letter of x-height rises with a taller base.
            y = std::max(0.0, base_up - constant(ctx, st, C::accent_base_height));
        } else if (accent_over) {
            // Other accents (arrows, bars) stand on the baseline: they clear the base by a thin gap.
            y = base_up + constant(ctx, st, C::overbar_vertical_gap) / 2 + over->mdown;
        } else {
            y = base_up + constant(ctx, st, C::overbar_vertical_gap) + over->mdown;
        }
        double const ox = (width - over->mwidth) / 2 + italic / 2;
        members.push_back(at(ox, -y, std::move(*over)));
    }
    if (under) {
        double y;
        if (limits) {
            double const gap = std::max(constant(ctx, st, C::lower_limit_gap_min),
                                        constant(ctx, st, C::lower_limit_baseline_drop_min) - under->mup);
            y = base_down + gap + under->mup;
        } else if (accent_under) {
            y = base_down + under->mup;
        } else {
            y = base_down + constant(ctx, st, C::underbar_vertical_gap) + under->mup;
        }
        double const ux = (width - under->mwidth) / 2 - italic / 2;
        members.push_back(at(ux, y, std::move(*under)));
    }
    auto out = stack(std::move(members), width);
    out.mop = mop;
    return out;
}

math layout_multiscripts(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el) {
    auto const kids = element_children(el);
    if (kids.empty()) {
        warn(ctx, "empty mmultiscripts");
        return empty_math();
    }
    auto const base_env =
        e ? env{env_info{.parent_em = true, .form = e->form, .height = e->height, .depth = e->depth}}
          : std::nullopt;
    auto base = math_of_element(ctx, st, base_env, kids[0]);
    auto const script_st = mathml::mathstyle::for_script(st, 1);
    // Pairs of (subscript, superscript) after the base, then after mprescripts those before it.
    std::vector<std::pair<std::optional<math>, std::optional<math>>> post;
    std::vector<std::pair<std::optional<math>, std::optional<math>>> pre;
    auto* current = &post;
    std::vector<std::optional<math>> pending;
    auto const flush = [&] {
        if (pending.size() == 1) {
            warn(ctx, "mmultiscripts: a subscript without its superscript");
            pending.emplace_back();
        }
        if (pending.size() == 2) {
            current->emplace_back(std::move(pending[0]), std::move(pending[1]));
        }
        pending.clear();
    };
    for (std::size_t i = 1; i < kids.size(); ++i) {
        auto const n = local_name(kids[i]);
        if (n == "mprescripts") {
            flush();
            current = &pre;
            continue;
        }
        if (n == "none") {
            pending.emplace_back();
        } else {
            pending.push_back(math_of_element(ctx, script_st, std::nullopt, kids[i]));
        }
        if (pending.size() == 2) {
            flush();
        }
    }
    flush();
    // One shift for all subscripts and one for all superscripts, found as for the tallest of them.
    math tall_sub = empty_math();
    math tall_sup = empty_math();
    bool any_sub = false;
    bool any_sup = false;
    for (auto const* list : {&post, &pre}) {
        for (auto const& [sb, sp] : *list) {
            if (sb) {
                tall_sub.mup = std::max(tall_sub.mup, sb->mup);
                tall_sub.mdown = std::max(tall_sub.mdown, sb->mdown);
                any_sub = true;
            }
            if (sp) {
                tall_sup.mup = std::max(tall_sup.mup, sp->mup);
                tall_sup.mdown = std::max(tall_sup.mdown, sp->mdown);
                any_sup = true;
            }
        }
    }
    auto const probe = attach_scripts(ctx, st, base, any_sub ? std::optional(tall_sub) : std::nullopt,
                                      any_sup ? std::optional(tall_sup) : std::nullopt);
    double u = 0;
    double v = 0;
    auto const& pm = std::get<groups>(probe.mcontent).groups_members;
    std::size_t k = 1;
    if (any_sub) {
        u = pm[k++].placed_y;
    }
    if (any_sup) {
        v = -pm[k].placed_y;
    }
    double const after = constant(ctx, st, C::space_after_script);
    std::vector<placed> members;
    double x = 0;
    // Prescripts stand right-aligned in their column, nearest the base last.
    for (auto it = pre.rbegin(); it != pre.rend(); ++it) {
        double const w = std::max(it->first ? it->first->mwidth : 0.0, it->second ? it->second->mwidth : 0.0);
        if (it->first) {
            members.push_back(at(x + w - it->first->mwidth, u, std::move(*it->first)));
        }
        if (it->second) {
            members.push_back(at(x + w - it->second->mwidth, -v, std::move(*it->second)));
        }
        x += w + after;
    }
    double const bw = base.mwidth;
    double const italic = base.mitalic;
    auto const mop = base.mop;
    members.push_back(at(x, 0, std::move(base)));
    x += bw;
    for (auto& [sb, sp] : post) {
        double const w = std::max(sb ? sb->mwidth : 0.0, sp ? sp->mwidth + italic : 0.0);
        if (sb) {
            members.push_back(at(x, u, std::move(*sb)));
        }
        if (sp) {
            members.push_back(at(x + italic, -v, std::move(*sp)));
        }
        x += w + after;
    }
    auto out = stack(std::move(members), x);
    out.mop = mop;
    return out;
}

} // namespace vellum::mathml::layout
