// The code of {fmt}, compiled once for the whole program. Elsewhere its headers only declare these
// functions, which compiles in less than half the time.
#include <fmt/format-inl.h>

template fmt::detail::thousands_sep_result<char> fmt::detail::thousands_sep_impl(locale_ref);
template char fmt::detail::decimal_point_impl(locale_ref);
