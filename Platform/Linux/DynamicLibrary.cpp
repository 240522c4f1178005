#include "Platform/Linux/DynamicLibrary.h"

#include "Platform/FatalError.h"

#include <dlfcn.h>
#include <fmt/format.h>

namespace Platform::Linux {

DynamicLibrary::DynamicLibrary(const char* name, const char* package)
    : m_name(name), m_package(package), m_handle(::dlopen(name, RTLD_LAZY | RTLD_LOCAL))
{
    if (m_handle == nullptr)
        fail();
}

DynamicLibrary::Symbol DynamicLibrary::symbol(const char* function) const
{
    void* const address = ::dlsym(m_handle, function);
    if (address == nullptr)
        fail();
    return {address};
}

void DynamicLibrary::fail() const
{
    const char* reason = ::dlerror();
    fatalError(fmt::format("{} cannot be loaded, install the package {}: {}", m_name, m_package,
                           reason != nullptr ? reason : "it lacks a function"));
}

} // namespace Platform::Linux
