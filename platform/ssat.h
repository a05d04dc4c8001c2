// Debug command framework: commands of a module, each a name, an argument
// format and a handler, called on the event thread one at a time with the
// operator's words read by the format: %d a number, %s a text, %m a MAC
// address (reference to 6 bytes). What a handler prints on standard output
// goes back to the operator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <type_traits>
#include <utility>

#include "kw_runtime.h"

// 0 means that commands can be registered for the module.
int ssat_lib_init(kw_global *global, const char *module);

// One argument as the framework read it.
union ssat_arg {
    long num;
    const char *str;
    const uint8_t *mac;
};

// Type-erased handler: calls the registered function with its own type.
using ssat_invoker = std::function<int(std::span<const ssat_arg>)>;

int ssat_reg_mod_cmd_erased(const char *module, const char *cmd, int flags,
                            const char *fmt, ssat_invoker invoke,
                            size_t arity);

namespace ssat_detail {
template <class T> T arg_as(const ssat_arg &a) {
    if constexpr (std::is_pointer_v<T>) {
        if constexpr (std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, char>)
            return const_cast<T>(a.str);
        else
            return const_cast<T>(reinterpret_cast<const std::remove_pointer_t<T> *>(a.mac));
    } else {
        return static_cast<T>(a.num);
    }
}
}  // namespace ssat_detail

// Registers `handler` with its real signature: the framework never calls a
// function through a type that is not its own. Arguments that the format
// does not give reach the handler as 0 (null for a reference).
template <class R, class... A>
int ssat_reg_mod_cmd(const char *module, const char *cmd, int flags,
                     const char *fmt, R (*handler)(A...)) {
    ssat_invoker inv = [handler](std::span<const ssat_arg> args) -> int {
        return [&]<size_t... I>(std::index_sequence<I...>) {
            return static_cast<int>(handler(ssat_detail::arg_as<A>(
                I < args.size() ? args[I] : ssat_arg{0})...));
        }(std::index_sequence_for<A...>{});
    };
    return ssat_reg_mod_cmd_erased(module, cmd, flags, fmt, std::move(inv),
                                   sizeof...(A));
}

// snprintf with %m in addition: a reference to 6 bytes printed as
// 00:11:22:33:44:55, with width and '-' flag honoured.
int at_snprintf(char *buf, size_t size, const char *fmt, ...);
