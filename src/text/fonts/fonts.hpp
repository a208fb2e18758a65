// The font database of a run: the family table fed by @font-face rules and fontconfig scans, font
// requests matched from font properties, characters mapped to glyphs with fallback, and the table of
// fonts really used, each with its PDF font id and encoding.
#pragma once

#include "driver/log.hpp"
#include "resource/loader.hpp"
#include "text/font_data.hpp"
#include "text/font_metrics.hpp"
#include "text/fonts/font_face.hpp"
#include "text/fonts/font_system.hpp"
#include "text/fonts/freetype.hpp"
#include "text/fonts/match.hpp"
#include "text/unicode.hpp"
#include "text/unicode/range.hpp"
#include "text/unicode/unicache.hpp"
#include "util/bytes.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::fonts {

namespace coverage {
struct coverage_state;
} // namespace coverage

// ---- What a request asks for --------------------------------------------------------------------------

/// An OpenType feature chosen by the document, as "smcp" or "salt" with an alternate number.
struct feature {
    std::string feature_tag;
    std::optional<int> feature_param;
    auto operator<=>(feature const&) const = default;
};

/// The font properties that select fonts, in the database's own terms. The style record's font
/// properties map onto this one to one; the size is not part of it, since it does not change which
/// font shows a character.
struct font_query {
    /// Family names as written, in order of preference.
    std::vector<std::string> query_families;
    match::font_style query_style = match::font_style::normal;
    truetype::truetype_weight query_weight = truetype::truetype_weight::normal;
    truetype::truetype_width query_width = truetype::truetype_width::normal;
    match::font_variant query_variant = match::font_variant::normal;
    /// OpenType features asked for, added to the shaper's defaults; a parameter of 0 turns one off.
    std::vector<feature> query_features;
    /// Whether kerning is on.
    bool query_kerning = true;
    /// The language of the text, BCP 47 lower-cased ("sr", "zh-hant"); empty when unknown. It picks
    /// the OpenType language system and the face of a family made for that language.
    std::string query_language;
    /// Text set in vertical lines: the font's vertical forms are used.
    bool query_vertical = false;
    auto operator<=>(font_query const&) const = default;
};

// ---- Font files and their cache items -----------------------------------------------------------------

/// A font file named by a locator, and the face in it.
struct local_font {
    resource::locator::locator local_locator;
    int local_face_index = 0;
    bool operator==(local_font const&) const = default;
};

/// A face found by a fontconfig scan.
struct system_font {
    std::string system_file;
    int system_face_index = 0;
    bool operator==(system_font const&) const = default;
};

using font_handle = std::variant<local_font, system_font>;

/// How the characters of a font are written in PDF text: one byte by MacRoman, or two-byte glyph
/// numbers (Identity). Standard encoding is for the base-14 fonts of the PDF writer.
enum class font_pdf_encoding { macroman_encoding, identity_encoding, standard_encoding };

/// A glyph of a used font as the PDF font records it: the number in the source font and the number
/// the PDF font gives it (the same until a subset renumbers the glyphs).
struct glyph_cache_entry {
    std::uint32_t entry_source = 0;
    std::shared_ptr<cell<int>> entry_index;
    /// The characters the glyph stands for, as first recorded; the ToUnicode map of the PDF font reads
    /// them. Empty until someone records them.
    unicode::unicodes entry_unicodes;
};

/// The glyphs of a used font in the order first used; the subset keeps this order.
struct glyph_cache {
    std::vector<glyph_cache_entry> glyph_cache_entries;
    std::map<std::uint32_t, std::size_t> glyph_cache_positions;
};

/// A font with at least one glyph in the document.
struct used_font {
    int used_font_id = 0;
    /// Starts as MacRoman when the first character allows it; turns to Identity for good.
    std::shared_ptr<cell<font_pdf_encoding>> used_font_encoding;
    std::shared_ptr<cell<glyph_cache>> used_font_glyph_cache;
    ref<font_data::font_data> used_font_data;
    /// The subset file once made.
    std::shared_ptr<cell<std::optional<bytes::bytes>>> used_font_subset;
};

using font_ref = ref<used_font>;

/// Known, not yet read.
struct unloaded {
    font_handle unloaded_handle;
};

/// Read and valid; no glyph of it used so far.
struct unused {
    ref<font_data::font_data> unused_data;
};

/// Used: it has an id.
struct used {
    font_ref used_ref;
};

/// Reading failed once; never tried again.
struct unloadable {};

using font_cache_item = std::variant<unloaded, unused, used, unloadable>;

/// One cache item per font file and face, shared by all rules and requests that name it.
using font_cache_ref = std::shared_ptr<cell<font_cache_item>>;

// ---- The family table ----------------------------------------------------------------------------------

/// A font file.
struct source_cache_ref {
    font_cache_ref source_ref;
};

/// local(name): a system family.
struct system_font_family {
    std::string family_name;
};

/// vellum-lookup(name): another family of the table.
struct redirect {
    std::string redirect_name;
};

using font_source = std::variant<source_cache_ref, system_font_family, redirect>;

/// Sources for part of the characters (or all of them, without a range).
struct ranged_sources {
    std::optional<unicode::range::unicode_range> ranged_range;
    std::vector<font_source> ranged_sources_list;
};

/// One face description of a family with its sources, the latest rule first.
struct family_record {
    match::font_desc0 record_desc;
    std::vector<ranged_sources> record_sources;
};

/// A family's records, the latest first.
using font_family_records = std::vector<family_record>;

// ---- Requests and glyphs -------------------------------------------------------------------------------

struct req_entry;

/// A font file to try.
struct match_cache_ref {
    font_cache_ref match_ref;
};

/// The entries of a redirected family, tried in their order.
struct match_redirect {
    std::shared_ptr<std::vector<req_entry> const> redirect_entries;
};

using font_face_match = std::variant<match_cache_ref, match_redirect>;

/// Faces for some characters: the first that loads decides whether a character has a glyph; the
/// others are alternatives in case it does not load.
struct req_entry {
    std::optional<unicode::range::unicode_range> entry_range;
    std::vector<font_face_match> entry_faces;
};

/// A glyph that a character mapped to, before measuring.
struct raw_glyph {
    font_ref raw_glyph_font_ref;
    unicode::unicodes raw_glyph_unicodes;
    std::uint32_t raw_glyph_index = 0;
    /// For a mark within a ligature, the number of the component it follows; 0 otherwise.
    int raw_glyph_liga_component_pos = 0;
    /// Shown at 0.8 of the font size, standing for a lower-case letter.
    bool raw_glyph_small_caps = false;
    /// A glyph after the first of a one-to-many substitution.
    bool raw_glyph_multi_subst_dup = false;
    /// Produced by a vertical-text substitution.
    bool raw_glyph_is_vert_alt = false;
    bool operator==(raw_glyph const&) const = default;
};

/// A font request: the faces to try for each character, and the characters already mapped.
struct font_req {
    std::vector<req_entry> font_req_matches;
    match::font_variant font_req_variant = match::font_variant::normal;
    std::vector<feature> font_req_features;
    bool font_req_kerning = true;
    /// The language of the text, as in the query.
    std::string font_req_language;
    /// Shaped for vertical lines, with the font's vertical forms.
    bool font_req_vertical = false;
    /// What was asked for, so that the painter can tell when a face lacks the slant or weight.
    match::font_style font_req_style = match::font_style::normal;
    truetype::truetype_weight font_req_weight = truetype::truetype_weight::normal;
    std::shared_ptr<cell<unicode::unicache::unicache<raw_glyph>>> font_req_glyph_cache;
};

// ---- The database --------------------------------------------------------------------------------------

/// The next PDF font id.
struct font_pdf_recs {
    int next_font_id = 1;
};

/// The font database of a run. All tables are cells shared by every copy.
struct fonts {
    log::log fonts_log;
    resource::loader::loader fonts_loader;
    freetype::freetype fonts_freetype;
    std::optional<font_system::font_system> fonts_font_system;
    /// Keyed by the text of the handle, so that one file and face has one item.
    std::shared_ptr<cell<std::map<std::string, font_cache_ref>>> font_handle_cache;
    std::shared_ptr<cell<std::map<font_query, ref<font_req>>>> font_req_cache;
    /// Keyed by the lower-cased family name.
    std::shared_ptr<cell<std::map<std::string, font_family_records>>> font_family_map;
    /// Newest first.
    std::shared_ptr<cell<std::vector<font_ref>>> used_fonts;
    std::shared_ptr<cell<vellum::fonts::font_pdf_recs>> font_pdf_recs;
    /// System faces found by coverage for characters that a request's own faces lack, and the
    /// characters that no face has. Absent: no search by coverage.
    std::shared_ptr<cell<coverage::coverage_state>> font_coverage;
};

/// The run ends: not even the fallback character has a glyph anywhere.
struct no_available_fonts : internal_error {
    no_available_fonts()
        : internal_error("no available fonts") {}
};

/// Makes the database; with system fonts, fontconfig is started ("could not access system fonts").
[[nodiscard]] result<fonts>
new_fonts(resource::loader::loader const& loader, log::log const& log, bool use_system_fonts);

/// Registers @font-face rules; a later rule of a family comes before earlier ones.
void add_font_faces(fonts const& db, std::vector<font_face::font_face> const& faces);

/// Reads a style sheet's text with the CSS parser and registers its @font-face rules; rules that say
/// nothing usable are logged as warnings with the sheet as source.
void add_font_face_sheet(fonts const& db,
                         std::string const& sheet_text,
                         std::string const& sheet_name,
                         font_face::url_resolver const& resolve);

/// Registers the @font-face rules a document's sheets gave, in source order, so that a later rule comes
/// first; a rule that says nothing usable is logged as a warning with `source_name` as its source.
void add_font_face_rules(fonts const& db,
                         std::vector<css::declarations> const& rules,
                         std::string const& source_name,
                         font_face::url_resolver const& resolve);

/// The records of a family (lower-cased key); a family not yet known is scanned for among the system
/// fonts, and the answer, empty too, entered for good.
font_family_records lookup_family(fonts const& db, std::string const& family);

/// The request for font properties, made once per distinct query.
ref<font_req> get_font_req(fonts const& db, font_query const& query);

/// The glyph of a character; when the request's faces lack it, a system face that has it, else a
/// look-alike or "?". Throws no_available_fonts when even that has no glyph.
raw_glyph char_to_glyph(fonts const& db, font_req const& req, char32_t c);

/// The first face of a request that loads, marked used for glyphs named by number rather than by
/// character (so its PDF font is an Identity one); nothing when no face loads.
[[nodiscard]] std::optional<font_ref> first_font_ref(fonts const& db, font_req const& req);

/// One warning for the characters that no font had since the last call, with their number and the
/// first few of them; nothing when there were none.
void log_missing_glyphs(fonts const& db);

/// The metrics of the first font of the request that loads, at a size; throws no_available_fonts.
font_metrics::font_metrics_scaled primary_font_metrics(fonts const& db, font_req const& req, double size);

/// The used fonts, newest first.
std::vector<font_ref> used_fonts(fonts const& db);

/// Enters a glyph in its font's glyph cache, or finds it there, and gives the cell of its number in the
/// PDF font. The characters are kept if the entry has none yet, so that a glyph measured before its
/// characters were known still gets them when it is painted.
std::shared_ptr<cell<int>> record_glyph(font_ref const& font, std::uint32_t source, unicode::unicodes const& chars);

/// The subset font's tag "QZ" and four letters from the id; nothing while the font has no subset.
[[nodiscard]] std::optional<std::string> pdf_font_tag(font_ref const& font);

/// The same letters for an id, whatever the subset.
std::string font_tag_of_id(int id);

/// What the painter must imitate because the face lacks it.
struct synthesis {
    bool synthesis_bold = false;
    bool synthesis_italic = false;
    bool operator==(synthesis const&) const = default;
};

/// Bold is imitated for a request of weight 600 or more on a lighter face, italic for an italic or
/// oblique request on an upright face.
synthesis synthesis_needed(font_req const& req, font_ref const& font);

/// "used font: Family Style" and friends: the font's name for messages.
std::string describe_font(font_ref const& font);

/// The words of a query for the "font request: " message.
std::string describe_query(font_query const& query);

} // namespace vellum::fonts
