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

// Results of the framework's own calls, apart from the service's codes and
// from those of the other host components (pools -2xx, capabilities -3xx).
inline constexpr int SSAT_E_PARAM = -401;    // null or invalid name or handler
inline constexpr int SSAT_E_NOLOOP = -402;   // the runtime has no event loop
inline constexpr int SSAT_E_SOCKET = -403;   // the module's socket cannot be served
inline constexpr int SSAT_E_BUSY = -404;     // another process serves the module
inline constexpr int SSAT_E_NOMOD = -405;    // module not initialised
inline constexpr int SSAT_E_FORMAT = -406;   // format does not fit the handler
inline constexpr int SSAT_E_DUP = -407;      // command registered already

// 0 means that commands can be registered for the module. Called again for
// a module, it forgets the module's commands and serves it on this runtime.
int ssat_lib_init(kw_global *global, const char *module);

// One argument as the framework read it; the field of its kind is set, the
// others are zero.
struct ssat_arg {
    int64_t num;
    const char *str;
    const uint8_t *mac;
};

// Type-erased handler: calls the registered function with its own type.
using ssat_invoker = std::function<int(std::span<const ssat_arg>)>;

// `kinds` holds one letter per handler parameter: 'd' number, 's' text,
// 'm' MAC address. The format's conversions must match its first letters.
int ssat_reg_mod_cmd_erased(const char *module, const char *cmd, int flags,
                            const char *fmt, ssat_invoker invoke,
                            const char *kinds);

namespace ssat_detail {
template <class T> constexpr bool is_text_v =
    std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, char>;
template <class T> constexpr bool is_mac_v =
    std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, uint8_t>;

template <class T> constexpr char kind_of() {
    if constexpr (std::is_pointer_v<T>) {
        static_assert(is_text_v<T> || is_mac_v<T>,
                      "a reference parameter is a text or a MAC address");
        return is_text_v<T> ? 's' : 'm';
    } else {
        static_assert(std::is_integral_v<T>, "a number parameter is an integer");
        return 'd';
    }
}

template <class T> T arg_as(const ssat_arg &a) {
    if constexpr (is_text_v<T> && std::is_pointer_v<T>)
        return const_cast<T>(a.str);
    else if constexpr (std::is_pointer_v<T>)
        return const_cast<T>(a.mac);
    else
        return static_cast<T>(a.num);
}

template <class... A> struct kinds {
    static constexpr char text[] = {kind_of<A>()..., '\0'};
};
}  // namespace ssat_detail

// Registers `handler` with its real signature: the framework never calls a
// function through a type that is not its own. Arguments that the format
// does not give reach the handler as 0 (null for a reference). A handler
// without a result counts as one that gives 0.
template <class R, class... A>
int ssat_reg_mod_cmd(const char *module, const char *cmd, int flags,
                     const char *fmt, R (*handler)(A...)) {
    if (handler == nullptr) return SSAT_E_PARAM;
    ssat_invoker inv = [handler]([[maybe_unused]] std::span<const ssat_arg> args) -> int {
        return [&]<size_t... I>(std::index_sequence<I...>) -> int {
            [[maybe_unused]] const ssat_arg none{};
            if constexpr (std::is_void_v<R>) {
                handler(ssat_detail::arg_as<A>(I < args.size() ? args[I] : none)...);
                return 0;
            } else {
                return static_cast<int>(handler(
                    ssat_detail::arg_as<A>(I < args.size() ? args[I] : none)...));
            }
        }(std::index_sequence_for<A...>{});
    };
    return ssat_reg_mod_cmd_erased(module, cmd, flags, fmt, std::move(inv),
                                   ssat_detail::kinds<A...>::text);
}

// snprintf with %m in addition: a reference to 6 bytes printed as
// 00:11:22:33:44:55, with width and '-' flag honoured.
int at_snprintf(char *buf, size_t size, const char *fmt, ...);
