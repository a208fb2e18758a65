// The operator dictionary: for an operator's text and form, its spacing and how it behaves (stretchy,
// symmetric, large, with movable limits, an accent). Read from "math/operators.xml" on first use.
#pragma once

#include "driver/log.hpp"
#include "mathml/units.hpp"
#include "resource/loader.hpp"
#include "util/result.hpp"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace vellum::mathml::op_table {

enum class op_form { prefix, infix, postfix };

struct multiplier {
    double multiplier_value = 1;
    bool operator==(multiplier const&) const = default;
};

struct infinity {
    bool operator==(infinity const&) const = default;
};

using maxsize = std::variant<multiplier, units::mathspace, infinity>;
using minsize = std::variant<multiplier, units::mathspace>;

/// What the dictionary says about an operator in one form.
struct mostyle {
    units::mathspace lspace = units::named{units::keyword::thickmathspace};
    units::mathspace rspace = units::named{units::keyword::thickmathspace};
    bool symmetric = false;
    bool stretchy = false;
    op_table::maxsize maxsize = infinity{};
    op_table::minsize minsize = multiplier{1.0};
    bool largeop = false;
    bool movablelimits = false;
    bool accent = false;
    bool fence = false;
    bool separator = false;
    bool operator==(mostyle const&) const = default;
};

/// The dictionary, by (operator text, form).
using op_table = std::map<std::pair<std::string, op_form>, mostyle>;

/// The form keyword "prefix", "infix" or "postfix".
[[nodiscard]] std::optional<op_form> form_of(std::string_view word);

/// Reads a "maxsize" value: "infinity", a percentage or bare multiplier, or a length.
[[nodiscard]] std::optional<maxsize> parse_maxsize(std::string_view text);

/// Reads the text of an operator dictionary file.
[[nodiscard]] result<op_table> parse_op_table(std::string_view text);

/// The dictionary of the run, read once from the prefix; a file that fails to load is logged, and every
/// operator then has the defaults.
op_table const& load_operators(log::log const& log, resource::loader::loader const& l);

/// The entry for a text in a form; failing that, the entry in another form (infix, then postfix, then
/// prefix); failing that, nothing.
[[nodiscard]] std::optional<mostyle> find_op(op_table const& table, std::string const& text, op_form form);

/// The entry, or the defaults for an operator the dictionary does not know.
mostyle get_op_style(op_table const& table, std::string const& text, op_form form);

} // namespace vellum::mathml::op_table
