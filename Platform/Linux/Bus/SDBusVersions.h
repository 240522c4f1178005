#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

// What differs between versions 1 and 2 of sdbus-c++, also for tests. The names are those of version 2, which
// introduced this header, has a type for each kind of name and a different API for calls and exports.
namespace Platform::Linux::Bus {

#if __has_include(<sdbus-c++/VTableItems.h>)
using ErrorName = sdbus::Error::Name;
using sdbus::BusName;
using sdbus::InterfaceName;
using sdbus::MethodName;
using sdbus::ObjectPath;
using sdbus::ServiceName;
using sdbus::SignalName;

/// `completion` takes the reply and a pointer to the error, which is null for a reply. If `timeout`, in
/// microseconds, is 0, the library's own applies.
template <typename Completion>
void callAsync(sdbus::IProxy& proxy, const sdbus::MethodCall& call, Completion completion,
               std::uint64_t timeout = 0)
{
    const auto callback = [completion = std::move(completion)](sdbus::MethodReply reply,
                                                               std::optional<sdbus::Error> error) mutable {
        completion(reply, error ? &*error : nullptr);
    };
    proxy.callMethodAsync(call, callback, timeout);
}
#else
using BusName = std::string;
using ErrorName = std::string;
using InterfaceName = std::string;
using MethodName = std::string;
using ObjectPath = std::string;
using ServiceName = std::string;
using SignalName = std::string;

template <typename Completion>
void callAsync(sdbus::IProxy& proxy, const sdbus::MethodCall& call, Completion completion,
               std::uint64_t timeout = 0)
{
    proxy.callMethod(call, std::move(completion), timeout);
}
#endif

} // namespace Platform::Linux::Bus
