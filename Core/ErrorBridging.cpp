#include "Core/ErrorBridging.h"

#include <boost/core/demangle.hpp>

#include <string_view>
#include <system_error>
#include <utility>

namespace Core {

std::string qualifiedTypeName(const std::type_info& type)
{
    const std::string demangled = boost::core::demangle(type.name());
    std::string name;
    for (std::string_view rest = demangled; !rest.empty();) {
        const auto colons = rest.find("::");
        name.append(rest.substr(0, colons));
        if (colons != std::string_view::npos)
            name += '.';
        rest.remove_prefix(colons != std::string_view::npos ? colons + 2 : rest.size());
    }
    return name;
}

Platform::Error bridge(const std::exception& exception)
{
    std::string typeName = qualifiedTypeName(typeid(exception));
    Platform::Error error{typeName, typeName, 0, exception.what(), std::nullopt};
    if (const auto* known = dynamic_cast<const Platform::ErrorException*>(&exception)) {
        error.localizedDescription = known->description();
        error.code = known->errorCode();
        if (std::string domain = known->errorDomain(); !domain.empty())
            error.domain = std::move(domain);
        error.localizedFailureReason = known->failureReason();
    } else if (const auto* system = dynamic_cast<const std::system_error*>(&exception)) {
        const bool isPosix = system->code().category() == std::generic_category() ||
                             system->code().category() == std::system_category();
        error.domain = isPosix ? "NSPOSIXErrorDomain" : system->code().category().name();
        error.code = system->code().value();
    }
    return error;
}

} // namespace Core
