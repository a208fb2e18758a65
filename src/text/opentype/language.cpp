#include "text/opentype/language.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace vellum::opentype::language {

namespace {

// ISO 639 codes (two letters where there is one, else three) and the OpenType tags that fonts use for
// them, sorted by code for binary search.
constexpr std::array<std::pair<std::string_view, std::string_view>, 139> languages{{
    {"af", "AFK"},  {"am", "AMH"},  {"an", "ARG"},  {"ar", "ARA"},  {"as", "ASM"},  {"ast", "AST"},
    {"az", "AZE"},  {"ba", "BSH"},  {"be", "BEL"},  {"bg", "BGR"},  {"bho", "BHO"}, {"bn", "BEN"},
    {"bo", "TIB"},  {"br", "BRE"},  {"bs", "BOS"},  {"ca", "CAT"},  {"ce", "CHE"},  {"chr", "CHR"},
    {"ckb", "KUR"}, {"co", "COS"},  {"crh", "CRT"}, {"cs", "CSY"},  {"cv", "CHU"},  {"cy", "WEL"},
    {"da", "DAN"},  {"de", "DEU"},  {"doi", "DGR"}, {"dv", "DIV"},  {"dz", "DZN"},  {"el", "ELL"},
    {"en", "ENG"},  {"eo", "NTO"},  {"es", "ESP"},  {"et", "ETI"},  {"eu", "EUQ"},  {"fa", "FAR"},
    {"ff", "FUL"},  {"fi", "FIN"},  {"fil", "PIL"}, {"fo", "FOS"},  {"fr", "FRA"},  {"fy", "FRI"},
    {"ga", "IRI"},  {"gd", "GAE"},  {"gl", "GAL"},  {"grc", "PGR"}, {"gu", "GUJ"},  {"ha", "HAU"},
    {"haw", "HAW"}, {"he", "IWR"},  {"hi", "HIN"},  {"hr", "HRV"},  {"hu", "HUN"},  {"hy", "HYE"},
    {"id", "IND"},  {"ig", "IBO"},  {"is", "ISL"},  {"it", "ITA"},  {"iu", "INU"},  {"ja", "JAN"},
    {"jv", "JAV"},  {"ka", "KAT"},  {"kk", "KAZ"},  {"kl", "GRN"},  {"km", "KHM"},  {"kn", "KAN"},
    {"ko", "KOR"},  {"kok", "KOK"}, {"ks", "KSH"},  {"ku", "KUR"},  {"ky", "KIR"},  {"la", "LAT"},
    {"lb", "LTZ"},  {"lo", "LAO"},  {"lt", "LTH"},  {"lv", "LVI"},  {"mai", "MTH"}, {"mh", "MAH"},
    {"mi", "MRI"},  {"mk", "MKD"},  {"ml", "MAL"},  {"mn", "MNG"},  {"mni", "MNI"}, {"mo", "MOL"},
    {"mr", "MAR"},  {"ms", "MLY"},  {"mt", "MTS"},  {"my", "BRM"},  {"nb", "NOR"},  {"ne", "NEP"},
    {"nl", "NLD"},  {"nn", "NYN"},  {"no", "NOR"},  {"nv", "NAV"},  {"oc", "OCI"},  {"or", "ORI"},
    {"pa", "PAN"},  {"pl", "PLK"},  {"ps", "PAS"},  {"pt", "PTG"},  {"rm", "RMS"},  {"ro", "ROM"},
    {"ru", "RUS"},  {"sa", "SAN"},  {"sat", "SAT"}, {"sd", "SND"},  {"se", "NSM"},  {"si", "SNH"},
    {"sk", "SKY"},  {"sl", "SLV"},  {"sma", "SSM"}, {"smj", "LSM"}, {"smn", "ISM"}, {"sms", "SKS"},
    {"sq", "SQI"},  {"sr", "SRB"},  {"sv", "SVE"},  {"sw", "SWK"},  {"syr", "SYR"}, {"ta", "TAM"},
    {"te", "TEL"},  {"tg", "TAJ"},  {"th", "THA"},  {"ti", "TGY"},  {"tk", "TKM"},  {"tl", "TGL"},
    {"tr", "TRK"},  {"tt", "TAT"},  {"ug", "UYG"},  {"uk", "UKR"},  {"ur", "URD"},  {"uz", "UZB"},
    {"vi", "VIT"},  {"xh", "XHS"},  {"yi", "JII"},  {"yo", "YBA"},  {"zh", "ZHS"},  {"zu", "ZUL"},
    {"zza", "ZZA"},
}};

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    std::replace(out.begin(), out.end(), '_', '-');
    return out;
}

// The subtags after the language: script (four letters) and region (two letters or three digits).
struct subtags {
    std::string primary;
    std::string script;
    std::string region;
};

subtags split(std::string_view bcp47) {
    auto const text = lower(bcp47);
    subtags out;
    std::size_t start = 0;
    bool first = true;
    while (start <= text.size()) {
        auto end = text.find('-', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        auto const part = text.substr(start, end - start);
        if (first) {
            out.primary = part;
            first = false;
        } else if (part.size() == 4 && out.script.empty() && out.region.empty()) {
            out.script = part;
        } else if ((part.size() == 2 || part.size() == 3) && out.region.empty()) {
            out.region = part;
        }
        start = end + 1;
    }
    return out;
}

// Chinese by script subtag, else by region.
std::string_view chinese(subtags const& s) {
    if (s.script == "hant") {
        return s.region == "hk" ? "HK" : "TC";
    }
    if (s.script == "hans") {
        return "SC";
    }
    if (s.region == "hk") {
        return "HK";
    }
    if (s.region == "tw" || s.region == "mo") {
        return "TC";
    }
    return "SC";
}

} // namespace

std::optional<reader::tag> language_system_tag(std::string_view bcp47) {
    auto const s = split(bcp47);
    if (s.primary.empty()) {
        return std::nullopt;
    }
    if (s.primary == "zh" || s.primary == "cmn" || s.primary == "yue") {
        auto const r = chinese(s);
        return reader::make_tag(r == "HK" ? "ZHH " : r == "TC" ? "ZHT " : "ZHS ");
    }
    // Moldavian is Romanian written in Moldova; fonts that tell them apart file it as "MOL ".
    if (s.primary == "ro" && s.region == "md") {
        return reader::make_tag("MOL ");
    }
    auto const it = std::lower_bound(languages.begin(), languages.end(), s.primary,
                                     [](auto const& entry, std::string const& key) { return entry.first < key; });
    if (it == languages.end() || it->first != s.primary) {
        return std::nullopt;
    }
    return reader::make_tag(it->second);
}

std::optional<std::string_view> cjk_region(std::string_view bcp47) {
    auto const s = split(bcp47);
    if (s.primary == "ja") {
        return "JP";
    }
    if (s.primary == "ko") {
        return "KR";
    }
    if (s.primary == "zh" || s.primary == "cmn" || s.primary == "yue") {
        return chinese(s);
    }
    return std::nullopt;
}

} // namespace vellum::opentype::language
