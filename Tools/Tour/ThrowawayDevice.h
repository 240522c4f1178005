#pragma once

#include "Tools/Tour/ChildProcess.h"
#include "Tools/Tour/DrivenWindow.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

/// A device in a temporary folder, with state and policy file but without a session bus. The destructor
/// removes the folder.
class ThrowawayDevice {
public:
    /// `programs` is the build folder, with App/quorvane-mdm and Tools/qvctl/qvctl.
    explicit ThrowawayDevice(std::filesystem::path programs);
    ~ThrowawayDevice();
    ThrowawayDevice(const ThrowawayDevice&) = delete;
    ThrowawayDevice& operator=(const ThrowawayDevice&) = delete;

    [[nodiscard]] std::filesystem::path path(std::string_view name) const { return m_folder / name; }
    [[nodiscard]] std::filesystem::path policyFile() const { return path("policy/managed.json"); }
    [[nodiscard]] std::filesystem::path suiteFile() const
    {
        return path("data/quorvane-mdm/groups/group.com.quorvane.mdm.sqlite");
    }

    /// The socket where the app listens for local pushes.
    [[nodiscard]] std::filesystem::path pushSocket() const { return path("run/quorvane-mdm/push.sock"); }

    /// The window of the app. Blocks until the app has started.
    [[nodiscard]] DrivenWindow window() const { return DrivenWindow(windowSocket()); }

    /// The variables of programs that are started later, in addition to our own.
    [[nodiscard]] const ChildProcess::Environment& environment() const { return m_environment; }
    /// Sets a variable for programs that are started later.
    void setEnvironment(const std::string& name, std::string value)
    {
        m_environment[name] = std::move(value);
    }

    /// Replaces the policy file atomically.
    void replacePolicy(std::string_view content) const;
    void write(const std::filesystem::path& file, std::string_view content) const;
    /// The content of a file; empty if it cannot be read.
    [[nodiscard]] static std::string read(const std::filesystem::path& file);

    /// Starts the app on this device, with a readable log on standard error.
    [[nodiscard]] std::unique_ptr<ChildProcess> startApplication(const std::vector<std::string>& arguments = {
                                                                     "--log-stderr"}) const
    {
        return start("App/quorvane-mdm", arguments);
    }
    [[nodiscard]] std::unique_ptr<ChildProcess> startConsole(const std::vector<std::string>& arguments) const
    {
        return start("Tools/qvctl/qvctl", arguments);
    }
    /// Starts any program in the environment of this device.
    [[nodiscard]] std::unique_ptr<ChildProcess> startProgram(const std::vector<std::string>& command) const
    {
        return std::make_unique<ChildProcess>(command, m_environment);
    }
    /// Starts a bash script on this device: $DEVICE is its folder, $PROGRAMS the build folder, $QVCTL the
    /// console.
    [[nodiscard]] std::unique_ptr<ChildProcess> startShell(const std::string& script) const;

private:
    [[nodiscard]] std::filesystem::path windowSocket() const { return path("run/window.sock"); }
    [[nodiscard]] std::unique_ptr<ChildProcess> start(std::string_view program,
                                                      const std::vector<std::string>& arguments) const;

    std::filesystem::path m_programs;
    std::filesystem::path m_folder;
    ChildProcess::Environment m_environment;
};
