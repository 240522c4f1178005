#pragma once

#include "Tools/Tour/ChildProcess.h"
#include "Tools/Tour/DrivenWindow.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

/// A device of its own in a temporary folder: state, policy file, no session bus, and the programs that work
/// on them. Removed with all it holds at the end.
class ThrowawayDevice {
public:
    /// `programs` is the folder of the build that holds App/quorvane-mdm and Tools/qvctl/qvctl.
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

    /// Where the application listens for local pushes.
    [[nodiscard]] std::filesystem::path pushSocket() const { return path("run/quorvane-mdm/push.sock"); }

    /// The window of the application, once it is started.
    [[nodiscard]] DrivenWindow window() const { return DrivenWindow(windowSocket()); }

    /// For the programs started from now on.
    void setEnvironment(const std::string& name, std::string value)
    {
        m_environment[name] = std::move(value);
    }

    /// Replaces the policy file in one step.
    void replacePolicy(std::string_view content) const;
    void write(const std::filesystem::path& file, std::string_view content) const;

    /// Starts the application on this device, its log on standard error and readable.
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
    /// Starts a script of bash on this device: $DEVICE is its folder, $PROGRAMS that of the build, $QVCTL the
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
