// js_values_bench: the object model of the script engine on its hot paths: reading a property by linear
// search at several object sizes, appending to an array, integer and double arithmetic, and the text of
// numbers both ways. Prints operations per second; takes an optional repeat factor.
#include "driver/log.hpp"
#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/object.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace vellum::js;
using namespace vellum::js::eval;

namespace {

template <class F>
void measure(char const* name, long ops, F&& f) {
    auto start = std::chrono::steady_clock::now();
    f();
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%-44s %12ld ops %8.3f s %14.0f ops/s\n", name, ops, secs, static_cast<double>(ops) / secs);
}

} // namespace

int main(int argc, char** argv) {
    long const scale = argc > 1 ? std::atol(argv[1]) : 1;
    auto engine_ptr = new_engine(vellum::log::log{.log_stderr = vellum::log::no_stderr_log{}}, nullptr, nullptr);
    js& engine = *engine_ptr;
    long sink = 0;

    for (int size : {8, 64, 512}) {
        js_object o = new_object(engine);
        for (int i = 0; i < size; ++i) {
            define_value(o, "property" + std::to_string(i), number{std::int64_t{i}});
        }
        js_prop_string last = key_of_utf8("property" + std::to_string(size - 1));
        long const n = 20000000 * scale / size;
        std::string name = "get last of " + std::to_string(size) + " properties";
        measure(name.c_str(), n, [&] {
            for (long i = 0; i < n; ++i) {
                sink += std::get<js_value>(get(engine, o, last)).index();
            }
        });
    }

    long const items = 1000000 * scale;
    measure("put appending to an array", items, [&] {
        js_object arr = new_array(engine, {});
        for (long i = 0; i < items; ++i) {
            (void)put(engine, arr, key_of_int(i), number{std::int64_t{i}});
        }
        sink += array_length(arr);
    });

    long const sums = 20000000 * scale;
    measure("integer additions", sums, [&] {
        number acc = std::int64_t{0};
        for (long i = 0; i < sums; ++i) {
            acc = add_numbers(acc, number{std::int64_t{i & 7}});
        }
        sink += static_cast<long>(to_double(acc));
    });
    measure("double additions", sums, [&] {
        number acc = 0.5;
        for (long i = 0; i < sums; ++i) {
            acc = add_numbers(acc, number{0.25});
        }
        sink += static_cast<long>(to_double(acc));
    });

    long const texts = 1000000 * scale;
    measure("number_to_string of doubles", texts, [&] {
        for (long i = 0; i < texts; ++i) {
            sink += static_cast<long>(number_to_string(number{static_cast<double>(i) / 7.0}).size());
        }
    });
    js_string const decimal = vellum::jsstring::from_utf8("12345.678");
    js_string const integer = vellum::jsstring::from_utf8("1234567");
    measure("string_to_number of a decimal", texts, [&] {
        for (long i = 0; i < texts; ++i) {
            sink += static_cast<long>(to_double(string_to_number(decimal)));
        }
    });
    measure("string_to_number of an integer", texts, [&] {
        for (long i = 0; i < texts; ++i) {
            sink += static_cast<long>(to_double(string_to_number(integer)));
        }
    });
    std::printf("(checksum %ld)\n", sink);
    return 0;
}
