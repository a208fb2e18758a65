// The cascade over a living document: the sheets are gathered and indexed, then the tree is walked from
// the root; each element gets the declarations that apply to it, sorted by priority and split by
// pseudo-element, and the style computation turns them into the element's style_info.
#pragma once

#include "css/parser.hpp"
#include "css/priority.hpp"
#include "css/prules.hpp"
#include "css/styledom/hints.hpp"
#include "css/styledom/sheets.hpp"
#include "css/styledom/tree.hpp"
#include "document/dom.hpp"
#include "driver/log.hpp"
#include "resource/loader.hpp"
#include "util/ref.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vellum::styledom {

/// The declarations for one list of pseudo-elements ("::before", "::first-line", ...) of an element,
/// ascending by priority.
struct pseudo_cascade {
    std::vector<css::selector::pseudo_element> pseudo_elements;
    std::vector<css::pdecls::pdeclaration const*> pseudo_pdecls;
};

/// What the cascade finds for one element. The pointers lead into `cascaded_own` and into the rule
/// index, so the value is read while both live and is not copied.
struct cascaded {
    /// The declarations of the presentational hints and of the style attribute.
    std::vector<css::pdecls::pdeclaration> cascaded_own;
    /// The declarations for the element itself, ascending by priority: a later one overrides an earlier.
    std::vector<css::pdecls::pdeclaration const*> cascaded_pdecls;
    /// The declarations for its pseudo-elements, one entry per distinct list, in order of first match.
    std::vector<pseudo_cascade> cascaded_pseudos;
};

/// What the style computation is given for one element.
struct style_request {
    dom::dom_element const& request_element;
    /// The parent's result; null at the root.
    dom::style_info const* request_parent;
    resource::locator::locator const& request_base;
    /// The element's language in lower case, if known.
    std::optional<std::string> const& request_lang;
    cascaded const& request_cascade;
    /// Turns the url values of the declarations into locators.
    sheets::base_table const& request_bases;
    /// The root element's font size in points, for rem (the initial one at the root itself).
    float request_root_font_size = 12;
    /// The width and height of the first page's area in points, for vw, vh, vmin and vmax.
    std::pair<float, float> request_page_area = {612, 792};
};

/// The style computation: the element's style_info from its parent's and its sorted declarations.
using compute_style = std::function<ref<dom::style_info>(log::log const&, style_request const&)>;

/// The images a computed style names as backgrounds, to prefetch; none when the element isn't displayed.
using background_images = std::function<std::vector<resource::locator::locator>(dom::style_info const&)>;

/// Where the typed property vocabulary and the style computation plug into the cascade. Every hook may
/// be left empty: the cascade then keeps every property name and value, and the style_info holds the
/// element's base and language only.
struct style_hooks {
    /// Which property names the parser keeps, and which SVG attributes are properties.
    css::terms::property_filter known_property = nullptr;
    /// Which properties are shorthands (SVG attributes may not be).
    css::terms::property_filter is_shorthand = nullptr;
    /// Whether a declaration's value suits its property; one that doesn't is dropped.
    css::prules::declaration_check valid_declaration;
    compute_style compute;
    background_images backgrounds;
};

/// A rule as the cascade files it, with what lets it be passed over cheaply and met in the index's order.
struct rule_entry {
    css::prules::prule const* entry_rule = nullptr;
    /// Where the rule stands in the order in which an element meets the matching rules of its namespace
    /// slot, which fixes the order of equal priorities and of the pseudo-element lists: the rules for its
    /// local name (group 0), then the universal ones without id or class (1), with an id (2), and with a
    /// class (3, in the order of the element's class list). `entry_position` is its place in the index's
    /// list of its group, and `entry_class` the class of group 3.
    std::uint8_t entry_group = 0;
    std::uint32_t entry_position = 0;
    std::string_view entry_class;
    /// Hashes of names (element names, ids and classes) that some ancestor of a matching element must
    /// have: those of the compound selectors left of a descendant or child combinator. A few suffice.
    std::array<std::uint32_t, 4> entry_ancestors{};
    std::uint8_t entry_ancestor_count = 0;
};

using rule_entries = std::vector<rule_entry>;

/// The rules of one namespace slot filed by the most telling thing their subject requires: an id, else a
/// class, else an element name; the rest are tried on every element. An element then meets only the
/// rules its own id, classes and name can satisfy. Real sheets are mostly class selectors, often
/// qualified by an element name ("p.note"), and filing those by name would test them on every "p".
struct slot_buckets {
    /// Hashes names for the buckets, which are looked up by a view of the element's name, id or class.
    struct name_hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };
    using buckets = std::unordered_map<std::string, rule_entries, name_hash, std::equal_to<>>;
    buckets by_id;
    buckets by_class;
    buckets by_name;
    rule_entries unkeyed;
};

/// The rules of every namespace slot of an index, in buckets; the pointers lead into the index.
struct rule_buckets {
    slot_buckets buckets_any;
    slot_buckets buckets_none;
    std::map<std::string, slot_buckets, std::less<>> buckets_ns;
};

/// Files the rules of an index in buckets.
rule_buckets bucket_rules(css::prules::prules const& index);

/// The hash under which an element name ('t'), id ('i') or class ('c') stands in an ancestor filter.
std::uint32_t ancestor_key(char kind, std::string_view name);

/// The names of the elements a walk is inside, as a counting Bloom filter: a rule that needs an ancestor
/// of a name no open element has is passed over without climbing the tree. It may answer yes wrongly,
/// never no. A counter that fills up stays full, which only makes the filter answer yes more often.
struct ancestor_filter {
    std::array<std::uint8_t, 4096> filter_counts{};
    void add(std::uint32_t key);
    void remove(std::uint32_t key);
    bool may_contain(std::uint32_t key) const;
};

/// The rules of a document, indexed, with what the cascade needs to apply them to more elements later.
struct document_rules {
    /// Everything read from the sheets: rules, page rules, font faces, colours, special rules.
    css::parser::env rules_env;
    ref<css::prules::prules> rules_index;
    /// The universal rules of `rules_index` by id and class.
    ref<rule_buckets> rules_buckets;
    ref<sheets::base_table> rules_bases;
    /// Whether style attributes count.
    bool rules_use_author_style = true;
    style_hooks rules_hooks;
    /// The width and height of the first page's area in points, which vw and vh measure.
    std::pair<float, float> rules_page_area = {612, 792};
};

/// The style_info of an element whose computation isn't plugged in: its base and language.
ref<dom::style_info> base_style_info(log::log const& log, style_request const& request);

/// Indexes collected sheets: each declaration gets its priority, and invalid ones are dropped.
document_rules index_document_rules(sheets::collected collected, bool use_author_style, style_hooks hooks);

/// Calls `f` with each rule whose selector matches the element (pseudo-elements aside): those of any
/// namespace first, then those of the element's namespace or of none; in each, the rules for its local
/// name, then the universal ones that its id and classes let through.
void for_each_matching_rule(tree::dom_tree const& tree,
                            document_rules const& rules,
                            dom::dom_element const& e,
                            std::function<void(css::prules::prule const&)> const& f);

/// Reusable scratch space of a walk, so that the cascade of one element allocates little.
struct cascade_buffers {
    std::vector<css::pdecls::pdeclaration const*> runs;
    std::vector<std::size_t> run_bounds;
    std::vector<css::pdecls::pdeclaration const*> scratch;
    /// The matching rules of an element with their place in the index's order.
    std::vector<std::pair<std::uint64_t, css::prules::prule const*>> matched;
    /// The names of every ancestor of the element being cascaded, when `ancestors_known` says the walk
    /// keeps them.
    ancestor_filter ancestors;
    bool ancestors_known = false;
};

/// The cascade of one element: hints, the style attribute (with author style), and the matching rules,
/// merged by priority. `base` is the element's base (for the URLs of its attributes).
void cascade_element(dom::dom_element const& e,
                     tree::dom_tree const& tree,
                     document_rules const& rules,
                     resource::locator::locator const& base,
                     cascaded& out,
                     cascade_buffers& buffers);

/// Sorts pointers that stand in runs, each ascending by priority, into one ascending list, keeping the
/// order of equal priorities. A run that isn't ascending is sorted first. `run_bounds` holds the start of
/// each run and is used up as working space.
void merge_runs(std::vector<css::pdecls::pdeclaration const*>& items,
                std::vector<std::size_t>& run_bounds,
                std::vector<css::pdecls::pdeclaration const*>& scratch);

/// Applies the rules to an element and its descendants, parent first, writing each element's
/// style_info; `parent` is the style_info of the element's parent, null for the root.
void style_subtree(log::log const& log,
                   resource::loader::loader const& loader,
                   document_rules const& rules,
                   dom::dom_element& e,
                   dom::style_info const* parent);

/// The product of styling a document.
struct styled_document {
    dom::document_ref styled_dom;
    document_rules styled_rules;
};

/// Gathers the sheets of a document, indexes them, and styles the tree from the root. A document
/// without a root element is an internal error.
styled_document style_document(log::log const& log,
                               resource::loader::loader const& loader,
                               dom::document_ref const& doc,
                               style_hooks hooks = {});

/// Whether the element itself is selected by the selector, as querySelector asks.
bool element_matches(css::selector::selector const& s, dom::dom_element const& e);

} // namespace vellum::styledom
