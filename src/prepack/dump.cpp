#include "prepack/dump.hpp"

#include "css/styledom/tree.hpp"
#include "util/ref.hpp"

#include <cstdio>

namespace vellum::prepack::dump {

namespace {

std::string indent(int depth) {
    return std::string(static_cast<std::size_t>(depth) * 2, ' ');
}

std::string quoted(std::u32string_view t) {
    return "\"" + textbuf::to_utf8(t) + "\"";
}

std::string number(float f) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4g", static_cast<double>(f));
    return buf;
}

std::string page_break_name(css::box::page_break b) {
    switch (b) {
    case css::box::page_break::auto_:
        return "auto";
    case css::box::page_break::always:
        return "always";
    case css::box::page_break::avoid:
        return "avoid";
    case css::box::page_break::left:
        return "left";
    case css::box::page_break::right:
        return "right";
    case css::box::page_break::avoid_page:
        return "avoid-page";
    case css::box::page_break::avoid_column:
        return "avoid-column";
    }
    return "?";
}

std::string info_name(element_info const& info) {
    return std::visit(overloaded{
                          [](info_element const& e) {
                              return "<" + std::string(styledom::tree::name_local_view(e.element->dom_element_name)) + ">";
                          },
                          [](info_pseudo_element const& p) {
                              std::string out;
                              for (auto const pe : p.pseudo->pseudo_element_pseudos) {
                                  out += "::" + std::string(css::selector::pseudo_element_name(pe));
                              }
                              return out;
                          },
                      },
                      info);
}

std::string thing_text(std::vector<text_thing> const& things) {
    std::string out;
    for (auto const& t : things) {
        if (auto const* tt = std::get_if<text_thing_text>(&t)) {
            out += textbuf::to_utf8(tt->text);
        } else {
            out += "{generated}";
        }
    }
    return out;
}

std::string type_text(element_type const& t) {
    return std::visit(overloaded{
                          [](type_original const& o) {
                              std::string out = info_name(o.stuff->element_info);
                              for (auto const& [name, value] : o.stuff->text_values) {
                                  out += " string(" + name + ")=\"" + thing_text(value) + "\"";
                              }
                              if (o.stuff->given_ids) {
                                  for (auto const& id : o.stuff->given_ids->second) {
                                      out += " id=" + id.id;
                                  }
                              }
                              if (o.stuff->bookmark_stuff) {
                                  out += " bookmark(" + std::to_string(o.stuff->bookmark_stuff->second.pre_bookmark_level) +
                                         ")=\"" + thing_text(o.stuff->bookmark_stuff->second.pre_bookmark_content) + "\"";
                              }
                              if (o.stuff->running) {
                                  out += " running(" + o.stuff->running->first + ")=" +
                                         std::to_string(o.stuff->running->second);
                              }
                              return out;
                          },
                          [](type_remaining const& r) {
                              return "remaining" + (r.info ? " " + info_name(*r.info) : std::string());
                          },
                          [](type_overflowing const& r) {
                              return "overflowing" + (r.info ? " " + info_name(*r.info) : std::string());
                          },
                          [](type_anonymous const&) { return std::string("anonymous"); },
                      },
                      t);
}

std::string width_text(space_width const& w) {
    return std::visit(overloaded{
                          [](space_zero const&) { return std::string("zero"); },
                          [](space_ems const& e) { return "ems(" + number(e.ems) + ")"; },
                          [](space_equal_to const& e) {
                              char buf[16];
                              std::snprintf(buf, sizeof buf, "U+%04X", static_cast<unsigned>(e.equal_to));
                              return "equal_to(" + std::string(buf) + ")";
                          },
                          [](space_equal_to_half const& e) {
                              char buf[16];
                              std::snprintf(buf, sizeof buf, "U+%04X", static_cast<unsigned>(e.equal_to_half));
                              return "equal_to_half(" + std::string(buf) + ")";
                          },
                      },
                      w);
}

std::string sep_text(separator const& s) {
    return std::visit(overloaded{
                          [](sep_newline const&) { return std::string("newline"); },
                          [](sep_space const&) { return std::string("space"); },
                          [](sep_nowrap_space const&) { return std::string("nowrap_space"); },
                          [](sep_pre_space const&) { return std::string("pre_space"); },
                          [](sep_zwsp const&) { return std::string("zwsp"); },
                          [](sep_wrap_opportunity const&) { return std::string("wrap_opportunity"); },
                          [](sep_cjk_zw_space const&) { return std::string("cjk_zw_space"); },
                          [](sep_charlike_space const& c) { return "charlike_space " + width_text(c.charlike_width); },
                      },
                      s);
}

void blocks(std::string& out, block_list const& list, int depth);
void one_block(std::string& out, block const& b, int depth);

void spans(std::string& out, std::vector<span> const& list, std::u32string_view text, int depth) {
    for (auto const& s : list) {
        std::visit(overloaded{
                       [&](span_nested const& n) {
                           out += indent(depth) + "span " + type_text(n.nested->span_type);
                           if (n.nested->span_direction) {
                               out += " level=" + std::to_string(*n.nested->span_direction);
                           }
                           out += "\n";
                           spans(out, n.nested->span_content, text, depth + 1);
                       },
                       [&](span_footnote const& f) {
                           out += indent(depth) + "footnote\n";
                           std::visit(overloaded{
                                          [&](block_footnote const& b) { one_block(out, *b.footnote_block, depth + 1); },
                                          [&](inline_footnote const& i) { spans(out, i.footnote_spans, text, depth + 1); },
                                      },
                                      f.note->footnote_body);
                       },
                       [&](span_inline_block const& b) {
                           out += indent(depth) + "inline_block\n";
                           one_block(out, *b.inline_block, depth + 1);
                       },
                       [&](span_text const& t) { out += indent(depth) + "text " + quoted(text_of(text, t.text)) + "\n"; },
                       [&](span_text_with_hyphen const& t) {
                           out += indent(depth) + "text_with_hyphen " + quoted(text_of(text, t.text)) +
                                  (t.hyphen == hyphen_type::soft ? " soft" : " hard") + "\n";
                       },
                       [&](span_glyph_index const& g) {
                           out += indent(depth) + "glyph " + std::to_string(g.glyph_index) + "\n";
                       },
                       [&](span_sep const& s) { out += indent(depth) + "sep " + sep_text(s.sep) + "\n"; },
                       [&](span_leader const& l) { out += indent(depth) + "leader " + quoted(*l.leader_pattern) + "\n"; },
                       [&](span_gen_content const&) { out += indent(depth) + "gen_content\n"; },
                       [&](span_script_func const&) { out += indent(depth) + "script_func\n"; },
                       [&](span_first_letter const& f) {
                           out += indent(depth) + "first_letter " + quoted(text_of(text, f.first_letter_text)) + "\n";
                       },
                   },
                   s);
    }
}

void rowgroup_text(std::string& out, std::string const& what, rowgroup const& g, int depth) {
    out += indent(depth) + what + " " + type_text(g.rowgroup_type) + "\n";
    for (auto const& r : g.rowgroup_content) {
        out += indent(depth + 1) + "row " + type_text(r.row_type) + "\n";
        for (auto const& c : r.row_content) {
            if (auto const* cc = std::get_if<cell_cell>(&c)) {
                out += indent(depth + 2) + "cell " + type_text(cc->cell.cell_type);
                if (cc->cell.cell_colspan != 1) {
                    out += " colspan=" + std::to_string(cc->cell.cell_colspan);
                }
                if (cc->cell.cell_rowspan != 1) {
                    out += " rowspan=" + std::to_string(cc->cell.cell_rowspan);
                }
                out += "\n";
                blocks(out, cc->cell.cell_content.blocks, depth + 3);
            } else {
                out += indent(depth + 2) + "spanned\n";
            }
        }
    }
}

void content(std::string& out, bcontent const& c, int depth) {
    std::visit(overloaded{
                   [&](bcontent_blocks const& b) {
                       if (b.column_id) {
                           out += indent(depth) + "columns " + std::to_string(*b.column_id) + "\n";
                           blocks(out, b.blocks, depth + 1);
                       } else {
                           blocks(out, b.blocks, depth);
                       }
                   },
                   [&](bcontent_para const& p) {
                       out += indent(depth) + "para";
                       if (p.para.first_line_style) {
                           out += " first-line(" + std::to_string(p.para.first_line_style->size()) + ")";
                       }
                       out += "\n";
                       spans(out, p.para.para_spans, p.para.para_text ? std::u32string_view(*p.para.para_text) : std::u32string_view(), depth + 1);
                   },
                   [&](bcontent_table const& t) {
                       out += indent(depth) + "table\n";
                       for (auto const& c : t.table->caption_tops) {
                           out += indent(depth + 1) + "caption top\n";
                           one_block(out, c, depth + 2);
                       }
                       for (auto const& g : t.table->table.colgroups) {
                           out += indent(depth + 1) + "colgroup " + std::to_string(g.colgroup_cols.size()) + "\n";
                       }
                       if (t.table->table.header) {
                           rowgroup_text(out, "header", *t.table->table.header, depth + 1);
                       }
                       for (auto const& g : t.table->table.body) {
                           rowgroup_text(out, "rowgroup", g, depth + 1);
                       }
                       if (t.table->table.footer) {
                           rowgroup_text(out, "footer", *t.table->table.footer, depth + 1);
                       }
                       for (auto const& c : t.table->caption_bottoms) {
                           out += indent(depth + 1) + "caption bottom\n";
                           one_block(out, c, depth + 2);
                       }
                   },
                   [&](bcontent_computed_table_box const&) { out += indent(depth) + "computed_table_box\n"; },
                   [&](bcontent_computed_table const&) { out += indent(depth) + "computed_table\n"; },
                   [&](bcontent_list_item const& l) {
                       std::visit(overloaded{
                                      [&](marker_inside const&) { out += indent(depth) + "marker inside\n"; },
                                      [&](marker_outside const& m) {
                                          out += indent(depth) + "marker outside\n";
                                          if (m.marker_block) {
                                              content(out, (*m.marker_block)->block_content, depth + 1);
                                          }
                                      },
                                  },
                                  l.item.marker);
                       blocks(out, l.item.content, depth);
                   },
                   [&](bcontent_svg const&) { out += indent(depth) + "svg\n"; },
                   [&](bcontent_image const&) { out += indent(depth) + "image\n"; },
               },
               c);
}

void one_block(std::string& out, block const& b, int depth) {
    out += indent(depth) + "block " + type_text(b.block_type) + "\n";
    content(out, b.block_content, depth + 1);
}

void blocks(std::string& out, block_list const& list, int depth) {
    for (auto const& b : list) {
        one_block(out, b, depth);
    }
}

std::string reset_text(std::optional<page_reset> const& r) {
    if (!r) {
        return "";
    }
    return std::visit(overloaded{
                          [](page_reset_to const& t) { return " reset " + std::to_string(t.reset); },
                          [](page_increment_by const& t) { return " increment " + std::to_string(t.increment); },
                      },
                      *r);
}

} // namespace

std::string dump_spans(std::vector<span> const& list, std::u32string_view text, int depth) {
    std::string out;
    spans(out, list, text, depth);
    return out;
}

std::string dump_document(pack_document const& doc) {
    std::string out;
    for (auto const& sec : doc.pack_doc_content) {
        auto const& d = sec.sec_desc;
        out += "section page=" + d.sec_page_name.value_or("auto") +
               (d.sec_page_group == css::box::page_group::start ? " group=start" : "") +
               " prev-after=" + page_break_name(d.prev_page_break_after) +
               " before=" + page_break_name(d.sec_page_break_before) +
               " after=" + page_break_name(d.sec_page_break_after);
        if (d.sec_page_counter_reset) {
            out += " page:" + reset_text(d.sec_page_counter_reset);
        }
        if (d.sec_pages_counter_reset) {
            out += " pages:" + reset_text(d.sec_pages_counter_reset);
        }
        out += "\n";
        blocks(out, sec.sec_blocks, 1);
    }
    for (auto const& f : doc.static_flows) {
        out += "flow " + f.flow_name + "\n";
        one_block(out, f.flow_block, 1);
    }
    return out;
}

} // namespace vellum::prepack::dump
