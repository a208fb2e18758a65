#!/usr/bin/env python3
"""Writes the generated tables of the CSS property vocabulary:

  src/css/propnames_enum.inc     the enumerators of css::propnames::prop_name, in order
  src/css/propnames_table.inc    the names, the aliases and the chained hash table of lookup_property
  src/css/longhand_*.inc         the longhands of css::property: their enumeration, value types,
                                 variant alternatives, parsers and whether they inherit
  src/css/shorthand_members.inc  the longhands each shorthand sets
  src/css/color_names.inc        the CSS colour keywords and their sRGB components

Run from the repository root:  /usr/bin/python3 tools/gen_propnames.py
The property table lives below in this file. The colour keywords come from the CSS colour table that
Pillow carries (PIL.ImageColor.colormap, Debian's python3-pil), so that no one types 148 hex triples.

The hash of a name is the rolling value h = h * 49 + byte over its bytes, in 32 bits, then
(h & 511) ^ (len & 511). Each of the 512 buckets holds the first entry of a chain; entries link on.
"""
import os
import sys

# kinds: L = longhand of elements, S = shorthand, P = page-only (no element meaning)
# For longhands: value key (see VALUE_TYPES), "i" when inherited, "a" when attr() is accepted.
# The value key may carry ":parser" when the same type has a narrower parser.
PROPS = [
    ("alternate-color", "P"),
    ("background", "S"),
    ("background-attachment", "L", "bg_attachments"),
    ("background-clip", "L", "bg_boxes"),
    ("background-color", "L", "color", "a"),
    ("background-image", "L", "bg_images"),
    ("background-image-resolution", "L", "image_resolution", "i"),
    ("background-origin", "L", "bg_boxes"),
    ("background-position", "L", "bg_positions"),
    ("background-repeat", "L", "bg_repeats"),
    ("background-size", "L", "bg_sizes"),
    ("bleed", "P"),
    ("bookmark-label", "L", "content_terms:bookmark_label"),
    ("bookmark-level", "L", "bookmark_level"),
    ("bookmark-state", "L", "bookmark_state"),
    ("bookmark-target", "L", "content_terms:bookmark_target"),
    ("border", "S"),
    ("border-bottom", "S"),
    ("border-bottom-color", "L", "color", "a"),
    ("border-bottom-left-radius", "L", "radius"),
    ("border-bottom-right-radius", "L", "radius"),
    ("border-bottom-style", "L", "line_style"),
    ("border-bottom-width", "L", "border_width", "a"),
    ("border-clip", "L", "border_clip"),
    ("border-collapse", "L", "border_collapse", "i"),
    ("border-color", "S"),
    ("border-left", "S"),
    ("border-left-color", "L", "color", "a"),
    ("border-left-style", "L", "line_style"),
    ("border-left-width", "L", "border_width", "a"),
    ("border-radius", "S"),
    ("border-right", "S"),
    ("border-right-color", "L", "color", "a"),
    ("border-right-style", "L", "line_style"),
    ("border-right-width", "L", "border_width", "a"),
    ("border-spacing", "L", "border_spacing", "ia"),
    ("border-style", "S"),
    ("border-top", "S"),
    ("border-top-color", "L", "color", "a"),
    ("border-top-left-radius", "L", "radius"),
    ("border-top-right-radius", "L", "radius"),
    ("border-top-style", "L", "line_style"),
    ("border-top-width", "L", "border_width", "a"),
    ("border-width", "S"),
    ("bottom", "L", "offset", "a"),
    ("box-decoration-break", "L", "box_decoration_break"),
    ("box-sizing", "L", "box_sizing"),
    ("caption-page", "L", "caption_page", "i"),
    ("caption-side", "L", "caption_side", "i"),
    ("clear", "L", "clear"),
    ("clip", "L", "clip"),
    ("clip-path", "L", "url_or_none"),
    ("clip-rule", "L", "fill_rule", "i"),
    ("color", "L", "color", "ia"),
    ("column-break-after", "L", "column_break"),
    ("column-break-before", "L", "column_break"),
    ("column-count", "L", "column_count"),
    ("column-fill", "L", "column_fill"),
    ("column-gap", "L", "spacing:gap"),
    ("column-rule", "S"),
    ("column-rule-color", "L", "color", "a"),
    ("column-rule-style", "L", "line_style"),
    ("column-rule-width", "L", "border_width"),
    ("column-span", "L", "column_span"),
    ("column-width", "L", "column_width"),
    ("columns", "S"),
    ("content", "L", "content_terms:content"),
    ("counter-increment", "L", "counters:counter_increment"),
    ("counter-reset", "L", "counters:counter_reset"),
    ("direction", "L", "direction", "i"),
    ("display", "L", "display"),
    ("empty-cells", "L", "empty_cells", "i"),
    ("fill", "L", "paint", "i"),
    ("fill-opacity", "L", "opacity", "i"),
    ("fill-rule", "L", "fill_rule", "i"),
    ("float", "L", "floaty"),
    ("flow", "L", "flowy"),
    ("font", "S"),
    ("font-family", "L", "font_family", "ia"),
    ("font-feature-settings", "L", "font_feature_settings", "i"),
    ("font-kerning", "L", "font_kerning", "i"),
    ("font-size", "L", "font_size", "ia"),
    ("font-stretch", "L", "font_stretch", "i"),
    ("font-style", "L", "font_style", "i"),
    ("font-variant", "S"),
    ("font-variant-caps", "L", "font_variant_caps", "i"),
    ("font-variant-east-asian", "L", "font_variant_east_asian", "i"),
    ("font-variant-ligatures", "L", "font_variant_ligatures", "i"),
    ("font-variant-numeric", "L", "font_variant_numeric", "i"),
    ("font-variant-position", "L", "font_variant_position", "i"),
    ("font-weight", "L", "font_weight", "i"),
    ("footnote-style-position", "L", "list_style_position", "i"),
    ("height", "L", "width", "a"),
    ("hyphenate-after", "L", "hyphenate_count", "i"),
    ("hyphenate-before", "L", "hyphenate_count", "i"),
    ("hyphenate-lines", "L", "hyphenate_lines", "i"),
    ("hyphenate-patterns", "L", "hyphenate_patterns", "i"),
    ("hyphens", "L", "hyphens", "i"),
    ("image-resolution", "L", "image_resolution", "i"),
    ("left", "L", "offset", "a"),
    ("letter-spacing", "L", "spacing", "i"),
    ("line-height", "L", "line_height", "i"),
    ("line-stacking-strategy", "L", "line_stacking_strategy", "i"),
    ("link", "L", "link", "i"),
    ("list-style", "S"),
    ("list-style-image", "L", "url_or_none", "i"),
    ("list-style-position", "L", "list_style_position", "i"),
    ("list-style-type", "L", "list_style_type", "i"),
    ("margin", "S"),
    ("margin-bottom", "L", "margin", "a"),
    ("margin-inside", "L", "margin", "a"),
    ("margin-left", "L", "margin", "a"),
    ("margin-outside", "L", "margin", "a"),
    ("margin-right", "L", "margin", "a"),
    ("margin-top", "L", "margin", "a"),
    ("mark-length", "P"),
    ("mark-offset", "P"),
    ("marker", "S"),
    ("marker-end", "L", "url_or_none", "i"),
    ("marker-mid", "L", "url_or_none", "i"),
    ("marker-start", "L", "url_or_none", "i"),
    ("marks", "P"),
    ("max-height", "L", "max_width", "a"),
    ("max-width", "L", "max_width", "a"),
    ("min-height", "L", "min_width", "a"),
    ("min-width", "L", "min_width", "a"),
    ("object-fit", "L", "object_fit"),
    ("object-position", "L", "object_position"),
    ("opacity", "L", "opacity"),
    ("orphans", "L", "lines_count", "i"),
    ("overflow", "L", "overflow"),
    ("overflow-wrap", "L", "overflow_wrap", "i"),
    ("padding", "S"),
    ("padding-bottom", "L", "padding", "a"),
    ("padding-left", "L", "padding", "a"),
    ("padding-right", "L", "padding", "a"),
    ("padding-top", "L", "padding", "a"),
    ("page", "L", "page", "i"),
    ("page-break-after", "L", "page_break"),
    ("page-break-before", "L", "page_break"),
    ("page-break-inside", "L", "page_break:page_break_inside"),
    ("page-group", "L", "page_group"),
    ("position", "L", "position"),
    ("-vellum-footnote-policy", "L", "footnote_policy", "i"),
    ("-vellum-image-magic", "L", "keyword_list:image_magic", "i"),
    ("-vellum-lang", "L", "lang", "ia"),
    ("-vellum-linebreak-magic", "L", "linebreak_magic", "i"),
    ("-vellum-pdf-destination", "L", "content_terms:pdf_destination"),
    ("-vellum-pdf-link-type", "L", "keyword_list:pdf_link_type"),
    ("-vellum-pdf-open-action", "P"),
    ("-vellum-pdf-output-intent", "P"),
    ("-vellum-pdf-page-label", "P"),
    ("-vellum-pdf-page-layout", "P"),
    ("-vellum-pdf-page-mode", "P"),
    ("-vellum-pdf-paper-tray", "P"),
    ("-vellum-pdf-print-scaling", "P"),
    ("-vellum-pdf-profile", "P"),
    ("-vellum-pdf-script", "P"),
    ("-vellum-rotate-body", "P"),
    ("-vellum-shrink-margin-boxes", "P"),
    ("-vellum-shrink-to-fit", "P"),
    ("-vellum-text-replace", "L", "text_replace", "i"),
    ("-vellum-trim", "P"),
    ("quotes", "L", "quotes", "i"),
    ("right", "L", "offset", "a"),
    ("size", "P"),
    ("src", "P"),
    ("stop-color", "L", "color", "a"),
    ("stop-opacity", "L", "opacity"),
    ("string-set", "L", "string_set"),
    ("stroke", "L", "paint", "i"),
    ("stroke-dasharray", "L", "dasharray", "i"),
    ("stroke-dashoffset", "L", "svg_length", "i"),
    ("stroke-linecap", "L", "linecap", "i"),
    ("stroke-linejoin", "L", "linejoin", "i"),
    ("stroke-miterlimit", "L", "miterlimit", "i"),
    ("stroke-opacity", "L", "opacity", "i"),
    ("stroke-width", "L", "svg_length", "i"),
    ("table-baseline", "L", "integer"),
    ("table-column-span", "L", "span", "a"),
    ("table-layout", "L", "table_layout"),
    ("table-row-span", "L", "span", "a"),
    ("text-align", "L", "text_align", "i"),
    ("text-align-last", "L", "text_align", "i"),
    ("text-anchor", "L", "text_anchor", "i"),
    ("text-decoration", "S"),
    ("text-indent", "L", "length_percent", "i"),
    ("text-justify", "L", "text_justify", "i"),
    ("text-line-through", "S"),
    ("text-line-through-color", "L", "color", "a"),
    ("text-line-through-style", "L", "text_line_style"),
    ("text-overflow", "L", "text_overflow"),
    ("text-overline", "S"),
    ("text-overline-color", "L", "color", "a"),
    ("text-overline-style", "L", "text_line_style"),
    ("text-transform", "L", "text_transform", "i"),
    ("text-underline", "S"),
    ("text-underline-color", "L", "color", "a"),
    ("text-underline-style", "L", "text_line_style"),
    ("top", "L", "offset", "a"),
    ("transform", "L", "transform"),
    ("transform-origin", "L", "transform_origin"),
    ("unicode-bidi", "L", "unicode_bidi"),
    ("unicode-range", "P"),
    ("vertical-align", "L", "vertical_align"),
    ("visibility", "L", "visibility", "i"),
    ("white-space", "L", "white_space", "i"),
    ("widows", "L", "lines_count", "i"),
    ("width", "L", "width", "a"),
    ("word-break", "L", "word_break", "i"),
    ("word-spacing", "L", "spacing", "i"),
    ("writing-mode", "L", "writing_mode", "i"),
    ("z-index", "L", "z_index"),
]

# Names also accepted with the prefix "vellum-", and with "-vellum-" like the vendor names.
PREFIXED_ALIASES = ["alternate-color", "background-image-resolution", "bleed", "bookmark-label",
                    "bookmark-level", "bookmark-state", "bookmark-target", "border-clip", "caption-page",
                    "flow", "hyphenate-after", "hyphenate-before", "hyphenate-lines", "hyphenate-patterns",
                    "hyphens", "image-resolution", "link", "mark-length", "mark-offset", "page-group",
                    "text-justify"]
# The fragmentation names of current CSS mean the page-break properties of CSS 2.
OTHER_ALIASES = [("word-wrap", "overflow-wrap"), ("break-before", "page-break-before"),
                 ("break-after", "page-break-after"), ("break-inside", "page-break-inside")]

# The C++ type a longhand's declaration holds, by value key, and the parser that reads it.
VALUE_TYPES = {
    "bg_attachments": "std::vector<box::background_attachment>",
    "bg_boxes": "std::vector<box::background_box>",
    "color": "color::spec_color",
    "bg_images": "std::vector<box::bg_image>",
    "image_resolution": "box::image_resolution",
    "bg_positions": "std::vector<box::spec_bg_position>",
    "bg_repeats": "std::vector<box::background_repeat>",
    "bg_sizes": "std::vector<box::spec_bg_size>",
    "content_terms": "content_terms",
    "bookmark_level": "box::bookmark_level",
    "bookmark_state": "box::bookmark_state",
    "radius": "box::spec_radius",
    "line_style": "box::line_style",
    "border_width": "box::spec_border_width",
    "border_clip": "box::spec_border_clip",
    "border_collapse": "box::border_collapse",
    "border_spacing": "box::spec_cellspacing",
    "offset": "box::spec_offset",
    "box_decoration_break": "box::box_decoration_break",
    "box_sizing": "box::box_sizing",
    "caption_page": "box::caption_page",
    "caption_side": "box::caption_side",
    "clear": "box::clear",
    "clip": "box::spec_clip",
    "url_or_none": "box::url_or_none",
    "fill_rule": "svgstyle::fill_rule",
    "column_break": "box::column_break",
    "column_count": "box::column_count",
    "column_fill": "box::column_fill",
    "spacing": "box::spec_spacing",
    "column_span": "box::column_span",
    "column_width": "box::spec_column_width",
    "counters": "box::spec_counters",
    "direction": "box::direction",
    "display": "box::display",
    "empty_cells": "box::empty_cells",
    "paint": "svgstyle::spec_paint",
    "opacity": "float",
    "floaty": "box::floaty",
    "flowy": "box::flowy",
    "font_family": "fonts::font_family",
    "font_size": "fonts::spec_font_size",
    "font_stretch": "fonts::font_stretch",
    "font_style": "fonts::font_style",
    "font_feature_settings": "fonts::font_feature_settings",
    "font_kerning": "fonts::font_kerning",
    "font_variant_caps": "fonts::font_variant_caps",
    "font_variant_east_asian": "fonts::font_variant_east_asian",
    "font_variant_ligatures": "fonts::font_variant_ligatures",
    "font_variant_numeric": "fonts::font_variant_numeric",
    "font_variant_position": "fonts::font_variant_position",
    "font_weight": "fonts::spec_font_weight",
    "list_style_position": "box::list_style_position",
    "width": "box::spec_width",
    "hyphenate_count": "int",
    "hyphenate_lines": "text::hyphenate_lines",
    "hyphenate_patterns": "text::hyphenate_patterns",
    "hyphens": "text::hyphens",
    "line_height": "fonts::spec_line_height",
    "line_stacking_strategy": "text::line_stacking_strategy",
    "link": "semantics::spec_link_type",
    "list_style_type": "box::list_style_type",
    "margin": "box::spec_margin",
    "max_width": "box::spec_max_width",
    "min_width": "box::spec_min_width",
    "lines_count": "int",
    "object_fit": "box::object_fit",
    "object_position": "box::spec_bg_position",
    "overflow": "box::overflow",
    "overflow_wrap": "text::overflow_wrap",
    "padding": "box::spec_padding",
    "page": "box::page",
    "page_break": "box::page_break",
    "page_group": "box::page_group",
    "position": "box::position",
    "quotes": "box::quotes",
    "footnote_policy": "box::vellum_footnote_policy",
    "keyword_list": "keyword_list",
    "lang": "text::lang",
    "linebreak_magic": "text::linebreak_magic",
    "text_replace": "text::text_replace",
    "string_set": "string_set",
    "dasharray": "svgstyle::spec_dasharray",
    "svg_length": "svgstyle::spec_svg_length",
    "linecap": "svgstyle::linecap",
    "linejoin": "svgstyle::linejoin",
    "miterlimit": "float",
    "integer": "int",
    "span": "int",
    "table_layout": "box::table_layout",
    "text_align": "text::text_align",
    "text_anchor": "svgstyle::text_anchor",
    "length_percent": "units::length_percent",
    "text_justify": "text::text_justify",
    "text_line_style": "text::text_line_style",
    "text_overflow": "box::text_overflow",
    "text_transform": "text::text_transform",
    "transform": "box::spec_transform",
    "transform_origin": "box::spec_transform_origin",
    "unicode_bidi": "box::unicode_bidi",
    "vertical_align": "box::spec_vertical_align",
    "visibility": "box::visibility",
    "white_space": "text::white_space",
    "word_break": "text::word_break",
    "writing_mode": "box::writing_mode",
    "z_index": "box::z_index",
}

SHORTHANDS = {
    "background": ["background-attachment", "background-clip", "background-color", "background-image",
                   "background-origin", "background-position", "background-repeat", "background-size"],
    "border": ["border-%s-%s" % (side, part) for side in ("bottom", "left", "right", "top")
               for part in ("color", "style", "width")],
    "border-color": ["border-%s-color" % s for s in ("bottom", "left", "right", "top")],
    "border-style": ["border-%s-style" % s for s in ("bottom", "left", "right", "top")],
    "border-width": ["border-%s-width" % s for s in ("bottom", "left", "right", "top")],
    "border-radius": ["border-bottom-left-radius", "border-bottom-right-radius", "border-top-left-radius",
                      "border-top-right-radius"],
    "column-rule": ["column-rule-color", "column-rule-style", "column-rule-width"],
    "columns": ["column-count", "column-width"],
    "font": ["font-family", "font-feature-settings", "font-kerning", "font-size", "font-stretch", "font-style",
             "font-variant-caps", "font-variant-east-asian", "font-variant-ligatures", "font-variant-numeric",
             "font-variant-position", "font-weight", "line-height"],
    "font-variant": ["font-variant-caps", "font-variant-east-asian", "font-variant-ligatures",
                     "font-variant-numeric", "font-variant-position"],
    "list-style": ["list-style-image", "list-style-position", "list-style-type"],
    "margin": ["margin-bottom", "margin-inside", "margin-left", "margin-outside", "margin-right",
               "margin-top"],
    "marker": ["marker-end", "marker-mid", "marker-start"],
    "padding": ["padding-bottom", "padding-left", "padding-right", "padding-top"],
    "text-decoration": ["text-line-through-color", "text-line-through-style", "text-overline-color",
                        "text-overline-style", "text-underline-color", "text-underline-style"],
}
for side in ("bottom", "left", "right", "top"):
    SHORTHANDS["border-" + side] = ["border-%s-%s" % (side, p) for p in ("color", "style", "width")]
for line in ("line-through", "overline", "underline"):
    SHORTHANDS["text-" + line] = ["text-%s-%s" % (line, p) for p in ("color", "style")]


def ident(name):
    return name.lstrip("-").replace("-", "_")


CPP_KEYWORDS = {"float"}


def longhand_ident(name):
    """The enumerator of a longhand; C++ keywords take a trailing underscore."""
    i = ident(name)
    return i + "_" if i in CPP_KEYWORDS else i


def bucket(name):
    h = 0
    for b in name.encode("ascii"):
        h = (h * 49 + b) & 0xFFFFFFFF
    return (h & 511) ^ (len(name) & 511)


HEADER = "// Generated by tools/gen_propnames.py; do not edit. Regenerate: /usr/bin/python3 tools/gen_propnames.py\n"


def main():
    root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    names = [p[0] for p in PROPS]
    assert len(names) == 213, len(names)
    assert len(set(names)) == len(names)
    shorthands = [p[0] for p in PROPS if p[1] == "S"]
    pages = [p[0] for p in PROPS if p[1] == "P"]
    longs = [p for p in PROPS if p[1] == "L"]
    assert len(longs) == 170, len(longs)
    assert sorted(shorthands) == sorted(SHORTHANDS), set(shorthands) ^ set(SHORTHANDS)
    for members in SHORTHANDS.values():
        for m in members:
            assert m in [p[0] for p in longs], m

    index = {n: i for i, n in enumerate(names)}
    out = os.path.join(root, "src", "css")

    with open(os.path.join(out, "propnames_enum.inc"), "w") as f:
        f.write(HEADER)
        for n in names:
            f.write("prop_%s,\n" % ident(n))

    entries = [(n, index[n]) for n in names]
    entries += [("vellum-" + n, index[n]) for n in PREFIXED_ALIASES]
    entries += [("-vellum-" + n, index[n]) for n in PREFIXED_ALIASES]
    entries += [(a, index[t]) for a, t in OTHER_ALIASES]
    heads = [-1] * 512
    nexts = [-1] * len(entries)
    for i in reversed(range(len(entries))):
        b = bucket(entries[i][0])
        nexts[i] = heads[b]
        heads[b] = i
    with open(os.path.join(out, "propnames_table.inc"), "w") as f:
        f.write(HEADER)
        f.write("// The CSS name of each prop_name, in enumeration order.\n")
        f.write("constexpr std::array<std::string_view, %d> names{{\n" % len(names))
        for n in names:
            f.write('    "%s",\n' % n)
        f.write("}};\n\n")
        f.write("// What kind of name each prop_name is.\n")
        f.write("constexpr std::array<name_kind, %d> kinds{{\n" % len(names))
        kind_names = {"L": "longhand", "S": "shorthand", "P": "page_only"}
        for p in PROPS:
            f.write("    name_kind::%s,\n" % kind_names[p[1]])
        f.write("}};\n\n")
        f.write("// Every accepted spelling with its property and the next entry of its hash chain.\n")
        f.write("constexpr std::array<hash_entry, %d> entries{{\n" % len(entries))
        for (n, i), nx in zip(entries, nexts):
            f.write('    {"%s", prop_name::prop_%s, %d},\n' % (n, ident(names[i]), nx))
        f.write("}};\n\n")
        f.write("// The first entry of each bucket's chain, -1 for none.\n")
        f.write("constexpr std::array<std::int16_t, 512> buckets{{\n")
        for i in range(0, 512, 16):
            f.write("    " + ", ".join("%d" % h for h in heads[i:i + 16]) + ",\n")
        f.write("}};\n")

    def flags(p):
        return p[3] if len(p) > 3 else ""

    def write(name, body):
        with open(os.path.join(out, name), "w") as f:
            f.write(HEADER)
            f.write(body)

    write("longhand_enum.inc", "".join("%s,\n" % longhand_ident(p[0]) for p in longs))
    types = []
    for p in longs:
        t = VALUE_TYPES[p[2].split(":")[0]]
        if "a" in flags(p):
            t = "expr::or_attr<%s>" % t
        types.append("template <>\nstruct longhand_value<longhand::%s> {\n    using type = %s;\n};\n\n"
                     % (longhand_ident(p[0]), t))
    write("longhand_types.inc", "".join(types))
    write("longhand_variant.inc", ",\n".join("prop<longhand::%s>" % longhand_ident(p[0]) for p in longs) + ",\n")
    tables = "constexpr std::array<prop_name, %d> longhand_names{{\n" % len(longs)
    tables += "".join("    prop_name::prop_%s,\n" % ident(p[0]) for p in longs) + "}};\n\n"
    tables += "constexpr std::array<bool, %d> longhand_inherited{{\n" % len(longs)
    tables += "".join("    %s, // %s\n" % ("true" if "i" in flags(p) else "false", p[0]) for p in longs)
    tables += "}};\n"
    write("longhand_tables.inc", tables)
    parsers = []
    for p in longs:
        key = p[2].split(":")
        parser = "parse_" + (key[1] if len(key) > 1 else key[0])
        if "a" in flags(p):
            parser = "with_attr<%s, %s>" % (VALUE_TYPES[key[0]], parser)
        parsers.append("case prop_name::prop_%s:\n    return make<longhand::%s>(v, %s);\n"
                       % (ident(p[0]), longhand_ident(p[0]), parser))
    write("longhand_parsers.inc", "".join(parsers))
    write("shorthand_members.inc", "".join(
        "case prop_name::prop_%s:\n    return {%s};\n"
        % (ident(s), ", ".join("longhand::%s" % longhand_ident(m) for m in SHORTHANDS[s])) for s in shorthands))

    try:
        from PIL import ImageColor
    except ImportError:
        sys.exit("gen_propnames.py: the colour table needs Pillow (Debian's python3-pil)")
    colors = sorted(ImageColor.colormap.items())
    with open(os.path.join(out, "color_names.inc"), "w") as f:
        f.write(HEADER)
        f.write("// The CSS colour keywords, sorted by name, with their 8-bit sRGB components.\n")
        f.write("constexpr std::array<named_rgb, %d> named_colors{{\n" % len(colors))
        for n, hexv in colors:
            assert hexv.startswith("#") and len(hexv) == 7, (n, hexv)
            r, g, b = (int(hexv[i:i + 2], 16) for i in (1, 3, 5))
            f.write('    {"%s", %d, %d, %d},\n' % (n, r, g, b))
        f.write("}};\n")


if __name__ == "__main__":
    main()
