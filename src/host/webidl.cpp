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

} // namespace vellum::webidl
