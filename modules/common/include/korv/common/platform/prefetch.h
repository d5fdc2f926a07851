#pragma once

namespace KORV::Common::Platform
{
/// Asks for the cache line at an address, which need not be valid; a hint that some compilers can't pass on.
inline void prefetch([[maybe_unused]] const void* address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
    asm volatile(""); // else a function that does nothing but this is taken for one without effect, and left out
#endif
}
} // namespace KORV::Common::Platform
