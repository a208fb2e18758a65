#include "host/webidl.hpp"

#include "js/engine.hpp"
#include "js/object.hpp"

#include <memory>

namespace vellum::webidl {

namespace e = js::eval;

webidl_interface make_interface(e::js& engine,
                                std::string const& name,
                                std::optional<webidl_interface> const& parent,
                                std::optional<e::host_value> construct) {
    auto ctor_host = std::make_shared<webidl_interface_object>();
    ctor_host->interface_name = name;
    ctor_host->interface_construct = std::move(construct);
    js_object const ctor = e::new_function(engine, e::host_constructor{.constructor_host = ctor_host});
    auto proto_host = std::make_shared<webidl_prototype_object>();
    proto_host->prototype_name = name;
    js_object const proto = e::new_object_of(engine, e::class_host_object{.host_object = proto_host},
                                             e::yes_proto{.proto = parent ? parent->prototype : engine.object_prototype});
    e::define_value(ctor, "prototype", proto, e::all_attrs);
    e::define_value(proto, "constructor", ctor, e::attrs{}.with(e::attr::no_enum));
    e::define_value(engine.global_object, name, ctor, e::attrs{}.with(e::attr::no_enum));
    return webidl_interface{.constructor = ctor, .prototype = proto};
}

js_object add_method(e::js& engine, js_object target, std::string const& name, e::host_value h, int length) {
    js_object const f = e::new_function(engine, e::host_func{.func_host = std::move(h)});
    e::define_value(f, "length", js::number{std::int64_t{length}}, e::all_attrs);
    e::define_value(target, name, f, e::attrs{}.with(e::attr::no_enum));
    return f;
}

e::host_value native_value(native_fn f) {
    auto h = std::make_shared<native_func>();
    h->native_body = std::move(f);
    return h;
}

js_object add_native_method(e::js& engine, js_object target, std::string const& name, int length, native_fn f) {
    return add_method(engine, target, name, native_value(std::move(f)), length);
}

void add_native_accessor(e::js& engine, js_object target, std::string const& name, native_fn getter,
                         std::optional<native_fn> setter) {
    // Function objects rather than host accessors: the engine calls them with the object as `this`,
    // which a prototype's accessor needs to find the node it answers for.
    js_object const get = e::new_function(engine, e::host_func{.func_host = native_value(std::move(getter))});
    std::optional<e::accessor> set;
    if (setter) {
        set = e::js_accessor{.accessor_func = e::new_function(engine, e::host_func{.func_host = native_value(std::move(*setter))})};
    }
    e::define_own_property(target, e::key_of_utf8(name),
                           e::prop_host{.host_getter = e::js_accessor{.accessor_func = get}, .host_setter = set},
                           e::attrs{}.with(e::attr::no_enum));
}

void add_constant(js_object target, std::string const& name, e::js_value value) {
    e::define_value(target, name, std::move(value), e::attrs{}.with(e::attr::read_only).with(e::attr::no_delete));
}

} // namespace vellum::webidl
