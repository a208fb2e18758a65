#include "text/shaping/arabic.hpp"

#include "text/unicode/joining.hpp"

#include <optional>

namespace vellum::shaping::arabic {

namespace {

using unicode::joining::joining_class;

// A join causer (tatweel, ZWJ) joins like a dual-joining letter.
bool joins_forward(joining_class c) {
    return c == joining_class::jc_dual_joining || c == joining_class::jc_join_causing;
}

bool joins_backward(joining_class c) {
    return c == joining_class::jc_dual_joining || c == joining_class::jc_join_causing ||
           c == joining_class::jc_right_joining;
}

} // namespace

std::vector<form> joining_forms(std::u32string_view text) {
    std::vector<form> forms(text.size(), form::none);
    std::optional<std::size_t> prev;
    joining_class prev_class = joining_class::jc_non_joining;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const c = unicode::joining::joining_class_of(text[i]);
        if (c == joining_class::jc_transparent) {
            continue;
        }
        if (prev && joins_forward(prev_class) && joins_backward(c)) {
            // The previous letter now joins on both sides or starts a join.
            forms[*prev] = forms[*prev] == form::fina ? form::medi : form::init;
            forms[i] = form::fina;
        } else {
            forms[i] = c == joining_class::jc_non_joining ? form::none : form::isol;
        }
        prev = i;
        prev_class = c;
    }
    return forms;
}

} // namespace vellum::shaping::arabic
