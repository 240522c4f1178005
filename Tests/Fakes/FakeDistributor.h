#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

/// A push distributor on the session bus that answers as it is told, on a thread of its own, and leaves the
/// bus when destroyed. Says what happens: "registers " and a token, "answered " and the identifier, if there
/// is one.
struct FakeDistributor {
    using Dictionary = std::map<std::string, sdbus::Variant>;
    static constexpr const char* application = "com.quorvane.test";
    static constexpr const char* endpoint = "https://push.example/1";

    struct Script {
        /// To each registration; empty: none comes.
        Dictionary answer = {{"success", "REGISTRATION_SUCCEEDED"}};
        /// Called with each answer.
        std::string followUp = "NewEndpoint";
        std::string version = "2";
    };

    FakeDistributor(const std::string& suffix, std::function<void(std::string)> theSay, const Script& script)
        : say(std::move(theSay))
    {
        const std::string interface = "org.unifiedpush.Distributor" + script.version;
        const auto one = [=, this](const std::string&, const std::string& token, const std::string&) {
            say("registers " + token);
            call(script.followUp, token, std::string(endpoint));
            return std::make_tuple(script.answer.at("success").get<std::string>(), std::string());
        };
        const auto two = [=, this](sdbus::Result<Dictionary>&& result, const Dictionary& arguments) {
            say("registers " + arguments.at("token").get<std::string>());
            if (script.answer.empty())
                return;
            result.returnResults(script.answer);
            call(script.followUp, Dictionary{{"token", arguments.at("token")}, {"endpoint", endpoint}});
        };
        if (script.version == "1")
            object->registerMethod("Register").onInterface(interface).implementedAs(one);
        else
            object->registerMethod("Register").onInterface(interface).implementedAs(two);
        object->finishRegistration();
        connection->requestName("org.unifiedpush.Distributor." + suffix);
        connection->enterEventLoopAsync();
    }
    ~FakeDistributor() { connection->leaveEventLoop(); }

    /// With one argument by the second version of the application's interface, else by the first.
    template <typename... Arguments>
    void call(const std::string& method, const Arguments&... arguments)
    {
        const std::string version = sizeof...(arguments) == 1 ? "2" : "1";
        auto call = connector->createMethodCall("org.unifiedpush.Connector" + version, method);
        static_cast<void>((call << ... << arguments));
        connector->callMethod(call, [=, this](sdbus::MethodReply& reply, const sdbus::Error*) {
            Dictionary answer;
            if (version == "2")
                reply >> answer;
            say("answered " + (answer.contains("id") ? answer.at("id").get<std::string>() : ""));
        });
    }

    const std::function<void(std::string)> say;
    const std::unique_ptr<sdbus::IConnection> connection = sdbus::createSessionBusConnection();
    const std::unique_ptr<sdbus::IProxy> connector =
        sdbus::createProxy(*connection, application, "/org/unifiedpush/Connector");
    const std::unique_ptr<sdbus::IObject> object =
        sdbus::createObject(*connection, "/org/unifiedpush/Distributor");
};
