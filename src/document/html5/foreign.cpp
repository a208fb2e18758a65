#include "document/html5/foreign.hpp"

#include "document/html5/misc.hpp"

#include <string_view>

namespace vellum::html5::foreign {

using tree::html_ns;

namespace {

// The tokenizer lowercases every name; these are the SVG names that carry capitals.
constexpr std::string_view svg_element_names[] = {
    "altGlyph",          "altGlyphDef",       "altGlyphItem",      "animateColor",      "animateMotion",
    "animateTransform",  "clipPath",          "feBlend",           "feColorMatrix",     "feComponentTransfer",
    "feComposite",       "feConvolveMatrix",  "feDiffuseLighting", "feDisplacementMap", "feDistantLight",
    "feDropShadow",      "feFlood",           "feFuncA",           "feFuncB",           "feFuncG",
    "feFuncR",           "feGaussianBlur",    "feImage",           "feMerge",           "feMergeNode",
    "feMorphology",      "feOffset",          "fePointLight",      "feSpecularLighting", "feSpotLight",
    "feTile",            "feTurbulence",      "foreignObject",     "glyphRef",          "linearGradient",
    "radialGradient",    "textPath"};

constexpr std::string_view svg_attribute_names[] = {
    "attributeName",    "attributeType",     "baseFrequency",     "baseProfile",      "calcMode",
    "clipPathUnits",    "diffuseConstant",   "edgeMode",          "filterUnits",      "glyphRef",
    "gradientTransform", "gradientUnits",    "kernelMatrix",      "kernelUnitLength", "keyPoints",
    "keySplines",       "keyTimes",          "lengthAdjust",      "limitingConeAngle", "markerHeight",
    "markerUnits",      "markerWidth",       "maskContentUnits",  "maskUnits",        "numOctaves",
    "pathLength",       "patternContentUnits", "patternTransform", "patternUnits",    "pointsAtX",
    "pointsAtY",        "pointsAtZ",         "preserveAlpha",     "preserveAspectRatio", "primitiveUnits",
    "refX",             "refY",              "repeatCount",       "repeatDur",        "requiredExtensions",
    "requiredFeatures", "specularConstant",  "specularExponent",  "spreadMethod",     "startOffset",
    "stdDeviation",     "stitchTiles",       "surfaceScale",      "systemLanguage",   "tableValues",
    "targetX",          "targetY",           "textLength",        "viewBox",          "viewTarget",
    "xChannelSelector", "yChannelSelector",  "zoomAndPan"};

template <std::size_t N>
void restore_case(std::string& name, std::string_view const (&names)[N]) {
    for (auto n : names) {
        if (misc::equal_ignoring_case(n, name)) {
            name = n;
            return;
        }
    }
}

struct foreign_attribute {
    std::string_view written;
    std::string_view local;
    html_ns ns;
};

constexpr foreign_attribute foreign_attributes[] = {
    {"xlink:actuate", "actuate", html_ns::xlink},
    {"xlink:arcrole", "arcrole", html_ns::xlink},
    {"xlink:href", "href", html_ns::xlink},
    {"xlink:role", "role", html_ns::xlink},
    {"xlink:show", "show", html_ns::xlink},
    {"xlink:title", "title", html_ns::xlink},
    {"xlink:type", "type", html_ns::xlink},
    {"xml:lang", "lang", html_ns::xml},
    {"xml:space", "space", html_ns::xml},
    {"xmlns", "xmlns", html_ns::xmlns},
    {"xmlns:xlink", "xlink", html_ns::xmlns},
};

} // namespace

void adjust_svg_start_tag_name(std::string& name) {
    restore_case(name, svg_element_names);
}

void adjust_svg_attributes(tree::node& element) {
    for (auto& a : element.node_attributes) {
        if (a.attribute_ns == html_ns::none) {
            restore_case(a.attribute_name, svg_attribute_names);
        }
    }
}

void adjust_mathml_attributes(tree::node& element) {
    for (auto& a : element.node_attributes) {
        if (a.attribute_ns == html_ns::none && a.attribute_name == "definitionurl") {
            a.attribute_name = "definitionURL";
        }
    }
}

void adjust_foreign_attributes(tree::node& element) {
    for (auto& a : element.node_attributes) {
        if (a.attribute_ns != html_ns::none) {
            continue;
        }
        for (auto const& f : foreign_attributes) {
            if (a.attribute_name == f.written) {
                a.attribute_name = f.local;
                a.attribute_ns = f.ns;
                break;
            }
        }
    }
}

bool is_mathml_text_integration_point(tree::node const& n) {
    return n.node_kind == tree::node_type::element && n.node_ns == html_ns::mathml &&
           misc::name_in(n.node_name, {"mi", "mo", "mn", "ms", "mtext"});
}

bool is_html_integration_point(tree::node const& n) {
    if (n.node_kind != tree::node_type::element) {
        return false;
    }
    if (n.node_ns == html_ns::svg) {
        return misc::name_in(n.node_name, {"foreignObject", "desc", "title"});
    }
    if (n.node_ns == html_ns::mathml && n.node_name == "annotation-xml") {
        return tree::attribute_name_in_list(n, "encoding", {"text/html", "application/xhtml+xml"});
    }
    return false;
}

} // namespace vellum::html5::foreign
