#pragma once

#include "Platform/Linux/Bus/SDBusVersions.h"

#include <chrono>
#include <string>
#include <thread>
#include <utility>

// Fakes use the library directly.
using namespace Platform::Linux::Bus;

#if __has_include(<sdbus-c++/VTableItems.h>)
template <typename Function>
void addMethod(sdbus::IObject& object, const std::string& interface, const std::string& name,
               Function function)
{
    object.addVTable(sdbus::registerMethod(MethodName(name)).implementedAs(std::move(function)))
        .forInterface(InterfaceName(interface));
}

/// To be called after the last addMethod().
inline void publishMethods(sdbus::IObject& /*object*/) {}

inline bool processPending(sdbus::IConnection& connection)
{
    return connection.processPendingEvent();
}
#else
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
