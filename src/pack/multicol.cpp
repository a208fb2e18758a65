#include "pack/multicol.hpp"

#include <atomic>

namespace vellum::pack::multicol {

namespace {

std::atomic<bool> said_column_floats{false};
std::atomic<bool> said_column_footnotes{false};

} // namespace

void note_column_stuff(log::log const& log, css::style::style const& s) {
    bool const column_float = std::holds_alternative<css::box::float_column>(s.float_);
    auto const* ff = std::get_if<css::box::float_footnote>(&s.float_);
    auto const* df = std::get_if<css::box::display_footnote>(&s.bit_props.bit_props_display);
    bool const column_footnote = (ff && ff->float_container == css::box::footnote_container::column) ||
                                 (df && df->display_container == css::box::footnote_container::column);
    if (column_float && !said_column_floats.exchange(true)) {
        log::log_warning(log, "column floats are not supported yet: they are set in the flow");
    }
    if (column_footnote && !said_column_footnotes.exchange(true)) {
        log::log_warning(log, "column footnotes are not supported yet: they are set with the page's footnotes");
    }
}

} // namespace vellum::pack::multicol
