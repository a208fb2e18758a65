#include "pack/multicol.hpp"

#include <atomic>

namespace vellum::pack::multicol {

namespace {

std::atomic<bool> said_column_floats{false};
std::atomic<bool> said_column_footnotes{false};
std::atomic<bool> said_region_floats{false};

} // namespace

bool floats_to_column(css::style::style const& s) {
    return std::holds_alternative<css::box::float_column>(s.float_);
}

bool is_column_footnote(css::style::style const& s) {
    auto const* ff = std::get_if<css::box::float_footnote>(&s.float_);
    auto const* df = std::get_if<css::box::display_footnote>(&s.bit_props.bit_props_display);
    return (ff && ff->float_container == css::box::footnote_container::column) ||
           (df && df->display_container == css::box::footnote_container::column);
}

void note_column_stuff(log::log const& log, css::style::style const& s, bool in_columns) {
    auto const* cf = std::get_if<css::box::float_column>(&s.float_);
    bool const column_float = cf && !in_columns;
    bool const column_footnote = !in_columns && is_column_footnote(s);
    if (column_float && !said_column_floats.exchange(true)) {
        log::log_warning(log, "column floats outside a multi-column container are set in the flow");
    }
    if (column_footnote && !said_column_footnotes.exchange(true)) {
        log::log_warning(log, "column footnotes outside a multi-column container are set with the page's "
                              "footnotes");
    }
    if (std::holds_alternative<css::box::float_region>(s.float_) && !said_region_floats.exchange(true)) {
        log::log_warning(log, "floats to the page margins are not supported yet: they are set in the flow");
    }
}

} // namespace vellum::pack::multicol
