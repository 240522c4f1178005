#pragma once

#include "Tools/qvctl/Device.h"

#include <boost/json.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Qvctl {

/// Whether a condition of `status --check` or `wait` is met.
struct Verification {
    bool isMet = false;
    /// Why not, as a clause; empty if it is met. Quotes no configured value.
    std::string reason = {};
    /// If the condition will not be met unless someone changes the policy file: the exit code that says so.
    std::optional<ExitCode> obstacle = {};
};

/// Looks whether conditions are met on this device. Reads the stores and the policy file at each call.
class Conditions {
public:
    /// `device` must outlive this object.
    Conditions(const Device& device, const Options& options) : m_device(device), m_options(options) {}

    /// The values of the policy file are those of the stored snapshot.
    [[nodiscard]] Verification applied() const;
    /// The same, and the policy file has this content. Another content is an obstacle.
    [[nodiscard]] Verification installedApplied(std::string_view content) const;
    /// The stored snapshot has this version or a later one.
    [[nodiscard]] Verification reached(std::int64_t version) const;
    /// The app runs for this user.
    [[nodiscard]] Verification running() const;
    /// The last upload of the device token to the backend of the stored snapshot succeeded.
    [[nodiscard]] Verification uploaded() const;

    /// The version of the stored snapshot; 0 if there is none or it cannot be read.
    [[nodiscard]] std::int64_t version() const;
    /// The files that change when one of the conditions does. `running` changes none.
    [[nodiscard]] Platform::Linux::Files::PolicyPlaces watchedFiles() const;

private:
    const Device& m_device;
    const Options& m_options;
};

/// A condition that the user can name.
struct NamedCondition {
    std::string_view name;
    Verification (Conditions::*verify)() const;
};

/// In the order in which they are shown.
inline constexpr std::array<NamedCondition, 3> namedConditions{{{"applied", &Conditions::applied},
                                                                {"running", &Conditions::running},
                                                                {"uploaded", &Conditions::uploaded}}};

using Verifications = std::vector<std::pair<std::string_view, Verification>>;

/// Looks whether the named conditions are met.
Verifications verify(const Options& options, const std::vector<std::string>& names);
/// Prints one row of `status` for each condition.
void printConditions(const Verifications& verifications);
boost::json::array conditionsJSON(const Verifications& verifications);

} // namespace Qvctl
