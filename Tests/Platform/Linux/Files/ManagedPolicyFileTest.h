#pragma once

#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/ManagedPolicyFile.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

/// A watched policy in a temporary folder.
class ManagedPolicyFileTest : public testing::Test {
protected:
    /// Waits until `isTrue` returns true, checking after each reported change.
    bool eventually(const std::function<bool()>& isTrue)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), isTrue);
    }
    /// Makes `change` and waits for the expected dictionary, which never arrives if the change is missed.
    testing::AssertionResult follows(const std::function<void()>& change,
                                     const std::optional<Platform::PropertyList>& expected)
    {
        change();
        if (eventually([&] { return policy.dictionary() == expected; }))
            return testing::AssertionSuccess();
        const auto found = policy.dictionary();
        return testing::AssertionFailure() << "found " << (found ? found->description() : "none");
    }
    void watch()
    {
        policy.watch(watcher, [this] { noteChange(); });
    }
    void noteChange()
    {
        onChange();
        const std::lock_guard lock(m_mutex);
        m_changed.notify_all();
    }
    static std::optional<Platform::PropertyList> dictionary(std::int64_t value)
    {
        return Platform::PropertyList(Platform::PropertyList::Dictionary{{"a", value}});
    }
    static std::string json(int value) { return R"({"a": )" + std::to_string(value) + "}"; }

    /// Runs a shell command in the folder of the test. $F is the policy file; `policy N` prints a policy.
    void shell(const std::string& command) const
    {
        const std::string script = "umask 022; cd " + folder.path().string() + "; F=" + file +
                                   R"(; policy() { echo "{\"a\": $1}"; }; )" + command;
        ASSERT_EQ(std::system(script.c_str()), 0) << command;
    }

    TemporaryFolder folder;
    std::string file = "etc/quorvane/managed.json";
    RecordingUnifiedLog log;
    Platform::Linux::Files::PolicyPlaces places{
        .files = {folder.path("etc/quorvane/managed.plist"), folder.path("etc/quorvane/managed.json")},
        .fragments = folder.path("etc/quorvane/managed.d")};
    Platform::Linux::Files::ManagedPolicyFile policy{places, log.adapterLog};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    /// Called on the watcher's thread for each reported change.
    std::function<void()> onChange = [] {};
    Platform::Linux::Files::FileSystemWatcher watcher;
};

/// A file of the configuration, by its path below a folder "etc".
struct PolicyPart {
    const char* name;
    std::string file;
    /// A file that takes precedence.
    std::string above;
    bool isFragment;
};

class PolicyPartTest : public ManagedPolicyFileTest, public testing::WithParamInterface<PolicyPart> {
protected:
    PolicyPartTest() { file = "etc/" + GetParam().file; }
};
