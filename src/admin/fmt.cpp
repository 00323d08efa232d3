// The code of {fmt}, compiled once for the whole program. Elsewhere its headers only declare these
// functions, which compiles in less than half the time.
#define FMT_HEADER_ONLY
#include <fmt/format.h>

namespace {

// The compiler emits here what is used here: all that other files call.
[[gnu::used]] std::string (*const kVformat)(fmt::string_view, fmt::format_args) = fmt::vformat;
[[gnu::used]] bool (*const kIsPrintable)(uint32_t) = fmt::detail::is_printable;
[[gnu::used]] const auto kThousandsSeparator = &fmt::detail::thousands_sep_impl<char>;
[[gnu::used]] const auto kDecimalPoint = &fmt::detail::decimal_point_impl<char>;
[[gnu::used]] std::exception* makeError() {
  return new fmt::format_error("");
}

}  // namespace
