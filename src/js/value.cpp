#include "js/value.hpp"

#include "util/result.hpp"

namespace vellum::js::eval {

js_object js_object_ref::get() const {
    if (!ref_object) {
        throw internal_error("cannot get null js_object_ref");
    }
    return *ref_object;
}

void js_object_ref::set(js_object o) {
    if (ref_object) {
        throw internal_error("cannot set non-null js_object_ref");
    }
    ref_object = o;
}

void js_object_ref::clear() {
    if (!ref_object) {
        throw internal_error("cannot clear null js_object_ref");
    }
    ref_object.reset();
}

js_value arg(std::vector<js_value> const& args, std::size_t i) {
    return i < args.size() ? args[i] : undefined();
}

} // namespace vellum::js::eval
