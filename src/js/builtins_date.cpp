// `Date`: time values (milliseconds since 1970 in UTC, NaN for an invalid date), the calendar arithmetic
// of the standard, local time through the system's time zone, and the text forms both ways.
#include "js/builtins.hpp"
#include "util/result.hpp"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <string>

namespace vellum::js::eval::builtins {

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double ms_per_day = 86400000.0;

constexpr char const* day_names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr char const* month_names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

double positive_mod(double a, double b) {
    double const m = std::fmod(a, b);
    return m < 0 ? m + b : m;
}

double day_of(double t) {
    return std::floor(t / ms_per_day);
}

double day_from_year(double y) {
    return 365 * (y - 1970) + std::floor((y - 1969) / 4) - std::floor((y - 1901) / 100) +
           std::floor((y - 1601) / 400);
}

double time_from_year(double y) {
    return ms_per_day * day_from_year(y);
}

bool leap_year(double y) {
    return std::fmod(y, 4) == 0 && (std::fmod(y, 100) != 0 || std::fmod(y, 400) == 0);
}

double year_from_time(double t) {
    double y = std::floor(t / (365.2425 * ms_per_day)) + 1970;
    // The estimate is off by at most one year either way.
    for (int step = 0; step < 4; ++step) {
        if (time_from_year(y) > t) {
            --y;
        } else if (time_from_year(y + 1) <= t) {
            ++y;
        } else {
            return y;
        }
    }
    throw internal_error("year_from_time failed.");
}

// The day of the year on which each month starts.
double month_start(int month, bool leap) {
    static constexpr int starts[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
    if (month < 0 || month > 12) {
        throw internal_error("month number: out of range.");
    }
    return starts[month] + (leap && month >= 2 ? 1 : 0);
}

struct calendar {
    double year = 0;
    int month = 0;
    double date = 1;
};

calendar calendar_of(double t) {
    double const year = year_from_time(t);
    bool const leap = leap_year(year);
    double const in_year = day_of(t) - day_from_year(year);
    for (int m = 0; m < 12; ++m) {
        if (in_year < month_start(m + 1, leap)) {
            return calendar{.year = year, .month = m, .date = in_year - month_start(m, leap) + 1};
        }
    }
    throw internal_error("month_from_time failed.");
}

double make_time(double h, double m, double s, double ms) {
    if (!std::isfinite(h) || !std::isfinite(m) || !std::isfinite(s) || !std::isfinite(ms)) {
        return nan_value;
    }
    return std::trunc(h) * 3600000.0 + std::trunc(m) * 60000.0 + std::trunc(s) * 1000.0 + std::trunc(ms);
}

double make_day(double year, double month, double date) {
    if (!std::isfinite(year) || !std::isfinite(month) || !std::isfinite(date)) {
        return nan_value;
    }
    double const y = std::trunc(year) + std::floor(std::trunc(month) / 12);
    auto const m = static_cast<int>(positive_mod(std::trunc(month), 12));
    // Far beyond the range of dates the calendar no longer matters: the result is clipped anyway.
    if (std::abs(y) > 400000) {
        return nan_value;
    }
    return day_from_year(y) + month_start(m, leap_year(y)) + std::trunc(date) - 1;
}

double make_date(double day, double time) {
    if (!std::isfinite(day) || !std::isfinite(time)) {
        return nan_value;
    }
    return day * ms_per_day + time;
}

double time_clip(double t) {
    if (!std::isfinite(t) || std::abs(t) > 8.64e15) {
        return nan_value;
    }
    return std::trunc(t) + 0.0;
}

// The offset of local time from UTC at a moment, in milliseconds, as the system's time zone has it.
double local_offset(double t_utc) {
    if (!std::isfinite(t_utc)) {
        return 0;
    }
    auto const seconds = static_cast<std::time_t>(std::floor(t_utc / 1000));
    std::tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) {
        return 0;
    }
    return static_cast<double>(parts.tm_gmtoff) * 1000.0;
}

double local_time(double t) {
    return t + local_offset(t);
}

// The moment at which local time reads `t`. The offset is looked up near the answer, so that a time
// just after a change of offset finds the offset in force then.
double utc_of_local(double t) {
    return t - local_offset(t - local_offset(t));
}

struct fields {
    calendar fields_day;
    double hours = 0;
    double minutes = 0;
    double seconds = 0;
    double milliseconds = 0;
    int weekday = 0;
};

fields fields_of(double t) {
    double const in_day = positive_mod(t, ms_per_day);
    return fields{.fields_day = calendar_of(t),
                  .hours = std::floor(in_day / 3600000.0),
                  .minutes = positive_mod(std::floor(in_day / 60000.0), 60),
                  .seconds = positive_mod(std::floor(in_day / 1000.0), 60),
                  .milliseconds = positive_mod(in_day, 1000),
                  .weekday = static_cast<int>(positive_mod(day_of(t) + 4, 7))};
}

std::string year_text(double year) {
    char buf[32];
    std::snprintf(buf, sizeof buf, year < 0 ? "-%06.0f" : "%04.0f", std::abs(year));
    return buf;
}

std::string two(double v) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "%02d", static_cast<int>(v));
    return buf;
}

std::string date_text(fields const& f) {
    return std::string(day_names[f.weekday]) + " " + month_names[f.fields_day.month] + " " +
           two(f.fields_day.date) + " " + year_text(f.fields_day.year);
}

std::string clock_text(fields const& f) {
    return two(f.hours) + ":" + two(f.minutes) + ":" + two(f.seconds);
}

std::string offset_text(double offset_ms) {
    auto const minutes = static_cast<int>(std::abs(offset_ms) / 60000);
    char buf[16];
    std::snprintf(buf, sizeof buf, "GMT%c%02d%02d", offset_ms < 0 ? '-' : '+', minutes / 60, minutes % 60);
    return buf;
}

// The text forms of a date.
std::optional<std::string> format(date_func kind, double t) {
    if (std::isnan(t)) {
        return std::nullopt;
    }
    double const offset = local_offset(t);
    fields const local = fields_of(t + offset);
    switch (kind) {
    case date_func::date_to_string:
        return date_text(local) + " " + clock_text(local) + " " + offset_text(offset);
    case date_func::date_to_date_string:
    case date_func::date_to_locale_date_string:
        return date_text(local);
    case date_func::date_to_time_string:
        return clock_text(local) + " " + offset_text(offset);
    case date_func::date_to_locale_string:
        return date_text(local) + " " + clock_text(local);
    case date_func::date_to_locale_time_string:
        return clock_text(local);
    case date_func::date_to_utc_string: {
        fields const u = fields_of(t);
        return std::string(day_names[u.weekday]) + ", " + two(u.fields_day.date) + " " +
               month_names[u.fields_day.month] + " " + year_text(u.fields_day.year) + " " + clock_text(u) +
               " GMT";
    }
    case date_func::date_to_iso_string: {
        fields const u = fields_of(t);
        double const y = u.fields_day.year;
        char year[16];
        if (y >= 0 && y <= 9999) {
            std::snprintf(year, sizeof year, "%04.0f", y);
        } else {
            std::snprintf(year, sizeof year, "%c%06.0f", y < 0 ? '-' : '+', std::abs(y));
        }
        char buf[64];
        std::snprintf(buf, sizeof buf, "%s-%02d-%02dT%02d:%02d:%02d.%03dZ", year, u.fields_day.month + 1,
                      static_cast<int>(u.fields_day.date), static_cast<int>(u.hours),
                      static_cast<int>(u.minutes), static_cast<int>(u.seconds),
                      static_cast<int>(u.milliseconds));
        return std::string(buf);
    }
    case date_func::date_constructor:
    case date_func::date_parse:
    case date_func::date_utc:
    case date_func::date_now:
    case date_func::date_value_of:
    case date_func::date_get_time:
    case date_func::date_set_time:
        break;
    }
    throw internal_error("date format: unexpected form.");
}

// Parsing: first the standard's interchange form, then the looser forms of `toString`, `toUTCString`
// and common writing ("Nov 26 2026 10:00 PM", "11/26/2026").

struct cursor {
    std::u32string_view text;
    std::size_t at = 0;

    bool done() const { return at >= text.size(); }

    char32_t peek() const { return done() ? 0 : text[at]; }

    bool eat(char32_t c) {
        if (peek() == c) {
            ++at;
            return true;
        }
        return false;
    }

    // Exactly n digits.
    std::optional<int> digits(int n) {
        int v = 0;
        for (int k = 0; k < n; ++k) {
            char32_t const c = peek();
            if (c < '0' || c > '9') {
                return std::nullopt;
            }
            v = v * 10 + static_cast<int>(c - '0');
            ++at;
        }
        return v;
    }
};

double parse_iso(std::u32string_view s) {
    cursor c{.text = s};
    double year = 0;
    if (c.peek() == '+' || c.peek() == '-') {
        bool const negative = c.peek() == '-';
        ++c.at;
        auto y = c.digits(6);
        if (!y) {
            return nan_value;
        }
        year = negative ? -*y : *y;
    } else if (auto y = c.digits(4)) {
        year = *y;
    } else {
        return nan_value;
    }
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    double ms = 0;
    double offset = 0;
    if (c.eat('-')) {
        auto m = c.digits(2);
        if (!m) {
            return nan_value;
        }
        month = *m;
        if (c.eat('-')) {
            auto d = c.digits(2);
            if (!d) {
                return nan_value;
            }
            day = *d;
        }
    }
    if (c.eat('T')) {
        auto h = c.digits(2);
        auto m = c.eat(':') ? c.digits(2) : std::nullopt;
        if (!h || !m) {
            return nan_value;
        }
        hour = *h;
        minute = *m;
        if (c.eat(':')) {
            auto sec = c.digits(2);
            if (!sec) {
                return nan_value;
            }
            second = *sec;
            if (c.eat('.')) {
                double scale = 100;
                bool any = false;
                while (c.peek() >= '0' && c.peek() <= '9') {
                    ms += static_cast<double>(c.peek() - '0') * scale;
                    scale /= 10;
                    ++c.at;
                    any = true;
                }
                if (!any) {
                    return nan_value;
                }
                ms = std::floor(ms);
            }
        }
        if (c.eat('Z')) {
        } else if (c.peek() == '+' || c.peek() == '-') {
            double const sign = c.peek() == '-' ? -1 : 1;
            ++c.at;
            auto oh = c.digits(2);
            auto om = c.eat(':') ? c.digits(2) : std::nullopt;
            if (!oh || !om || *oh > 23 || *om > 59) {
                return nan_value;
            }
            offset = sign * (*oh * 60 + *om) * 60000.0;
        }
    }
    if (!c.done() || month < 1 || month > 12 || day < 1 || day > 31 || hour > 24 || minute > 59 ||
        second > 59 || (hour == 24 && (minute != 0 || second != 0 || ms != 0))) {
        return nan_value;
    }
    if (day > month_start(month, leap_year(year)) - month_start(month - 1, leap_year(year))) {
        return nan_value;
    }
    double const t = make_date(make_day(year, month - 1, day), make_time(hour, minute, second, ms));
    return time_clip(t - offset);
}

std::optional<int> month_of_word(std::u32string const& word) {
    for (int m = 0; m < 12; ++m) {
        std::u32string name;
        for (char const* p = month_names[m]; *p; ++p) {
            name.push_back(static_cast<char32_t>(*p));
        }
        if (word.size() >= 3 && word.substr(0, 3) == name) {
            return m;
        }
    }
    return std::nullopt;
}

bool is_weekday_word(std::u32string const& word) {
    for (char const* d : day_names) {
        std::u32string name;
        for (char const* p = d; *p; ++p) {
            name.push_back(static_cast<char32_t>(*p));
        }
        if (word.size() >= 3 && word.substr(0, 3) == name) {
            return true;
        }
    }
    return false;
}

double parse_loose(std::u32string_view s) {
    cursor c{.text = s};
    std::optional<double> year;
    std::optional<int> month;
    std::optional<double> day;
    double hour = 0;
    double minute = 0;
    double second = 0;
    std::optional<double> offset;
    std::optional<bool> pm;
    bool have_time = false;
    auto number_here = [&]() -> std::optional<double> {
        double v = 0;
        bool any = false;
        while (c.peek() >= '0' && c.peek() <= '9') {
            v = v * 10 + static_cast<double>(c.peek() - '0');
            ++c.at;
            any = true;
        }
        return any ? std::optional(v) : std::nullopt;
    };
    while (!c.done()) {
        char32_t const ch = c.peek();
        if (ch == ' ' || ch == ',' || ch == '\t') {
            ++c.at;
        } else if (ch == '(') {
            // A comment, such as the zone name some programs write after the offset.
            while (!c.done() && c.peek() != ')') {
                ++c.at;
            }
            c.eat(')');
        } else if ((ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z')) {
            std::u32string word;
            while ((c.peek() >= 'A' && c.peek() <= 'Z') || (c.peek() >= 'a' && c.peek() <= 'z')) {
                char32_t const w = c.peek();
                word.push_back(word.empty() ? (w >= 'a' ? w - 32 : w) : (w <= 'Z' ? w + 32 : w));
                ++c.at;
            }
            if (word == U"Am" || word == U"Pm") {
                pm = word == U"Pm";
            } else if (word == U"Gmt" || word == U"Utc" || word == U"Ut" || word == U"Z") {
                offset = 0;
            } else if (auto m = month_of_word(word)) {
                month = *m;
            } else if (!is_weekday_word(word)) {
                return nan_value;
            }
        } else if ((ch == '+' || ch == '-') && (have_time || offset)) {
            double const sign = ch == '-' ? -1 : 1;
            ++c.at;
            std::size_t const start = c.at;
            auto n = number_here();
            if (!n) {
                return nan_value;
            }
            double minutes = 0;
            if (c.eat(':')) {
                auto m = number_here();
                if (!m) {
                    return nan_value;
                }
                minutes = *n * 60 + *m;
            } else {
                minutes = c.at - start <= 2 ? *n * 60 : std::floor(*n / 100) * 60 + std::fmod(*n, 100);
            }
            offset = sign * minutes * 60000.0;
        } else if (ch == '-' && !year) {
            // A negative year, as `toString` writes years before 1 BC.
            ++c.at;
            auto n = number_here();
            if (!n) {
                return nan_value;
            }
            year = -*n;
        } else if (ch >= '0' && ch <= '9') {
            std::size_t const start = c.at;
            double const n = *number_here();
            if (c.eat(':')) {
                auto m = number_here();
                if (!m) {
                    return nan_value;
                }
                hour = n;
                minute = *m;
                if (c.eat(':')) {
                    auto sec = number_here();
                    if (!sec) {
                        return nan_value;
                    }
                    second = *sec;
                }
                have_time = true;
            } else if (c.peek() == '/' || (c.peek() == '-' && c.at - start >= 3)) {
                // Month/day/year, or year/month/day and year-month-day when the first number is a year
                // (as in "2024-01-31 10:00", the interchange form with a space for the "T").
                char32_t const separator = c.peek();
                ++c.at;
                auto second_number = number_here();
                if (!second_number || !c.eat(separator)) {
                    return nan_value;
                }
                auto third_number = number_here();
                if (!third_number) {
                    return nan_value;
                }
                bool const year_first = separator == '-' || n >= 100;
                double const month_number = year_first ? *second_number : n;
                if (month_number < 1 || month_number > 12) {
                    return nan_value;
                }
                month = static_cast<int>(month_number) - 1;
                day = year_first ? *third_number : *second_number;
                year = year_first ? n : *third_number;
            } else if (c.at - start >= 3 || day) {
                year = n;
            } else {
                day = n;
            }
        } else {
            return nan_value;
        }
    }
    if (!year || !month || !day || *month < 0 || *month > 11 || *day < 1 || *day > 31) {
        return nan_value;
    }
    if (*year >= 0 && *year < 100) {
        *year += 1900;
    }
    if (*day > month_start(*month + 1, leap_year(*year)) - month_start(*month, leap_year(*year))) {
        return nan_value;
    }
    if (pm) {
        if (hour > 12) {
            return nan_value;
        }
        hour = std::fmod(hour, 12) + (*pm ? 12 : 0);
    }
    if (hour > 24 || minute > 59 || second > 59) {
        return nan_value;
    }
    double const t = make_date(make_day(*year, *month, *day), make_time(hour, minute, second, 0));
    return time_clip(offset ? t - *offset : utc_of_local(t));
}

double parse_date(js_string const& s) {
    double const iso = parse_iso(s.code_points());
    return std::isnan(iso) ? parse_loose(s.code_points()) : iso;
}

double now() {
    using namespace std::chrono;
    return static_cast<double>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

// The numbers of the arguments from `from` on (at most `count`), all converted even when one is NaN.
expr_res<std::vector<double>> numbers_of(call_info const& c, std::size_t from, std::size_t count) {
    std::vector<double> out;
    for (std::size_t i = from; i < c.args.size() && out.size() < count; ++i) {
        double d = 0;
        if (auto e = take(to_double_value(c.engine, c.args[i]), d)) {
            return *e;
        }
        out.push_back(d);
    }
    return out;
}

// The time of year, month, day, hours, minutes, seconds, ms as the arguments of `Date.UTC` and of the
// constructor give them: two-digit years are of the 1900s.
expr_res<double> time_of_parts(call_info const& c) {
    std::vector<double> v;
    if (auto e = take(numbers_of(c, 0, 7), v)) {
        return *e;
    }
    v.resize(7, 0);
    if (c.args.size() < 3) {
        v[2] = 1;
    }
    double year = v[0];
    if (!std::isnan(year) && std::trunc(year) >= 0 && std::trunc(year) <= 99) {
        year = 1900 + std::trunc(year);
    }
    return make_date(make_day(year, v[1], v[2]), make_time(v[3], v[4], v[5], v[6]));
}

js_value time_value(double t) {
    return number_value(t);
}

class_date* date_of(js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    return o ? std::get_if<class_date>(&(*o)->obj_class) : nullptr;
}

expr_res<js_value> date_constructor(call_info const& c) {
    if (!c.constructing) {
        return text(*format(date_func::date_to_string, time_clip(now())));
    }
    double t = 0;
    if (c.args.empty()) {
        t = time_clip(now());
    } else if (class_date const* other = date_of(c.arg(0)); other != nullptr && c.args.size() == 1) {
        // A copy keeps the milliseconds, which the text form would lose.
        t = other->time_value;
    } else if (c.args.size() == 1) {
        js_value v;
        if (auto e = take(to_primitive(c.engine, c.arg(0)), v)) {
            return *e;
        }
        if (auto const* s = std::get_if<js_string>(&v)) {
            t = parse_date(*s);
        } else {
            double d = 0;
            if (auto e = take(to_double_value(c.engine, v), d)) {
                return *e;
            }
            t = time_clip(d);
        }
    } else {
        double local = 0;
        if (auto e = take(time_of_parts(c), local)) {
            return *e;
        }
        t = time_clip(utc_of_local(local));
    }
    return new_object_of(c.engine, class_date{.time_value = t}, yes_proto{.proto = c.engine.date_prototype});
}

double field_value(fields const& f, date_field field) {
    switch (field) {
    case date_field::full_year:
        return f.fields_day.year;
    case date_field::month:
        return f.fields_day.month;
    case date_field::date:
        return f.fields_day.date;
    case date_field::day:
        return f.weekday;
    case date_field::hours:
        return f.hours;
    case date_field::minutes:
        return f.minutes;
    case date_field::seconds:
        return f.seconds;
    case date_field::milliseconds:
        return f.milliseconds;
    }
    throw internal_error("field_value: unexpected field.");
}

} // namespace

expr_res<js_value> call_date(call_info const& c, date_func f) {
    class_date* const d = date_of(c.this_value);
    auto text_form = [&]() -> expr_res<js_value> {
        if (d == nullptr) {
            return throw_error(c.engine, js_error::not_date);
        }
        if (auto form = format(f, d->time_value)) {
            return text(*form);
        }
        if (f == date_func::date_to_iso_string) {
            return throw_error(c.engine, js_error_res{.error_kind = js_error::range_error,
                                                      .error_detail = text("invalid date")});
        }
        return text("Invalid Date");
    };
    switch (f) {
    case date_func::date_constructor:
        return date_constructor(c);
    case date_func::date_parse: {
        js_string s;
        if (auto e = take(to_string(c.engine, c.arg(0)), s)) {
            return *e;
        }
        return time_value(parse_date(s));
    }
    case date_func::date_utc: {
        double t = 0;
        if (auto e = take(time_of_parts(c), t)) {
            return *e;
        }
        return time_value(time_clip(t));
    }
    case date_func::date_now:
        return time_value(now());
    case date_func::date_value_of:
    case date_func::date_get_time:
        if (d == nullptr) {
            return throw_error(c.engine, js_error::not_date);
        }
        return time_value(d->time_value);
    case date_func::date_set_time: {
        if (d == nullptr) {
            return throw_error(c.engine, js_error::not_date);
        }
        double t = 0;
        if (auto e = take(to_double_value(c.engine, c.arg(0)), t)) {
            return *e;
        }
        d->time_value = time_clip(t);
        return time_value(d->time_value);
    }
    case date_func::date_to_string:
    case date_func::date_to_date_string:
    case date_func::date_to_time_string:
    case date_func::date_to_locale_string:
    case date_func::date_to_locale_date_string:
    case date_func::date_to_locale_time_string:
    case date_func::date_to_utc_string:
    case date_func::date_to_iso_string:
        return text_form();
    }
    throw internal_error("call_date: unexpected function.");
}

expr_res<js_value> call_date_field(call_info const& c, date_field_func f) {
    if (date_of(c.this_value) == nullptr) {
        return throw_error(c.engine, js_error::not_date);
    }
    if (!f.field_set) {
        double const t = date_of(c.this_value)->time_value;
        if (std::isnan(t)) {
            return number{nan_value};
        }
        return time_value(field_value(fields_of(f.field_utc ? t : local_time(t)), f.field));
    }
    // The arguments a setter takes: its own field and the finer ones after it, in the order of `fields`.
    std::size_t const first = f.field == date_field::full_year ? 0
                              : f.field == date_field::month   ? 1
                              : f.field == date_field::date    ? 2
                              : f.field == date_field::hours   ? 3
                              : f.field == date_field::minutes ? 4
                              : f.field == date_field::seconds ? 5
                                                               : 6;
    std::size_t const takes = first == 0 ? 3 : first == 1 ? 2 : first == 2 ? 1 : 7 - first;
    std::vector<double> given;
    if (auto e = take(numbers_of(c, 0, takes), given)) {
        return *e;
    }
    if (given.empty()) {
        given.push_back(nan_value);
    }
    class_date* d = date_of(c.this_value);
    double t = d->time_value;
    if (std::isnan(t)) {
        if (f.field != date_field::full_year) {
            return number{nan_value};
        }
        t = 0;
    } else if (!f.field_utc) {
        t = local_time(t);
    }
    fields const now_fields = fields_of(t);
    double parts[7] = {now_fields.fields_day.year, static_cast<double>(now_fields.fields_day.month),
                       now_fields.fields_day.date, now_fields.hours,
                       now_fields.minutes,         now_fields.seconds,
                       now_fields.milliseconds};
    for (std::size_t k = 0; k < given.size(); ++k) {
        parts[first + k] = given[k];
    }
    double const changed =
        make_date(make_day(parts[0], parts[1], parts[2]), make_time(parts[3], parts[4], parts[5], parts[6]));
    d->time_value = time_clip(f.field_utc ? changed : utc_of_local(changed));
    return time_value(d->time_value);
}

void install_date(js& engine) {
    js_object const proto = engine.date_prototype;
    js_object const ctor = define_constructor(
        engine, "Date", standard_func{.standard_kind = date_func::date_constructor}, 7, proto);
    define_method(engine, ctor, "parse", standard_func{.standard_kind = date_func::date_parse}, 1);
    define_method(engine, ctor, "UTC", standard_func{.standard_kind = date_func::date_utc}, 7);
    define_method(engine, ctor, "now", standard_func{.standard_kind = date_func::date_now}, 0);
    define_methods(engine, proto,
                   {
                       {"toString", {date_func::date_to_string}, 0},
                       {"toDateString", {date_func::date_to_date_string}, 0},
                       {"toTimeString", {date_func::date_to_time_string}, 0},
                       {"toLocaleString", {date_func::date_to_locale_string}, 0},
                       {"toLocaleDateString", {date_func::date_to_locale_date_string}, 0},
                       {"toLocaleTimeString", {date_func::date_to_locale_time_string}, 0},
                       {"toUTCString", {date_func::date_to_utc_string}, 0},
                       {"toISOString", {date_func::date_to_iso_string}, 0},
                       {"valueOf", {date_func::date_value_of}, 0},
                       {"getTime", {date_func::date_get_time}, 0},
                       {"setTime", {date_func::date_set_time}, 1},
                   });

    struct field_entry {
        char const* name;
        date_field field;
        int setter_length;
    };

    static constexpr field_entry field_entries[] = {
        {"FullYear", date_field::full_year, 3}, {"Month", date_field::month, 2},
        {"Date", date_field::date, 1},          {"Day", date_field::day, 0},
        {"Hours", date_field::hours, 4},        {"Minutes", date_field::minutes, 3},
        {"Seconds", date_field::seconds, 2},    {"Milliseconds", date_field::milliseconds, 1},
    };
    for (auto const& fe : field_entries) {
        for (bool utc : {false, true}) {
            std::string const zone = utc ? "UTC" : "";
            define_method(
                engine, proto, "get" + zone + fe.name,
                standard_func{.standard_kind = date_field_func{.field = fe.field, .field_utc = utc}}, 0);
            if (fe.field != date_field::day) {
                define_method(engine, proto, "set" + zone + fe.name,
                              standard_func{.standard_kind = date_field_func{.field = fe.field,
                                                                             .field_utc = utc,
                                                                             .field_set = true}},
                              fe.setter_length);
            }
        }
    }
}

} // namespace vellum::js::eval::builtins
