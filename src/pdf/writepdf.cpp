#include "pdf/writepdf.hpp"

#include "pdf/bulkio/buffer.hpp"
#include "pdf/pdf.hpp"

#include <ctime>

namespace vellum::pdf::writepdf {

namespace {

date date_of(metadata::date const& d) {
    date out{.year = d.year, .month = d.month, .day = d.day};
    if (d.time) {
        out.date_time = time_of_day{.hour = d.time->hour, .minute = d.time->minute, .second = d.time->second};
    }
    return out;
}

date local_now() {
    std::time_t const t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    return {.year = tm.tm_year + 1900,
            .month = tm.tm_mon + 1,
            .day = tm.tm_mday,
            .date_time = time_of_day{.hour = tm.tm_hour, .minute = tm.tm_min, .second = tm.tm_sec}};
}

std::string join_keywords(std::vector<std::string> const& keywords) {
    std::string out;
    for (auto const& k : keywords) {
        if (!out.empty()) {
            out += ", ";
        }
        out += k;
    }
    return out;
}

object real(float v) {
    return number{double(v)};
}

} // namespace

pdf_version choose_version(metadata::pdf_options const& options) {
    if (options.pdf_paper_tray == metadata::pdf_paper_tray::pick_tray_by_pdf_size) {
        return pdf_version::pdf_1_7;
    }
    if (options.pdf_print_scaling == metadata::pdf_print_scaling::none ||
        options.pdf_page_mode == metadata::pdf_page_mode::show_attachments) {
        return pdf_version::pdf_1_6;
    }
    // FIXME: 16-bit images in the image table ask for PDF 1.5 once images exist.
    return pdf_version::pdf_1_4;
}

dict info_dict(metadata::metadata const& meta, metadata::pdf_options const& options, date const& now) {
    dict info;
    auto const add_text = [&](char const* key, std::optional<std::string> const& value) {
        if (value && !value->empty()) {
            info.dict_entries.emplace_back(key, text_string(*value));
        }
    };
    add_text("Title", meta.title);
    add_text("Subject", meta.subject);
    add_text("Author", meta.author);
    if (!meta.keywords.empty()) {
        info.dict_entries.emplace_back("Keywords", text_string(join_keywords(meta.keywords)));
    }
    add_text("Creator", meta.creator);
    add_text("Producer", options.producer);
    info.dict_entries.emplace_back("CreationDate",
                                   pdf_date(meta.creation_date ? date_of(*meta.creation_date) : now));
    info.dict_entries.emplace_back("ModDate",
                                   pdf_date(meta.modification_date ? date_of(*meta.modification_date) : now));
    return info;
}

void write_pdf(log::log const& log,
               bulkio::output::output out,
               metadata::metadata const& meta,
               metadata::pdf_options const& options,
               std::vector<page_frame> const& pages) {
    if (options.encrypt) {
        log::log_warning(log, "encryption is not supported yet: the PDF is written unencrypted");
    }
    if (options.pdf_profile) {
        log::log_warning(log, "PDF profiles are not supported yet: the PDF is written without one");
    }
    auto file = bulkio::buffer::open(out);
    std::string const id = options.pdf_id ? document_id_from_hex(*options.pdf_id) : new_document_id();
    writer w = start_pdf(*file, choose_version(options), std::nullopt, id, std::nullopt);

    ref const catalog = new_ref(w);
    ref const page_tree = new_ref(w);
    std::vector<ref> page_refs;
    page_refs.reserve(pages.size());
    for (std::size_t i = 0; i < pages.size(); ++i) {
        page_refs.push_back(new_ref(w));
    }

    stream_filter const filter = options.compress ? stream_filter::deflate : stream_filter::as_is;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        // FIXME: the painter fills the content streams once layout produces page content.
        ref const content = new_ref(w);
        write_stream_bytes(w, content, filter, {}, {});
        auto const& frame = pages[i];
        write_object(w, page_refs[i],
                     dict{{
                         {"Type", name{"Page"}},
                         {"Parent", page_tree},
                         {"MediaBox", array{{std::int64_t{0}, std::int64_t{0}, real(frame.page_width),
                                             real(frame.page_height)}}},
                         {"Resources", dict{}},
                         {"Contents", content},
                     }});
    }

    array kids;
    for (ref const r : page_refs) {
        kids.array_items.emplace_back(r);
    }
    write_object(w, page_tree,
                 dict{{
                     {"Type", name{"Pages"}},
                     {"Kids", std::move(kids)},
                     {"Count", std::int64_t(pages.size())},
                 }});
    write_root(w, catalog, dict{{{"Type", name{"Catalog"}}, {"Pages", page_tree}}});
    write_info(w, info_dict(meta, options, local_now()));
    write_encrypt(w);
    finish_pdf(w);
    bulkio::buffer::flush(*file);
}

} // namespace vellum::pdf::writepdf
