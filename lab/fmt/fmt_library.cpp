// fmt as a library of its own, for a standard library that the packaged one is not built with.
#include <fmt/format-inl.h>

namespace fmt::detail {

// The templates that format.h leaves to the library.
template thousands_sep_result<char> thousands_sep_impl(locale_ref);
template char decimal_point_impl(locale_ref);

}  // namespace fmt::detail
