// {fmt} as a library of its own for cross builds: the functions that its headers only declare.
#include <cstdio>

#include <fmt/format.h>

// Inline and made all the same: as such the linker leaves out those that nobody calls, which it
// does not do for plain functions. Clang leaves a defaulted one out itself.
#ifndef __clang__
#undef FMT_FUNC
#define FMT_FUNC [[gnu::used]] inline
#endif
// The one use of printf is in what a failed assertion says ahead of its end, of which a release has
// none. It would bring in 24 KB of the runtime.
#define fprintf(stream, ...) fflush(stream)
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template FMT_API auto dragonbox::to_decimal(float x) noexcept -> dragonbox::decimal_fp<float>;
template FMT_API auto dragonbox::to_decimal(double x) noexcept -> dragonbox::decimal_fp<double>;
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
template FMT_API void buffer<char>::append(const char*, const char*);
template FMT_API void vformat_to(buffer<char>&, string_view,
                                 basic_format_args<FMT_BUFFER_CONTEXT(char)>, locale_ref);

}  // namespace detail
FMT_END_NAMESPACE
