#include "Platform/Services.h"

#include "Platform/FatalError.h"

#include <atomic>

namespace Platform {

namespace {
std::atomic<const Services*> installedServices = nullptr;
}

void installServices(const Services& services)
{
    if (installedServices.exchange(&services) != nullptr)
        fatalError("Platform::installServices() was called twice");
}

const Services& services()
{
    const Services* services = installedServices.load();
    if (services == nullptr)
        fatalError("Platform::services() was called before Platform::installServices()");
    return *services;
}

} // namespace Platform
