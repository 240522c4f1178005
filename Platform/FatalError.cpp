#include "Platform/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace Platform {

void fatalError(std::string_view sentence) noexcept
{
    std::fprintf(stderr, "Fatal error: %.*s\n", static_cast<int>(sentence.size()), sentence.data());
    std::abort();
}

} // namespace Platform
