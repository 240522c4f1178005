#include "Platform/Error.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <string_view>
#include <system_error>

namespace Platform {

std::string qualifiedTypeName(const std::type_info& type)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    std::string name;
    for (std::string_view rest = status == 0 ? demangled.get() : type.name(); !rest.empty();) {
        const auto colons = rest.find("::");
        name.append(rest.substr(0, colons));
        if (colons != std::string_view::npos)
            name += '.';
        rest.remove_prefix(colons != std::string_view::npos ? colons + 2 : rest.size());
    }
    return name;
}

Error bridge(const std::exception& exception)
{
    std::string typeName = qualifiedTypeName(typeid(exception));
    Error error{typeName, typeName, 0, exception.what(), std::nullopt};
    if (const auto* known = dynamic_cast<const ErrorException*>(&exception)) {
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

} // namespace Platform
