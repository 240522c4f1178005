#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <utility>

// Fakes use the library directly, and its versions 1 and 2 differ. The names are those of version 2, which
// has a type for each kind of name.
#if __has_include(<sdbus-c++/VTableItems.h>)
using ErrorName = sdbus::Error::Name;
using sdbus::BusName;
using sdbus::InterfaceName;
using sdbus::MethodName;
using sdbus::ObjectPath;
using sdbus::ServiceName;
using sdbus::SignalName;

template <typename Function>
void addMethod(sdbus::IObject& object, const std::string& interface, const std::string& name,
               Function function)
{
    object.addVTable(sdbus::registerMethod(MethodName(name)).implementedAs(std::move(function)))
        .forInterface(InterfaceName(interface));
}

/// To be called after the last addMethod().
inline void publishMethods(sdbus::IObject& /*object*/) {}

/// `completion` takes the reply and a pointer to the error, which is null for a reply. Without a time limit,
/// the library's own applies.
template <typename Completion>
void callAsync(sdbus::IProxy& proxy, const sdbus::MethodCall& call, Completion completion,
               std::uint64_t microseconds = 0)
{
    const auto callback = [completion = std::move(completion)](sdbus::MethodReply reply,
                                                               std::optional<sdbus::Error> error) mutable {
        completion(reply, error ? &*error : nullptr);
    };
    proxy.callMethodAsync(call, callback, microseconds);
}

inline bool processPending(sdbus::IConnection& connection)
{
    return connection.processPendingEvent();
}
#else
using BusName = std::string;
using ErrorName = std::string;
using InterfaceName = std::string;
using MethodName = std::string;
using ObjectPath = std::string;
using ServiceName = std::string;
using SignalName = std::string;

template <typename Function>
void addMethod(sdbus::IObject& object, const std::string& interface, const std::string& name,
               Function function)
{
    object.registerMethod(name).onInterface(interface).implementedAs(std::move(function));
}

inline void publishMethods(sdbus::IObject& object)
{
    object.finishRegistration();
}

template <typename Completion>
void callAsync(sdbus::IProxy& proxy, const sdbus::MethodCall& call, Completion completion,
               std::uint64_t microseconds = 0)
{
    proxy.callMethod(call, std::move(completion), microseconds);
}

inline bool processPending(sdbus::IConnection& connection)
{
    return connection.processPendingRequest();
}
#endif

/// Takes a name that a connection which was closed just now may still own.
inline void takeName(sdbus::IConnection& connection, const std::string& name)
{
    constexpr int attemptCount = 20'000;
    for (int attempt = 1;; ++attempt) {
        try {
            connection.requestName(ServiceName(name));
            return;
        } catch (const sdbus::Error&) {
            if (attempt == attemptCount)
                throw;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}
