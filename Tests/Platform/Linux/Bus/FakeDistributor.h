#pragma once

#include "Platform/Linux/Bus/SessionBus.h"
#include "Platform/Linux/Bus/UnifiedPushService.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/RunOn.h"
#include "Tests/Platform/Linux/Bus/SDBusVersions.h"
#include "Tests/Platform/Linux/Bus/Transcript.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

// A UnifiedPush distributor and an application that registers with it, which write what they see into one
// transcript.
namespace UnifiedPushTest {

using namespace Platform;

using Bytes = std::vector<std::uint8_t>;
using Value = sdbus::Variant;
using Dictionary = std::map<std::string, Value>;
constexpr const char* application = "com.quorvane.test";
constexpr const char* endpoint = "https://push.example/1";

/// How a distributor replies to a registration, and the call it makes afterwards.
struct Script {
    Dictionary answer = {{"success", Value("REGISTRATION_SUCCEEDED")}};
    std::string followUp = "NewEndpoint";
    /// A digit for each version of the interface that it offers.
    std::string versions = "2";
    /// Whether calls wait until the test starts the event loop of the bus.
    bool isHeld = false;
};

/// Runs a distributor until destroyed. Records the tokens registered and the replies to its calls.
struct FakeDistributor {
    FakeDistributor(Transcript& transcript, const std::string& name, const Script& script = {})
        : record([name, &transcript](const std::string& event) { transcript.add(name + event); })
    {
        const auto one = [=, this](const std::string&, const std::string& token, const std::string&) {
            record((script.versions == "1" ? " registers " : " uses version 1 ") + token);
            call(script.followUp, token, std::string(endpoint));
            return std::tuple(script.answer.at("success").get<std::string>(), std::string());
        };
        const auto two = [=, this](sdbus::Result<Dictionary>&& result, const Dictionary& arguments) {
            record(" registers " + arguments.at("token").get<std::string>());
            if (script.answer.empty())
                return;
            result.returnResults(script.answer);
            call(script.followUp,
                 Dictionary{{"token", arguments.at("token")}, {"endpoint", Value(endpoint)}});
        };
        for (const char version : script.versions) {
            const std::string interface = std::string("org.unifiedpush.Distributor") + version;
            version == '1' ? addMethod(*object, interface, "Register", one)
                           : addMethod(*object, interface, "Register", two);
        }
        publishMethods(*object);
        takeName(*bus, "org.unifiedpush.Distributor." + name);
        if (!script.isHeld)
            bus->enterEventLoopAsync();
    }
    ~FakeDistributor() { bus->leaveEventLoop(); }

    /// Uses version 2 of the interface for a dictionary, otherwise version 1.
    template <typename... Arguments>
    void call(const std::string& method, const Arguments&... arguments)
    {
        constexpr bool isOld = !std::is_same_v<std::tuple<Arguments...>, std::tuple<Dictionary>>;
        auto call = connector->createMethodCall(
            InterfaceName(isOld ? "org.unifiedpush.Connector1" : "org.unifiedpush.Connector2"),
            MethodName(method));
        static_cast<void>((call << ... << arguments));
        callAsync(*connector, call, [=, this](sdbus::MethodReply& reply, const sdbus::Error* error) {
            Dictionary answer;
            if (!isOld && error == nullptr)
                reply >> answer;
            record(" answered " + (error != nullptr        ? "error: " + error->getMessage()
                                   : answer.contains("id") ? answer.at("id").get<std::string>()
                                                           : method));
        });
    }

    void announce(const std::string& token, const std::string& url)
    {
        call("NewEndpoint", Dictionary{{"token", Value(token)}, {"endpoint", Value(url)}});
    }
    /// Sends a message without content. The bus thread of the application replies "Message" to it, after
    /// everything that has arrived before.
    void sendEmptyMessage(const std::string& token) { call("Message", Dictionary{{"token", Value(token)}}); }

    const std::function<void(const std::string&)> record;
    std::unique_ptr<sdbus::IConnection> bus = sdbus::createSessionBusConnection();
    std::unique_ptr<sdbus::IProxy> connector =
        sdbus::createProxy(*bus, ServiceName(application), ObjectPath("/org/unifiedpush/Connector"));
    std::unique_ptr<sdbus::IObject> object =
        sdbus::createObject(*bus, ObjectPath("/org/unifiedpush/Distributor"));
};

struct Application final : PushServiceListener {
    Application(Transcript& theTranscript, UserDefaults& store, const std::string& chosen = "",
                std::chrono::seconds answerTime = std::chrono::seconds(20))
        : transcript(theTranscript),
          service({bus, store, queue, timers, log.adapterLog}, {application, "Tests", chosen, answerTime})
    {
        bus.start();
        queue.async([this] { service.start(*this); });
    }
    ~Application() override { bus.stop(); }

    /// Advances the time after everything that has arrived is processed.
    void advance(std::chrono::seconds time)
    {
        constexpr int turns = 10; // Each turn processes one item.
        for (int turn = 0; turn < turns; ++turn)
            runOn(queue);
        runOn(queue, [&] { timers.advance(time); });
    }

    void registerDevice()
    {
        queue.async([this] { service.registerDevice(); });
    }
    void didRegister(const Data& token) override
    {
        transcript.add("token " + std::string(reinterpret_cast<const char*>(token.data()), token.size()));
    }
    void didFailToRegister(const Error& error) override
    {
        transcript.add("error " + std::to_string(error.code) + " " + error.localizedDescription);
    }
    void didReceive(const PropertyList::Dictionary& payload, Completion theCompletion) override
    {
        completion = std::move(theCompletion);
        transcript.add("payload " + payload.at("n").description());
        onPayload();
    }
    void didReceiveUnreadablePush() override { transcript.add("unreadable push"); }

    Transcript& transcript;
    Completion completion;
    std::function<void()> onPayload = [] {};
    /// Used on the main thread.
    ManualScheduler timers;
    RecordingUnifiedLog log;
    Linux::Bus::SessionBus bus{log.adapterLog};
    Linux::Bus::UnifiedPushService service;
    Linux::WorkerQueue queue{"main", Linux::WorkerQueue::Priority::default_};
};

} // namespace UnifiedPushTest
